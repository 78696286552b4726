# shellcheck shell=bash
# Private Debian roots, made with mmdebstrap and kept in the cache, for what would conflict with
# the host (docs/scripts.md). Sourced; callers set `me`.
. "$(dirname "${BASH_SOURCE[0]}")/packages.sh"
. "$(dirname "${BASH_SOURCE[0]}")/facts.sh"
# root_sources ARCH: the host's Debian sources as "deb URI SUITE COMPONENT" lines, less each
# whose index for ARCH fails apt's checks now (mmdebstrap would stop on it).
root_sources() {
  local state left
  state=$(mktemp -d)
  pkg_host_sources | awk '{print "deb", $1, $2, $3}' >"$state/sources.list"
  [ -s "$state/sources.list" ] || { echo "$me: no Debian package sources are configured here" >&2; return 1; }
  pkg_private_state "$state"
  left=$(apt-get "${pkg_private[@]}" -o "APT::Architecture=$1" -o "APT::Architectures=$1" update 2>&1 |
           pkg_failed_indexes || true)
  awk 'NR == FNR {bad[$1 ($2 == "-" ? "" : " " $2)] = 1; next} !bad[$3] && !bad[$3 " " $4]' <(echo "$left") "$state/sources.list"
  rm -rf "$state"
}
# root_make NAME ARCH PACKAGE...: prints the path of a root for ARCH holding the packages
# (NAME=VERSION pins too), made once and reused while the same packages are asked for.
root_make() {
  local name=$1 arch=$2 key dir log sources options=() lock start=$SECONDS
  shift 2
  key=$(printf '%s\n' "$arch" "$@" | md5sum | cut -c1-10)
  dir=$velcan_cache/roots/$name-$key log=$velcan_cache/roots/$name.log
  [ -f "$dir/.complete" ] && { echo "$dir"; return 0; }
  local cannot="$me: cannot make the private root $name:"
  pkg_have_root || { echo "$cannot making it needs root, and sudo is not available to this user" >&2; return 1; }
  command -v mmdebstrap >/dev/null ||
    { echo "$cannot mmdebstrap is not installed (scripts/install-win32-deps installs it)" >&2; return 1; }
  mkdir -p "$velcan_cache/roots"
  exec {lock}>"$velcan_cache/roots/$name.lock" # one maker at a time; who waited finds it made
  flock "$lock"
  if [ ! -f "$dir/.complete" ]; then
    sources=$(root_sources "$arch") || { exec {lock}>&-; return 1; }
    # The archive may be a dated snapshot: the host's relaxed date checks come along.
    mapfile -t options < <(apt-config dump | grep -E '^Acquire::Check-(Valid-Until|Date) ' | sed 's/^/--aptopt=/')
    "${pkg_sudo[@]}" rm -rf "$velcan_cache/roots/$name"-?????????? "$dir.tmp" # other packages' roots
    # mmdebstrap writes no /etc/hosts: without one the root cannot resolve the host's name.
    if ! "${pkg_sudo[@]}" mmdebstrap --mode=root --variant=apt --arch="$arch" --include="$(IFS=,; echo "$*")" \
           "${options[@]}" --customize-hook='copy-in /etc/hosts /etc' \
           "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$dir.tmp" - <<<"$sources" >"$log" 2>&1; then
      echo "$cannot $(grep -m1 '^E: ' "$log" | cut -c1-240) (see $log)" >&2
      "${pkg_sudo[@]}" rm -rf "$dir.tmp"
      exec {lock}>&-
      return 1
    fi
    "${pkg_sudo[@]}" mv "$dir.tmp" "$dir"
    "${pkg_sudo[@]}" touch "$dir/.complete"
    echo "$me: made the private root $name ($arch: $*) in $((SECONDS - start)) s" >&2
  fi
  exec {lock}>&-
  echo "$dir"
}
# root_run ROOT DIR... -- COMMAND...: runs COMMAND in ROOT, the current folder kept, with /proc,
# /sys, /dev and each DIR mounted at its own path, in a mount namespace the host never sees.
root_run() {
  local root=$1 binds=()
  shift
  while [ "$1" != -- ]; do binds+=("$1") && shift; done
  shift
  "${pkg_sudo[@]}" unshare --mount --propagation private /bin/sh -euc '
    root=$1; shift
    for d in /proc /sys /dev; do mount --rbind "$d" "$root$d"; done
    while [ "$1" != -- ]; do mkdir -p "$root$1" && mount --rbind "$1" "$root$1" && shift; done
    shift
    exec chroot "$root" /bin/sh -c '\''cd "$0" 2>/dev/null || cd /; exec "$@"'\'' "$PWD" "$@"
  ' root-run "$root" "${binds[@]}" -- "$@"
}
