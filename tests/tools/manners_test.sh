#!/usr/bin/env bash
# What a shell user meets: a file read from a pipe, a FIFO or standard input gives what the same
# bytes on disk give; a full device is an error, said on stderr; a signal that ends velcan run
# ends the command it runs.
#   manners_test.sh TOOL DATA_FOLDER TEST_NAME
set -euo pipefail
tool=$1
data=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# expect_same_from_a_pipe COMMAND FILE: stdout, stderr (less the name) and status of the
# command on FILE, on '-' from a pipe, on a FIFO and on /dev/stdin are the same.
expect_same_from_a_pipe() {
  local command=$1 file=$2 want got rc=0
  want=$("$tool" "$command" "$file" 2>&1) || rc=$?
  want="$rc ${want//$file/NAME}"
  rc=0
  got=$(cat "$file" | "$tool" "$command" - 2>&1) || rc=$?
  got="$rc ${got//(standard input)/NAME}"
  [ "$got" = "$want" ] || fail "from '-': '$got', from the file: '$want'"
  rc=0
  mkfifo "$work/fifo"
  cat "$file" >"$work/fifo" &
  got=$("$tool" "$command" "$work/fifo" 2>&1) || rc=$?
  wait
  got="$rc ${got//$work\/fifo/NAME}"
  [ "$got" = "$want" ] || fail "from a FIFO: '$got', from the file: '$want'"
  rc=0
  got=$(cat "$file" | "$tool" "$command" /dev/stdin 2>&1) || rc=$?
  got="$rc ${got//\/dev\/stdin/NAME}"
  [ "$got" = "$want" ] || fail "from /dev/stdin: '$got', from the file: '$want'"
}

# expect_write_error ARG...: velcan ARG... >/dev/full exits non-zero with one line on stderr.
expect_write_error() {
  local rc=0 err
  err=$("$tool" "$@" 2>&1 >/dev/full) || rc=$?
  [ "$rc" -ne 0 ] || fail "velcan $* >/dev/full exited 0"
  [ "$err" = "velcan: cannot write the output: No space left on device" ] ||
    fail "velcan $* >/dev/full said: $err"
}

bare_velcan_prints_the_usage_on_stderr_as_a_usage_error() {
  local rc=0 out
  out=$("$tool" 2>"$work/err") || rc=$?
  [ "$rc" -eq 2 ] || fail "exit status $rc, expected 2"
  [ -z "$out" ] || fail "stdout: $out"
  [ "$(cat "$work/err")" = "$("$tool" --help)" ] || fail "stderr is not the usage: $(cat "$work/err")"
}

history_of_a_malformed_file_from_a_pipe_says_what_the_file_says() {
  expect_same_from_a_pipe history "$data/mismatched.xml"
}

history_of_a_good_file_from_a_pipe_prints_what_the_file_prints() {
  expect_same_from_a_pipe history "$data/../../../examples/version-history.xml"
}

events_from_a_pipe_prints_what_the_file_prints() {
  expect_same_from_a_pipe events "$data/mismatched.xml"
}

history_from_a_pipe_leaves_no_copy_behind() {
  TMPDIR=$work "$tool" history - <"$data/events.xml" >/dev/null 2>&1 || true
  [ -z "$(ls "$work")" ] || fail "left behind: $(ls "$work")"
}

history_to_a_full_device_is_an_error() { expect_write_error history "$data/../../../examples/version-history.xml"; }
help_to_a_full_device_is_an_error() { expect_write_error --help; }
version_to_a_full_device_is_an_error() { expect_write_error --version; }
run_output_to_a_full_device_is_an_error() { expect_write_error run echo hi; }
lint_to_a_full_device_is_an_error() { expect_write_error lint "$data/mismatched.xml"; }

# A signal that ends velcan run ends its command: the child is gone once velcan has ended.
signal_that_ends_run_ends_its_command_too() {
  local signal pid child rc tries
  for signal in TERM INT HUP; do
    rm -f "$work/pid"
    # (A script's background job starts with INT ignored; env sets it back.)
    env --default-signal=INT "$tool" run sh -c "echo \$\$ >'$work/pid.tmp' && mv '$work/pid.tmp' '$work/pid' && exec sleep 300" &
    pid=$!
    for tries in $(seq 1 600); do [ -s "$work/pid" ] && break; sleep 0.1; done
    [ -s "$work/pid" ] || fail "the command did not start within 60 s"
    child=$(cat "$work/pid")
    kill -"$signal" "$pid"
    for tries in $(seq 1 600); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    if kill -0 "$pid" 2>/dev/null; then
      kill "$child"
      fail "60 s after SIG$signal velcan still waits: its command $child was left running"
    fi
    rc=0
    wait "$pid" || rc=$?
    for tries in $(seq 1 600); do kill -0 "$child" 2>/dev/null || break; sleep 0.1; done
    if kill -0 "$child" 2>/dev/null; then
      kill "$child"
      fail "after SIG$signal velcan ended (status $rc) and its command $child is still running"
    fi
    [ "$rc" -eq $((128 + $(kill -l "$signal"))) ] || fail "after SIG$signal velcan's status is $rc"
  done
}

"$3"
