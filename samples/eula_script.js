// A script that shows a licence agreement through the registered component and prints the user's
// answer. Run it in the folder of the developer package, with the script host of the edition's
// kind:
//
//     cscript //nologo samples\eula_script.js samples\eula\agreement.rtf samples\eula\texts\DEU.xml

if (WScript.Arguments.length != 2)
{
    WScript.Echo("usage: eula_script.js <agreement.rtf> <texts.xml>");
    WScript.Quit(2);
}

try
{
    var dialog = new ActiveXObject("VeltHTTPClientX.VeltEulaDlg12OEM");
    var accepted = dialog.LaunchEula(WScript.Arguments(0), WScript.Arguments(1));
    WScript.Echo(accepted ? "accepted" : "declined");
}
catch (error)
{
    WScript.Echo("failed: " + error.message);
    WScript.Quit(1);
}
