; The installer. make_package.sh compiles it and says what to install:
;
;   VELT_VERSION   four numbers with dots
;   VELT_EDITION   32-bit or 64-bit. Each edition has an installation of its own, which leaves the
;                  other one's alone
;   VELT_OUTPUT    the installer's file
;   VELT_FILES     a script with the macros InstallFiles FOLDER, which writes the files below a
;                  folder, and RemoveFiles REMOVE, which has that macro remove each file
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
; 3 the component could not be registered or unregistered, 4 removed but for files in use, 5 for all
; users without the right to it, 6 not for this system. The uninstaller goes on in a copy of itself and ends with 0 before
; that one does, unless it is started as "Uninstall.exe /S _?=<folder>"; then it stays itself.

Unicode true
SetCompressor /SOLID lzma
ManifestDPIAware true
ManifestSupportedOS all

; What the two installations of one user have beside each other.
!if "${VELT_EDITION}" == "64-bit"
    !define INSTALLATION "VeltHTTPClient12OEM64"
    !define FOLDER_NAME "VeltHTTPClient64"
    !define OTHER_INSTALLATION "VeltHTTPClient12OEM"
    !define REGISTRY_VIEW 64
    !define OTHER_REGISTRY_VIEW 32
    !define MULTIUSER_USE_PROGRAMFILES64
!else
    !define INSTALLATION "VeltHTTPClient12OEM"
    !define FOLDER_NAME "VeltHTTPClient"
    !define OTHER_INSTALLATION "VeltHTTPClient12OEM64"
    !define REGISTRY_VIEW 32
    !define OTHER_REGISTRY_VIEW 64
!endif
!define PRODUCT "VeltHTTPClient12OEM"
!define LIBRARY "VeltHTTPClient12OEM.dll"
!define TOOL "velt.exe"
!define UNINSTALLER "Uninstall.exe"
!define LIST "Uninstall.txt" ; what is installed, a line each
!define NEW "${PRODUCT}.new" ; new files before they are moved to their places
!define OLD "${PRODUCT}.old" ; former files; those in use stay until Windows starts again
!define PROGRAM_LIST "Software\Microsoft\Windows\CurrentVersion\Uninstall"
!define PRODUCT_KEY "${PROGRAM_LIST}\${INSTALLATION}"
!define OTHER_PRODUCT_KEY "${PROGRAM_LIST}\${OTHER_INSTALLATION}"
!define NOTHING_TO_DO 1 ; the command-line program's answer when another copy, or none, is registered
!define NOT_REGISTERED 3
!define IN_USE 4
!define NOT_ALLOWED 5
!define OTHER_SYSTEM 6

; For all users when the rights allow it. A folder from before is used again.
!define MULTIUSER_EXECUTIONLEVEL Highest
!define MULTIUSER_MUI
!define MULTIUSER_INSTALLMODE_COMMANDLINE
!define MULTIUSER_INSTALLMODE_INSTDIR "${FOLDER_NAME}"
!define MULTIUSER_INSTALLMODE_INSTDIR_REGISTRY_KEY "${PRODUCT_KEY}"
!define MULTIUSER_INSTALLMODE_INSTDIR_REGISTRY_VALUENAME "InstallLocation"
!define MULTIUSER_INSTALLMODE_DEFAULT_REGISTRY_KEY "${PRODUCT_KEY}"
!define MULTIUSER_INSTALLMODE_DEFAULT_REGISTRY_VALUENAME "InstallLocation"
!pragma warning disable 6010 ; MultiUser.nsh brings functions that this uninstaller does not need
!include MultiUser.nsh
!include MUI2.nsh
!include FileFunc.nsh
!include LogicLib.nsh
!include TextFunc.nsh
!include WordFunc.nsh
!include x64.nsh
!include "${VELT_FILES}"

Name "VeltHTTPClient ${VELT_VERSION} (${VELT_EDITION})"
BrandingText " "
OutFile "${VELT_OUTPUT}"
ShowInstDetails show
ShowUninstDetails show
VIProductVersion "${VELT_VERSION}"
VIAddVersionKey "ProductName" "VeltHTTPClient"
VIAddVersionKey "ProductVersion" "${VELT_VERSION}"
VIAddVersionKey "FileVersion" "${VELT_VERSION}"
VIAddVersionKey "FileDescription" "Installer of the VeltHTTPClient component (${VELT_EDITION})"
VIAddVersionKey "LegalCopyright" ""

!define MUI_ABORTWARNING
!insertmacro MULTIUSER_PAGE_INSTALLMODE
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

Function .onInit
    !if "${VELT_EDITION}" == "64-bit"
        ${IfNot} ${RunningX64}
            MessageBox MB_OK|MB_ICONSTOP "This is the 64-bit edition. The 32-bit one is for this system." \
                /SD IDOK
            SetErrorLevel ${OTHER_SYSTEM}
            Quit
        ${EndIf}
    !endif
    SetRegView ${REGISTRY_VIEW}
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

; Has a copy's command-line program register the component, or take its registration back: it knows
; what the component writes, and leaves alone what another copy has registered. An administrator's
; registration would be for the machine, unless the user is named. The exit code is left in $0.
!macro RunTool COMMAND FOLDER
    StrCpy $1 ""
    ${If} $MultiUser.InstallMode == CurrentUser
        StrCpy $1 " --user"
    ${EndIf}
    nsExec::ExecToLog '"${FOLDER}\${TOOL}" ${COMMAND}$1'
    Pop $0
!macroend

; A version that is here already stays whole until the new files are all on the disk, in a folder of
; their own. Then its files are set aside and the new ones moved in their place, which also works
; for programs and libraries in use: those can be renamed, but neither written nor deleted. Whatever
; fails until the new version is registered, everything is moved back.
Var Earlier ; the folder of a version that is here already, in the same scope
Var Registered ; 1 when the new version has begun to register
Var SetAside ; where the former files are; empty when they are in their places
Var MovedIn ; 1 when new files are in their places
Var Incomplete ; 1 when a file could not be moved

; Removes the folder of a file, and those above it below TOP, as far as nothing is in them.
!macro RemoveEmptyFolders TOP FILE
    ${GetParent} "${TOP}\${FILE}" $5
    ${DoWhile} $5 != "${TOP}"
        RMDir $5
        ${GetParent} $5 $5
    ${Loop}
!macroend

; Moves the files that a list names, a line each and relative to FROM, to below TO. Folders are made,
; and removed when they are empty. A file that cannot be moved stays and sets $Incomplete. Lines that
; name folders or lead out of FROM do not count.
!define MoveListed "!insertmacro MoveListed"
!macro MoveListed LIST FROM TO
    StrCpy $0 "${LIST}"
    StrCpy $1 "${FROM}"
    StrCpy $2 "${TO}"
    Call MoveListed
!macroend
Function MoveListed
    ClearErrors
    FileOpen $3 $0 r
    ${If} ${Errors}
        Return
    ${EndIf}
    ${Do}
        FileRead $3 $4
        ${If} ${Errors}
            ${Break}
        ${EndIf}
        ${TrimNewLines} $4 $4
        ${WordFind} "$4" ".." "E*" $5
        ${If} ${Errors} ; there is none
        ${AndIf} ${FileExists} "$1\$4"
        ${AndIfNot} ${FileExists} "$1\$4\*.*"
            ${GetParent} "$2\$4" $5
            CreateDirectory $5
            ClearErrors
            Rename "$1\$4" "$2\$4"
            ${If} ${Errors}
                DetailPrint "$1\$4 cannot be moved."
                StrCpy $Incomplete 1
            ${EndIf}
            !insertmacro RemoveEmptyFolders "$1" "$4"
            !insertmacro RemoveEmptyFolders "$2" "$4"
        ${EndIf}
        ClearErrors
    ${Loop}
    FileClose $3
    ClearErrors
FunctionEnd

; Everything back to what it was. Lists are read from copies that do not move.
Function .onInstFailed
    SetOutPath $TEMP ; a current folder cannot be removed
    ${If} $MovedIn == 1
        ${MoveListed} $PLUGINSDIR\new.txt $INSTDIR $INSTDIR\${NEW}
    ${EndIf}
    ${If} $SetAside != ""
        ${MoveListed} $PLUGINSDIR\new.txt $SetAside $INSTDIR
        ${MoveListed} $PLUGINSDIR\former.txt $SetAside $INSTDIR
        RMDir $SetAside
        RMDir "$INSTDIR\${OLD}"
    ${EndIf}
    ${If} $Registered == 1
    ${AndIf} $Earlier != ""
        !insertmacro RunTool register $Earlier
    ${EndIf}
    RMDir /r "$INSTDIR\${NEW}"
    RMDir $INSTDIR
FunctionEnd

Section
    InitPluginsDir
    StrCpy $Registered 0
    StrCpy $SetAside ""
    StrCpy $MovedIn 0
    StrCpy $Incomplete 0
    ReadRegStr $Earlier SHCTX "${PRODUCT_KEY}" "InstallLocation"

    ; Both editions have the same names of files.
    SetRegView ${OTHER_REGISTRY_VIEW}
    ReadRegStr $0 HKLM "${OTHER_PRODUCT_KEY}" "InstallLocation"
    SetRegView ${REGISTRY_VIEW}
    ReadRegStr $1 HKCU "${OTHER_PRODUCT_KEY}" "InstallLocation"
    ${If} $INSTDIR == $0
    ${OrIf} $INSTDIR == $1
        Abort "The other edition is in $INSTDIR."
    ${EndIf}

    ; The new files, where nobody uses them.
    RMDir /r "$INSTDIR\${NEW}"
    ClearErrors
    SetOverwrite try
    SetOutPath "$INSTDIR\${NEW}"
    !insertmacro InstallFiles "$INSTDIR\${NEW}"
    WriteUninstaller "$INSTDIR\${NEW}\${UNINSTALLER}"
    CopyFiles /SILENT "$INSTDIR\${NEW}\${LIST}" "$PLUGINSDIR\new.txt"
    ${If} ${Errors}
        Abort "The files could not be written."
    ${EndIf}
    SetOutPath $INSTDIR

    ; The former files. What an earlier upgrade has left goes when nothing uses it any more.
    RMDir /r "$INSTDIR\${OLD}"
    CreateDirectory "$INSTDIR\${OLD}"
    GetTempFileName $SetAside "$INSTDIR\${OLD}"
    Delete $SetAside
    ${If} ${FileExists} "$INSTDIR\${LIST}"
        CopyFiles /SILENT "$INSTDIR\${LIST}" "$PLUGINSDIR\former.txt"
    ${EndIf}
    ${MoveListed} $PLUGINSDIR\former.txt $INSTDIR $SetAside
    ${MoveListed} $PLUGINSDIR\new.txt $INSTDIR $SetAside
    ${If} $Incomplete == 0
        StrCpy $MovedIn 1
        ${MoveListed} $PLUGINSDIR\new.txt $INSTDIR\${NEW} $INSTDIR
    ${EndIf}
    ${If} $Incomplete != 0
        Abort "The files could not be replaced."
    ${EndIf}

    ; All versions write the same keys, so the earlier one's registration is never taken back.
    StrCpy $Registered 1
    !insertmacro RunTool register $INSTDIR
    ${If} $0 != 0
        MessageBox MB_OK|MB_ICONEXCLAMATION "The component could not be registered." /SD IDOK
        SetErrorLevel ${NOT_REGISTERED}
        ${If} $Earlier != ""
            Abort "The component could not be registered."
        ${EndIf}
        ; What is there can be used without registration, and removed.
    ${EndIf}

    WriteRegStr SHCTX "${PRODUCT_KEY}" "DisplayName" "VeltHTTPClient (${VELT_EDITION})"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "DisplayVersion" "${VELT_VERSION}"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "DisplayIcon" "$INSTDIR\${UNINSTALLER}"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr SHCTX "${PRODUCT_KEY}" "UninstallString" '"$INSTDIR\${UNINSTALLER}"'
    WriteRegStr SHCTX "${PRODUCT_KEY}" "QuietUninstallString" '"$INSTDIR\${UNINSTALLER}" /S'
    WriteRegDWORD SHCTX "${PRODUCT_KEY}" "EstimatedSize" ${VELT_SIZE_KB}
    WriteRegDWORD SHCTX "${PRODUCT_KEY}" "NoModify" 1
    WriteRegDWORD SHCTX "${PRODUCT_KEY}" "NoRepair" 1

    RMDir /r "$INSTDIR\${NEW}"
    RMDir /r /REBOOTOK "$INSTDIR\${OLD}"
    ${If} $Earlier != ""
    ${AndIf} $Earlier != $INSTDIR
    ${AndIf} ${FileExists} "$Earlier\${UNINSTALLER}"
        DetailPrint "Removing the version in $Earlier"
        ; With _?= the uninstaller runs where it lies, so that this waits for its end. It cannot
        ; delete itself then.
        ExecWait '"$Earlier\${UNINSTALLER}" /S _?=$Earlier'
        Delete "$Earlier\${UNINSTALLER}"
        RMDir "$Earlier"
    ${EndIf}
SectionEnd

; An installation is for all users when the machine's entry names this folder.
Function un.onInit
    SetRegView ${REGISTRY_VIEW}
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

; Removes the file $0. A program or a library in use can only be renamed; it goes with the next
; start of Windows, and so does a file that somebody reads.
Function un.RemoveFile
    ClearErrors
    Delete $0
    ${If} ${Errors}
        CreateDirectory "$INSTDIR\${OLD}"
        GetTempFileName $1 "$INSTDIR\${OLD}"
        Delete $1
        ClearErrors
        Rename $0 $1
        ${If} ${Errors}
            Delete /REBOOTOK $0
        ${EndIf}
    ${EndIf}
FunctionEnd

!macro RemoveFile FILE
    StrCpy $0 "$INSTDIR\${FILE}"
    Call un.RemoveFile
!macroend

Section Uninstall
    !insertmacro RunTool unregister $INSTDIR
    ${If} $0 != 0
    ${AndIf} $0 != ${NOTHING_TO_DO}
        DetailPrint "The registration could not be removed."
        SetErrorLevel ${NOT_REGISTERED}
    ${EndIf}
    !insertmacro RemoveFiles RemoveFile
    SetOutPath $TEMP ; a current folder cannot be removed
    RMDir /r /REBOOTOK "$INSTDIR\${OLD}"
    RMDir /r "$INSTDIR\${NEW}" ; of an installation that was cut off
    Delete "$INSTDIR\${LIST}"
    Delete "$INSTDIR\${UNINSTALLER}"
    ReadRegStr $0 SHCTX "${PRODUCT_KEY}" "InstallLocation"
    ${If} $0 == $INSTDIR
        DeleteRegKey SHCTX "${PRODUCT_KEY}"
    ${EndIf}
    ; Both stay when somebody else put something there.
    ${If} ${RebootFlag}
        RMDir /REBOOTOK "$INSTDIR"
        UserInfo::GetAccountType
        Pop $0
        ${If} $0 == "Admin"
            DetailPrint "Files in use go with the next start of Windows."
        ${Else}
            ; Only an administrator can have Windows do so.
            SetErrorLevel ${IN_USE}
            MessageBox MB_OK|MB_ICONEXCLAMATION \
                "Files in use stay in $INSTDIR. Delete the folder when nothing uses them." /SD IDOK
        ${EndIf}
    ${Else}
        RMDir "$INSTDIR"
    ${EndIf}
SectionEnd
