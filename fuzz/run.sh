#!/usr/bin/env bash
# Runs fuzz targets of the fuzz preset's build for a bounded time each:
#   fuzz/run.sh SECONDS [TARGET...]    (default: every fuzz/<target>.cpp)
# The seeds in fuzz/corpus/<target>/ are read, never written: what a run
# finds goes to build/fuzz/corpus/<target>/, a crash to build/fuzz/findings/.
# Fails on the first target with a finding.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:?seconds per target}
shift
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in fuzz/*.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi
mkdir -p build/fuzz/findings
for t in "${targets[@]}"; do
  mkdir -p "build/fuzz/corpus/$t"
  echo "== fuzz_$t for ${seconds}s ($(date +%T))"
  # A bounded input keeps each run quick; -timeout turns a hang into a finding.
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    "build/fuzz/bin/fuzz_$t" -max_total_time="$seconds" -max_len=8192 -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="build/fuzz/findings/$t-" \
      "build/fuzz/corpus/$t" "fuzz/corpus/$t" 2>&1 | grep -E "^(Done|stat::number_of_executed_units|==|SUMMARY)|#[0-9]+ +DONE" || true
  if ls "build/fuzz/findings/$t-"* >/dev/null 2>&1; then
    echo "fuzz_$t found a fault: $(ls build/fuzz/findings/$t-*)"
    exit 1
  fi
done
