#!/usr/bin/env bash
# Builds everything and runs every test: the debug suite, then the sanitizer suites.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)
cmake --preset default
cmake --build --preset default -j "$jobs"
ctest --preset default -j "$jobs"
