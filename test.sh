#!/usr/bin/env bash
# Installs what the tests need, builds, and runs the tests.
#   ./test.sh                    everything; of lint only the format check
#   ./test.sh unit tsan          a selection
#   ./test.sh --help             the names of the selections
#   FUZZ_SECONDS=900 ./test.sh fuzz   runs each fuzzer for 15 minutes instead of 10 seconds
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  cat <<'HELP'
Usage: ./test.sh [SELECTION...]

Without a selection it runs everything. Of lint it runs only the format check then.

  unit         unit tests, C++ and Java
  integration  the program on network devices, the library in a Java VM, packages, the soak
  recorder     the sample recorder: its unit tests, its page, more than one machine
  asan         unit tests in C++ with the address and undefined-behaviour sanitizers
  tsan         unit tests in C++ that start threads, with the thread sanitizer
  fuzz         the fuzzers, FUZZ_SECONDS (10) each
  lint         format, clang-tidy, the style of the Java code, commit subjects
HELP
}

# has WORD: true when it is selected.
has() { [[ " $selection " == *" $1 "* ]]; }

all="unit integration recorder asan tsan fuzz"
selection=
for word in "$@"; do
  case $word in
    unit | integration | recorder | asan | tsan | fuzz | lint) selection+=" $word" ;;
    --help | -h) usage; exit 0 ;;
    *) echo "There is no selection \"$word\". The selections are: $all lint" >&2; exit 1 ;;
  esac
done
whole=no
if [ -z "$selection" ]; then whole=yes selection=$all; fi

# ---- What the selection needs ----

. tools/setup.sh
first=
later=
labels=
targets=
builds=
steps=()
if has unit || has integration || has recorder || has asan || has tsan || has fuzz; then
  first="$BUILD_PACKAGES libgtest-dev libbenchmark-dev librabbitmq-client-java python3 ccache"
fi
if has unit; then labels+="|unit" targets+=" unit_tests host_tests sniffer"; fi
if has recorder; then
  labels+="|recorder" targets+=" host_tests sniffer_cluster_jar sniffer_standalone"
  later+=" $CLUSTER_PACKAGES chromium chromium-driver"
fi
if has integration; then
  labels+="|integration" targets=" all"
  later+=" $CLUSTER_PACKAGES chromium chromium-driver iproute2 ethtool tcpreplay tcpdump sip-tester binutils dpkg-dev"
  later+=" adduser systemd procps strace prometheus stunnel4 openssl"
fi
if [ -n "$labels" ]; then builds+=" release" steps+=("release ($(tr '|' , <<<"${labels#|}"))"); fi
if has asan || has fuzz; then builds+=" asan" later+=" clang libclang-rt-14-dev"; fi
if has asan; then steps+=(asan); fi
if has tsan; then builds+=" tsan" steps+=(tsan); fi
if has fuzz; then steps+=("fuzzers for ${FUZZ_SECONDS:-10} s each"); fi
if has lint; then
  steps+=("format, clang-tidy, Java style, commit subjects")
  first="$BUILD_PACKAGES libgtest-dev libbenchmark-dev clang clang-tidy clang-format checkstyle"
elif [ $whole = yes ]; then
  steps+=(format)
  later+=" clang-format"
fi
list=$(printf '%s; ' "${steps[@]}")
say "Tests: ${list%; }"

# ---- The steps ----

processors=$(nproc)
jobs=()

# Runs a step while later builds run. The step has its own process group, so that it ends with the script.
beside() {
  set -m
  "$@" &
  jobs+=($!)
  set +m
}

end_steps() {
  local job
  for job in "${jobs[@]}"; do kill -- "-$job" 2>/dev/null || true; done
}
trap end_steps EXIT

# run_tests PRESET [OPTION...]: prints one line when all tests pass, and the reason of each test that was skipped.
run_tests() {
  local preset=$1 log=$PWD/build/$1/ctest.log status=0
  shift
  ctest --preset "$preset" --output-log "$log" -j "$processors" "$@" >/dev/null 2>&1 || status=$?
  if [ $status = 0 ]; then
    say "$(sed -n "s/^\([0-9]*% tests passed.*\)/$preset: \1/p" "$log")"
  else
    say "$(cat "$log")"
    echo "$preset: tests failed, see above or $log; run one again with: ctest --preset $preset -R NAME" >&2
  fi
  grep -E '^[[:space:]]*[0-9]+ - .*\((Skipped|Disabled)\)|\[  SKIPPED \]|^skipped:|^SKIPPED' "$log" |
    sort -u | sed 's/^/  /' || true
  return $status
}

# Leaves the output in build/asan/found/NAME.log. The input of a fault stays in that folder, too.
run_fuzzer() {
  local fuzzer=$1 name corpus status=0 found=build/asan/found
  name=$(basename "$fuzzer")
  corpus=$(mktemp -d)
  mkdir -p $found
  "$fuzzer" -max_total_time="${FUZZ_SECONDS:-10}" -timeout=10 -rss_limit_mb=2048 -artifact_prefix=$found/ \
    -print_final_stats=1 "$corpus" "fuzz/corpus/$name" >"$found/$name.log" 2>&1 || status=$?
  rm -rf "$corpus"
  if [ $status = 0 ]; then
    say "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$found/$name.log") executions, no fault"
  else
    say "$(tail -n 40 "$found/$name.log")"
    echo "$name found a fault, see above; the input is in $found/" >&2
  fi
  return $status
}

run_fuzzers() {
  export -f run_fuzzer say
  find build/asan/fuzz -type f -executable -not -path '*CMakeFiles*' | sort |
    xargs -P "$processors" -I{} bash -c 'run_fuzzer {}'
}

# The tests of one build run during the next build, because they wait most of the time.
if [ -n "$first" ]; then install_missing $first; fi
if [ -n "$later" ] && [ -n "$(missing $later)" ]; then
  as_root true  # asks for the password before the installation continues during the first build
  set -m
  install_missing $later &
  installing=$!
  set +m
fi
wait_for_packages() {
  if [ -n "${installing:-}" ]; then wait "$installing" || exit 1; fi
  installing=
}

failed=0
case $builds in *release*) ;; *) wait_for_packages ;; esac
for preset in $builds; do
  case $preset in
    release)
      build release $targets
      wait_for_packages
      beside run_tests release -L "${labels#|}"
      ;;
    asan)
      if has asan && has fuzz; then build asan; elif has asan; then build asan unit_tests; else build fuzz; fi
      if has asan; then beside run_tests asan; fi
      ;;
    tsan)
      build tsan
      beside run_tests tsan
      ;;
  esac
done
if has fuzz; then run_fuzzers || failed=1; fi
if has lint; then
  tools/lint || failed=1
elif [ $whole = yes ]; then
  tools/check-format || failed=1
fi
for job in "${jobs[@]}"; do wait "$job" || failed=1; done
jobs=()

if [ $failed = 0 ]; then echo "All tests passed"; else echo "There are failures" >&2; fi
exit $failed
