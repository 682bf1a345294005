' All members of the HTTP service object, from VBScript. The component must be registered, and the
' script host one of the edition's kind. In the folder of the developer package:
'
'     cscript //nologo samples\http_service.vbs

Option Explicit

Const site = "http://samples.velt.example/"
Const product = "{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}"

Sub Show(what, value)
    WScript.Echo what & ": " & value
End Sub

Function OrNone(text)
    If text = "" Then OrNone = "(none)" Else OrNone = text
End Function

Function YesNo(flag)
    If flag Then YesNo = "yes" Else YesNo = "no"
End Function

Dim service
Set service = CreateObject("VeltHTTPClient.VeltHTTPService12OEM")

' Named values in the cookies of a site. ReadData returns all of them, whatever name it is given.
service.WriteData site, "visits", "3"
Show "ReadData", OrNone(service.ReadData(site, ""))
Show "ReadData of a site without cookies", OrNone(service.ReadData("http://none.velt.example/", ""))

' The same, hidden from a casual look.
service.domain = "samples.velt.example"
Show "GetDomain", service.GetDomain()
service.SafeWriteData site, "user", "Ann; visits=4"
Show "SafeReadData", service.SafeReadData(site, "user")
Show "SafeReadData of a name that was not written", OrNone(service.SafeReadData(site, "other"))

Show "Redirect", service.Redirect
Show "GetServiceTag", OrNone(service.GetServiceTag())

' The update agent. Started work goes on while this object lives.
Show "there is an update agent", YesNo(service.IsUpdateOrMessageAvailable(product, "3.0", 1033, False))
Show "it has an update or a message", _
     YesNo(service.IsUpdateOrMessageAvailable(product, "3.0", 1033, True))
service.InvokeUpdate product, "3.0", 1033, "The sample"
service.StartUpdateService product, "3.0", 1033, "The sample"
service.StartService
Show "IsConnected, before queued work has run", YesNo(service.IsConnected)
