# Private Debian roots (sourced, not run; needs lib/packages.sh and `me`): what would conflict
# with the host (32-bit Wine, a machine as bare as a new one) lives in a root of its own, made
# with mmdebstrap under the user's cache and kept there for later runs. The host gains only
# mmdebstrap (and arch-test, for another architecture); nothing else of it changes.

# shellcheck source=facts.sh
. "$(dirname "${BASH_SOURCE[0]}")/facts.sh"

# root_sources ARCH: the host's Debian sources as "deb URI SUITE COMPONENT" lines, less each
# one whose index for ARCH fails apt's checks now (named in one line each on stderr).
# mmdebstrap stops on any failed index, so a root is given only those that pass.
root_sources() {
  local arch=$1 state left uri suite component
  state=$(mktemp -d)
  pkg_host_sources | awk '{print "deb", $1, $2, $3}' >"$state/sources.list"
  if [ ! -s "$state/sources.list" ]; then
    echo "$me: no Debian package sources are configured on this machine" >&2
    rm -rf "$state"
    return 1
  fi
  pkg_private_state "$state"
  left=$(apt-get "${pkg_private[@]}" -o "APT::Architecture=$arch" -o "APT::Architectures=$arch" \
           update 2>&1 | pkg_failed_indexes)
  printf '%s\n' "$left" | pkg_say_left_out
  while read -r _ uri suite component; do
    if ! printf '%s\n' "$left" |
         awk -v s="$suite" -v c="$component" '$1 == s && ($2 == c || $2 == "-") {found = 1} END {exit !found}'; then
      echo "deb $uri $suite $component"
    fi
  done <"$state/sources.list"
  rm -rf "$state"
}

# root_make NAME ARCH PACKAGE...: prints the path of a Debian root for ARCH holding the
# packages (apt's own pinning, NAME=VERSION, is understood), made once and reused while the
# same packages are asked for. Says in one line, and fails, when it cannot be made.
root_make() {
  local name=$1 arch=$2
  shift 2
  local key dir log sources suite options=() line lock
  key=$(printf '%s\n' "$arch" "$@" | md5sum | cut -c1-10)
  dir=$velcan_cache/roots/$name-$key
  if [ -f "$dir/.complete" ]; then
    echo "$dir"
    return 0
  fi
  if ! pkg_have_root; then
    echo "$me: cannot make the private root $name: making it needs root, and sudo is not available to this user" >&2
    return 1
  fi
  if ! command -v mmdebstrap >/dev/null; then
    echo "$me: cannot make the private root $name: mmdebstrap is not installed (scripts/install-win32-deps installs it)" >&2
    return 1
  fi
  mkdir -p "$velcan_cache/roots"
  # One maker at a time; whoever waited finds the root made.
  exec {lock}>"$velcan_cache/roots/$name.lock"
  flock "$lock"
  if [ -f "$dir/.complete" ]; then
    exec {lock}>&-
    echo "$dir"
    return 0
  fi
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  if ! sources=$(root_sources "$arch"); then
    exec {lock}>&-
    return 1
  fi
  # This archive may be a dated snapshot: the host's settings that relax apt's date checks
  # come along, or the root's apt would refuse it.
  while read -r line; do
    [ -n "$line" ] && options+=(--aptopt="$line")
  done < <(apt-config dump | grep -E '^Acquire::Check-(Valid-Until|Date) ')
  log=$velcan_cache/roots/$name.log
  # Roots of this name made for other packages go (the key is ten hex digits).
  "${pkg_sudo[@]}" rm -rf "$velcan_cache/roots/$name"-?????????? "$dir.tmp"
  local start=$SECONDS
  # mmdebstrap writes no /etc/hosts: without one the root cannot resolve the host's name.
  if ! printf '%s\n' "$sources" |
       "${pkg_sudo[@]}" mmdebstrap --mode=root --variant=apt --arch="$arch" \
         --include="$(IFS=,; echo "$*")" "${options[@]}" \
         --customize-hook='copy-in /etc/hosts /etc' \
         "$suite" "$dir.tmp" - >"$log" 2>&1; then
    echo "$me: cannot make the private root $name: $(grep -E '^E: ' "$log" | head -n 1 | cut -c1-240) (see $log)" >&2
    "${pkg_sudo[@]}" rm -rf "$dir.tmp"
    exec {lock}>&-
    return 1
  fi
  "${pkg_sudo[@]}" mv "$dir.tmp" "$dir"
  "${pkg_sudo[@]}" touch "$dir/.complete"
  exec {lock}>&-
  echo "$me: made the private root $name ($arch: $*) in $((SECONDS - start)) s" >&2
  echo "$dir"
}

# root_run ROOT DIR... -- COMMAND...: runs COMMAND inside ROOT, with /proc, /sys and /dev and
# each DIR of the host mounted at the same path, and the current folder kept. The mounts live
# in a mount namespace of the command's own: they vanish with it and the host never sees them.
root_run() {
  local root=$1 binds=()
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do binds+=("$1"); shift; done
  shift
  "${pkg_sudo[@]}" unshare --mount --propagation private /bin/sh -euc '
    root=$1; shift
    for d in proc sys dev; do mount --rbind "/$d" "$root/$d"; done
    while [ "$1" != -- ]; do
      mkdir -p "$root$1"
      mount --rbind "$1" "$root$1"
      shift
    done
    shift
    exec chroot "$root" /bin/sh -c '\''cd "$0" 2>/dev/null || cd /; exec "$@"'\'' "$PWD" "$@"
  ' root-run "$root" "${binds[@]}" -- "$@"
}
