#!/usr/bin/env bash
# Builds the plug-in and the demo host, then runs one debugging session end to end.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target quarn-debug-session >/dev/null
exec ./build/release/tools/quarn-debug-session "$@"
