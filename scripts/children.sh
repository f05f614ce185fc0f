# Child processes of a shell script, each with a name: started in sessions of their own, so
# that a Ctrl-C reaches the script alone, bound to its life, started again when they end, and
# ended by process id. Sourced; the caller sets run_dir. A child's output is appended to
# $run_dir/log/NAME.out and NAME.err, and its process id is in $run_dir/NAME.pid.
# shellcheck shell=bash disable=SC2154,SC2034

child_names=()
declare -A child_command=() child_pid=() child_began_us=() child_quick_ends=()

now_us() { printf %s "${EPOCHREALTIME/[.,]/}"; }

# usage: start_child NAME COMMAND...
start_child() {
  local name=$1
  shift
  child_names+=("$name")
  child_command[$name]=${*@Q}
  child_quick_ends[$name]=0
  : >"$run_dir/log/$name.out"
  : >"$run_dir/log/$name.err"
  launch_child "$name"
}

launch_child() {
  local name=$1 command
  eval "command=(${child_command[$name]})"
  setsid setpriv --pdeathsig TERM "${command[@]}" \
    >>"$run_dir/log/$name.out" 2>>"$run_dir/log/$name.err" </dev/null &
  child_pid[$name]=$!
  child_began_us[$name]=$(now_us)
  echo $! >"$run_dir/$name.pid"
}

# Waits until one of the children ends: $ended is its name then, $status its exit status. It
# looks again and again: bash's own waiting misses a child that ends while another command runs.
wait_for_an_end() {
  local name
  while true; do
    for name in "${child_names[@]}"; do
      kill -0 "${child_pid[$name]}" 2>/dev/null && continue
      ended=$name status=0
      wait "${child_pid[$name]}" 2>/dev/null || status=$?
      return 0
    done
    sleep 0.2
  done
}

# Starts a child that has ended again and says so. Fails for one that ends twice within two
# seconds of its start, and not because of a signal: it cannot run.
# usage: restart_child NAME STATUS
restart_child() {
  local name=$1 status=$2 lived_us how="exit code $2"
  lived_us=$(($(now_us) - child_began_us[$name]))
  [ "$status" -le 128 ] || how="signal $(kill -l $((status - 128)))"
  if [ "$lived_us" -ge 2000000 ]; then
    child_quick_ends[$name]=0
  else
    [[ $how == "exit code "[1-9]* ]] && ((++child_quick_ends[$name] >= 2)) && return 1
    sleep 1
  fi
  launch_child "$name"
  say "$name ended ($how) and was started again"
}

# The last line that a child has written, or where nothing is.
last_words() {
  local line
  line=$(tail -q -n 1 "$run_dir/log/$1.err")
  printf '%s' "${line:-see $run_dir/log/$1.out}"
}

# Ends the children, the last one first: SIGTERM, and SIGKILL after some seconds.
stop_children() {
  local i name pid deadline
  trap '' INT TERM
  for ((i = ${#child_names[@]} - 1; i >= 0; --i)); do
    name=${child_names[i]}
    pid=${child_pid[$name]}
    rm -f "$run_dir/$name.pid"
    kill -TERM "$pid" 2>/dev/null || continue
    deadline=$((SECONDS + 8))
    while kill -0 "$pid" 2>/dev/null && [ $SECONDS -lt $deadline ]; do sleep 0.05; done
    kill -KILL "$pid" 2>/dev/null && say "$name had to be killed"
    wait "$pid" 2>/dev/null || true
  done
  child_names=()
}

# usage: wait_for WHAT CONDITION...   fails when it has not come within 20 seconds
wait_for() {
  local what=$1 deadline=$((SECONDS + 20)) name
  shift
  until "$@"; do
    for name in "${child_names[@]}"; do
      kill -0 "${child_pid[$name]}" 2>/dev/null ||
        fail "$name cannot start: $(last_words "$name")"
    done
    [ $SECONDS -lt $deadline ] || fail "$what does not come, see $run_dir/log"
    sleep 0.05
  done
}
