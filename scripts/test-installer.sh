#!/usr/bin/env bash
# Installs the add-in in a fresh Wine prefix, checks the files and the
# registration, uninstalls it and checks that nothing is left: the user's
# registry as it was before, and no folder of ours. Ends with
# "N passed, M failed".
#   bash scripts/test-installer.sh SETUP.exe win64|win32 PREFIX
set -u
setup=$(readlink -f "$1")
arch=$2
export WINEDEBUG=-all WINEPREFIX=$3 WINEARCH=$arch
if [ "$arch" = win64 ]; then
  wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
  own=PptAddin-x64.dll
else
  wine=wine
  own=PptAddin-x86.dll
fi
passed=0
failed=0
check() {  # name command...
  local name=$1; shift
  if "$@"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $name"; fi
}
settle() { wineserver -w; }
# The user's software keys, without Wine's own, which change as programs run.
dump() {
  "$wine" reg export 'HKCU\Software' "$1.reg" /y >/dev/null 2>&1
  settle
  iconv -f utf-16 -t utf-8 "$1.reg" | tr -d '\r' | grep -v '^#time' |
    awk '/^\[/ { skip = index($0, "[HKEY_CURRENT_USER\\Software\\Wine") == 1 } !skip' >"$1"
}
query() {  # key value (empty: the default) -> the value's data
  local which=(/v "$2") name=$2
  [ -z "$2" ] && which=(/ve) && name='(Default)'
  "$wine" reg query "$1" "${which[@]}" 2>/dev/null | tr -d '\r' |
    awk -v v="$name" '$1 == v { $1 = ""; $2 = ""; sub(/^ +/, ""); print }'
}
exists() { "$wine" reg query "$@" >/dev/null 2>&1; }

rm -rf "$WINEPREFIX"
"$wine" wineboot --init >/dev/null 2>&1
# What every Windows user hive holds before anything is installed.
"$wine" reg add 'HKCU\Software\Classes\CLSID' /f >/dev/null 2>&1
"$wine" reg add 'HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall' /f >/dev/null 2>&1
settle
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dump "$work/before"

"$wine" "$setup" /S
settle
local_app=$(ls -d "$WINEPREFIX"/drive_c/users/*/AppData/Local 2>/dev/null | head -n 1)
dir="$local_app/Quillbrook/PptAddin"
check "x64 twin installed" test -f "$dir/PptAddin-x64.dll"
check "x86 twin installed" test -f "$dir/x86/PptAddin-x86.dll"
check "version.json installed" grep -q '"version":"' "$dir/version.json"
check "log folder made" test -d "$local_app/Quillbrook/log"
check "uninstaller written" test -f "$dir/uninstall.exe"
addins='HKCU\Software\Microsoft\Office\PowerPoint\Addins\PptAddin.Connect'
check "LoadBehavior 3" test "$(query "$addins" LoadBehavior)" = 0x3
check "FriendlyName" test "$(query "$addins" FriendlyName)" = "Quillbrook PowerPoint"
check "WPS allow list" exists 'HKCU\Software\Kingsoft\Office\WPP\AddinsWL' /v PptAddin.Connect
server=$(query 'HKCU\Software\Classes\CLSID\{5B9C1E43-AF66-4F7D-BC38-94E7FA0512C3}\InprocServer32' '')
check "server is this bitness's twin ($server)" test "${server##*\\}" = "$own"
check "nothing under the machine's classes" \
  test -z "$(query 'HKLM\Software\Classes\CLSID\{5B9C1E43-AF66-4F7D-BC38-94E7FA0512C3}' '')"
check "listed for removal" exists 'HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall\QuillbrookPptAddin'
settle

"$wine" "$dir/uninstall.exe" /S
settle
dump "$work/after"
check "registry as before" diff "$work/before" "$work/after"
check "no folder left" test ! -e "$local_app/Quillbrook"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
