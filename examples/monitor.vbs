' A machine monitor: it reports a cycle and a good part of a machine and works off what waits.
'
'   kxdata7 create plant.db --demo
'   cscript //nologo monitor.vbs [CONNECTION_STRING [MACHINE [DEPARTMENT LOCATION GROUP]]]
'
' Without arguments: the first lathe of a demo plant in plant.db. All numbers are those of the DNC system.
' Exit status: 0 everything was worked in, 1 something was not.
Option Explicit

Const kSqlServer = 2  ' the dialect of the statements; an SQLite plant takes each of the three
Const kCycle = 9, kGoodParts = 13
Const kStart = 0, kEnd = 1

Dim component, machine, department, location, group

Function Argument(index, default)
  Argument = default
  If index < WScript.Arguments.Count Then Argument = WScript.Arguments(index)
End Function

Sub GiveUp(reason)
  WScript.Echo "monitor: " & reason
  WScript.Quit 1
End Sub

' After a call that could fail as a whole.
Sub Check(what)
  If Err.Number <> 0 Then GiveUp what & ": " & Err.Description
End Sub

Sub Report(what, command, time_code, param)
  On Error Resume Next
  Dim queued, reason
  queued = component.AppendItemToMDCLogDNC(department, location, group, machine, command, param, time_code, reason)
  Check what
  If Not queued And reason = "" Then reason = "the database did not take the event"
  If Not queued Then GiveUp what & ": " & reason
  WScript.Echo "Queued: " & what & " of machine " & machine & "."
End Sub

' Applies the events that wait, one by one, until none is taken off the queue.
Sub WorkOff
  On Error Resume Next
  Dim applied, done, reason, waiting
  applied = 0
  Do
    done = False
    done = component.DoNextItemFromMDCLog(reason)
    Check "The next event"
    If done Then applied = applied + 1
  Loop While done
  waiting = component.GetMDCLogCount()
  Check "The count"
  WScript.Echo "Applied " & applied & " events, " & waiting & " wait."
  ' With a text the first event stays for this reason. Without one nothing waits, or the event was applied and only
  ' its row stays: to go on would apply it again and again.
  If reason <> "" Then GiveUp "The first event stays: " & reason
  If waiting > 0 Then GiveUp "The first event stays although it was applied, or was queued just now."
End Sub

Sub Main
  On Error Resume Next
  Dim connected, reason
  Set component = CreateObject("KXData7.CKXData7Obj")
  Check "The component is not registered"
  machine = Argument(1, 101)
  department = Argument(2, 10)
  location = Argument(3, 1)
  group = Argument(4, 10)
  connected = component.ConnectToDatabase(Argument(0, "Provider=SQLite;Data Source=plant.db"), kSqlServer, reason)
  Check "The connection"
  If Not connected Then GiveUp reason
  Report "cycle start", kCycle, kStart, ""
  Report "cycle end", kCycle, kEnd, ""
  Report "one good part", kGoodParts, kStart, 1
  WorkOff
End Sub

Main
