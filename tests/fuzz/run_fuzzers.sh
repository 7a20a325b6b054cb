#!/usr/bin/env bash
# Runs every fuzz target of a KRA2_FUZZ build for a set time and reports executions per second
# and coverage. A target that finds a crash, leak, timeout or sanitizer report makes the run
# fail; its input is left in <build>/fuzz/artifacts/.
# Usage: run_fuzzers.sh <build-dir> <seconds-per-target> [target...]
# FUZZ_JOBS (default 1) targets run at a time.
set -uo pipefail

# The whole script is one function, read before it runs, so that editing the file during a
# long run cannot change what the run does.
main() {
  build=$(cd "$1" && pwd)
  seconds=$2
  shift 2
  here=$(cd "$(dirname "$0")" && pwd)
  jobs=${FUZZ_JOBS:-1}
  targets=("$@")
  if [ ${#targets[@]} -eq 0 ]; then
    targets=(command_file raw_file psf_file netlist database header_parameters network_data db_network)
  fi

  fuzz=$build/fuzz
  "$here/collect_seeds.sh" "$build" "$fuzz/seeds" > /dev/null
  mkdir -p "$fuzz/corpus" "$fuzz/artifacts" "$fuzz/logs"

  run_one() {
    local target=$1
    local corpus=$fuzz/corpus/$target
    local options=(-max_total_time="$seconds" -timeout=30 -rss_limit_mb=2560 -print_final_stats=1
                   -artifact_prefix="$fuzz/artifacts/$target-")
    if [ -f "$here/$target.dict" ]; then
      options+=(-dict="$here/$target.dict")
    fi
    mkdir -p "$corpus"
    "$fuzz/kra2_fuzz_$target" "${options[@]}" "$corpus" "$fuzz/seeds/$target" \
      > "$fuzz/logs/$target.log" 2>&1
  }

  status=0
  running=0
  for target in "${targets[@]}"; do
    run_one "$target" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
      wait -n
      running=$((running - 1))
    fi
  done
  wait

  for target in "${targets[@]}"; do
    log=$fuzz/logs/$target.log
    final=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -1)
    rate=$(sed -n 's/^stat::average_exec_per_sec:[[:space:]]*//p' "$log" | tail -1)
    cov=$(echo "$final" | sed -n 's/.* cov: \([0-9]*\) ft: \([0-9]*\) corp: \([0-9]*\).*/\1 edges, \2 features, \3 inputs/p')
    if [ -z "$final" ] || grep -qE '^==[0-9]+==ERROR|runtime error:|^SUMMARY:|Test unit written' "$log"; then
      echo "FAIL $target (see $log)"
      grep -E '^==[0-9]+==ERROR|runtime error:|^SUMMARY:|Test unit written' "$log" | head -5
      status=1
    else
      echo "ok   $target: ${rate:-?} exec/s, coverage $cov"
    fi
  done
  return $status
}

main "$@"
