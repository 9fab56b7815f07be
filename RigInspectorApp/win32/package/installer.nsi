; The Rig Inspector installer: puts the analyzer where the game's patcher
; starts it, patcher\fc.exe below the game's root folder, beside the folder
; game whose option.ini it writes. makensis -DSTAGE=<folder holding patcher\>
; -DOUTFILE=<setup.exe> -DVERSION=<a.b.c.d> installer.nsi
Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma

!include "FileFunc.nsh"
!include "LogicLib.nsh"
!include "x64.nsh"

!define NAME "Dunmore Nine Rig Inspector"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\DunmoreNineRigInspector"

Name "${NAME}"
OutFile "${OUTFILE}"
InstallDir "$PROGRAMFILES64\Dunmore Nine"
RequestExecutionLevel admin
ShowInstDetails show
VIProductVersion "${VERSION}"
VIAddVersionKey "ProductName" "${NAME}"
VIAddVersionKey "FileDescription" "${NAME} Setup"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "CompanyName" "Dunmore Nine"
VIAddVersionKey "LegalCopyright" "Dunmore Nine"

Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

Function .onInit
    SetRegView 64
FunctionEnd

Function un.onInit
    SetRegView 64
    ; The uninstaller lives in patcher: the installation is the folder above.
    ${GetParent} "$INSTDIR" $INSTDIR
FunctionEnd

Section "Rig Inspector"
    SetOutPath "$INSTDIR\patcher"
    File "${STAGE}/patcher/fc.exe"
    File /nonfatal "${STAGE}/patcher/rig_inspector_cli.exe"
    ; The analyzer writes ..\game\option.ini; a fresh folder gets one to write.
    CreateDirectory "$INSTDIR\game"
    WriteUninstaller "$INSTDIR\patcher\uninstall_rig_inspector.exe"

    ; Write access for the player. The analyzer runs as whoever starts it
    ; (asInvoker, so Windows redirects none of its writes), and below Program
    ; Files a standard user may change nothing. We stay one installation for
    ; all users, beside the game: a per-user install under %LOCALAPPDATA%
    ; would put the analyzer away from a game installed for everyone, whose
    ; option.ini is the file it exists to write. So the Users group (by its
    ; well-known SID, which every language of Windows knows) gets modify
    ; rights on game\ and what comes into it: the options file is replaced
    ; through a new file beside it, which needs the folder, not only the file.
    ; patcher\ holds the executables and stays closed to them; only the
    ; assertion log there (appended to, never replaced) is made theirs.
    ; The grants stay when the game's folders do (they are the game's then).
    nsExec::ExecToLog '"$SYSDIR\icacls.exe" "$INSTDIR\game" /grant *S-1-5-32-545:(OI)(CI)M'
    Pop $0
    ${If} $0 != 0
        DetailPrint "Standard users may not be able to save the graphic options (icacls: $0)."
    ${EndIf}
    ${IfNot} ${FileExists} "$INSTDIR\patcher\assertion_failed.log"
        FileOpen $1 "$INSTDIR\patcher\assertion_failed.log" w
        FileClose $1
    ${EndIf}
    nsExec::ExecToLog '"$SYSDIR\icacls.exe" "$INSTDIR\patcher\assertion_failed.log" /grant *S-1-5-32-545:M'
    Pop $0

    ; Paths are relative to the working folder: the shortcut starts in patcher.
    SetShellVarContext all
    CreateDirectory "$SMPROGRAMS\Dunmore Nine"
    CreateShortCut "$SMPROGRAMS\Dunmore Nine\Rig Inspector.lnk" "$INSTDIR\patcher\fc.exe" "" \
        "$INSTDIR\patcher\fc.exe" 0

    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${NAME}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Dunmore Nine"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\patcher\fc.exe"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\patcher\uninstall_rig_inspector.exe"'
    WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\patcher\uninstall_rig_inspector.exe" /S'
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
SectionEnd

Section "Uninstall"
    Delete "$INSTDIR\patcher\fc.exe"
    Delete "$INSTDIR\patcher\rig_inspector_cli.exe"
    ; The analyzer's own by-products in its working folder.
    Delete "$INSTDIR\patcher\assertion_failed.log"
    Delete "$INSTDIR\patcher\uninstall_rig_inspector.exe"
    ; Folders go only when empty: the game's own files (and option.ini, which
    ; is the game's) stay where they are.
    RMDir "$INSTDIR\patcher"
    RMDir "$INSTDIR\game"
    RMDir "$INSTDIR"

    SetShellVarContext all
    Delete "$SMPROGRAMS\Dunmore Nine\Rig Inspector.lnk"
    RMDir "$SMPROGRAMS\Dunmore Nine"
    DeleteRegKey HKLM "${UNINSTALL_KEY}"
SectionEnd
