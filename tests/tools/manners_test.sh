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

test_bare_velcan_prints_the_usage_on_stderr_as_a_usage_error() {
  local rc=0 out
  out=$("$tool" 2>"$work/err") || rc=$?
  [ "$rc" -eq 2 ] || fail "exit status $rc, expected 2"
  [ -z "$out" ] || fail "stdout: $out"
  [ "$(cat "$work/err")" = "$("$tool" --help)" ] || fail "stderr is not the usage: $(cat "$work/err")"
}

# --help lists every command of the usage under "Commands:", each summary in one column.
test_help_lists_every_command_with_its_summary_in_one_column() {
  local help commands listed columns
  help=$("$tool" --help)
  commands=$(sed -n 's/^\(usage:\|      \) velcan \([a-z]*\) .*/\2/p' <<<"$help" | grep -v '^$')
  listed=$(sed -n '/^Commands:$/,/^$/s/^  \([a-z]*\) .*/\1/p' <<<"$help")
  [ -n "$commands" ] && [ "$commands" = "$listed" ] || fail "usage lines: [$commands], listed: [$listed]"
  columns=$(sed -n '/^Commands:$/,/^$/s/^\(  [a-z]* *\)[^ ].*/\1/p' <<<"$help" | awk '{ print length }' | sort -u)
  [ "$(wc -l <<<"$columns")" -eq 1 ] || fail "summaries start in columns: $columns"
}

test_history_of_a_malformed_file_from_a_pipe_says_what_the_file_says() {
  expect_same_from_a_pipe history "$data/mismatched.xml"
}

test_history_of_a_good_file_from_a_pipe_prints_what_the_file_prints() {
  expect_same_from_a_pipe history "$data/../../../examples/version-history.xml"
}

test_events_from_a_pipe_prints_what_the_file_prints() {
  expect_same_from_a_pipe events "$data/mismatched.xml"
}

test_history_from_a_pipe_leaves_no_copy_behind() {
  TMPDIR=$work "$tool" history - <"$data/events.xml" >/dev/null 2>&1 || true
  [ -z "$(ls "$work")" ] || fail "left behind: $(ls "$work")"
}

test_history_to_a_full_device_is_an_error() {
  expect_write_error history "$data/../../../examples/version-history.xml"
}
test_help_to_a_full_device_is_an_error() {
  expect_write_error --help
}
test_version_to_a_full_device_is_an_error() {
  expect_write_error --version
}
test_run_output_to_a_full_device_is_an_error() {
  expect_write_error run echo hi
}
test_lint_to_a_full_device_is_an_error() {
  expect_write_error lint "$data/mismatched.xml"
}

test_history_from_a_pipe_needs_no_temporary_folder() {
  local sample=$data/../../../examples/version-history.xml
  "$tool" history "$sample" >"$work/from-file"
  cat "$sample" | TMPDIR=$work/missing "$tool" history - >"$work/from-pipe" ||
    fail "status $?"
  cmp -s "$work/from-file" "$work/from-pipe" || fail "the pipe printed something else"
}

test_history_without_file_says_it_shows_the_sample_when_input_is_piped() {
  local out err
  err=$("$tool" history <"$data/events.xml" 2>&1 >"$work/out")
  [ "$err" = "velcan: history: no FILE given: showing the sample history (give - to read standard input)" ] ||
    fail "said: $err"
  cmp -s "$work/out" "$data/sample.txt" || fail "did not print the sample"
}

test_lint_from_a_pipe_says_what_the_file_says() {
  expect_same_from_a_pipe lint "$data/lint/malformed.xml"
}

# lint --json is valid UTF-8 even when a file's name is not: the stray byte becomes U+FFFD.
test_lint_json_is_valid_utf8_for_a_file_name_that_is_not() {
  local name out
  name=$work/$'bad\xffname.xml'
  cp "$data/lint/outside.xml" "$name"
  out=$("$tool" lint --json "$name") && fail "lint found nothing in $name"
  printf '%s' "$out" | iconv -f UTF-8 -t UTF-8 >/dev/null || fail "not UTF-8: $out"
  case $out in
    *"bad"$'\xef\xbf\xbd'"name.xml"*) ;;
    *) fail "the name's byte is not U+FFFD: $out" ;;
  esac
}

# Depth costs lint no more per element than breadth: a Version 100,000 elements deep is found,
# with the one warning it earns, and nothing else.
test_lint_reads_a_deeply_nested_document() {
  local depth=100000 out
  {
    printf '<a>%.0s' $(seq "$depth")
    printf '<Version number="1" date="2026-11-24">\n<FeatureDescription/></Version>'
    printf '</a>%.0s' $(seq "$depth")
  } >"$work/deep.xml"
  out=$("$tool" lint "$work/deep.xml") && fail "an empty description passed"
  [ "$out" = "$work/deep.xml:2:1: warning: empty description" ] || fail "lint said: $out"
}

# A signal that ends velcan run ends its command's whole tree first: the command and what it
# started are gone once velcan has ended, by the same signal.
test_signal_that_ends_run_ends_its_command_too() {
  local signal pid child rc tries
  for signal in TERM INT HUP QUIT USR1 USR2 ALRM; do
    rm -f "$work/pid"
    # (A script's background job starts with INT and QUIT ignored; env sets them back.)
    env --default-signal=INT,QUIT "$tool" run sh -c "sleep 300 & echo \$! >'$work/pid.tmp' && mv '$work/pid.tmp' '$work/pid' && wait" &
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

# A closed output pipe ends velcan run as it ends any program that writes to one, and the
# command's whole tree with it.
test_closed_output_pipe_ends_run_and_its_command() {
  local status child
  set +o pipefail
  "$tool" run sh -c "echo \$\$ >'$work/pid.tmp' && mv '$work/pid.tmp' '$work/pid'; while :; do echo y; sleep 0.05; done" | head -c1 >/dev/null
  status=${PIPESTATUS[0]}
  set -o pipefail
  [ "$status" -eq 141 ] || fail "velcan's status is $status"
  child=$(cat "$work/pid")
  for _ in $(seq 1 600); do kill -0 "$child" 2>/dev/null || break; sleep 0.1; done
  if kill -0 "$child" 2>/dev/null; then kill "$child"; fail "the command $child outlived velcan"; fi
}

"$3"
