#!/usr/bin/env bash
# velcan run passes every argument through literally, or refuses (exit 2, nothing run) one
# that the runner's command-line form cannot express. Each test runs the tool with printf,
# which shows each argument it receives between brackets.
#   run_arguments_test.sh TOOL TEST_NAME
set -euo pipefail
tool=$1
fail() { echo "FAIL: $*" >&2; exit 1; }

# expect_args ARG...: the tool must pass each ARG through exactly.
expect_args() {
  local want="" got rc=0 a
  for a in "$@"; do want+="[$a]"; done
  got=$("$tool" run printf '[%s]' "$@" 2>&1) || rc=$?
  [ "$rc" -eq 0 ] || fail "exit status $rc for: $got"
  [ "$got" = "$want" ] || fail "expected $want, got $got"
}

double_quotes_pass_literally() { expect_args '"x"' 'a"b' '"' '""' 'say "hi"'; }
apostrophes_pass_literally() { expect_args "'x'" "it's" "'" "a 'b' c"; }
spaces_pass_literally() { expect_args 'a b' ' lead' 'trail ' 'two  spaces' ' '; }
percent_signs_pass_literally() { expect_args '%' '%%' '100%' '%s' '%d%%'; }
empty_arguments_pass_literally() { expect_args '' 'x' '' ''; }
other_characters_pass_literally() { expect_args 'tab	in' 'new
line' '\back' '$HOME' '*' ';&|<>' 'é'; }
# A word with both kinds of quote has a form when its quotes pair up, or when it comes last.
both_quotes_in_pairs_or_last_pass_literally() { expect_args "a'b'c\"d\"" x "last'one\""; }

test_argument_the_command_line_cannot_express_is_a_usage_error_and_nothing_runs() {
  local marker rc=0 err
  marker=$(mktemp -u /tmp/velcan-ran-XXXXXX)
  err=$("$tool" run sh -c "touch $marker" "a'b\"c d" x 2>&1 >/dev/null) || rc=$?
  [ "$rc" -eq 2 ] || fail "exit status $rc, expected 2"
  [[ $err == "velcan: run: argument 4 ('a'b\"c d') cannot be passed as it is"* ]] ||
    fail "unexpected message: $err"
  [ ! -e "$marker" ] || { rm -f "$marker"; fail "the command ran"; }
}

test_empty_or_blank_command_is_a_usage_error() {
  local rc err word
  for word in '' '  '; do
    rc=0
    err=$("$tool" run "$word" x 2>&1 >/dev/null) || rc=$?
    [ "$rc" -eq 2 ] || fail "exit status $rc for '$word', expected 2"
    [[ $err == "velcan: run: expects a COMMAND"* ]] || fail "unexpected message: $err"
  done
}

test_child_exiting_127_is_not_reported_as_a_failure_to_run() {
  local rc=0 err
  err=$("$tool" run sh -c 'exit 127' 2>&1) || rc=$?
  [ "$rc" -eq 127 ] || fail "exit status $rc, expected 127"
  [ -z "$err" ] || fail "unexpected message: $err"
}

"$2"
echo "PASS: $2"
