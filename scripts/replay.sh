#!/usr/bin/env bash
# ./dev replay: the captures of tests/replay, run through the plug-in of today and of an earlier
# revision.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

readonly captures=tests/replay/captures
readonly plugin=build/dev/lib/libmqttadapter.so

replay_usage() {
  cat <<'HELP'
usage: ./dev replay [--against REVISION | --write | --record]

  Runs each capture of tests/replay/captures through the plug-in. What it does is to be as
  committed beside the capture, and, where that has not changed since then, as with the plug-in of
  an earlier revision.

  --against REVISION  of git; default: the latest tag v*, or where the main branch was left
  --write             writes what the plug-in does with each capture, to be committed
  --record            takes the captures anew from a run of the desk, and writes as well
HELP
}

# Where a plug-in of that revision is, built if need be.
# usage: plugin_of COMMIT
plugin_of() {
  local directory=build/replay/$1
  if [ ! -f "$directory/done" ]; then
    rm -rf "$directory"
    mkdir -p "$directory/sources"
    git archive "$1" | tar -x -C "$directory/sources"
    if ! cmake -S "$directory/sources" -B "$directory/build" -G Ninja \
      -DMQTTADAPTER_PLUGIN_ONLY=ON -DMQTTADAPTER_TESTS=OFF >"$directory/log" 2>&1 ||
      ! cmake --build "$directory/build" >>"$directory/log" 2>&1; then
      tail -n 30 "$directory/log" >&2
      fail "the plug-in of $1 cannot be built, see $directory/log"
    fi
    touch "$directory/done"
  fi
  echo "$directory/build/lib/libmqttadapter.so"
}

# The revision that cameras in the field may have. Says nothing where there is none.
released_before() {
  git describe --tags --abbrev=0 --match 'v*' HEAD^ 2>/dev/null || revision_before
}

# Shows how the plug-in of today differs; whether it does not.
# usage: is_same CAPTURE LIBRARY_OR_TRANSCRIPT
is_same() {
  local status=0
  build/dev/bin/adapter_replay "$1" --plugin "$plugin" --against "$2" || status=$?
  [ "$status" -le 1 ] || exit "$status"
  return "$status"
}

# usage: compare_with_transcripts; whether all are as committed
compare_with_transcripts() {
  local capture status=0
  for capture in "$captures"/*.jsonl; do
    is_same "$capture" "${capture%.jsonl}.transcript" || status=1
  done
  return "$status"
}

# A difference is wanted where the committed transcript has changed since then, or is new.
# usage: compare_with_revision REVISION; whether there is no other difference
compare_with_revision() {
  local capture commit earlier status=0
  commit=$(git rev-parse --verify --quiet "$1^{commit}") || fail "no such revision: $1"
  earlier=$(plugin_of "$commit") || exit
  for capture in "$captures"/*.jsonl; do
    is_same "$capture" "$earlier" && continue
    if git diff --quiet "$commit" -- "${capture%.jsonl}.transcript"; then
      status=1
    else
      say "wanted: $capture has another transcript since $1"
    fi
  done
  return "$status"
}

write_transcripts() {
  local capture
  for capture in "$captures"/*.jsonl; do
    build/dev/bin/adapter_replay "$capture" --plugin "$plugin" >"${capture%.jsonl}.transcript"
  done
  say "written: $captures/*.transcript"
}

# A test has the functions alone.
[ "${BASH_SOURCE[0]}" = "$0" ] || return 0

revision=""
case "${1:-}" in
  "") ;;
  -h | --help) replay_usage; exit ;;
  --against)
    [ -n "${2:-}" ] || fail "replay: --against takes a revision"
    revision=$2
    ;;
  --write)
    need_packages test
    build dev "adapter_replay mqttadapter"
    write_transcripts
    exit
    ;;
  --record)
    need_packages test
    build dev all
    CAPTURES_WRITE=1 run_tests dev 'rig.Captures.Of'
    exit
    ;;
  *) replay_usage >&2; fail "replay: unknown option $1" ;;
esac

need_packages test
build dev "adapter_replay mqttadapter"
compare_with_transcripts || fail "the plug-in does something else than is committed;" \
  "./dev replay --write commits to it"
[ -n "$revision" ] || revision=$(released_before)
if [ -z "$revision" ]; then
  say "no earlier revision is here: compared with the committed transcripts only"
  exit
fi
compare_with_revision "$revision" || fail "the plug-in does something else than that of $revision"
say "the same as with the plug-in of $revision, but for what is wanted otherwise"
