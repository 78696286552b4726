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
expect_way() { # PATTERN
  local way
  way=$(i386_way)
  echo "$way"
  # shellcheck disable=SC2053 # a glob, on purpose
  [[ $way == $1 ]] || fail "expected the way '$1', got '$way'"
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
  FAKE_QEMU=1:7.2+dfsg-7+deb12u18 expect_way "none: *the newest the archive serves is 1:7.2+dfsg-7+deb12u18, and Wine needs 8.1 or later*"
  [ ! -e "$i386_qemu" ] || fail "an old qemu was unpacked"
}

test_archive_without_qemu_leaves_nothing_to_run_it_with() {
  FAKE_QEMU="" expect_way "none: *the archive lists neither qemu-user nor qemu-user-static)"
}

test_user_without_root_cannot_emulate() {
  pkg_root=no expect_way "none: *emulating them needs root (or sudo) for a binfmt_misc handler"
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

"$1"
