#!/usr/bin/env bash
# The browser suite: the web panel in Debian's Chromium, driving a real pane
# on the simulated host through qb-panel, with playwright-core from npm (no
# browser is ever downloaded). Installs what is missing, builds qb-panel,
# qb-translate and qb_service natively, and ends with one line "N passed, M failed".
set -u
cd "$(dirname "$0")/.."
mkdir -p build/logs build/browser
log=build/logs/browser-suite.log

give_up() {  # why, log to show
  echo "test-browser: $1"
  [ -n "${2:-}" ] && tail -n 40 "$2"
  echo "0 passed, 1 failed"
  exit 1
}

bash scripts/install-deps.sh browser || give_up "installing the packages failed"
[ -x /usr/bin/chromium ] || give_up "no /usr/bin/chromium after the install"

cmake --preset native >build/logs/configure-browser.log 2>&1 ||
  give_up "configuring the native build failed" build/logs/configure-browser.log
cmake --build build/native -j2 --target qb-panel qb-translate qb_service >build/logs/build-browser.log 2>&1 ||
  give_up "building qb-panel failed" build/logs/build-browser.log

(cd tests/browser && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error) \
  >build/logs/npm-browser.log 2>&1 || give_up "npm ci failed" build/logs/npm-browser.log

timeout 1500 node tests/browser/run.mjs </dev/null 2>&1 | tee "$log"
status=${PIPESTATUS[0]}
# A suite that died before its summary counts as one failure.
if ! tail -n 1 "$log" | grep -Eq '^[0-9]+ passed, [0-9]+ failed$'; then
  echo "test-browser: the suite ended with $status before its summary"
  echo "0 passed, 1 failed"
  exit 1
fi
exit "$status"
