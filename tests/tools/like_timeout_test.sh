#!/usr/bin/env bash
# velcan run beside GNU timeout and env: with --inherit, the same statuses and the same bytes
# on each stream; the options users of those tools type.
#   like_timeout_test.sh TOOL TEST_NAME
set -euo pipefail
tool=$1
work=$(mktemp -d)
started=() # what a test left running is killed at its end, failed or not
trap 'kill -KILL "${started[@]}" 2>/dev/null || true; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# outcome NAME COMMAND...: "status" and the bytes of stdout and stderr, kept under NAME. The
# command's status alone: the writer of its input may meet a closed pipe when it reads none.
outcome() {
  local name=$1
  shift
  set +e
  printf 'abc' 2>/dev/null | "$@" >"$work/$name.out" 2>"$work/$name.err"
  echo "${PIPESTATUS[1]}" >"$work/$name.status"
  set -e
}

# same_as_timeout [TIMEOUT-OPTIONS...] -- DURATION -- COMMAND...: timeout and velcan run
# --inherit give the same status and the same bytes on stdout and on stderr.
same_as_timeout() {
  local options=() duration
  while [ "$1" != -- ]; do options+=("$1"); shift; done
  shift
  duration=$1
  shift 2
  outcome timeout timeout "${options[@]}" "$duration" "$@"
  outcome velcan "$tool" run --inherit "${options[@]}" --timeout="$duration" -- "$@"
  for part in status out err; do
    cmp -s "$work/timeout.$part" "$work/velcan.$part" ||
      fail "$* ($part): timeout gave '$(cat "$work/timeout.$part")', velcan '$(cat "$work/velcan.$part")'"
  done
}

test_inherit_gives_what_timeout_gives_on_twenty_commands() {
  same_as_timeout -- 0 -- true
  same_as_timeout -- 0 -- false
  same_as_timeout -- 0 -- sh -c 'exit 3'
  same_as_timeout -- 0 -- sh -c 'echo out; echo err >&2'
  same_as_timeout -- 0 -- sh -c 'echo err >&2; exit 7'
  same_as_timeout -- 0 -- wc -c
  same_as_timeout -- 0 -- cat
  same_as_timeout -- 0 -- seq 100000
  same_as_timeout -- 0 -- sh -c 'seq 50000 >&2'
  same_as_timeout -- 0 -- sh -c 'kill -TERM $$'
  same_as_timeout -- 0 -- sh -c 'kill -KILL $$'
  same_as_timeout -- 0 -- printf '%s\n' 'two words' '' '100%'
  same_as_timeout -- 0 -- sh -c 'test -t 1 || echo not a terminal'
  same_as_timeout -- 1m -- true
  same_as_timeout -- inf -- sh -c 'echo no limit'
  same_as_timeout -- 0.3 -- sleep 600
  same_as_timeout -s INT -- 0.3 -- sleep 600
  same_as_timeout --preserve-status -- 0.3 -- sleep 600
  same_as_timeout -s INT --preserve-status -- 0.3 -- sleep 600
  # (2 s: the shell sets its trap well before the limit, however busy the machine.)
  same_as_timeout -k 0.2 --preserve-status -- 2 -- sh -c 'trap "" TERM; echo ignoring; sleep 600'
}

test_missing_and_unrunnable_commands_have_timeouts_statuses() {
  local rc=0
  "$tool" run --inherit velcan-no-such-command 2>/dev/null || rc=$?
  [ "$rc" -eq 127 ] || fail "missing: $rc"
  rc=0
  "$tool" run --inherit /etc 2>/dev/null || rc=$?
  [ "$rc" -eq 126 ] || fail "a directory: $rc"
}

test_env_options_do_what_env_does() {
  [ "$(HOME=/home/x "$tool" run -u HOME sh -c 'echo ${HOME-unset}')" = unset ] || fail "-u"
  [ "$("$tool" run -C / pwd)" = / ] || fail "-C"
  [ "$("$tool" run -i --env=ONLY=1 env)" = "ONLY=1" ] || fail "-i: $("$tool" run -i env)"
  [ "$("$tool" run -i env)" = "$(env -i env)" ] || fail "-i beside env -i"
}

test_durations_take_a_unit() {
  local d
  for d in 2 2s 0.5m 1h 1d inf 1e300; do
    "$tool" run --timeout="$d" true || fail "--timeout=$d refused"
    "$tool" run -k "$d" true || fail "-k $d refused"
  done
  for d in 2x -1 1w '' m; do
    local rc=0
    "$tool" run --timeout="$d" true 2>/dev/null || rc=$?
    [ "$rc" -eq 125 ] || fail "--timeout=$d gave $rc, not 125"
  done
}

test_signals_are_named_as_timeout_names_them() {
  local s rc
  for s in TERM SIGTERM term 15 INT KILL 9; do
    "$tool" run -s "$s" true || fail "-s $s refused"
  done
  for s in BOGUS 0 65 SIG; do
    rc=0
    "$tool" run -s "$s" true 2>/dev/null || rc=$?
    [ "$rc" -eq 125 ] || fail "-s $s gave $rc, not 125"
  done
}

# state PID: the process's state letter (T: stopped), or nothing once it is gone.
state() {
  sed -n 's/^[0-9]* (.*) \([A-Za-z]\) .*/\1/p' "/proc/$1/stat" 2>/dev/null
}

# wait_for_state PID WANT|not-WANT: up to 30 s, as a busy machine may need.
wait_for_state() {
  local i
  for ((i = 0; i < 300; i++)); do
    case $2 in
      not-*) [ "$(state "$1")" != "${2#not-}" ] && return 0 ;;
      *) [ "$(state "$1")" = "$2" ] && return 0 ;;
    esac
    sleep 0.1
  done
  fail "process $1 is '$(state "$1")', not $2"
}

test_tstp_stops_the_command_with_velcan_and_cont_continues_both() {
  # (The file exists before the background job opens it: head must find it at once.)
  : >"$work/pid"
  "$tool" run sh -c 'echo $$; exec sleep 600' >>"$work/pid" &
  local velcan=$! command="" i=0
  started+=("$velcan")
  while [ -z "$command" ] && [ $((i++)) -lt 300 ]; do
    command=$(head -n 1 "$work/pid")
    [ -n "$command" ] || sleep 0.1
  done
  [ -n "$command" ] || fail "the command never said its pid"
  started+=("$command")
  kill -TSTP "$velcan"
  wait_for_state "$command" T
  kill -CONT "$velcan"
  wait_for_state "$command" not-T
  kill -TERM "$velcan"
  wait "$velcan" || true
}

test_inherit_refuses_an_input_besides() {
  local rc=0
  "$tool" run --inherit --input=- true 2>/dev/null || rc=$?
  [ "$rc" -eq 125 ] || fail "$rc"
}

"$2"
