#!/usr/bin/env bash
# Tests of scripts/check-docs, on documents of their own: it passes what is run as shown, and
# fails a transcript that drifted and a block neither run nor marked. Run as:
# check_docs_test.sh TEST_NAME
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/scripts" "$work/docs"
cp "$root/scripts/check-docs" "$work/scripts/"
fail() { echo "FAIL: $*" >&2; exit 1; }

# document TEXT: the tree's README.md (docs/ holds one plain page).
document() {
  printf '%s\n' "$1" >"$work/README.md"
  printf '# Page\n' >"$work/docs/page.md"
}

check() { "$work/scripts/check-docs" /bin/true 2>"$work/err"; }

# expect_refused DOCUMENT MESSAGE: check-docs fails on the README DOCUMENT, saying MESSAGE.
expect_refused() {
  document "$1"
  ! check || fail "passed: $1"
  grep -qF "$2" "$work/err" || fail "said: $(cat "$work/err")"
}

test_check_docs_passes_a_transcript_as_it_stands() {
  document $'<!-- check: run in docs -->\n```\n$ sh -c \'echo hi; exit 3\'\nhi\n$ echo $?\n3\n```'
  check || fail "a transcript as it stands failed: $(cat "$work/err")"
}

test_check_docs_fails_on_a_transcript_that_drifted() {
  expect_refused $'<!-- check: run in docs -->\n```\n$ echo hi\nhello\n```' \
    "README.md:2: the transcript differs"
}

test_check_docs_fails_on_a_block_neither_run_nor_marked() {
  expect_refused $'Some text.\n\n```sh\nrm -rf /tmp/x\n```' "README.md:3: a block neither run nor marked"
}

test_check_docs_passes_a_block_marked_not_run_with_a_reason() {
  document $'<!-- check: not run: it needs a Windows machine -->\n```\nC:\\\\> velcan\n```'
  check || fail "a block marked not run failed: $(cat "$work/err")"
}

test_check_docs_fails_on_a_program_the_named_script_does_not_run() {
  expect_refused $'<!-- check: run by scripts/check-docs -->\n```\nscripts/velcan-nothing\n```' \
    "does not run scripts/velcan-nothing"
}

"$1"
