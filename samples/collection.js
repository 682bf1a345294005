// The collection from JScript, without registration. Run it in the folder of the developer package
// with one of
//
//     x86\velt script samples\collection.js
//     %SystemRoot%\SysWOW64\cscript //nologo samples\collection.js
//     %SystemRoot%\System32\cscript //nologo samples\collection.js      for the 64-bit edition
//
// The first makes the component's classes known by itself. For the others the system's
// activation-context object reads the manifest of the edition of the script host's kind.

function createCollection()
{
    var progId = "VeltHTTPClient.EnumVariantCol12OEM";
    try
    {
        return new ActiveXObject(progId);
    }
    catch (notKnown)
    {
        // By design registration alone does not make the collection creatable.
        var folder = WScript.ScriptFullName.replace(/[^\\]*\\[^\\]*$/, "");
        var process = new ActiveXObject("WScript.Shell").Environment("Process");
        var edition = process("PROCESSOR_ARCHITECTURE") == "x86" ? "x86" : "x64";
        var context = new ActiveXObject("Microsoft.Windows.ActCtx");
        context.Manifest = folder + edition + "\\VeltHTTPClient12OEM.Assembly.manifest";
        return context.CreateObject(progId);
    }
}

var values = createCollection();
values.Add("first");
values.Add(2.5);
values.Add(true);
WScript.Echo("Count: " + values.Count);
WScript.Echo("Item(2): " + values.Item(2)); // positions count from 1

values.Remove(1);
for (var e = new Enumerator(values); !e.atEnd(); e.moveNext())
{
    WScript.Echo("value: " + e.item());
}

try
{
    values.Item(3);
}
catch (error) // E_FAIL past the end, by design; Remove says E_INVALIDARG
{
    WScript.Echo("Item(3) fails");
}
values.Clear();
WScript.Echo("Count after Clear: " + values.Count);
