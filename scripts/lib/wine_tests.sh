# shellcheck shell=bash
# wine_could_not_start BUILD_FOLDER: whether each test that failed in the folder's last ctest run
# did so because Wine could not start its program: run through wine-run, it printed no
# GoogleTest banner (Wine said "ShellExecuteEx failed", or nothing, on loaded machines).
wine_could_not_start() {
  local temporary=$1/Testing/Temporary name
  [ -s "$temporary/LastTestsFailed.log" ] || return 1
  while IFS= read -r name; do
    awk -v t="${name#*:}" '/^[0-9]+\/[0-9]+ Testing: / {inside = substr($0, index($0, "Testing: ") + 9) == t}
                      inside && /^Command: "[^"]*\/wine-run"/ {wine = 1}
                      inside && /^\[==========\]/ {started = 1}
                      END {exit !(wine && !started)}' "$temporary/LastTest.log" || return 1
  done <"$temporary/LastTestsFailed.log"
}
