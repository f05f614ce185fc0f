# Child processes of a shell script: started in sessions of their own, so that a
# Ctrl-C reaches the script alone, bound to its life, and ended by process id. Sourced;
# the caller sets log_dir.
# shellcheck shell=bash disable=SC2154,SC2034

child_names=()
child_pids=()

# usage: start_child NAME COMMAND...   output goes to $log_dir/NAME.out and NAME.err
start_child() {
  local name=$1
  shift
  : >"$log_dir/$name.out"
  setsid setpriv --pdeathsig TERM "$@" >"$log_dir/$name.out" 2>"$log_dir/$name.err" </dev/null &
  adopt_child "$name" $!
}

# usage: adopt_child NAME PID
adopt_child() {
  child_names+=("$1")
  child_pids+=("$2")
}

# Waits until one of the children ends; its name is in $ended then.
wait_for_first_end() {
  local pid i
  wait -n -p pid "${child_pids[@]}" || true
  for i in "${!child_pids[@]}"; do
    [ "${child_pids[i]}" != "$pid" ] || ended=${child_names[i]}
  done
}

# Ends the children, the last one first: SIGTERM, and SIGKILL after some seconds.
stop_children() {
  local i pid deadline
  trap '' INT TERM
  for ((i = ${#child_pids[@]} - 1; i >= 0; --i)); do
    pid=${child_pids[i]}
    kill -TERM "$pid" 2>/dev/null || continue
    deadline=$((SECONDS + 8))
    while kill -0 "$pid" 2>/dev/null && [ $SECONDS -lt $deadline ]; do sleep 0.05; done
    kill -KILL "$pid" 2>/dev/null && say "${child_names[i]} had to be killed"
    wait "$pid" 2>/dev/null || true
  done
  child_pids=()
  child_names=()
}

port_answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

port_is_free() { ! port_answers "$1"; }

# usage: wait_for WHAT CONDITION...   fails when it has not come within 20 seconds
wait_for() {
  local what=$1 deadline=$((SECONDS + 20)) i
  shift
  until "$@"; do
    for i in "${!child_pids[@]}"; do
      kill -0 "${child_pids[i]}" 2>/dev/null ||
        fail "${child_names[i]} ended: $(tail -n 1 "$log_dir/${child_names[i]}.err")"
    done
    [ $SECONDS -lt $deadline ] || fail "$what does not come up, see $log_dir"
    sleep 0.05
  done
}
