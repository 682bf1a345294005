; Registering the component, and removing what registration wrote. The component has no entry point
; that unregisters it, by design: that is the installer's work.

!define CLASSES "Software\Classes"
!define LIBID "{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}"
!define APPID "{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}"
!define CLSID_SERVICE "{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}"
!define CLSID_COLLECTION "{344E0DAC-547C-47B5-A1A0-FF9A9C193352}"
!define CLSID_EULA "{E9F9957F-AE23-4BBC-A97D-9815EA6E4C83}"

!define HKEY_CURRENT_USER 0x80000001
!define HKEY_LOCAL_MACHINE 0x80000002
!define SYS_WIN32 1

; The library registers itself for the machine whenever it can. While the machine's root key leads to
; an empty key, it cannot, and registers itself for the user: so an administrator, too, can install
; for one user only.
!define EMPTY_KEY "Software\${PRODUCT}.setup"

; RegisterComponent <full path of the library> <AllUsers or CurrentUser>: sets the error flag when it
; fails.
!macro RegisterComponent LIBRARY_PATH MODE
    ClearErrors
    ${If} ${MODE} == CurrentUser
        System::Call 'advapi32::RegCreateKeyW(p ${HKEY_CURRENT_USER}, w "${EMPTY_KEY}", *p .r1) i .r0'
        ${If} $0 = 0
            System::Call 'advapi32::RegOverridePredefKey(p ${HKEY_LOCAL_MACHINE}, p r1) i .r0'
        ${EndIf}
    ${Else}
        StrCpy $0 0
    ${EndIf}
    ${If} $0 = 0
        RegDLL "${LIBRARY_PATH}"
    ${Else}
        SetErrors
    ${EndIf}
    ${If} ${MODE} == CurrentUser
        StrCpy $2 0
        ${If} ${Errors}
            StrCpy $2 1
        ${EndIf}
        System::Call 'advapi32::RegOverridePredefKey(p ${HKEY_LOCAL_MACHINE}, p 0)'
        System::Call 'advapi32::RegCloseKey(p r1)'
        DeleteRegKey HKCU "${EMPTY_KEY}"
        ClearErrors
        ${If} $2 = 1
            SetErrors
        ${EndIf}
    ${EndIf}
!macroend

; Removes a key's named value and then the key, unless somebody else put something there.
!macro RemoveValueAndKey KEY VALUE
    DeleteRegValue SHCTX "${CLASSES}\${KEY}" "${VALUE}"
    DeleteRegKey /ifempty SHCTX "${CLASSES}\${KEY}"
!macroend

!macro RemoveProgIds PROGID VERSION
    !insertmacro RemoveValueAndKey "${PROGID}.${VERSION}\CLSID" ""
    !insertmacro RemoveValueAndKey "${PROGID}.${VERSION}" ""
    !insertmacro RemoveValueAndKey "${PROGID}\CLSID" ""
    !insertmacro RemoveValueAndKey "${PROGID}\CurVer" ""
    !insertmacro RemoveValueAndKey "${PROGID}" ""
!macroend

!macro RemoveClass KEY
    DeleteRegValue SHCTX "${CLASSES}\CLSID\${KEY}\InprocServer32" "ThreadingModel"
    !insertmacro RemoveValueAndKey "CLSID\${KEY}\InprocServer32" ""
    !insertmacro RemoveValueAndKey "CLSID\${KEY}\ProgID" ""
    !insertmacro RemoveValueAndKey "CLSID\${KEY}\VersionIndependentProgID" ""
    !insertmacro RemoveValueAndKey "CLSID\${KEY}\Programmable" ""
    !insertmacro RemoveValueAndKey "CLSID\${KEY}\TypeLib" ""
    !insertmacro RemoveValueAndKey "CLSID\${KEY}" ""
!macroend

; UnregisterComponent <full path of the library> <AllUsers or CurrentUser>: does nothing when another
; copy of the library has registered itself since.
!macro UnregisterComponent LIBRARY_PATH MODE
    ReadRegStr $0 SHCTX "${CLASSES}\CLSID\${CLSID_SERVICE}\InprocServer32" ""
    ${If} $0 == "${LIBRARY_PATH}"
        ${If} ${MODE} == CurrentUser
            StrCpy $1 UnRegisterTypeLibForUser
        ${Else}
            StrCpy $1 UnRegisterTypeLib
        ${EndIf}
        System::Call 'oleaut32::$1(g "${LIBID}", i 1, i 0, i 0, i ${SYS_WIN32}) i .r0'
        ${If} $0 <> 0
            DetailPrint "The type library's entries could not be removed ($0)."
        ${EndIf}
        !insertmacro RemoveClass "${CLSID_SERVICE}"
        !insertmacro RemoveProgIds "VeltHTTPClient.VeltHTTPService12OEM" 2
        !insertmacro RemoveClass "{${CLSID_COLLECTION}}" ; with doubled braces, by design
        !insertmacro RemoveProgIds "VeltHTTPClient.EnumVariantCol12OEM" 2
        !insertmacro RemoveClass "${CLSID_EULA}"
        !insertmacro RemoveProgIds "VeltHTTPClientX.VeltEulaDlg12OEM" 1
        !insertmacro RemoveValueAndKey "AppID\${APPID}" ""
        !insertmacro RemoveValueAndKey "AppID\VeltHTTPClient12OEM.DLL" "AppID"
        ; These are everybody's; registration makes them where the user has none yet.
        ${If} ${MODE} == CurrentUser
            DeleteRegKey /ifempty SHCTX "${CLASSES}\AppID"
            DeleteRegKey /ifempty SHCTX "${CLASSES}\CLSID"
            DeleteRegKey /ifempty SHCTX "${CLASSES}\Interface"
            DeleteRegKey /ifempty SHCTX "${CLASSES}\TypeLib"
        ${EndIf}
    ${EndIf}
!macroend
