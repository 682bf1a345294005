' The collection from VBScript, without registration. Run it in the folder of the developer package
' with one of
'
'     x86\velt script samples\collection.vbs
'     %SystemRoot%\SysWOW64\cscript //nologo samples\collection.vbs
'     %SystemRoot%\System32\cscript //nologo samples\collection.vbs      for the 64-bit edition
'
' The first makes the component's classes known by itself. For the others the system's
' activation-context object reads the manifest of the edition of the script host's kind.
Option Explicit

Function CreateCollection()
    Const progId = "VeltHTTPClient.EnumVariantCol12OEM"
    Dim context, folder, edition
    On Error Resume Next
    Set CreateCollection = CreateObject(progId)
    If Err.Number = 0 Then Exit Function
    On Error GoTo 0
    ' By design registration alone does not make the collection creatable.
    folder = Left(WScript.ScriptFullName, InStrRev(WScript.ScriptFullName, "\") - 1)
    folder = Left(folder, InStrRev(folder, "\"))
    edition = CreateObject("WScript.Shell").Environment("Process")("PROCESSOR_ARCHITECTURE")
    If edition <> "x86" Then edition = "x64"
    Set context = CreateObject("Microsoft.Windows.ActCtx")
    context.Manifest = folder & edition & "\VeltHTTPClient12OEM.Assembly.manifest"
    Set CreateCollection = context.CreateObject(progId)
End Function

Dim values, value
Set values = CreateCollection()
values.Add "first"
values.Add 2.5
values.Add True
WScript.Echo "Count: " & values.Count
WScript.Echo "Item(2): " & values.Item(2) ' positions count from 1

values.Remove 1
For Each value In values
    WScript.Echo "value: " & value
Next

On Error Resume Next
value = values.Item(3)
If Err.Number <> 0 Then WScript.Echo "Item(3) fails" ' by design with E_FAIL; Remove says E_INVALIDARG
On Error GoTo 0
values.Clear
WScript.Echo "Count after Clear: " & values.Count
