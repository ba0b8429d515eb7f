#!/usr/bin/env bash
# Builds everything and runs every test: the debug suite, the clang lock-rule check, then the
# sanitizer suites.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)
cmake --preset default
cmake --build --preset default -j "$jobs"
ctest --preset default -j "$jobs"

# The library alone, compiled by clang with -Wthread-safety -Werror: the lock rules annotated in
# the sources (src/plugin/Lock.h) are checked, and a broken one fails the build.
echo "== thread-safety check"
cmake --preset thread-safety
cmake --build --preset thread-safety -j "$jobs"

# The whole suite again under AddressSanitizer + UndefinedBehaviorSanitizer (LeakSanitizer on,
# with sanitizers/lsan.supp) and under ThreadSanitizer; each halts on its first report.
for preset in asan tsan; do
  echo "== $preset suite"
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done

# Each libFuzzer target runs for a bounded time from its checked-in corpus (clang, ASan+UBSan).
# Per-input leak checks are off for speed (the asan suite replays the corpora with LeakSanitizer);
# the check at exit still runs, with the same suppressions.
echo "== fuzzing"
cmake --preset fuzz
cmake --build --preset fuzz -j "$jobs"
fuzz_seconds=${MDH_FUZZ_SECONDS:-30}
for program in build/fuzz/fuzz/fuzz_*; do
  name=$(basename "$program")
  name=${name#fuzz_}
  work=build/fuzz/runs/$name
  rm -rf "$work" && mkdir -p "$work/corpus"
  if ! LSAN_OPTIONS="suppressions=$PWD/sanitizers/lsan.supp" "$program" \
      -max_total_time="$fuzz_seconds" -detect_leaks=0 -print_final_stats=1 \
      -artifact_prefix="$work/" "$work/corpus" "fuzz/corpus/$name" >"$work/log.txt" 2>&1; then
    tail -n 60 "$work/log.txt"
    echo "fuzz $name: FAILED (inputs in $work/)"
    exit 1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log.txt")
  echo "fuzz $name: $runs inputs in ${fuzz_seconds}s, no failure"
done
