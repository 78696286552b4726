# shellcheck shell=bash
# What a failed ctest run of the Windows suites says (sourced, not run).

# wine_could_not_start BUILD_FOLDER: whether every test that failed in the folder's last ctest
# run did so because Wine could not start its program at all: a program run through wine-run
# whose output lacks the banner GoogleTest prints before any test runs. Wine sometimes says
# "ShellExecuteEx failed" then, sometimes nothing (seen on loaded machines).
wine_could_not_start() {
  local temporary=$1/Testing/Temporary name
  [ -s "$temporary/LastTestsFailed.log" ] || return 1
  while IFS= read -r name; do
    name=${name#*:}
    awk -v t="$name" '/^[0-9]+\/[0-9]+ Testing: / {inside = substr($0, index($0, "Testing: ") + 9) == t}
                      inside && /^Command: "[^"]*\/wine-run"/ {wine = 1}
                      inside && /^\[==========\]/ {started = 1}
                      END {exit !(wine && !started)}' \
      "$temporary/LastTest.log" || return 1
  done <"$temporary/LastTestsFailed.log"
}
