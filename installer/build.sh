#!/usr/bin/env bash
# Builds the per-user installer from the two twins of a build:
#   bash installer/build.sh OUT.exe [BUILD_ROOT]
# BUILD_ROOT defaults to build/ (with win32/ and win64/ below it).
set -eu
here=$(cd "$(dirname "$0")" && pwd)
out=$1
builds=${2:-$here/../build}
x86="$builds/win32/ppt-addin/PptAddin-x86.dll"
x64="$builds/win64/ppt-addin/PptAddin-x64.dll"
for dll in "$x86" "$x64"; do
  [ -f "$dll" ] || { echo "installer: $dll is missing; build the win32 and win64 presets first" >&2; exit 1; }
done
version=$(sed -n "s/^project(PptAddin VERSION \([0-9.]*\).*/\1/p" "$here/../CMakeLists.txt")
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
printf '{"productId":"quillbrook-office-ai","platform":"windows","version":"%s","commit":"%s","buildDate":"%s"}\n' \
  "${version:-0.1.0}" "$(git -C "$here/.." rev-parse --short HEAD 2>/dev/null || true)" \
  "$(date -u +%Y-%m-%d)" >"$stage/version.json"
makensis -V2 -DX86_DLL="$x86" -DX64_DLL="$x64" -DVERSION_JSON="$stage/version.json" \
  -DOUTFILE="$(cd "$(dirname "$out")" && pwd)/$(basename "$out")" "$here/PptAddin.nsi"
