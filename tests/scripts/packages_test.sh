#!/usr/bin/env bash
# Tests of scripts/lib/packages.sh against a fake apt-get and apt-cache (no network, no root,
# nothing installed). Run as: packages_test.sh TEST_NAME
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/bin" "$work/src"
log=$work/apt.log
: >"$log"

# The fake apt-cache lists $FAKE_SOURCE_VERSIONS for showsrc. The fake apt-get logs each call;
# `source NAME=V` unpacks a folder when V is in $FAKE_FETCHABLE and fails as a 404 otherwise;
# `install -s` prints $FAKE_PLAN (exit $FAKE_PLAN_STATUS); a real install succeeds.
cat >"$work/bin/apt-cache" <<'FAKE'
#!/usr/bin/env bash
if [ "$1" = showsrc ]; then
  for v in $FAKE_SOURCE_VERSIONS; do printf 'Package: expat\nVersion: %s\n\n' "$v"; done
fi
FAKE
cat >"$work/bin/apt-get" <<'FAKE'
#!/usr/bin/env bash
echo "apt-get $*" >>"$FAKE_LOG"
case " $* " in
  *" source "*)
    wanted=${*: -1}; v=${wanted#*=}
    if [[ " $FAKE_FETCHABLE " == *" $v "* ]]; then mkdir "expat-$v"; exit 0; fi
    mkdir "expat-partial"
    echo "Err:1 http://deb.debian.org/debian-security bookworm-security/main expat $v (dsc)"
    echo "  404  Not Found [IP: 203.0.113.80 80]"
    echo "E: Failed to fetch http://deb.debian.org/debian-security/pool/updates/main/e/expat/expat_$v.dsc  404  Not Found" >&2
    exit 100 ;;
  *" -s "*) printf '%s\n' "$FAKE_PLAN"; exit "${FAKE_PLAN_STATUS:-0}" ;;
esac
exit 0
FAKE
chmod +x "$work/bin/"*
export PATH=$work/bin:$PATH FAKE_LOG=$log
export FAKE_SOURCE_VERSIONS="" FAKE_FETCHABLE="" FAKE_PLAN="" FAKE_PLAN_STATUS=0
unset VELCAN_ALLOW_PACKAGE_CHANGES

me=tested
# shellcheck source=../../scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"
pkg_updated=yes

fail() { echo "FAIL: $*" >&2; exit 1; }
expect_eq() { [ "$1" = "$2" ] || fail "expected [$2], got [$1]"; }
expect_contains() { [[ $1 == *"$2"* ]] || fail "expected to find [$2] in: $1"; }
expect_lacks() { [[ $1 != *"$2"* ]] || fail "did not expect [$2] in: $1"; }

versions_are_ordered_newest_first_by_debian_rules() {
  FAKE_SOURCE_VERSIONS="2.5.0-1+deb12u2 2.5.0-1+deb12u10 2.5.0~rc1-1 2.5.0-1+deb12u5 2.5.0-1"
  expect_eq "$(pkg_source_versions expat | paste -sd ' ' -)" \
    "2.5.0-1+deb12u10 2.5.0-1+deb12u5 2.5.0-1+deb12u2 2.5.0-1 2.5.0~rc1-1"
}

fetch_takes_the_newest_listed_version_and_says_nothing() {
  FAKE_SOURCE_VERSIONS="2.5.0-1+deb12u2 2.5.0-1+deb12u5" FAKE_FETCHABLE="2.5.0-1+deb12u5 2.5.0-1+deb12u2"
  local out err
  out=$(pkg_fetch_source expat "$work/src" 2>"$work/err")
  err=$(cat "$work/err")
  expect_eq "$out" "2.5.0-1+deb12u5"
  expect_eq "$err" ""
  expect_eq "$(ls -A "$work/src")" "expat-2.5.0-1+deb12u5"
}

fetch_falls_back_to_the_newest_version_that_can_be_fetched() {
  FAKE_SOURCE_VERSIONS="2.5.0-1+deb12u2 2.5.0-1+deb12u10 2.5.0-1+deb12u5"
  FAKE_FETCHABLE="2.5.0-1+deb12u2 2.5.0-1"
  local out err
  out=$(pkg_fetch_source expat "$work/src" 2>"$work/err")
  err=$(cat "$work/err")
  expect_eq "$out" "2.5.0-1+deb12u2"
  expect_contains "$err" "expat 2.5.0-1+deb12u10 is listed but cannot be fetched"
  expect_contains "$err" "404  Not Found"
  expect_contains "$err" "using expat 2.5.0-1+deb12u2"
  # Tried newest first; nothing half-fetched is left beside the version taken.
  expect_eq "$(grep -o 'expat=[^ ]*' "$log" | paste -sd ' ' -)" \
    "expat=2.5.0-1+deb12u10 expat=2.5.0-1+deb12u5 expat=2.5.0-1+deb12u2"
  expect_eq "$(ls -A "$work/src")" "expat-2.5.0-1+deb12u2"
}

fetch_fails_with_a_clear_message_when_no_version_can_be_fetched() {
  FAKE_SOURCE_VERSIONS="2.5.0-1+deb12u2 2.5.0-1+deb12u5" FAKE_FETCHABLE=""
  local rc=0 err
  pkg_fetch_source expat "$work/src" >"$work/out" 2>"$work/err" || rc=$?
  err=$(cat "$work/err")
  [ "$rc" -ne 0 ] || fail "succeeded with nothing fetchable"
  expect_eq "$(cat "$work/out")" ""
  expect_contains "$err" "no listed version of source package expat can be fetched"
  expect_contains "$err" "tried 2.5.0-1+deb12u5 2.5.0-1+deb12u2"
}

fetch_says_when_no_source_is_listed() {
  FAKE_SOURCE_VERSIONS=""
  local rc=0
  pkg_fetch_source expat "$work/src" 2>"$work/err" >/dev/null || rc=$?
  [ "$rc" -ne 0 ] || fail "succeeded with nothing listed"
  expect_contains "$(cat "$work/err")" "no source package expat is listed"
}

plan="Inst libexpat1 [2.5.0-1+deb12u5] (2.5.0-1+deb12u2 Debian:12.15/oldstable [amd64])
Inst libfoo1 [1.0-1] (1.0-2 Debian:12.15/oldstable [amd64])
Inst wine32:i386 (8.0~repack-4 Debian:12.15/oldstable [i386])
Remv libbar2 [3.1-1]
Conf wine32:i386 (8.0~repack-4 Debian:12.15/oldstable [i386])"

plan_changes_name_each_upgrade_downgrade_and_removal() {
  expect_eq "$(printf '%s\n' "$plan" | pkg_changes_in_plan)" \
"libexpat1 2.5.0-1+deb12u5 -> 2.5.0-1+deb12u2 (downgrade)
libfoo1 1.0-1 -> 1.0-2 (upgrade)
libbar2 3.1-1 -> removed"
}

install_refuses_a_plan_that_changes_installed_packages_without_consent() {
  FAKE_PLAN=$plan
  local rc=0 err
  pkg_install "32-bit Wine" "scripts/install-win32-deps" wine32:i386 >/dev/null 2>"$work/err" || rc=$?
  err=$(cat "$work/err")
  expect_eq "$rc" 3
  expect_contains "$err" "it would change 3 installed package(s)"
  expect_contains "$err" "libexpat1 2.5.0-1+deb12u5 -> 2.5.0-1+deb12u2 (downgrade)"
  expect_contains "$err" "libbar2 3.1-1 -> removed"
  expect_contains "$err" "nothing was changed"
  expect_contains "$err" "VELCAN_ALLOW_PACKAGE_CHANGES=1 scripts/install-win32-deps"
  expect_lacks "$(grep -v ' -s ' "$log")" "install"
}

install_with_consent_carries_out_a_plan_that_changes_packages() {
  FAKE_PLAN=$plan
  VELCAN_ALLOW_PACKAGE_CHANGES=1
  pkg_install "32-bit Wine" "scripts/install-win32-deps" wine32:i386 >/dev/null 2>"$work/err"
  expect_contains "$(cat "$work/err")" "changing installed packages, as allowed"
  expect_contains "$(grep -v ' -s ' "$log")" "install -y -qq --no-install-recommends --allow-downgrades"
}

install_of_new_packages_alone_needs_no_consent() {
  FAKE_PLAN="Inst wine64 (8.0~repack-4 Debian:12.15/oldstable [amd64])
Conf wine64 (8.0~repack-4 Debian:12.15/oldstable [amd64])"
  pkg_install "64-bit Wine" "scripts/install-win32-deps" wine64 >/dev/null 2>"$work/err"
  expect_eq "$(cat "$work/err")" ""
  expect_contains "$(grep -v ' -s ' "$log")" "install -y -qq --no-install-recommends wine64"
  expect_lacks "$(cat "$log")" "--allow-downgrades wine64"
}

install_reports_when_apt_finds_no_plan() {
  FAKE_PLAN="E: Unable to correct problems, you have held broken packages." FAKE_PLAN_STATUS=100
  local rc=0
  pkg_install "32-bit Wine" "scripts/install-win32-deps" wine32:i386 >/dev/null 2>"$work/err" || rc=$?
  expect_eq "$rc" 2
  expect_contains "$(cat "$work/err")" "apt cannot install 32-bit Wine"
  expect_contains "$(cat "$work/err")" "held broken packages"
  expect_lacks "$(grep -v ' -s ' "$log")" "install"
}

consent_flag_is_taken_from_the_arguments() {
  pkg_parse_consent a --allow-package-changes b
  expect_eq "${args[*]}" "a b"
  pkg_consent || fail "consent not given"
}

"$1"
echo "PASS: $1"
