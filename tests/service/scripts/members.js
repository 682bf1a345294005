// Every member of the service, as a script uses it.
var service = new ActiveXObject("VeltHTTPClient.VeltHTTPService12OEM");
var url = "http://jscript.velt.example/folder/page";
var guid = "{0F8FAD5B-D9CB-469F-A165-70867728950E}";

WScript.Echo("none: [" + service.ReadData(url, "x") + "]");
service.WriteData(url, "name", "value");
WScript.Echo("read: " + service.ReadData(url, "anything"));
service.SafeWriteData(url, "n\u00E4me", "v\u0416lue");
service.SafeWriteData(url, "empty", "");
WScript.Echo("safe: " + (service.SafeReadData(url, "n\u00E4me") == "v\u0416lue"));
WScript.Echo("empty: [" + service.SafeReadData(url, "empty") + "]");
WScript.Echo("missing: [" + service.SafeReadData(url, "missing") + "]");
WScript.Echo("hidden: " + (service.ReadData(url, "").indexOf("lue=") < 0));
service.domain = ".velt.example";
WScript.Echo("domain: " + service.GetDomain());
WScript.Echo("redirect: " + service.Redirect + "LinkId=5");
WScript.Echo("connected: " + service.IsConnected);
WScript.Echo("tag: " + typeof service.GetServiceTag());
WScript.Echo("available: " + service.IsUpdateOrMessageAvailable(guid, "1.0", 1033, true));
service.InvokeUpdate(guid, "1.0", 1033, "A product");
service.StartUpdateService(guid, "1.0", 1033, "A product");
service.StartService();
WScript.Echo("done");
