#!/usr/bin/env bash
# Installs what the tests need, builds under every preset and runs all tests and fuzzers.
#   ./test.sh               everything
#   FUZZ_SECONDS=900 ./test.sh   the fuzzers longer than the 10 seconds each
set -euo pipefail
cd "$(dirname "$0")"
. tools/setup.sh
install_missing $TEST_PACKAGES

failed=0
processors=$(nproc)

# A preset is one line when all went well. Tests that skip say why at its end.
run_tests() {
  local preset=$1 log=build/$1/ctest.log
  shift
  build "$preset"
  if ctest --preset "$preset" --output-log "$log" "$@" >/dev/null 2>&1; then
    sed -n "s/^\([0-9]*% tests passed.*\)/$preset: \1/p" "$log"
  else
    failed=1
    cat "$log"
    echo "$preset: tests failed, see above or $log; run one again with: ctest --preset $preset -R NAME" >&2
  fi
  grep -E '^[[:space:]]*[0-9]+ - .*\((Skipped|Disabled)\)|\[  SKIPPED \]|^skipped:|^SKIPPED' "$log" | sort -u | sed 's/^/  /' || true
}

# Leaves the result in build/fuzz/NAME.log; what it found stays in build/fuzz/ as well.
run_fuzzer() {
  local fuzzer=$1 name corpus status=0
  name=$(basename "$fuzzer")
  corpus=$(mktemp -d)
  "$fuzzer" -max_total_time="${FUZZ_SECONDS:-10}" -timeout=10 -rss_limit_mb=2048 -artifact_prefix=build/fuzz/ \
    -print_final_stats=1 "$corpus" "fuzz/corpus/$name" >"build/fuzz/$name.log" 2>&1 || status=$?
  rm -rf "$corpus"
  if [ $status = 0 ]; then
    echo "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "build/fuzz/$name.log") executions, no fault"
  else
    tail -n 40 "build/fuzz/$name.log"
    echo "$name found a fault, see above; the input is in build/fuzz/" >&2
  fi
  return $status
}

run_fuzzers() {
  build fuzz
  export -f run_fuzzer
  find build/fuzz/fuzz -type f -executable -not -path '*CMakeFiles*' | sort |
    xargs -P "$processors" -I{} bash -c 'run_fuzzer {}' || failed=1
}

run_tests release -j "$processors"
# No sanitizer sees what is in Java.
run_tests asan -L unit -E '^host' -j "$processors"
run_tests tsan -L unit -E '^host' -j "$processors"
run_fuzzers

if [ $failed = 0 ]; then echo "All tests passed"; else echo "There are failures" >&2; fi
exit $failed
