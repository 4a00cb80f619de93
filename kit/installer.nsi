; Installs the kit for all users. /S asks nothing; /PATH puts varnel-host on the PATH then; /D=FOLDER, which comes last,
; names another folder. The exit code is 0, 1 when the user cancels, or 2 when nothing was done.
Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma
Name "Varnel ${VERSION}"
OutFile "${SETUP}"
RequestExecutionLevel admin
InstallDir "$PROGRAMFILES64\Varnel"
!define LISTED "Software\Microsoft\Windows\CurrentVersion\Uninstall\Varnel"
!define ENVIRONMENT "SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
ShowInstDetails nevershow
ShowUninstDetails nevershow
ManifestSupportedOS all

VIProductVersion "${VERSION}.0"
VIAddVersionKey "ProductName" "Varnel"
VIAddVersionKey "ProductVersion" "${VERSION}.0"
VIAddVersionKey "FileVersion" "${VERSION}.0"
VIAddVersionKey "FileDescription" "Installs Varnel"
VIAddVersionKey "LegalCopyright" ""

Page components
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

!include FileFunc.nsh
!include LogicLib.nsh
!include WinMessages.nsh
!include WordFunc.nsh

; Stops while a program has the library loaded: half of it could not be replaced.
!macro StopWhenInUse
  ${If} ${FileExists} "$INSTDIR\bin\Varnel.dll"
    ClearErrors
    FileOpen $0 "$INSTDIR\bin\Varnel.dll" a
    ${If} ${Errors}
      MessageBox MB_OK|MB_ICONEXCLAMATION "A program is using Varnel. End it first." /SD IDOK
      SetErrorLevel 2
      Quit
    ${EndIf}
    FileClose $0
  ${EndIf}
!macroend

; Puts the folder of the host program on the PATH of all users, or takes it off ("+" or "-"). A PATH that is longer than
; this program's strings is let be.
!macro ChangePath function sign
  ClearErrors
  ReadRegStr $0 HKLM "${ENVIRONMENT}" "Path"
  ${IfNot} ${Errors}
    StrLen $1 "$0;$INSTDIR\bin"
    ${If} $1 < ${NSIS_MAX_STRLEN}
      ${${function}} "$0" ";" "${sign}$INSTDIR\bin" $1
      ${If} $1 != $0
        WriteRegExpandStr HKLM "${ENVIRONMENT}" "Path" $1
        SendMessage ${HWND_BROADCAST} ${WM_SETTINGCHANGE} 0 "STR:Environment" /TIMEOUT=5000
      ${EndIf}
    ${EndIf}
  ${EndIf}
!macroend

Section "Varnel"
  SectionIn RO
  SetShellVarContext all
  SetOutPath "$INSTDIR"
  File /r /x Log.ini "${KIT}/*"
  SetOutPath "$INSTDIR\bin"
  ${IfNot} ${FileExists} Log.ini ; what the user has set stays
    File "${KIT}/bin/Log.ini"
    GetFileTime Log.ini $0 $1
    WriteRegStr HKLM "${LISTED}" "Log.ini" "$0 $1"
  ${EndIf}
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr HKLM "${LISTED}" "DisplayName" "Varnel"
  WriteRegStr HKLM "${LISTED}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${LISTED}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${LISTED}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${LISTED}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${LISTED}" "EstimatedSize" ${SIZE}
  WriteRegDWORD HKLM "${LISTED}" "NoModify" 1
  WriteRegDWORD HKLM "${LISTED}" "NoRepair" 1
SectionEnd

Section /o "varnel-host on the PATH" OnPath
  !insertmacro ChangePath WordAdd "+"
SectionEnd

Function .onInit
  SetRegView 64
  ${If} $INSTDIR == "$PROGRAMFILES64\Varnel" ; else /D= has named one
    ReadRegStr $0 HKLM "${LISTED}" "InstallLocation"
    ${If} $0 != ""
      StrCpy $INSTDIR $0
    ${EndIf}
  ${EndIf}
  !insertmacro StopWhenInUse
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/PATH" $1
  ${IfNot} ${Errors}
    SectionSetFlags ${OnPath} ${SF_SELECTED}
  ${EndIf}
FunctionEnd

Function un.onInit
  SetRegView 64
  !insertmacro StopWhenInUse
FunctionEnd

Section "un.Varnel"
  ; A Log.ini that the user has changed stays.
  ReadRegStr $0 HKLM "${LISTED}" "Log.ini"
  GetFileTime "$INSTDIR\bin\Log.ini" $1 $2
  ${If} $0 == "$1 $2"
    Delete "$INSTDIR\bin\Log.ini"
  ${EndIf}
  !include remove.nsh
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  !insertmacro ChangePath un.WordAdd "-"
  DeleteRegKey HKLM "${LISTED}"
SectionEnd
