; The installer. make_package.sh compiles it and says what to install:
;
;   VELT_VERSION   four numbers with dots
;   VELT_OUTPUT    the installer's file
;   VELT_FILES     a script with the macros InstallFiles and RemoveFiles
;   VELT_SIZE_KB   what the files take on the disk
;
; Command line of the installer:
;
;   /S             no window, no question
;   /AllUsers      for all users; needs an administrator, and is what one gets by default
;   /CurrentUser   for the current user
;   /D=<folder>    where to; the last argument, never quoted
;
; Exit codes of the installer and the uninstaller: 0 done, 1 given up by the user, 2 not completed,
; 3 the component could not be registered or unregistered, 5 /AllUsers without the right to it.

Unicode true
SetCompressor /SOLID lzma
ManifestDPIAware true
ManifestSupportedOS all

!define PRODUCT "VeltHTTPClient12OEM"
!define LIBRARY "VeltHTTPClient12OEM.dll"
!define TOOL "velt.exe"
!define UNINSTALLER "Uninstall.exe"
!define PRODUCT_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\${PRODUCT}"
!define NOTHING_TO_DO 1 ; the command-line program's answer when another copy, or none, is registered
!define NOT_REGISTERED 3
!define NOT_ALLOWED 5

; For all users when the rights allow it. A folder from before is used again.
!define MULTIUSER_EXECUTIONLEVEL Highest
!define MULTIUSER_MUI
!define MULTIUSER_INSTALLMODE_COMMANDLINE
!define MULTIUSER_INSTALLMODE_INSTDIR "VeltHTTPClient"
!define MULTIUSER_INSTALLMODE_INSTDIR_REGISTRY_KEY "${PRODUCT_KEY}"
!define MULTIUSER_INSTALLMODE_INSTDIR_REGISTRY_VALUENAME "InstallLocation"
!define MULTIUSER_INSTALLMODE_DEFAULT_REGISTRY_KEY "${PRODUCT_KEY}"
!define MULTIUSER_INSTALLMODE_DEFAULT_REGISTRY_VALUENAME "InstallLocation"
!pragma warning disable 6010 ; MultiUser.nsh brings functions that this uninstaller does not need
!include MultiUser.nsh
!include MUI2.nsh
!include FileFunc.nsh
!include LogicLib.nsh
!include "${VELT_FILES}"

Name "VeltHTTPClient ${VELT_VERSION}"
BrandingText " "
OutFile "${VELT_OUTPUT}"
ShowInstDetails show
ShowUninstDetails show
VIProductVersion "${VELT_VERSION}"
VIAddVersionKey "ProductName" "VeltHTTPClient"
VIAddVersionKey "ProductVersion" "${VELT_VERSION}"
VIAddVersionKey "FileVersion" "${VELT_VERSION}"
VIAddVersionKey "FileDescription" "Installer of the VeltHTTPClient component (32-bit)"
VIAddVersionKey "LegalCopyright" ""

!define MUI_ABORTWARNING
!insertmacro MULTIUSER_PAGE_INSTALLMODE
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

Function .onInit
    ; MultiUser.nsh would ask a question that nobody sees in a silent installation.
    ${GetParameters} $0
    ClearErrors
    ${GetOptions} $0 "/AllUsers" $1
    ${IfNot} ${Errors}
        UserInfo::GetAccountType
        Pop $1
        ${If} $1 != "Admin"
        ${AndIf} $1 != "Power"
            MessageBox MB_OK|MB_ICONSTOP "Only an administrator can install for all users." /SD IDOK
            SetErrorLevel ${NOT_ALLOWED}
            Quit
        ${EndIf}
    ${EndIf}
    ; MultiUser.nsh sets the folder; one from the command line goes before it.
    StrCpy $2 $INSTDIR
    !insertmacro MULTIUSER_INIT
    ${If} $2 != ""
        StrCpy $INSTDIR $2
    ${EndIf}
FunctionEnd

; Takes a file away that a running program may still use: a library in use can be renamed, and goes
; with the next start of the system.
!macro RemoveInUse FILE
    ClearErrors
    Delete "${FILE}"
    ${If} ${Errors}
        GetTempFileName $0 "$INSTDIR"
        Delete $0
        Rename "${FILE}" $0
        Delete /REBOOTOK $0
    ${EndIf}
!macroend

; Has the command-line program register the component, or take its registration back: it knows what
; the component writes, and leaves alone what another copy has registered. An administrator's
; registration would be for the machine, unless the user is named. The exit code is left in $0.
!macro RunTool COMMAND
    StrCpy $1 ""
    ${If} $MultiUser.InstallMode == CurrentUser
        StrCpy $1 " --user"
    ${EndIf}
    nsExec::ExecToLog '"$INSTDIR\${TOOL}" ${COMMAND}$1'
    Pop $0
!macroend

; A version that is here already goes first, with its registration; so does one of the same scope in
; another folder.
Function RemoveEarlierVersion
    ReadRegStr $1 SHCTX "${PRODUCT_KEY}" "InstallLocation"
    ${If} $1 != ""
    ${AndIf} ${FileExists} "$1\${UNINSTALLER}"
        DetailPrint "Removing the version in $1"
        ; With _?= the uninstaller runs where it lies, so that this waits for its end. It cannot
        ; delete itself then.
        ExecWait '"$1\${UNINSTALLER}" /S _?=$1'
        ${If} $1 != $INSTDIR
            Delete "$1\${UNINSTALLER}"
            RMDir "$1"
        ${EndIf}
    ${EndIf}
FunctionEnd

Section
    Call RemoveEarlierVersion
    SetOutPath $INSTDIR
    !insertmacro RemoveInUse "$INSTDIR\${LIBRARY}"
    ClearErrors
    !insertmacro InstallFiles
    SetOutPath $INSTDIR
    WriteUninstaller "$INSTDIR\${UNINSTALLER}"
    ${If} ${Errors}
        !insertmacro RemoveFiles
        Delete "$INSTDIR\${UNINSTALLER}"
        SetOutPath $TEMP
        RMDir "$INSTDIR"
        Abort "The files could not be written."
    ${EndIf}

    WriteRegStr SHCTX "${PRODUCT_KEY}" "DisplayName" "VeltHTTPClient"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "DisplayVersion" "${VELT_VERSION}"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "DisplayIcon" "$INSTDIR\${UNINSTALLER}"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "UninstallString" '"$INSTDIR\${UNINSTALLER}"'
    WriteRegStr SHCTX "${PRODUCT_KEY}" "QuietUninstallString" '"$INSTDIR\${UNINSTALLER}" /S'
    WriteRegDWORD SHCTX "${PRODUCT_KEY}" "EstimatedSize" ${VELT_SIZE_KB}
    WriteRegDWORD SHCTX "${PRODUCT_KEY}" "NoModify" 1
    WriteRegDWORD SHCTX "${PRODUCT_KEY}" "NoRepair" 1

    !insertmacro RunTool register
    ${If} $0 != 0
        ; What is there can be used without registration, and removed.
        MessageBox MB_OK|MB_ICONEXCLAMATION "The component could not be registered." /SD IDOK
        SetErrorLevel ${NOT_REGISTERED}
    ${EndIf}
SectionEnd

; An installation is for all users when the machine's entry names this folder.
Function un.onInit
    SetShellVarContext current
    ReadRegStr $0 HKLM "${PRODUCT_KEY}" "InstallLocation"
    ${If} $0 == $INSTDIR
        UserInfo::GetAccountType
        Pop $1
        ${If} $1 != "Admin"
        ${AndIf} $1 != "Power"
            MessageBox MB_OK|MB_ICONSTOP "Only an administrator can remove what is there for all users." \
                /SD IDOK
            SetErrorLevel ${NOT_ALLOWED}
            Quit
        ${EndIf}
        SetShellVarContext all
        StrCpy $MultiUser.InstallMode AllUsers
    ${Else}
        StrCpy $MultiUser.InstallMode CurrentUser
    ${EndIf}
FunctionEnd

Section Uninstall
    !insertmacro RunTool unregister
    ${If} $0 != 0
    ${AndIf} $0 != ${NOTHING_TO_DO}
        DetailPrint "The registration could not be removed."
        SetErrorLevel ${NOT_REGISTERED}
    ${EndIf}
    !insertmacro RemoveInUse "$INSTDIR\${LIBRARY}"
    !insertmacro RemoveFiles
    Delete "$INSTDIR\${UNINSTALLER}"
    SetOutPath $TEMP ; a current folder cannot be removed
    RMDir "$INSTDIR" ; stays when somebody else put something there
    ReadRegStr $0 SHCTX "${PRODUCT_KEY}" "InstallLocation"
    ${If} $0 == $INSTDIR
        DeleteRegKey SHCTX "${PRODUCT_KEY}"
    ${EndIf}
SectionEnd
