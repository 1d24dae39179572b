; Per-user installer of the add-in: both twins, version.json and the log
; folder under the user's local application data, registered for the user
; only, so no administrator rights are asked. The uninstaller removes all of
; it and what registration wrote.
;
;   makensis -DX86_DLL=... -DX64_DLL=... -DVERSION_JSON=... -DOUTFILE=... PptAddin.nsi

Unicode true
RequestExecutionLevel user
SetCompressor /SOLID lzma

!include "LogicLib.nsh"
!include "x64.nsh"

Name "Quillbrook PowerPoint"
OutFile "${OUTFILE}"
InstallDir "$LOCALAPPDATA\Quillbrook\PptAddin"

!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\QuillbrookPptAddin"

Section "Install"
  SetOutPath "$INSTDIR"
  File "/oname=PptAddin-x64.dll" "${X64_DLL}"
  File "/oname=version.json" "${VERSION_JSON}"
  SetOutPath "$INSTDIR\x86"
  File "/oname=PptAddin-x86.dll" "${X86_DLL}"
  CreateDirectory "$LOCALAPPDATA\Quillbrook\log"

  ; The installer is a 32-bit process: it loads the x86 twin itself, and
  ; leaves the x64 twin to the 64-bit regsvr32.
  ClearErrors
  RegDLL "$INSTDIR\x86\PptAddin-x86.dll"
  ${If} ${Errors}
    Abort "PptAddin-x86.dll could not be registered."
  ${EndIf}
  ${If} ${RunningX64}
    ${DisableX64FSRedirection}
    ExecWait '"$WINDIR\System32\regsvr32.exe" /s "$INSTDIR\PptAddin-x64.dll"' $0
    ${EnableX64FSRedirection}
    ${If} $0 != 0
      Abort "PptAddin-x64.dll could not be registered ($0)."
    ${EndIf}
  ${EndIf}

  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayName" "Quillbrook PowerPoint"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKCU "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoRepair" 1
SectionEnd

Section "Uninstall"
  ${If} ${RunningX64}
    ${DisableX64FSRedirection}
    ExecWait '"$WINDIR\System32\regsvr32.exe" /u /s "$INSTDIR\PptAddin-x64.dll"'
    ${EnableX64FSRedirection}
  ${EndIf}
  UnRegDLL "$INSTDIR\x86\PptAddin-x86.dll"
  Delete "$INSTDIR\x86\PptAddin-x86.dll"
  RMDir "$INSTDIR\x86"
  Delete "$INSTDIR\PptAddin-x64.dll"
  Delete "$INSTDIR\version.json"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  RMDir /r "$LOCALAPPDATA\Quillbrook\log"
  RMDir "$LOCALAPPDATA\Quillbrook"
  DeleteRegKey HKCU "${UNINSTALL_KEY}"
SectionEnd
