#!/usr/bin/env bash
# Builds everything and runs every test: the native suites plain, under
# ASan+UBSan and under TSan, the fuzz targets for a bounded number of runs,
# the format check, and the Windows test executables under 64-bit and 32-bit
# Wine. Ends with one line "N passed, M failed" over all of them.
set -u
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/install-deps.sh || { echo "0 passed, 1 failed"; exit 1; }

export WINEDEBUG=-all
FUZZ_RUNS=${FUZZ_RUNS:-200000}
passed=0
failed=0
summary=()

note() { printf '\n== %s\n' "$*"; }
record() {  # name passed failed
  passed=$((passed + $2)); failed=$((failed + $3))
  summary+=("$(printf '%-28s %5d passed, %d failed' "$1" "$2" "$3")")
}

# --- Build ---------------------------------------------------------------
presets=(native asan tsan win32 win64)
build_ok=1
declare -A built
mkdir -p build/logs build/wine
for p in "${presets[@]}"; do
  note "build $p"
  # Configuring again is cheap when nothing changed, and picks up preset edits.
  if ! cmake --preset "$p" >"build/logs/configure-$p.log" 2>&1; then
    tail -n 40 "build/logs/configure-$p.log"
    build_ok=0
    record "build $p" 0 1
    continue
  fi
  if cmake --build --preset "$p" >"build/logs/build-$p.log" 2>&1; then
    echo "ok"
    built[$p]=1
  else
    tail -n 60 "build/logs/build-$p.log"
    build_ok=0
    record "build $p" 0 1
  fi
done
# A build that failed runs none of its suites: an older executable would
# report on code that is no longer there.
ran() { [ "${built[$1]:-0}" = 1 ]; }

# --- Runs ----------------------------------------------------------------
# Runs one GoogleTest executable and counts its results; a crash or a hang
# counts as one failure more than the executable reported.
run_gtest() {  # name command...
  local name=$1; shift
  note "$name"
  local log="build/logs/$(echo "$name" | tr ' /' '__').log"
  timeout 900 "$@" --gtest_color=no >"$log" 2>&1
  local rc=$?
  local p f
  p=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$log" | tail -n 1)
  f=$(sed -n 's/^\[  FAILED  \] \([0-9]*\) test.*listed below.*/\1/p' "$log" | tail -n 1)
  p=${p:-0}; f=${f:-0}
  grep -E '^\[  FAILED  \] [A-Za-z]|: Failure$|ERROR: |WARNING: ThreadSanitizer' "$log" | head -n 40
  if [ "$rc" -ne 0 ] && [ "$f" -eq 0 ]; then
    echo "$name exited with $rc; the last lines of its output:"
    tail -n 30 "$log"
    f=1
  fi
  echo "$p passed, $f failed"
  record "$name" "$p" "$f"
}

if ran native; then run_gtest "native" build/native/tests/qb_tests; fi
# LibreOffice over the front end's .pptx output, once: soffice is slow to
# start and its checks are the same under every build.
if ran native; then run_gtest "native office" build/native/tests/office/qb_office_tests; fi
if ran asan; then
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
    run_gtest "native asan+ubsan" build/asan/tests/qb_tests
fi
if ran tsan; then
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 run_gtest "native tsan" build/tsan/tests/qb_tests
fi

for fuzzer in build/asan/tests/fuzz/*_fuzz; do
  ran asan && [ -x "$fuzzer" ] || continue
  name=$(basename "$fuzzer")
  runs=$FUZZ_RUNS
  max_len=1024
  # A presentation is a zip package, or its parts as text: its seeds are a
  # few KiB. Each input is zipped, opened, translated, saved and opened
  # again, so a quarter of the runs costs what the others' budget does.
  if [ "$name" = pptx_fuzz ]; then
    max_len=6144
    runs=$((FUZZ_RUNS / 4))
  fi
  note "fuzz $name ($runs runs)"
  corpus="build/fuzz-corpus/$name"
  mkdir -p "$corpus"
  seeds="tests/fuzz/seeds/${name%_fuzz}"
  if timeout 900 "$fuzzer" -runs="$runs" -max_len="$max_len" -seed=1 "$corpus" "$seeds" \
       >"build/logs/$name.log" 2>&1; then
    tail -n 1 "build/logs/$name.log"
    record "fuzz $name" 1 0
  else
    tail -n 40 "build/logs/$name.log"
    record "fuzz $name" 0 1
  fi
done

# The Windows tests reach the stand-in service running natively on the
# loopback address; its port goes to them in QB_STAND_IN_PORT.
stand_in_pid=""
if ran native && [ -x build/native/sim/service/qb_service ]; then
  exec {stand_in_fd}< <(exec build/native/sim/service/qb_service --port 0 2>build/logs/stand-in.log)
  stand_in_pid=$!
  if read -r -t 10 -u "$stand_in_fd" line && [[ $line =~ :([0-9]+)$ ]]; then
    export QB_STAND_IN_PORT=${BASH_REMATCH[1]}
    echo "stand-in service on 127.0.0.1:$QB_STAND_IN_PORT"
  else
    echo "the stand-in service did not start; the Windows service tests will skip"
  fi
fi

# Wine: a prefix of our own in the build folder, made on first use. The
# pane's window needs a display, so the Windows suites run under Xvfb; Wine's
# offers to install its .NET and HTML engines are declined, as a dialog
# would wait for an answer nobody gives.
export WINEDLLOVERRIDES="mscoree,mshtml="
xrun=(xvfb-run -a)
if ran win64; then
  wine64=$(command -v wine64 || echo /usr/lib/wine/wine64)
  WINEPREFIX="$root/build/wine/prefix64" WINEARCH=win64 \
    run_gtest "wine64 (x64)" "${xrun[@]}" "$wine64" build/win64/tests/qb_tests.exe
  WINEPREFIX="$root/build/wine/prefix64" WINEARCH=win64 \
    run_gtest "wine64 browser stand-in" "${xrun[@]}" "$wine64" build/win64/sim/webview/qb_webview_standin_test.exe
  WINEPREFIX="$root/build/wine/prefix64" wineserver -k 2>/dev/null
fi
if ran win32; then
  WINEPREFIX="$root/build/wine/prefix32" WINEARCH=win32 \
    run_gtest "wine32 (x86)" "${xrun[@]}" wine build/win32/tests/qb_tests.exe
  WINEPREFIX="$root/build/wine/prefix32" WINEARCH=win32 \
    run_gtest "wine32 browser stand-in" "${xrun[@]}" wine build/win32/sim/webview/qb_webview_standin_test.exe
  WINEPREFIX="$root/build/wine/prefix32" wineserver -k 2>/dev/null
fi

# The host driver loads the real add-in DLL as the host does. Each bitness
# gets a fresh prefix, so that registration starts from a clean registry.
# Its whole run through the pane must leave the sample deck as the front end
# leaves it, translated through the same stand-in service.
if [ -n "${QB_STAND_IN_PORT:-}" ] && [ -x build/native/cli/qb-translate ]; then
  mkdir -p build/wine/expected
  if build/native/cli/qb-translate --quiet --to de --service "http://127.0.0.1:$QB_STAND_IN_PORT" \
       -o build/wine/expected/business.de.json samples/business.json >build/logs/expected-deck.log 2>&1; then
    export QB_SAMPLE_DECK="Z:$root/samples/business.json"
    export QB_EXPECTED_DECK="Z:$root/build/wine/expected/business.de.json"
  else
    echo "the front end could not make the expected deck; the driver's whole run will skip"
    tail -n 5 build/logs/expected-deck.log
  fi
fi
drive() {  # name wine prefix-arch build-dir
  local prefix="$root/build/wine/driver-$3"
  rm -rf "$prefix"
  # The prefix is made whole before the driver starts: a first start that
  # makes it on the way has been seen to fail to load kernel32 under load.
  WINEPREFIX="$prefix" WINEARCH=$3 "$2" wineboot --init >/dev/null 2>&1
  WINEPREFIX="$prefix" wineserver -w
  WINEPREFIX="$prefix" WINEARCH=$3 run_gtest "$1" "${xrun[@]}" "$2" "build/$4/sim/driver/qb_host_driver.exe"
  WINEPREFIX="$prefix" wineserver -k 2>/dev/null
}
if ran win64; then drive "host driver wine64 (x64)" "$wine64" win64 win64; fi
if ran win32; then drive "host driver wine32 (x86)" wine win32 win32; fi

# The web panel in Chromium, driving a real pane through qb-panel.
if ran native; then
  note "browser suite"
  bash scripts/test-browser.sh >build/logs/browser.log 2>&1
  grep -E '^not ok|^test-browser:' build/logs/browser.log | head -n 20
  line=$(tail -n 1 build/logs/browser.log)
  if [[ $line =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
    echo "$line"
    record "browser suite" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
  else
    tail -n 20 build/logs/browser.log
    record "browser suite" 0 1
  fi
fi

# The per-user installer of both twins: install, check, uninstall, check.
if ran win32 && ran win64; then
  note "installer"
  mkdir -p build/installer
  if bash installer/build.sh build/installer/PptAddin-setup.exe >build/logs/installer-build.log 2>&1; then
    for arch in win64 win32; do
      note "installer under $arch Wine"
      log="build/logs/installer-$arch.log"
      bash scripts/test-installer.sh build/installer/PptAddin-setup.exe "$arch" \
        "$root/build/wine/installer-$arch" >"$log" 2>&1
      grep '^FAIL' "$log"
      line=$(tail -n 1 "$log")
      if [[ $line =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
        echo "$line"
        record "installer $arch" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
      else
        tail -n 20 "$log"
        record "installer $arch" 0 1
      fi
    done
  else
    tail -n 20 build/logs/installer-build.log
    record "installer build" 0 1
  fi
fi

if [ -n "$stand_in_pid" ]; then
  kill "$stand_in_pid" 2>/dev/null
  wait "$stand_in_pid" 2>/dev/null
  unset QB_STAND_IN_PORT
fi

note "format"
mapfile -t sources < <(git ls-files '*.cpp' '*.h' 2>/dev/null)
if [ ${#sources[@]} -eq 0 ]; then
  echo "no sources listed (not a git checkout?)"
  record "format" 0 1
elif clang-format --dry-run --Werror "${sources[@]}" >build/logs/format.log 2>&1; then
  echo "ok (${#sources[@]} files)"
  record "format" 1 0
else
  head -n 40 build/logs/format.log
  echo "run: git ls-files '*.cpp' '*.h' | xargs clang-format -i"
  record "format" 0 1
fi

note "summary"
printf '%s\n' "${summary[@]}"
echo "${passed} passed, ${failed} failed"
[ "$failed" -eq 0 ] && [ "$build_ok" -eq 1 ]
