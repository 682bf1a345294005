// A script that shows a licence agreement through the registered component and prints the user's
// answer. Run it with the 32-bit script host: cscript //nologo eula_script.js agreement.rtf texts.xml
var dialog = new ActiveXObject("VeltHTTPClientX.VeltEulaDlg12OEM");
var accepted = dialog.LaunchEula(WScript.Arguments(0), WScript.Arguments(1));
WScript.Echo(accepted ? "accepted" : "declined");
