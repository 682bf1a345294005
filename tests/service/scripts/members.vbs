' Every member of the service, as a script uses it.
Dim service, url, guid
Set service = CreateObject("VeltHTTPClient.VeltHTTPService12OEM.2")
url = "http://vbscript.velt.example/folder/page"
guid = "{0F8FAD5B-D9CB-469F-A165-70867728950E}"

WScript.Echo "none: [" & service.ReadData(url, "x") & "]"
service.WriteData url, "name", "value"
WScript.Echo "read: " & service.ReadData(url, "anything")
service.SafeWriteData url, "n" & Chr(228) & "me", "v" & Chr(246) & "lue"
service.SafeWriteData url, "empty", ""
WScript.Echo "safe: " & (service.SafeReadData(url, "n" & Chr(228) & "me") = "v" & Chr(246) & "lue")
WScript.Echo "empty: [" & service.SafeReadData(url, "empty") & "]"
WScript.Echo "missing: [" & service.SafeReadData(url, "missing") & "]"
WScript.Echo "hidden: " & (InStr(service.ReadData(url, ""), "lue=") = 0)
service.domain = ".velt.example"
WScript.Echo "domain: " & service.GetDomain()
WScript.Echo "redirect: " & service.Redirect & "LinkId=5"
WScript.Echo "connected: " & service.IsConnected
WScript.Echo "tag: " & TypeName(service.GetServiceTag())
WScript.Echo "available: " & service.IsUpdateOrMessageAvailable(guid, "1.0", 1033, True)
service.InvokeUpdate guid, "1.0", 1033, "A product"
service.StartUpdateService guid, "1.0", 1033, "A product"
service.StartService
WScript.Echo "done"
