# TCP ports of 127.0.0.1. Sourced.
# shellcheck shell=bash

port_answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# The process that listens on a port: "mosquitto (pid 123)".
port_holder() {
  local line
  line=$(ss -Hltnp "sport = :$1" 2>/dev/null)
  if [[ $line =~ \(\"([^\"]*)\",pid=([0-9]+) ]]; then
    echo "${BASH_REMATCH[1]} (pid ${BASH_REMATCH[2]})"
  else
    echo "a process of another user"
  fi
}
