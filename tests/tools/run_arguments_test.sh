#!/usr/bin/env bash
# velcan run: every argument passed through literally; its options (time limit, directory,
# environment, input) and its statuses, as timeout(1) and env(1) give them: 124 when the time
# limit ended the command, 125 for velcan's own failures (usage included), 126 found but cannot
# be run, 127 not found, 128+N when signal N ended it, otherwise the command's own status.
#   run_arguments_test.sh TOOL TEST_NAME
set -euo pipefail
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# expect_args ARG...: the tool must pass each ARG through exactly.
expect_args() {
  local want="" got rc=0 a
  for a in "$@"; do want+="[$a]"; done
  got=$("$tool" run printf '[%s]' "$@" 2>&1) || rc=$?
  [ "$rc" -eq 0 ] || fail "exit status $rc for: $got"
  [ "$got" = "$want" ] || fail "expected $want, got $got"
}

# expect_status WANT ARG...: velcan ARG... exits with WANT.
expect_status() {
  local want=$1 rc=0
  shift
  "$tool" "$@" >"$work/out" 2>"$work/err" || rc=$?
  [ "$rc" -eq "$want" ] || fail "velcan $* exited $rc, expected $want; said: $(cat "$work/err")"
}

test_double_quotes_pass_literally() { expect_args '"x"' 'a"b' '"' '""' 'say "hi"'; }
test_apostrophes_pass_literally() { expect_args "'x'" "it's" "'" "a 'b' c"; }
test_spaces_pass_literally() { expect_args 'a b' ' lead' 'trail ' 'two  spaces' ' '; }
test_percent_signs_pass_literally() { expect_args '%' '%%' '100%' '%s' '%d%%'; }
test_empty_arguments_pass_literally() { expect_args '' 'x' '' ''; }
test_other_characters_pass_literally() { expect_args 'tab	in' 'new
line' '\back' '$HOME' '*' ';&|<>' 'é'; }
test_both_kinds_of_quote_in_one_word_pass_literally() { expect_args "a'b\"c d" "'\"" x; }
test_many_long_arguments_pass_literally() {
  local words=() i
  for i in $(seq 1 2000); do words+=("word-$i-$(printf 'x%.0s' $(seq 1 20))"); done
  expect_args "${words[@]}"
}

test_empty_or_blank_command_is_a_usage_error_125() {
  local word
  for word in '' '  '; do
    expect_status 125 run "$word" x
    [[ $(cat "$work/err") == "velcan: run: expects a COMMAND"* ]] || fail "said: $(cat "$work/err")"
  done
  expect_status 125 run
}

test_unknown_option_is_a_usage_error_125() {
  expect_status 125 run --frobnicate true
  [[ $(cat "$work/err") == "velcan: run: unknown option '--frobnicate'"* ]] || fail "said: $(cat "$work/err")"
}

test_options_after_the_command_are_the_commands() {
  expect_args --timeout=1 --cwd=/ -x
}

test_child_exiting_127_is_not_reported_as_a_failure_to_run() {
  expect_status 127 run sh -c 'exit 127'
  [ ! -s "$work/err" ] || fail "unexpected message: $(cat "$work/err")"
}

test_command_status_is_passed_on() {
  expect_status 2 run ls /velcan-nonexistent
  expect_status 0 run true
  expect_status 42 run sh -c 'exit 42'
}

test_program_not_found_is_127() {
  expect_status 127 run velcan-no-such-program
}

test_program_found_but_not_runnable_is_126() {
  printf 'echo no\n' >"$work/plain"
  expect_status 126 run "$work/plain"
  [ "$(cat "$work/err")" = "velcan: cannot run $work/plain: $work/plain is not executable (no execute permission)" ] ||
    fail "said: $(cat "$work/err")"
  expect_status 126 run "$work"
}

test_command_ended_by_signal_n_is_128_plus_n() {
  expect_status 143 run sh -c 'kill -TERM $$'
  expect_status 137 run sh -c 'kill -KILL $$'
}

test_timeout_ends_the_command_with_124() {
  expect_status 124 run --timeout=0.3 sleep 600
  expect_status 124 run --timeout 0.3 sh -c 'sleep 600; echo never'
  [ ! -s "$work/out" ] || fail "printed: $(cat "$work/out")"
}

test_timeout_not_reached_keeps_the_commands_status() {
  expect_status 3 run --timeout=600 sh -c 'exit 3'
}

test_a_signal_to_velcan_ends_what_the_command_started() {
  local pid="" velcan rc=0
  "$tool" run sh -c 'sleep 600 & echo $!; wait' >"$work/out" 2>"$work/err" &
  velcan=$!
  # Only once the shell has printed its background sleep's id is velcan told to end.
  for _ in $(seq 1 6000); do pid=$(cat "$work/out"); [ -z "$pid" ] || break; sleep 0.01; done
  [ -n "$pid" ] || { kill "$velcan"; fail "the shell never printed its background sleep's id"; }
  kill -TERM "$velcan"
  wait "$velcan" || rc=$?
  [ "$rc" -eq 143 ] || fail "velcan exited $rc, expected 143 (SIGTERM's)"
  for _ in $(seq 1 600); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
  if kill -0 "$pid" 2>/dev/null; then kill "$pid"; fail "the background sleep $pid outlived velcan"; fi
}

test_timeout_longer_than_the_clock_holds_or_inf_is_no_limit() {
  local value
  for value in inf INF infinity 1e10 1e300; do
    expect_status 3 run --timeout="$value" sh -c 'sleep 0.2; exit 3'
  done
}

test_status_the_system_did_not_keep_is_velcans_failure_125() {
  local rc=0
  # SIGCHLD ignored when velcan starts: the system reaps the command and keeps no status.
  perl -e '$SIG{CHLD} = "IGNORE"; exec @ARGV' "$tool" run sh -c 'exit 0' 2>"$work/err" || rc=$?
  [ "$rc" -eq 125 ] || fail "exited $rc, expected 125"
  [[ $(cat "$work/err") == "velcan: the command ended, but how is not known"* ]] ||
    fail "said: $(cat "$work/err")"
}

test_timeout_that_is_no_duration_is_a_usage_error_125() {
  local value
  for value in '' abc -1 -inf 1w nan 0x10 1sm; do
    expect_status 125 run --timeout="$value" true
    [[ $(cat "$work/err") == "velcan: run: --timeout expects a duration"* ]] ||
      fail "for '$value' said: $(cat "$work/err")"
  done
}

test_cwd_starts_the_command_in_the_folder() {
  mkdir "$work/directory"
  expect_status 0 run --cwd="$work/directory" pwd
  [ "$(cat "$work/out")" = "$work/directory" ] || fail "ran in $(cat "$work/out")"
}

test_cwd_that_is_missing_is_velcans_failure_125() {
  expect_status 125 run --cwd="$work/missing" true
  [ "$(cat "$work/err")" = "velcan: cannot change to $work/missing: No such file or directory" ] ||
    fail "said: $(cat "$work/err")"
}

test_env_sets_and_unset_env_removes_variables() {
  VELCAN_GONE=there expect_status 0 run --env=VELCAN_A=1 --env VELCAN_B='x = y' \
    --unset-env=VELCAN_GONE sh -c 'echo "$VELCAN_A|$VELCAN_B|${VELCAN_GONE-unset}"'
  [ "$(cat "$work/out")" = "1|x = y|unset" ] || fail "printed: $(cat "$work/out")"
}

test_env_without_a_name_is_a_usage_error_125() {
  expect_status 125 run --env=novalue true
  expect_status 125 run --env==x true
  expect_status 125 run --unset-env=A=B true
}

test_input_from_a_file_and_from_standard_input() {
  printf 'from the file\n' >"$work/in"
  expect_status 0 run --input="$work/in" cat
  [ "$(cat "$work/out")" = "from the file" ] || fail "printed: $(cat "$work/out")"
  printf 'piped\n' | expect_status 0 run --input=- cat
  [ "$(cat "$work/out")" = "piped" ] || fail "printed: $(cat "$work/out")"
}

test_without_input_the_command_reads_nothing() {
  printf 'not for the command\n' | expect_status 0 run cat
  [ ! -s "$work/out" ] || fail "printed: $(cat "$work/out")"
}

test_input_that_cannot_be_read_is_velcans_failure_125() {
  expect_status 125 run --input="$work/missing" cat
  [ "$(cat "$work/err")" = "velcan: cannot read $work/missing: No such file or directory" ] ||
    fail "said: $(cat "$work/err")"
}

"$2"
echo "PASS: $2"
