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
# `install` prints $FAKE_INSTALL (exit $FAKE_INSTALL_STATUS); `update` prints $FAKE_UPDATE;
# `indextargets` prints $FAKE_INDEXTARGETS. With $FAKE_UID set, `id -u`
# says so, and sudo always wants a password.
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
  *" install "*) printf '%s\n' "$FAKE_INSTALL"; exit "${FAKE_INSTALL_STATUS:-0}" ;;
  *" update "*) printf '%s\n' "$FAKE_UPDATE" >&2; exit 0 ;;
  *" indextargets "*) printf '%s\n' "$FAKE_INDEXTARGETS"; exit 0 ;;
esac
exit 0
FAKE
# A user who is not root and may not use sudo.
cat >"$work/bin/id" <<'FAKE'
#!/usr/bin/env bash
if [ "$1" = -u ] && [ -n "${FAKE_UID:-}" ]; then echo "$FAKE_UID"; else exec /usr/bin/id "$@"; fi
FAKE
cat >"$work/bin/sudo" <<'FAKE'
#!/usr/bin/env bash
echo "sudo $*" >>"$FAKE_LOG"
echo "sudo: a password is required" >&2
exit 1
FAKE
chmod +x "$work/bin/"*
export PATH=$work/bin:$PATH FAKE_LOG=$log
export FAKE_SOURCE_VERSIONS="" FAKE_FETCHABLE="" FAKE_INSTALL="" FAKE_INSTALL_STATUS=0 FAKE_UPDATE=""
export FAKE_INDEXTARGETS=""

me=tested
# shellcheck source=../../scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"
pkg_updated=yes

fail() { echo "FAIL: $*" >&2; exit 1; }
expect_eq() { [ "$1" = "$2" ] || fail "expected [$2], got [$1]"; }
expect_contains() { [[ $1 == *"$2"* ]] || fail "expected to find [$2] in: $1"; }
expect_lacks() { [[ $1 != *"$2"* ]] || fail "did not expect [$2] in: $1"; }

test_versions_are_ordered_newest_first_by_debian_rules() {
  FAKE_SOURCE_VERSIONS="2.5.0-1+deb12u2 2.5.0-1+deb12u10 2.5.0~rc1-1 2.5.0-1+deb12u5 2.5.0-1"
  expect_eq "$(pkg_source_versions expat | paste -sd ' ' -)" \
    "2.5.0-1+deb12u10 2.5.0-1+deb12u5 2.5.0-1+deb12u2 2.5.0-1 2.5.0~rc1-1"
}

test_fetch_takes_the_newest_listed_version_and_says_nothing() {
  FAKE_SOURCE_VERSIONS="2.5.0-1+deb12u2 2.5.0-1+deb12u5" FAKE_FETCHABLE="2.5.0-1+deb12u5 2.5.0-1+deb12u2"
  local out err
  out=$(pkg_fetch_source expat "$work/src" 2>"$work/err")
  err=$(cat "$work/err")
  expect_eq "$out" "2.5.0-1+deb12u5"
  expect_eq "$err" ""
  expect_eq "$(ls -A "$work/src")" "expat-2.5.0-1+deb12u5"
}

test_fetch_falls_back_to_the_newest_version_that_can_be_fetched() {
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

test_fetch_fails_with_a_clear_message_when_no_version_can_be_fetched() {
  FAKE_SOURCE_VERSIONS="2.5.0-1+deb12u2 2.5.0-1+deb12u5" FAKE_FETCHABLE=""
  local rc=0 err
  pkg_fetch_source expat "$work/src" >"$work/out" 2>"$work/err" || rc=$?
  err=$(cat "$work/err")
  [ "$rc" -ne 0 ] || fail "succeeded with nothing fetchable"
  expect_eq "$(cat "$work/out")" ""
  expect_contains "$err" "no listed version of source package expat can be fetched"
  expect_contains "$err" "tried 2.5.0-1+deb12u5 2.5.0-1+deb12u2"
}

test_fetch_says_when_no_source_is_listed() {
  FAKE_SOURCE_VERSIONS=""
  local rc=0
  pkg_fetch_source expat "$work/src" 2>"$work/err" >/dev/null || rc=$?
  [ "$rc" -ne 0 ] || fail "succeeded with nothing listed"
  expect_contains "$(cat "$work/err")" "no source package expat is listed"
}

# Real installs that the fake apt-get was asked for.
installs() { grep ' install ' "$log" || true; }

test_install_leaves_apt_no_way_to_downgrade_or_remove() {
  pkg_install "64-bit Wine" wine64 >/dev/null 2>"$work/err"
  expect_eq "$(cat "$work/err")" "tested: installing 64-bit Wine"
  expect_eq "$(installs)" "apt-get install -y -q --no-install-recommends --no-remove -o APT::Get::allow-downgrades=false -o APT::Get::allow-remove-essential=false wine64"
}

test_install_refused_by_apt_shows_its_plan_and_fails() {
  FAKE_INSTALL_STATUS=100 FAKE_INSTALL="Reading package lists...
The following packages will be DOWNGRADED:
  libexpat1
E: Packages were downgraded and -y was used without --allow-downgrades."
  local rc=0 err
  pkg_install "32-bit Wine" wine32:i386 >/dev/null 2>"$work/err" || rc=$?
  err=$(cat "$work/err")
  expect_eq "$rc" 1
  expect_contains "$err" "The following packages will be DOWNGRADED:
  libexpat1
E: Packages were downgraded"
  expect_contains "$err" "tested: apt did not install 32-bit Wine; nothing installed was downgraded or removed"
  expect_lacks "$err" "Reading package lists"
}

failed_index_left_out="E: Failed to fetch http://deb.debian.org/debian-security/dists/bookworm-security/main/binary-i386/Packages.xz  File has unexpected size (346968 != 365336). Mirror sync in progress? [IP: 203.0.113.80 80]
   Hashes of expected file:
    - Filesize:365336 [weak]
E: Some index files failed to download. They have been ignored, or old ones used instead."

test_update_names_a_failed_index_in_one_line_and_goes_on() {
  FAKE_UPDATE=$failed_index_left_out
  pkg_update 2>"$work/err"
  expect_eq "$(cat "$work/err")" "tested: leaving out the bookworm-security/main binary-i386 index (http://deb.debian.org/debian-security): it failed apt's checks: File has unexpected size (346968 != 365336)."
  expect_eq "$pkg_updated" yes
}

test_refusal_says_which_index_was_left_out() {
  FAKE_UPDATE=$failed_index_left_out
  pkg_update 2>/dev/null
  FAKE_INSTALL_STATUS=100 FAKE_INSTALL="E: Packages need to be removed but remove is disabled."
  pkg_install "32-bit Wine" wine32:i386 >/dev/null 2>"$work/err" || true
  expect_contains "$(cat "$work/err")" "the bookworm-security/main binary-i386 index was left out (File has unexpected size"
}

test_user_without_sudo_gets_one_line_naming_each_package_once() {
  local rc=0 err
  FAKE_UID=1000 "$root/scripts/install-deps" velcan-absent-a velcan-absent-b velcan-absent-a \
    </dev/null >"$work/out" 2>"$work/err" || rc=$?
  err=$(cat "$work/err")
  [ "$rc" -ne 0 ] || fail "succeeded without root"
  expect_eq "$(cat "$work/out")" ""
  expect_eq "$(printf '%s\n' "$err" | wc -l)" 1
  expect_contains "$err" "install-deps: cannot install "
  expect_contains "$err" "an administrator can run: apt-get update && apt-get install -y --no-install-recommends "
  expect_eq "$(grep -o velcan-absent-a <<<"$err" | wc -l)" 2 # the list and the command, once each
  expect_lacks "$(cat "$log")" "apt-get"
}

test_root_sources_leave_out_a_suite_whose_index_fails() {
  FAKE_INDEXTARGETS="http://deb.debian.org/debian/ bookworm main Debian
http://deb.debian.org/debian/ bookworm-updates main Debian
http://deb.debian.org/debian-security/ bookworm-security main Debian-Security
https://example.org/other/ nodistro main Other"
  FAKE_UPDATE=$failed_index_left_out
  # shellcheck source=../../scripts/lib/roots.sh
  . "$root/scripts/lib/roots.sh"
  expect_eq "$(root_sources i386 2>"$work/err")" "deb http://deb.debian.org/debian/ bookworm main
deb http://deb.debian.org/debian/ bookworm-updates main"
  expect_contains "$(cat "$work/err")" "leaving out the bookworm-security/main binary-i386 index"
  expect_contains "$(cat "$log")" "APT::Architectures=i386"
}

test_root_sources_keep_every_suite_when_all_indexes_pass() {
  FAKE_INDEXTARGETS="http://deb.debian.org/debian/ bookworm main Debian
http://deb.debian.org/debian-security/ bookworm-security main Debian-Security"
  # shellcheck source=../../scripts/lib/roots.sh
  . "$root/scripts/lib/roots.sh"
  expect_eq "$(root_sources i386 2>"$work/err")" "deb http://deb.debian.org/debian-security/ bookworm-security main
deb http://deb.debian.org/debian/ bookworm main"
  expect_eq "$(cat "$work/err")" ""
}

test_host_check_names_each_removal_and_downgrade() {
  printf 'git\t1:2.39.5-0+deb12u3\nlibexpat1:amd64\t2.5.0-1+deb12u5\nlibfoo1\t1.0-1\nlibbaz\t2\n' >"$work/before"
  printf 'libexpat1:amd64\t2.5.0-1+deb12u2\nlibfoo1\t1.0-2\nlibbaz\t2\nwine64\t8.0\n' >"$work/after"
  local rc=0 out
  out=$(pkg_compare_lists "$work/before" "$work/after") || rc=$?
  expect_eq "$rc" 1
  expect_eq "$out" "removed: git 1:2.39.5-0+deb12u3
downgraded: libexpat1:amd64 2.5.0-1+deb12u5 -> 2.5.0-1+deb12u2
host packages: 1 added, 1 upgraded, SOME REMOVED OR DOWNGRADED (above)"
}

test_host_check_passes_additions_and_upgrades() {
  printf 'libexpat1:amd64\t2.5.0-1+deb12u1\n' >"$work/before"
  printf 'libexpat1:amd64\t2.5.0-1+deb12u5\nwine64\t8.0\n' >"$work/after"
  expect_eq "$(pkg_compare_lists "$work/before" "$work/after")" \
    "host packages: 1 added, 1 upgraded, none removed or downgraded"
}

test_host_check_takes_a_package_installed_where_dpkg_knew_no_version_for_no_harm() {
  printf 'wine32:i386\t\n' >"$work/before"
  printf 'wine32:i386\t8.0\n' >"$work/after"
  expect_eq "$(pkg_compare_lists "$work/before" "$work/after")" \
    "host packages: 0 added, 1 upgraded, none removed or downgraded"
}

"$1"
echo "PASS: $1"
