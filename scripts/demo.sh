#!/usr/bin/env bash
# Builds the plug-in, the sample compiled library and the session demo, then runs one debugging
# session end to end. Arguments go to the demo (try --help). The plug-in writes its log to
# Logs/quarn-mono-debug.log under the directory this script is started from.
set -euo pipefail
start_dir=$PWD
cd "$(dirname "$0")/.."
root=$PWD
bash scripts/setup.sh
build_log=$(mktemp)
trap 'rm -f "$build_log"' EXIT
if ! { cmake --preset release && cmake --build --preset release -j "$(nproc)" --target quarn-debug-session; } \
    >"$build_log" 2>&1; then
  cat "$build_log" >&2
  echo "demo: the build failed (output above)" >&2
  exit 1
fi
cd "$start_dir"
"$root/build/release/tools/quarn-debug-session" "$@"
