// All members of the HTTP service object, from JScript. The component must be registered, and the
// script host one of the edition's kind. In the folder of the developer package:
//
//     cscript //nologo samples\http_service.js

var service = new ActiveXObject("VeltHTTPClient.VeltHTTPService12OEM");
var site = "http://samples.velt.example/";
var product = "{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";

function show(what, value)
{
    WScript.Echo(what + ": " + value);
}

function orNone(text)
{
    return text ? text : "(none)";
}

function yesNo(flag)
{
    return flag ? "yes" : "no";
}

// Named values in the cookies of a site. ReadData returns all of them, whatever name it is given.
service.WriteData(site, "visits", "3");
show("ReadData", orNone(service.ReadData(site, "")));
show("ReadData of a site without cookies", orNone(service.ReadData("http://none.velt.example/", "")));

// The same, hidden from a casual look.
service.domain = "samples.velt.example";
show("GetDomain", service.GetDomain());
service.SafeWriteData(site, "user", "Ann; visits=4");
show("SafeReadData", service.SafeReadData(site, "user"));
show("SafeReadData of a name that was not written", orNone(service.SafeReadData(site, "other")));

show("Redirect", service.Redirect);
show("GetServiceTag", orNone(service.GetServiceTag()));

// The update agent. Started work goes on while this object lives.
show("there is an update agent", yesNo(service.IsUpdateOrMessageAvailable(product, "3.0", 1033, false)));
show("it has an update or a message",
     yesNo(service.IsUpdateOrMessageAvailable(product, "3.0", 1033, true)));
service.InvokeUpdate(product, "3.0", 1033, "The sample");
service.StartUpdateService(product, "3.0", 1033, "The sample");
service.StartService();
show("IsConnected, before queued work has run", yesNo(service.IsConnected));
