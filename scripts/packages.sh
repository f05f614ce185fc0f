# Installs what is missing, from Debian and with npm; says nothing when nothing is. Sourced.
# shellcheck shell=bash

# The packages of some lists that are not there. The second word of a line is a command: where
# there is one already, the package is not needed. A package is this machine's, or NAME:ARCHITECTURE.
# usage: missing_packages FILE...
missing_packages() {
  local installed name command own
  own=$(dpkg --print-architecture)
  installed=$(dpkg-query -W -f='${Package}:${Architecture} ${db:Status-Status}\n')
  while read -r name command; do
    if [ -z "$command" ] || ! command -v "$command" >/dev/null; then
      grep -qxF -e "$name installed" -e "$name:$own installed" -e "$name:all installed" <<<"$installed" ||
        echo "$name"
    fi
  done < <(sed -e 's/#.*//' -e '/^ *$/d' "$@")
}

# An index that cannot be fetched is no failure where the packages can be installed without.
# usage: need_packages run|test|lint|bench|brokers|fuzz|arm|abi|package   all but arm need what running and the tests need
need_packages() {
  local lists=(scripts/packages.txt) missing as_root=() update="" architecture services=() service
  case "$1" in
    test) lists+=(scripts/packages-test.txt) ;;
    bench) lists+=(scripts/packages-test.txt scripts/packages-bench.txt) ;;
    brokers)
      lists+=(scripts/packages-test.txt scripts/packages-brokers.txt)
      services=(ejabberd.service epmd.service epmd.socket)
      ;;
    fuzz) lists+=(scripts/packages-test.txt scripts/packages-fuzz.txt) ;;
    arm) lists=(scripts/packages-arm.txt) ;;
    abi) lists+=(scripts/packages-test.txt scripts/packages-arm.txt) ;;
    package) lists+=(scripts/packages-test.txt scripts/packages-arm.txt scripts/packages-package.txt) ;;
    lint) lists+=(scripts/packages-test.txt scripts/packages-lint.txt) ;;
  esac
  mapfile -t missing < <(missing_packages "${lists[@]}")
  [ ${#missing[@]} -gt 0 ] || return 0
  command -v apt-get >/dev/null || fail "needs apt-get to install: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "needs root or sudo to install: ${missing[*]}"
    as_root=(sudo)
  fi
  say "installing ${missing[*]}"
  mkdir -p build
  for architecture in $(printf '%s\n' "${missing[@]}" | sed -n 's/.*://p' | sort -u); do
    "${as_root[@]}" dpkg --add-architecture "$architecture"
  done
  # What a package starts by itself is not wanted; one that is there already is somebody's.
  for service in "${services[@]}"; do
    [ -e "/lib/systemd/system/$service" ] ||
      "${as_root[@]}" ln -sfn /dev/null "/etc/systemd/system/$service"
  done
  "${as_root[@]}" apt-get update >build/apt-update.log 2>&1 ||
    update="; apt-get update failed too: $(tail -n 1 build/apt-update.log)"
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}" >build/apt.log 2>&1 ||
    fail "apt-get install failed, see build/apt.log: $(tail -n 1 build/apt.log)$update"
}

# Installs the npm packages that a directory's package-lock.json names, when they are not
# there or older than it.
# usage: need_npm DIRECTORY
need_npm() {
  local directory=$1
  [ "$directory/node_modules/.package-lock.json" -ot "$directory/package-lock.json" ] || return 0
  say "installing the npm packages of $directory"
  mkdir -p build
  npm ci --prefix "$directory" --ignore-scripts --no-audit --no-fund >build/npm.log 2>&1 ||
    fail "npm failed for $directory, see build/npm.log: $(grep -m 1 error build/npm.log)"
  touch "$directory/node_modules/.package-lock.json"
}
