#!/usr/bin/env bash
# Tests of scripts/lib/i386.sh: which way the 32-bit Windows suite runs on a machine, and the
# binfmt_misc handler's life, on fake machines (a fake arch-test, apt and binfmt_misc folder;
# nothing is registered, fetched or installed). Run as: i386_test.sh TEST_NAME
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_CACHE_HOME=$work/cache
mkdir -p "$work/bin" "$work/binfmt"
PATH=$work/bin:$PATH

# The fake machine: FAKE_NATIVE=yes runs i386 programs itself; FAKE_HANDLER=yes has a handler
# that runs them; FAKE_QEMU is the qemu-user version the archive lists (none when empty).
export FAKE_NATIVE=no FAKE_HANDLER=no FAKE_QEMU=1:10.0.2+ds-2~bpo12+1 FAKE_DEB=$work/qemu.deb
cat >"$work/bin/arch-test" <<'EOF'
#!/bin/sh
if [ "$1" = -n ]; then ok=$FAKE_NATIVE; else ok=$FAKE_NATIVE; [ "$FAKE_HANDLER" = yes ] && ok=yes; fi
[ "$ok" = yes ] && { echo "i386: ok"; exit 0; }
echo "i386: not supported on this machine/kernel"; exit 1
EOF
cat >"$work/bin/apt-get" <<'EOF'
#!/bin/sh
for a; do last=$a; done
case " $* " in
  *" indextargets "*) echo "http://deb.debian.org/debian bookworm main Debian" ;;
  *" download "*) cp "$FAKE_DEB" "./qemu-user_${last#*=}_amd64.deb" ;;
esac
exit 0
EOF
cat >"$work/bin/apt-cache" <<'EOF'
#!/bin/sh
case " $* " in
  *" madison qemu-user "*) [ -z "$FAKE_QEMU" ] ||
    echo " qemu-user | $FAKE_QEMU | http://deb.debian.org/debian bookworm-backports/main amd64 Packages" ;;
esac
exit 0
EOF
printf '#!/bin/sh\necho "[    1.0] 32-bit emulation disabled. You can reenable with ia32_emulation=on"\n' \
  >"$work/bin/dmesg"
chmod +x "$work/bin/"*
mkdir -p "$work/deb/DEBIAN" "$work/deb/usr/bin"
printf 'Package: qemu-user\nVersion: 1\nArchitecture: amd64\nMaintainer: t <t@t>\nDescription: t\n' \
  >"$work/deb/DEBIAN/control"
printf '#!/bin/sh\n' >"$work/deb/usr/bin/qemu-i386"
chmod +x "$work/deb/usr/bin/qemu-i386"
dpkg-deb -b "$work/deb" "$FAKE_DEB" >/dev/null

me=test
# shellcheck source=../../scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"
# shellcheck source=../../scripts/lib/roots.sh
. "$root/scripts/lib/roots.sh"
# shellcheck source=../../scripts/lib/i386.sh
. "$root/scripts/lib/i386.sh"
pkg_root=yes
i386_binfmt=$work/binfmt
i386_handler=$i386_binfmt/qemu-i386
: >"$i386_binfmt/register"

fail() { echo "FAIL: $*" >&2; exit 1; }
expect_way() { # PATTERN [WANTED]
  local way
  way=$(i386_way "${2:-}") || fail "the way was refused: $way"
  echo "$way"
  # shellcheck disable=SC2053 # a glob, on purpose
  [[ $way == $1 ]] || fail "expected the way '$1', got '$way'"
}
expect_unavailable() { # PATTERN WANTED
  local way
  if way=$(i386_way "$2"); then fail "'$2' was given, as '$way'"; fi
  echo "$way"
  # shellcheck disable=SC2053 # a glob, on purpose
  [[ $way == $1 ]] || fail "expected '$1', got '$way'"
}

test_machine_that_runs_i386_programs_runs_the_suite_natively() {
  FAKE_NATIVE=yes expect_way "native: this kernel runs i386 programs"
}

test_machine_that_cannot_run_them_emulates_with_debians_qemu() {
  expect_way "emulated: this kernel cannot run i386 programs (32-bit emulation is off in it); Debian's qemu-i386 runs them*"
  [ -x "$i386_qemu" ] || fail "qemu-i386 was not unpacked into the cache"
}

test_machine_with_its_own_handler_uses_it() {
  FAKE_HANDLER=yes expect_way "emulated: *the machine's own binfmt_misc handler runs them"
}

test_qemu_older_than_wine_needs_is_not_used() {
  FAKE_QEMU=1:7.2+dfsg-7+deb12u18 expect_way "static: *the newest the archive serves is 1:7.2+dfsg-7+deb12u18, and Wine needs 8.1 or later*"
  [ ! -e "$i386_qemu" ] || fail "an old qemu was unpacked"
}

test_archive_without_qemu_leaves_nothing_to_run_it_with() {
  FAKE_QEMU="" expect_way "static: *the archive lists neither qemu-user nor qemu-user-static)"
}

test_user_without_root_cannot_emulate() {
  pkg_root=no expect_way "static: *emulating them needs root (or sudo) for a binfmt_misc handler"
}

test_hold_registers_a_handler_that_keeps_qemu_open() {
  i386_hold
  [ "$(cat "$i386_binfmt/register")" = \
    "$(printf "$i386_rule"):$i386_qemu:F" ] || fail "registered: $(cat "$i386_binfmt/register")"
}

test_release_takes_away_the_handler_it_registered() {
  i386_hold
  echo "interpreter $i386_qemu" >"$i386_handler" # as the kernel shows it
  i386_release
  [ "$(cat "$i386_handler")" = -1 ] || fail "the handler was left: $(cat "$i386_handler")"
}

test_release_leaves_a_handler_it_did_not_register() {
  FAKE_HANDLER=yes i386_hold
  echo "interpreter /usr/bin/qemu-i386-static" >"$i386_handler"
  FAKE_HANDLER=yes i386_release
  [ "$(cat "$i386_handler")" = "interpreter /usr/bin/qemu-i386-static" ] ||
    fail "the machine's own handler was taken away"
  [ ! -s "$i386_binfmt/register" ] || fail "a handler was registered beside the machine's own"
}

test_stale_handler_of_a_killed_run_is_cleared() {
  mkdir -p "${i386_qemu%/*}"
  echo "interpreter $i386_qemu" >"$i386_handler"
  i386_clear_stale
  [ "$(cat "$i386_handler")" = -1 ] || fail "the stale handler was left"
}


test_native_asked_for_runs_natively_where_the_kernel_can() {
  FAKE_NATIVE=yes expect_way "native: this kernel runs i386 programs" native
}

test_native_asked_for_where_the_kernel_cannot_is_unavailable_with_the_reason() {
  expect_unavailable "unavailable: native: this kernel cannot run i386 programs (32-bit emulation is off in it)" native
}

test_emulated_asked_for_where_the_kernel_runs_them_emulates_with_debians_qemu() {
  FAKE_NATIVE=yes expect_way "emulated: chosen, though this kernel runs i386 programs itself; Debian's qemu-i386 runs them*" emulated
  [ -x "$i386_qemu" ] || fail "qemu-i386 was not unpacked into the cache"
}

test_emulated_asked_for_registers_the_handler_though_the_kernel_runs_them() {
  FAKE_NATIVE=yes VELCAN_I386_WAY=emulated i386_hold
  [ "$i386_registered" = yes ] || fail "no handler was registered"
  [ "$(cat "$i386_binfmt/register")" = "$(printf "$i386_rule"):$i386_qemu:F" ] ||
    fail "registered: $(cat "$i386_binfmt/register")"
}

test_emulated_asked_for_inside_a_holder_registers_nothing_more() {
  echo enabled >"$i386_handler" # the caller's handler, as the kernel shows it
  FAKE_NATIVE=yes VELCAN_I386_WAY=emulated i386_hold
  [ -z "$i386_registered" ] && [ ! -s "$i386_binfmt/register" ] ||
    fail "a second handler was registered"
}

test_emulated_asked_for_that_cannot_be_had_is_unavailable_with_the_reason() {
  FAKE_NATIVE=yes FAKE_QEMU="" expect_unavailable "unavailable: emulated: chosen, though this kernel runs i386 programs itself, and qemu-i386 cannot be had from Debian's archive (the archive lists neither qemu-user nor qemu-user-static)" emulated
}

test_static_asked_for_runs_nothing_even_where_the_kernel_could() {
  FAKE_NATIVE=yes expect_way "static: chosen; the 32-bit build is checked from its files, and no program of it runs" static
  [ ! -e "$i386_qemu" ] || fail "qemu was fetched for a way that runs nothing"
}

test_way_asked_for_is_read_from_velcan_i386_way() {
  FAKE_NATIVE=yes VELCAN_I386_WAY=static expect_way "static: chosen*"
}

test_word_that_is_no_way_is_refused_naming_the_ways() {
  expect_unavailable "unavailable: 'fast' is not a way to run the 32-bit suite (auto, native, emulated, static)" fast
}


test_all_on_a_machine_that_runs_i386_programs_plans_native_and_emulated() {
  local plan
  plan=$(FAKE_NATIVE=yes i386_plan all) || fail "refused: $plan"
  echo "$plan"
  [ "$(cut -d: -f1 <<<"$plan")" = "$(printf 'run native\nrun emulated')" ] || fail "planned: $plan"
}

test_all_without_qemu_plans_native_and_says_why_emulated_is_left_out() {
  local plan
  plan=$(FAKE_NATIVE=yes FAKE_QEMU="" i386_plan all) || fail "refused: $plan"
  echo "$plan"
  [ "$(sed -n 1p <<<"$plan")" = "run native: this kernel runs i386 programs" ] &&
    sed -n 2p <<<"$plan" | grep -q "^left out emulated: chosen, though .*, and qemu-i386 cannot be had" ||
    fail "planned: $plan"
}

test_all_where_no_way_runs_them_plans_the_static_checks() {
  local plan
  plan=$(FAKE_QEMU="" i386_plan all) || fail "refused: $plan"
  echo "$plan"
  [ "$(tail -n 1 <<<"$plan")" = "run static: this kernel cannot run i386 programs (32-bit emulation is off in it), and qemu-i386 cannot be had from Debian's archive (the archive lists neither qemu-user nor qemu-user-static)" ] ||
    fail "planned: $plan"
}

test_plan_of_a_way_by_name_that_cannot_be_had_fails() {
  local plan
  if plan=$(i386_plan native,emulated); then fail "planned: $plan"; fi
  [[ $plan == "unavailable: native: this kernel cannot run i386 programs"* ]] || fail "said: $plan"
}

"$1"
