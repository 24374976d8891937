' Calls every method as scripts do and says what comes back otherwise than it must.
'
'   cscript //nologo calls.vbs CONNECTION_STRING
'
' The plant is a demo plant on SQLite. The last line is END; a script that stops early says nothing of it. There is no
' Option Explicit, since variables that nobody declares belong to the cases.
Dim mdc, plant, declared_outside

' A failing statement is left out as a whole: the next check finds its error.
Sub Expect(what, found, expected)
  If Err.Number <> 0 Then WScript.Echo "before " & what & ": error " & Err.Number & ", " & Err.Description
  Err.Clear
  If found <> expected Then WScript.Echo what & ": [" & found & "], not [" & expected & "]"
End Sub

Sub ExpectError(what, number)
  If Err.Number <> number Then WScript.Echo what & ": error " & Err.Number & ", not " & number
  Err.Clear
End Sub

' An error with the component's own text.
Sub ExpectFailure(what, description)
  If Err.Source <> "KXData7.CKXData7Obj" Then WScript.Echo what & ": source [" & Err.Source & "]"
  If Err.Description <> description Then WScript.Echo what & ": description [" & Err.Description & "]"
  ExpectError what, &H80004005
End Sub

' A value with its type.
Function Told(value)
  Told = TypeName(value)
  If VarType(value) <> vbBoolean Then
    Told = Told & " " & value
  ElseIf value Then
    Told = "True"
  Else
    Told = "False"
  End If
End Function

Sub ClosedConnection
  On Error Resume Next
  Const closed = "Operation is not allowed when the object is closed."
  Dim text
  Expect "IsConnected", Told(mdc.IsConnected()), "False"
  mdc.GetMDCLogCount
  ExpectFailure "GetMDCLogCount", closed
  mdc.CompleteMachineDataRecord 1
  ExpectFailure "CompleteMachineDataRecord", closed
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 9, "", 0, text
  ExpectFailure "AppendItemToMDCLogDNC", closed
  Expect "AppendItemToMDCLog", Told(mdc.AppendItemToMDCLog(1, 1, 1, 1, 6, "", 0, text)), "False"
  Expect "its text", Told(text), "String " & closed
  text = Empty
  Expect "DoNextItemFromMDCLog", Told(mdc.DoNextItemFromMDCLog(text)), "False"
  Expect "its text", Told(text), "String " & closed
End Sub

' Numbers of any type, variables of any kind for the error text, and what is refused.
Sub Arguments
  On Error Resume Next
  Const nowhere = "Provider=SQLite;Data Source=nowhere.db"
  Const reason = "String cannot open ""nowhere.db"": unable to open database file"
  Dim text, texts(1), number
  Expect "a local variable", Told(mdc.ConnectToDatabase(nowhere, 2, text)), "False"
  Expect "its text", Told(text), reason
  Expect "an outer variable", Told(mdc.ConnectToDatabase(nowhere, 2, declared_outside)), "False"
  Expect "its text", Told(declared_outside), reason
  Expect "an undeclared variable", Told(mdc.ConnectToDatabase(nowhere, 2, declared_nowhere)), "False"
  Expect "its text", Told(declared_nowhere), reason
  number = 5
  Expect "a number's variable", Told(mdc.ConnectToDatabase(nowhere, 2, number)), "False"
  Expect "its text", Told(number), reason
  Expect "a literal", Told(mdc.ConnectToDatabase(nowhere, 2, "literal")), "False"
  text = "kept"
  Expect "a value in parentheses", Told(mdc.ConnectToDatabase(nowhere, 2, (text))), "False"
  Expect "its variable", Told(text), "String kept"
  Expect "an array's element", Told(mdc.ConnectToDatabase(nowhere, 2, texts(1))), "False"
  Expect "success", Told(mdc.ConnectToDatabase(plant, 2, text)), "True"
  Expect "its variable", Told(text), "String kept"
  Expect "success without a text", Told(mdc.ConnectToDatabase(plant, 2, declared_never)), "True"
  Expect "its variable", Told(declared_never), "Empty "

  mdc.ConnectToDatabase plant, "two", text
  ExpectError "a word for a number", 13
  mdc.ConnectToDatabase plant, Null, text
  ExpectError "Null for a number", 13
  mdc.ConnectToDatabase plant, mdc, text
  ExpectError "an object for a number", 13
  mdc.ConnectToDatabase plant, 3E9, text
  ExpectError "too large a number", 6
  mdc.ConnectToDatabase Null, 2, text
  ExpectError "Null for a text", 13
  mdc.ConnectToDatabase plant, 2, Null
  ExpectError "Null for the error text", 13
  mdc.ConnectToDatabase plant, , text
  ExpectError "no number", 449
  mdc.ConnectToDatabase plant, 2
  ExpectError "too few arguments", 450
  mdc.ConnectToDatabase plant, 2, text, 4
  ExpectError "too many arguments", 450
  mdc.Disconnect
  ExpectError "a method that is none", 438
  mdc.IsConnected = True
  ExpectError "a method taken for a property", 438
  Expect "the connection after all that", Told(mdc.IsConnected), "True"
  Expect "a name in small letters", Told(mdc.isconnected), "True"
End Sub

Sub Dialects
  On Error Resume Next
  Dim text
  Expect "Oracle", Told(mdc.ConnectToDatabase(plant, "0", text)), "True"
  Expect "its hint", Told(mdc.GetNoLock()), "String "
  Expect "Access", Told(mdc.ConnectToDatabase(plant, 1.4, text)), "True"
  Expect "its hint", Told(mdc.GetNoLock()), "String "
  Expect "no dialect", Told(mdc.ConnectToDatabase(plant, 3, text)), "True"
  Expect "its hint", Told(mdc.GetNoLock()), "Empty "
  Expect "its queue", Told(mdc.AppendItemToMDCLog(1, 1, 1, 1, 6, "", 0, text)), "False"
  Expect "its text", Told(text), "String Type mismatch"
  mdc.GetMDCLogCount
  ExpectFailure "its count", "Type mismatch"
  Expect "SQL Server", Told(mdc.ConnectToDatabase(plant, 2, text)), "True"
  Expect "its hint", Told(mdc.GetNoLock()), "String  with (NOLOCK)"
End Sub

' A short shift of the first lathe.
Sub Events
  On Error Resume Next
  Dim text, two
  text = "old"
  Expect "logon", Told(mdc.AppendItemToMDCLog(1, 1, 1, 1, 1, "Anna Berg", 0, text)), "True"
  Expect "its text", Told(text), "String "
  Expect "job", Told(mdc.AppendItemToMDCLogDNC("10", "1", "10", "101", "5", "J-1001", "0", text)), "True"
  Expect "operation", Told(mdc.AppendItemToMDCLogDNC(10.0, 1.0, 1E1, 101.4, 7.0, 10, 0.0, "")), "True"
  Expect "count", Told(mdc.GetMDCLogCount()), "Long 3"
  Expect "first", Told(mdc.DoNextItemFromMDCLog(text)), "True"
  Expect "second", Told(mdc.DoNextItemFromMDCLog("")), "True"
  Expect "third", Told(mdc.DoNextItemFromMDCLog(declared_nowhere)), "True"
  Expect "nothing", Told(mdc.DoNextItemFromMDCLog(text)), "False"
  Expect "its text", Told(text), "String "

  two = 2
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 8, "", 0, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 8, "", 1, text
  Call mdc.AppendItemToMDCLogDNC(10, 1, 10, 101, 9, "", 0, text)
  Call mdc.AppendItemToMDCLogDNC(10, 1, 10, 101, 9, Empty, 1, text)
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 13, 5, 0, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 14, 2.17, 0, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 11, "01", 0, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 11, "01", 1, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 100, "Tank " & two, two, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 10, "", 0, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 10, "", 1, text
  mdc.AppendItemToMDCLog 1, 1, 1, 1, -1, "", 0, text
  mdc.AppendItemToMDCLog 1, 1, 1, 1, -1, "", 0, text
  mdc.AppendItemToMDCLogDNC 10, 1, 10, 101, 5, "", 1, text
  Expect "all", Told(mdc.GetMDCLogCount()), "Long 13"
  While mdc.DoNextItemFromMDCLog(text)
  WEnd
  Expect "the last text", Told(text), "String "
  Expect "what is left", Told(mdc.GetMDCLogCount()), "Long 0"
End Sub

Sub Main
  On Error Resume Next
  plant = WScript.Arguments(0)
  Set mdc = CreateObject("KXData7.CKXData7Obj")
  Expect "TypeName", TypeName(mdc), "_CKXData7Obj"
  ClosedConnection
  Arguments
  Dialects
  Events
  Expect "the end", "", ""
End Sub

Main
WScript.Echo "END"
