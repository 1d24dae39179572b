#!/usr/bin/env bash
# Installs every Debian package the build and the tests use, only when
# something is missing, so a second run costs a few dpkg queries.
set -u

need=()
have_cmd() { command -v "$1" >/dev/null 2>&1; }
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

for p in cmake ninja-build g++ clang clang-format libclang-rt-14-dev googletest \
         libgtest-dev libgmock-dev libbenchmark-dev \
         g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix mingw-w64-tools \
         wine wine64; do
  have_pkg "$p" || need+=("$p")
done
have_pkg wine32:i386 || need+=(wine32:i386 libgstreamer-plugins-base1.0-0:i386)

[ ${#need[@]} -eq 0 ] && exit 0

if [ "$(id -u)" != 0 ]; then
  echo "install-deps: missing packages (${need[*]}) and not root" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
case " ${need[*]} " in
  *":i386"*) dpkg --print-foreign-architectures | grep -qx i386 || dpkg --add-architecture i386 ;;
esac

# The i386 security index can lag behind amd64; preferring the main release
# during this install keeps the amd64 and i386 twins at one version.
pref=/etc/apt/preferences.d/zz-ppt-addin-wine32
cat > "$pref" <<'PREF'
Package: *
Pin: release l=Debian-Security
Pin-Priority: 100
PREF
trap 'rm -f "$pref"' EXIT

echo "install-deps: installing ${need[*]}"
# In that lagging state apt-get update itself exits non-zero; the install decides.
apt-get update -qq >/dev/null 2>&1 || echo "install-deps: apt-get update reported a problem, going on"
apt-get install -y -qq --no-install-recommends "${need[@]}" >/tmp/ppt-addin-apt.log 2>&1 || {
  echo "install-deps: apt-get install failed; the last lines of its log:" >&2
  tail -n 30 /tmp/ppt-addin-apt.log >&2
  exit 1
}
echo "install-deps: done"
