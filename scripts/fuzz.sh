#!/usr/bin/env bash
# ./dev fuzz: input of any kind to the plug-in, the agent and the camera.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

mapfile -t all < <(sed -n 's/^add_fuzz_target(\([a-z0-9_]*\).*/\1/p' tests/fuzz/CMakeLists.txt)

usage() {
  cat <<HELP
usage: ./dev fuzz [TARGET]... [SECONDS]

  Tries inputs for that long, 30 s, with each target, or these: ${all[*]}; as many at a time as
  there are cores.
  What was learned is in build/fuzz/corpus, and the next run goes on from it. An input that ends a
  target is in build/fuzz/findings.
HELP
}

# Where the camera has its data: what it writes, it waits for.
in_memory=$(memory_or_disk)

# usage: try_inputs TARGET SECONDS
try_inputs() {
  local target=$1 seconds=$2 directory=build/fuzz finding temporary
  local program=$directory/bin/fuzz_$target log=$directory/$target.log marker=$directory/$target.began
  mkdir -p "$directory/corpus/$target" "$directory/findings"
  touch "$marker"
  temporary=$(mktemp -d -p "$in_memory")
  TMPDIR=$temporary "$program" -max_total_time="$seconds" -max_len=4096 -timeout=10 -report_slow_units=10 \
    -dict=tests/fuzz/words.dict \
    -artifact_prefix="$directory/findings/$target-" -print_final_stats=1 \
    "$directory/corpus/$target" "tests/fuzz/corpus/$target" >"$log" 2>&1 || {
    grep -aE 'does not hold|runtime error|ERROR|SUMMARY' "$log" | cut -c1-2000 >&2
    finding=$(find "$directory/findings" -name "$target-*" -newer "$marker" | head -n 1)
    rm -rf "$temporary"
    fail "$target: see $log${finding:+; again with: $program $finding}"
  }
  rm -rf "$temporary"
  say "$target: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") inputs," \
    "$(grep -aoE 'cov: [0-9]+' "$log" | tail -n 1 | grep -oE '[0-9]+') places of the code reached"
}

seconds=30
targets=()
for argument in "$@"; do
  case "$argument" in
    -h | --help) usage; exit ;;
    *[!0-9]*)
      [[ " ${all[*]} " == *" $argument "* ]] || fail "no target is named $argument: ${all[*]}"
      targets+=("$argument")
      ;;
    *) seconds=$argument ;;
  esac
done
[ ${#targets[@]} -gt 0 ] || targets=("${all[@]}")

need_packages fuzz
build fuzz "$(printf 'fuzz_%s\n' "${targets[@]}")" -DCMAKE_CXX_COMPILER=clang++ -DMQTTADAPTER_FUZZ=ON

# As many targets at a time as there are cores.
running=0
status=0
for target in "${targets[@]}"; do
  if [ "$running" -eq "$(nproc)" ]; then
    wait -n || status=1
    running=$((running - 1))
  fi
  try_inputs "$target" "$seconds" &
  running=$((running + 1))
done
for ((; running > 0; running--)); do
  wait -n || status=1
done
exit "$status"
