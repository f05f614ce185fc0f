# What the commands of ./dev share: building, testing, checking. Sourced.
# shellcheck shell=bash

# shellcheck source=scripts/packages.sh
. scripts/packages.sh

# What people have typed: ./dev, or the command of the package that the desk comes from.
called_as=${DESK_PROGRAM:-./dev}

# What a desk keeps is below this directory.
# shellcheck disable=SC2034
state_dir=${DESK_STATE:-build}

fail() {
  printf '%s: %s\n' "$called_as" "$*" >&2
  exit 1
}

say() { printf '%s: %s\n' "$called_as" "$*"; }

# Debian's own, which has Debian's packages, and leaves nothing beside the sources.
python() { PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 "$@"; }

# Compares the contract with that of a git revision.
contract_diff() { python contract/diff.py "$@"; }

# The revision that a change is held against: where it left the main branch, or the one
# before it. Says nothing where there is none, as in a shallow clone.
revision_before() {
  local main head
  head=$(git rev-parse HEAD 2>/dev/null) || return 0
  for main in origin/main main; do
    main=$(git merge-base HEAD "$main" 2>/dev/null) || continue
    [ "$main" = "$head" ] || { echo "$main"; return; }
  done
  git rev-parse --verify --quiet HEAD^ || true
}

# Without the tests and without optimisation the programs take half as long to build, and fewer
# packages. A directory that is like that is made whole when more is asked for.
only_to_run=(-DMQTTADAPTER_TESTS=OFF -DCMAKE_BUILD_TYPE=None)

# usage: configure DIRECTORY [CMAKE OPTIONS]
configure() {
  local directory=build/$1 type=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
  shift
  [[ " $* " != *" --preset "* ]] || type=()
  mkdir -p "$directory"
  if [ -f "$directory/build.ninja" ] && { [[ $* == "${only_to_run[*]}" ]] ||
    ! grep -q '^MQTTADAPTER_TESTS:BOOL=OFF' "$directory/CMakeCache.txt"; }; then
    return 0
  fi
  cmake -S . -B "$directory" -G Ninja -DMQTTADAPTER_TESTS=ON "${type[@]}" "$@" \
    >"$directory/configure.log" 2>&1 || {
    cat "$directory/configure.log" >&2
    fail "configuring $directory failed"
  }
}

# What building and testing run under; empty: nothing.
runner=()

# usage: build DIRECTORY "TARGETS" [CMAKE OPTIONS]
build() {
  local directory=$1 targets
  read -ra targets <<<"${2//$'\n'/ }"
  configure "$directory" "${@:3}"
  "${runner[@]}" cmake --build "build/$directory" --target "${targets[@]}" 2>&1 |
    tee "build/$directory/build.log" | show_progress || {
    grep -A 12 -E 'error|FAILED|warning' "build/$directory/build.log" | head -n 60 >&2 ||
      tail -n 30 "build/$directory/build.log" >&2
    fail "the build failed, see build/$directory/build.log"
  }
}

# Shows how far ninja is, "[37/115] Building ...": on a terminal in place, else every ten
# seconds.
show_progress() {
  local line progress="" shown=-10
  while IFS= read -r -t 10 line || [ $? -gt 128 ]; do
    [[ $line != \[* ]] || progress=$line
    if [ -z "$progress" ]; then
      continue
    elif [ -t 1 ]; then
      printf '\r%.*s\e[K' $((${COLUMNS:-80} - 1)) "$progress"
    elif [ $((SECONDS - shown)) -ge 10 ]; then
      say "$progress"
      shown=$SECONDS
    fi
  done
  [ ! -t 1 ] || printf '\r\e[K'
}

# Numbers of the tests whose names match an extended regular expression, without regard
# to case, '_' and '-', each after a comma. Not those that run a whole program, "all.PROGRAM".
# usage: matching_tests BUILD_DIRECTORY NAME
matching_tests() {
  ctest --test-dir "$1" --show-only | WANTED=$2 awk '
    function plain(text) { text = tolower(text); gsub(/[-_ ]/, "", text); return text }
    match($0, /^ *Test +#[0-9]+: /) && substr($0, RLENGTH + 1) !~ /^all\./ {
      number = substr($0, 1, RLENGTH)
      gsub(/[^0-9]/, "", number)
      if (plain(substr($0, RLENGTH + 1)) ~ plain(ENVIRON["WANTED"])) printf ",%s", number
    }'
}

# Prints /dev/shm if there is 1 GB of room and programs can be started from there, else /tmp.
memory_or_disk() {
  local free options
  read -r free options < <(findmnt --noheadings --bytes --output AVAIL,OPTIONS /dev/shm) || true
  if [[ ${free:-0} -ge 1000000000 && $options != *noexec* && -w /dev/shm ]]; then
    echo /dev/shm
  else
    echo /tmp
  fi
}

# Temporary files of the tests, some 100 MB, have a directory of their own, in memory if TMPDIR does
# not say where: making and removing files on a disk takes a tenth of the time. One that is left there
# fails the run.
# usage: run_tests DIRECTORY [NAME | CTEST OPTIONS]
run_tests() {
  local directory=build/$1 options=() which=(--label-exclude single) numbers temporary left at_once status=0
  shift
  while [ $# -gt 0 ]; do
    case "$1" in
      --label-regex) options+=(--label-regex "$2"); shift ;;
      -*) options+=("$1") ;;
      *)
        numbers=$(matching_tests "$directory" "$1") || fail "cannot look for tests named $1"
        [ -n "$numbers" ] || fail "no test is named like $1"
        which=(--tests-information "0,0,0$numbers")
        ;;
    esac
    shift
  done
  temporary=$(mktemp -d --tmpdir="${TMPDIR:-$(memory_or_disk)}")
  chmod 755 "$temporary"  # a broker that root starts reads as another user
  # Most tests wait for processes most of the time; under a sanitizer or emulated they keep a core busy.
  at_once=$(($(nproc) * 8))
  [[ $directory != build/?san && $directory != build/arm* ]] || at_once=$(nproc)
  TMPDIR=$temporary "${runner[@]}" ctest --test-dir "$directory" --parallel "$at_once" --output-on-failure \
    --no-tests=error "${which[@]}" "${options[@]}" || status=$?
  left=$(cd "$temporary" && find . -mindepth 1)
  rm -rf "$temporary"
  [ -z "$left" ] || fail "left in the temporary directory after the tests:"$'\n'"$left"
  return "$status"
}

# usage: sanitize [thread] [NAME | CTEST OPTIONS]
sanitize() {
  if [ "${1:-}" = thread ]; then
    sanitize_threads "${@:2}"
  else
    build asan "contract_tests mqtt_adapter_tests mqttadapter_host_tests hostcheck_tests
      platform_interface_tests platform_tests cloud_agent_tests virtual_camera_tests console_tests
      adapter_replay replay_tests" -DSANITIZE=address,undefined
    run_tests asan --label-regex 'contract|unit' "$@"
  fi
}

# What has threads, under the thread sanitizer. Reports are read from files, so that the
# programs that a test starts, and kills, are looked at too.
sanitize_threads() {
  local reports=$PWD/build/tsan/reports status=0
  # Older sanitizers refuse the addresses that a newer kernel hands out at random.
  ! setarch -R true 2>/dev/null || runner=(setarch -R)
  export TSAN_OPTIONS="log_path=$reports/report second_deadlock_stack=1"
  TSAN_OPTIONS+=" suppressions=$PWD/cmake/thread_sanitizer.txt"
  rm -rf "$reports"
  mkdir -p "$reports"
  build tsan "platform_tests cloud_agent_tests virtual_camera_tests console_tests rig_tests" \
    -DSANITIZE=thread
  run_tests tsan --label-regex threads "$@" || status=$?
  [ -z "$(ls "$reports")" ] || {
    cat "$reports"/* | head -n 100 >&2
    fail "the thread sanitizer found something, see $reports"
  }
  return "$status"
}

# The project's own C++ files.
sources() { git ls-files --cached --others --exclude-standard -- '*.h' '*.cpp'; }

# usage: tidy [CLANG-TIDY OPTIONS] <FILES
tidy() { xargs -P "$(nproc)" -n 1 clang-tidy -p build/lint --quiet "$@" >>build/tidy.log 2>/dev/null; }

scripts() { printf '%s\n' dev .ci/run scripts/*.sh packaging/rig/mqttadapter-rig; }

lint() {
  sources | xargs clang-format --dry-run --Werror || fail "layout: run ./dev format"
  scripts | xargs shellcheck -x || fail "shellcheck found something"
  pyflakes3 bench contract examples packaging scripts tests/build tests/desk tests/packages || fail "pyflakes found something"
  lint_contract
  # clang-tidy reads what a build was told that has no precompiled headers: it has another compiler's,
  # and finds what a file of the programs uses and does not include.
  configure lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DCMAKE_UNITY_BUILD=OFF
  ninja -C build/lint build.ninja >build/lint.log  # what is new since is known to it, too
  : >build/tidy.log
  { git ls-files -- '*.cpp' ':!tests' | tidy &&
    jq -r '.[].file' build/lint/compile_commands.json | grep '/tests/.*/Unity/' |
    tidy --config-file=tests/.clang-tidy; } || {
    grep -E 'error|warning' build/tidy.log | sort -u | head -n 40 >&2
    fail "clang-tidy found something, see build/tidy.log"
  }
  say "layout, scripts, contract and clang-tidy are clean"
}

# The contract against AsyncAPI, and against what clients have been promised.
lint_contract() {
  local before
  python contract/validate.py || fail "contract/asyncapi.json is no AsyncAPI 3"
  before=$(revision_before)
  [ -z "$before" ] || contract_diff "$before" >build/contract.diff ||
    { grep '^breaks' build/contract.diff >&2; fail "the contract breaks clients"; }
}
