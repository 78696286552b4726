#!/usr/bin/env bash
# Tests of scripts/lib/wine_tests.sh: which failed Windows tests are run again, against ctest
# logs written here. Run as: wine_tests_test.sh TEST_NAME
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck source=../../scripts/lib/wine_tests.sh
. "$root/scripts/lib/wine_tests.sh"
temporary=$work/Testing/Temporary
mkdir -p "$temporary"

rule=----------------------------------------------------------
fail() { echo "FAIL: $*" >&2; exit 1; }

# failed NUMBER NAME COMMAND OUTPUT: a failed test, as ctest logs it.
failed() {
  echo "$1:$2" >>"$temporary/LastTestsFailed.log"
  {
    printf '%s/9 Testing: %s\n%s/9 Test: %s\n' "$1" "$2" "$1" "$2"
    printf 'Command: %s\nDirectory: /b\nOutput:\n%s\n' "$3" "${rule}"
    printf '%s<end of output>\nTest time =   0.02 sec\n%s\n' "$4" "${rule}"
  } >>"$temporary/LastTest.log"
}
wine='"/r/scripts/wine-run" "--win64" "/b/t.exe" "--gtest_filter=A.B"'
banner=$'Note: Google Test filter = A.B\n[==========] Running 1 test from 1 test suite.\n'

test_program_that_printed_nothing_is_run_again() {
  failed 140 'Cases/E.Says/X  # GetParam() = X' "$wine" ''
  wine_could_not_start "$work" || fail "a program with no output was not taken for a start failure"
}

test_program_wine_could_not_start_with_its_message_is_run_again() {
  failed 7 A.B "$wine" $'wine: ShellExecuteEx failed: File not found.\n'
  wine_could_not_start "$work" || fail "ShellExecuteEx failed was not taken for a start failure"
}

test_test_that_started_and_failed_is_not_run_again() {
  failed 7 A.B "$wine" "${banner}[  FAILED  ] A.B"$'\n'
  ! wine_could_not_start "$work" || fail "a test that ran and failed would be run again"
}

test_failure_beside_a_start_failure_is_not_run_again() {
  failed 7 A.B "$wine" ''
  failed 8 A.C "$wine" "${banner}[  FAILED  ] A.C"$'\n'
  ! wine_could_not_start "$work" || fail "a real failure beside a start failure would be run again"
}

test_test_not_run_under_wine_is_not_run_again() {
  failed 240 library.exports_only_its_boundary '"/usr/bin/cmake" "-P" "check.cmake"' ''
  ! wine_could_not_start "$work" || fail "a failed check of the build would be run again"
}

# A check whose command names wine-run only as an argument (the install test passes it on to
# a consumer it builds) did not fail for want of a start.
test_check_that_passes_wine_run_on_is_not_run_again() {
  failed 256 package.consumer_builds_against_the_installed_tree \
    '"/usr/bin/cmake" "-DEMULATOR=/r/scripts/wine-run;--win64" "-P" "check_install.cmake"' \
    $'CMake Error at check_install.cmake:12 (message):\n  failed (1)\n'
  ! wine_could_not_start "$work" || fail "a failed check run by cmake would be run again"
}

"$1"
