// The same calls from JScript, which passes nothing by reference: an error text does not come back.
//
//   cscript //nologo calls.js CONNECTION_STRING
//
// The plant is one on which calls.vbs ran. The last line is END.
function expect(what, found, expected) {
  if (found !== expected) WScript.Echo(what + ": [" + found + "], not [" + expected + "]");
}

function expectError(what, call, number, description) {
  try {
    call();
    WScript.Echo(what + ": no error");
  } catch (error) {
    expect(what, error.number, number | 0);
    if (description !== undefined) expect(what, error.description, description);
  }
}

var plant = WScript.Arguments(0);
var mdc = new ActiveXObject("KXData7.CKXData7Obj");

expect("a new object", mdc.IsConnected(), false);
expectError("GetMDCLogCount", function () { mdc.GetMDCLogCount(); }, 0x80004005,
            "Operation is not allowed when the object is closed.");
expect("nowhere", mdc.ConnectToDatabase("Provider=SQLite;Data Source=nowhere.db", 2, ""), false);
expectError("a word for a number", function () { mdc.ConnectToDatabase(plant, "two", ""); }, 0x80020005);
expectError("too few arguments", function () { mdc.ConnectToDatabase(plant, 2); }, 0x8002000E);
expectError("a method that is none", function () { mdc.Disconnect(); }, 0x800A01B6);
expect("no dialect", mdc.ConnectToDatabase(plant, 7, undefined), true);
expect("its hint", mdc.GetNoLock(), undefined);
expect("a dialect", mdc.ConnectToDatabase(plant, "2", ""), true);
expect("its hint", mdc.GetNoLock(), " with (NOLOCK)");
expect("connected", mdc.IsConnected(), true);

expect("logon", mdc.AppendItemToMDCLogDNC(10, 1, 10, "102", 4, "Zo\u00eb Lindqvist", 0, ""), true);
expect("custom", mdc.AppendItemToMDCLogDNC(10, 1, 10, 102.0, 100, "\u20ac \ud83d\ude00", 2, ""), true);
expect("refresh", mdc.AppendItemToMDCLog(1, 1, 1, 2, -1, "", 0, ""), true);
expect("count", mdc.GetMDCLogCount(), 3);
while (mdc.DoNextItemFromMDCLog("")) {}
expect("what is left", mdc.GetMDCLogCount(), 0);
expect("completion", mdc.CompleteMachineDataRecord(1), undefined);
WScript.Echo("END");
