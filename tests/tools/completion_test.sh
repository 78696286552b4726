#!/usr/bin/env bash
# The bash completion of velcan, driven as bash drives it: COMP_WORDS and COMP_CWORD set, the
# function called, COMPREPLY read.
#   completion_test.sh TOOL COMPLETION_FILE TEST_NAME
set -euo pipefail
tool=$1
# shellcheck source=../../tools/velcan.bash-completion
. "$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# complete WORD...: what completing the last WORD offers, one a line, sorted.
complete_words() {
  COMP_WORDS=("$tool" "$@")
  COMP_CWORD=$#
  _velcan
  printf '%s\n' "${COMPREPLY[@]+"${COMPREPLY[@]}"}" | sort
}

expect() { # EXPECTED WORD...
  local want=$1 got
  shift
  got=$(complete_words "$@")
  [ "$got" = "$want" ] || fail "completing '$*' offers '$(tr '\n' ' ' <<<"$got")', not '$(tr '\n' ' ' <<<"$want")'"
}

test_first_word_offers_the_commands() {
  expect "$(printf '%s\n' --help --version events history lint run version | sort)" ""
  expect "history" "hi"
}

test_version_offers_compare_and_sort() {
  expect "$(printf '%s\n' --help compare sort | sort)" version ""
  expect "sort" version so
}

test_history_options_are_those_its_help_names() {
  expect "$(printf '%s\n' --since= --standalone | sort)" history --s
  expect "$(printf '%s\n' -- --format= --help --json --since= --standalone | sort)" history --
  expect "$(printf '%s\n' --format= --help --json --since= --standalone -- - | sort)" history -
}

test_format_values_are_offered_after_the_equals_sign() {
  expect "$(printf '%s\n' html json markdown text | sort)" history --format =
  expect "markdown" history --format = ma
  expect "markdown" history --format=ma
}

test_every_format_value_offered_is_one_history_takes() {
  local value
  for value in $(complete_words history --format =); do
    "$tool" history --format="$value" >/dev/null || fail "history --format=$value fails"
  done
}

test_lint_fail_on_values_are_offered() {
  expect "$(printf '%s\n' error warning)" lint --fail-on =
}

test_every_fail_on_value_offered_is_one_lint_takes() {
  local value rc
  echo '<h><Version number="1" date="d"/></h>' >"$work/clean.xml"
  for value in $(complete_words lint --fail-on =); do
    rc=0
    "$tool" lint --fail-on="$value" "$work/clean.xml" >/dev/null 2>&1 || rc=$?
    [ "$rc" -ne 2 ] || fail "lint --fail-on=$value is a usage error"
  done
}

test_file_names_are_offered_for_a_file() {
  : >"$work/history-one.xml"
  : >"$work/history-two.xml"
  expect "$(printf '%s\n' "$work/history-one.xml" "$work/history-two.xml")" history "$work/hist"
}

test_run_offers_programs_for_its_command_and_files_after() {
  complete_words run ls | grep -qx ls || fail "no program ls offered"
  : >"$work/argument.txt"
  expect "$work/argument.txt" run ls "$work/arg"
}

test_run_offers_its_options_before_the_command() {
  expect "--timeout=" run --ti
  expect "--unset-env=" run --un
  expect "--timeout=" run --cwd = /tmp --ti
}

test_run_offers_folders_for_cwd_and_programs_after_its_options() {
  mkdir "$work/folder"
  : >"$work/file"
  # bash splits --cwd=VALUE at the "=".
  expect "$work/folder" run --cwd = "$work/f"
  complete_words run --cwd = "$work" --timeout = 5 --env X=1 ls | grep -qx ls || fail "no program offered"
  expect "$work/file" run --timeout = 5 ls "$work/fi"
}

"$3"
