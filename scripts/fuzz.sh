#!/usr/bin/env bash
# Builds the fuzz targets with clang's libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer into build-fuzz/, replays the seeds and the
# regression inputs, then fuzzes each target in turn.
#
#   scripts/fuzz.sh [DURATION] [WORK]
#
# DURATION: per target, in seconds or with a suffix s, m or h (default 1h).
# WORK: folder that keeps what the fuzzer learns between runs, outside the
# repository (default ~/.cache/svcompose-fuzz): WORK/corpus/<target> holds
# the new inputs, WORK/crashes/<target>-* what made a target fail.
# FUZZ_TARGETS chooses targets (default: config bmp cycle).
#
# A crash: copy the file into tests/fuzz/regressions/<target>/ together
# with the fix, so that every test run replays it.
set -euo pipefail
cd "$(dirname "$0")/.."

duration=${1:-1h}
work=${2:-${XDG_CACHE_HOME:-$HOME/.cache}/svcompose-fuzz}
targets=${FUZZ_TARGETS:-config bmp cycle}

case $duration in
  *h) seconds=$(( ${duration%h} * 3600 )) ;;
  *m) seconds=$(( ${duration%m} * 60 )) ;;
  *s) seconds=${duration%s} ;;
  *)  seconds=$duration ;;
esac

if ! command -v clang++ >/dev/null; then
  echo "fuzz: installing clang"
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends clang >/dev/null
fi

jobs=$(( $(nproc) < 2 ? $(nproc) : 2 ))
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DSVCOMPOSE_FUZZ=ON -DSVCOMPOSE_BUILD_TOOLS=OFF -DSVCOMPOSE_BUILD_TESTS=OFF >/dev/null
# shellcheck disable=SC2086
cmake --build build-fuzz -j"$jobs" --target $(printf 'fuzz_%s ' $targets)

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1
(cd build-fuzz && ctest --output-on-failure -R '^fuzz_replay_')

failed=()
for t in $targets; do
  mkdir -p "$work/corpus/$t" "$work/crashes"
  log="$work/$t.log"
  echo "fuzz: $t for ${seconds}s (new inputs in $work/corpus/$t)"
  # Each input runs in milliseconds: one taking 10 s is a finding too.
  if ! build-fuzz/tests/fuzz/fuzz_"$t" "$work/corpus/$t" tests/fuzz/corpus/"$t" \
       tests/fuzz/regressions/"$t" -max_total_time="$seconds" -timeout=10 \
       -rss_limit_mb=2048 -artifact_prefix="$work/crashes/$t-" -print_final_stats=1 \
       >"$log" 2>&1; then
    failed+=("$t")
    echo "fuzz: $t FAILED; the end of $log:"
    tail -n 40 "$log"
  else
    grep -E '^stat::number_of_executed_units|^#[0-9]+.*DONE' "$log" | tail -n 2 | sed "s/^/fuzz: $t: /"
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failures in ${failed[*]}; inputs in $work/crashes/"
  exit 1
fi
