# The options of ./dev run. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

run_usage() {
  cat <<HELP
usage: $called_as run [OPTIONS]

  --for SECONDS          ends by itself; a failure when no result was acknowledged by then
  --cars-per-minute N    default 12; 0: those only that you have pass
  --fresh                begins with an empty store and the camera's first settings
  --tls                  the broker wants certificates, of an authority of the desk's own, and each
                         camera may write below its own topics only (docs/security.md)
  --auto-push            undelivered results are delivered again unasked
  --port PORT            the broker's, default 1884
  --console-port PORT    of the page in the browser, default 8090
  --link-port PORT       where the console passes the agent on to the broker, default 1885
  --bus-port PORT        default 6101
  --kv-port PORT         default 6102

A second desk beside the first needs five other ports. The desk with broker port 2884 keeps
its files in $state_dir/run-2884, and its camera is DESK2884 unless TARVEX_SERIAL_NUMBER is set.
HELP
}

declare -A ports=(
  [--port]=1884 [--console-port]=8090 [--link-port]=1885 [--bus-port]=6101 [--kv-port]=6102)
declare -A option_of_port=()
seconds=0
cars_per_minute=12
fresh=no
tls=no
agent_options=()

read_run_options() {
  while [ $# -gt 0 ]; do
    case "$1" in
      --fresh) fresh=yes ;;
      --tls) tls=yes ;;
      --auto-push) agent_options+=(--auto-push) ;;
      --for)
        [[ ${2:-} =~ ^[1-9][0-9]{0,7}$ ]] || fail "run: $1 takes whole seconds, not '${2:-}'"
        seconds=$2
        shift
        ;;
      --cars-per-minute)
        [[ ${2:-} =~ ^[0-9]{1,6}(\.[0-9]+)?$ ]] || fail "run: $1 takes a number, not '${2:-}'"
        cars_per_minute=$2
        shift
        ;;
      -h | --help) run_usage; exit ;;
      *)
        [ -n "${ports[$1]:-}" ] || fail "run: unknown option $1 (see $called_as run --help)"
        if ! [[ ${2:-} =~ ^[1-9][0-9]{0,4}$ ]] || [ "$2" -gt 65535 ]; then
          fail "run: $1 takes a port from 1 to 65535, not '${2:-}'"
        fi
        ports[$1]=$2
        shift
        ;;
    esac
    shift
  done
  ports_must_differ
}

ports_must_differ() {
  local option port
  for option in "${!ports[@]}"; do
    port=${ports[$option]}
    [ -z "${option_of_port[$port]:-}" ] ||
      fail "run: $option and ${option_of_port[$port]} are both $port"
    option_of_port[$port]=$option
  done
}
