#!/usr/bin/env bash
# Installs every Debian package the build and the tests use, only when
# something is missing, so a second run costs a few dpkg queries. With
# "browser", only those of the browser suite (scripts/test-browser.sh).
set -u

need=()
have_cmd() { command -v "$1" >/dev/null 2>&1; }
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

if [ "${1:-}" = browser ]; then
  # Only what the browser suite needs: the native build of qb-panel, Debian's
  # Chromium with a font, and Node.js with npm (any install of them will do).
  for p in cmake ninja-build g++ pkg-config libcpp-httplib-dev chromium fonts-dejavu-core; do
    have_pkg "$p" || need+=("$p")
  done
else
  for p in cmake ninja-build g++ clang clang-format libclang-rt-14-dev googletest \
           libgtest-dev libgmock-dev libbenchmark-dev libcpp-httplib-dev pkg-config \
           libzip-dev libpugixml-dev libfreetype-dev libfontconfig-dev \
           fonts-liberation2 fonts-crosextra-carlito fonts-crosextra-caladea \
           g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix mingw-w64-tools \
           libwine-dev python3 nsis xvfb xauth wine wine64 chromium fonts-dejavu-core \
           libreoffice-impress poppler-utils; do
    have_pkg "$p" || need+=("$p")
  done
  have_pkg wine32:i386 || need+=(wine32:i386 libgstreamer-plugins-base1.0-0:i386)
fi
have_cmd node || need+=(nodejs)
have_cmd npm || need+=(npm)

[ ${#need[@]} -eq 0 ] && exit 0

if [ "$(id -u)" != 0 ]; then
  echo "install-deps: missing packages (${need[*]}) and not root" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
case " ${need[*]} " in
  *":i386"*) dpkg --print-foreign-architectures | grep -qx i386 || dpkg --add-architecture i386 ;;
esac

echo "install-deps: installing ${need[*]}"
# When the i386 security index lags behind amd64, apt-get update itself exits
# non-zero; the install decides.
apt-get update -qq >/dev/null 2>&1 || echo "install-deps: apt-get update reported a problem, going on"
log=$(mktemp)
install() { apt-get install -y -qq --no-install-recommends "${need[@]}" >"$log" 2>&1; }
if ! install; then
  # The lag leaves amd64 libraries newer than their i386 twins; preferring
  # the main release for this install keeps each pair at one version.
  echo "install-deps: retrying with the security archive pinned below the main release"
  pref=/etc/apt/preferences.d/zz-ppt-addin-wine32
  printf 'Package: *\nPin: release l=Debian-Security\nPin-Priority: 100\n' >"$pref"
  install
  status=$?
  rm -f "$pref"
  if [ "$status" -ne 0 ]; then
    echo "install-deps: apt-get install failed; the last lines of its log:" >&2
    tail -n 30 "$log" >&2
    exit 1
  fi
fi
rm -f "$log"
echo "install-deps: done"
