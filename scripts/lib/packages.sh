# shellcheck shell=bash
# The scripts' package handling (sourced; callers set `me`): docs/scripts.md's package rule.
export DEBIAN_FRONTEND=noninteractive
pkg_installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -qx 'install ok installed'; }
pkg_unique() { printf '%s\n' "$@" | awk 'NF && !seen[$0]++' | paste -sd ' ' -; }
# The versions read, newest first by dpkg's own order.
pkg_newest_first() {
  local v i sorted=()
  while read -r v; do
    [ -n "$v" ] || continue
    for ((i = 0; i < ${#sorted[@]}; i++)); do dpkg --compare-versions "$v" gt "${sorted[i]}" && break; done
    sorted=("${sorted[@]:0:i}" "$v" "${sorted[@]:i}")
  done
  [ ${#sorted[@]} -eq 0 ] || printf '%s\n' "${sorted[@]}"
}
# Root, or sudo (on a terminal, asked once): pkg_sudo prefixes root's commands.
pkg_sudo=() pkg_root=""
pkg_have_root() {
  if [ -z "$pkg_root" ]; then
    pkg_root=no
    if [ "$(id -u)" -eq 0 ]; then
      pkg_root=yes
    elif command -v sudo >/dev/null && { sudo -n true 2>/dev/null || { [ -t 0 ] && [ -t 2 ] && sudo -v; }; }; then
      pkg_root=yes pkg_sudo=(sudo)
    fi
  fi
  [ "$pkg_root" = yes ]
}
# Exits with 4 and one line, naming each package once, when this user cannot install them.
pkg_require_root() {
  pkg_have_root && return 0
  local names
  names=$(pkg_unique "$@")
  echo "$me: cannot install $names: this needs root and sudo is not available to this user;" \
    "an administrator can run: apt-get update && apt-get install -y --no-install-recommends $names" >&2
  exit 4
}
# Of apt's output, each index that failed its checks (apt leaves it out): named on stderr, and
# printed as "SUITE COMPONENT TARGET URI REASON" ("- -" for a release file).
pkg_failed_indexes() {
  local suite path uri reason component target
  sed -nE 's#^[EW]: Failed to fetch ([^ ]*)/dists/([^/ ]*)/([^ ]*)[ ]+(.*)$#\2 \3 \1 \4#p' |
    while read -r suite path uri reason; do
      component=- target=-
      if [[ $path == */*/* ]]; then component=${path%%/*} target=${path#*/} target=${target%%/*}; fi
      reason=${reason%% Mirror sync*} reason=${reason%% \[IP:*}
      if [ "$component" = - ]; then
        echo "$me: leaving out $suite ($uri): its release file failed apt's checks: $reason" >&2
      else
        echo "$me: leaving out the $suite/$component $target index ($uri): it failed apt's checks: $reason" >&2
      fi
      echo "$suite $component $target $uri $reason"
    done
}
pkg_updated=no pkg_left_out=""
pkg_update() { pkg_left_out=$("${pkg_sudo[@]}" apt-get update 2>&1 | pkg_failed_indexes || true) pkg_updated=yes; }
# pkg_install WHY PACKAGE...: installs them, those installed brought to the candidate. apt
# itself refuses, changing nothing, a plan that would downgrade (-y) or remove anything.
pkg_install() {
  local why=$1 out
  shift
  [ "$pkg_updated" = yes ] || pkg_update
  echo "$me: installing $why" >&2
  out=$("${pkg_sudo[@]}" apt-get install -y -q --no-install-recommends --no-remove \
          -o APT::Get::allow-downgrades=false -o APT::Get::allow-remove-essential=false "$@" 2>&1) && return 0
  {
    printf '%s\n' "$out" | grep -E '^(The following|  |E:)' | tail -n 20
    awk -v me="$me" 'NF {r = $0; sub(/^[^ ]+ [^ ]+ [^ ]+ [^ ]+ /, "", r); print me ": the " $1 "/" $2 " " $3 " index was left out (" r \
      "), so its packages are older than those installed from it"}' <<<"$pkg_left_out"
    echo "$me: apt did not install $why; nothing installed was downgraded or removed"
  } >&2
  return 1
}
# pkg_fetch_source NAME DIR [APT-OPTION...]: unpacks into DIR, and prints, the newest listed
# version of source package NAME that the archive serves (a listed one's files may be gone).
pkg_fetch_source() {
  local name=$1 dir=$2 v tried=() error=""
  shift 2
  while read -r v; do
    if (cd "$dir" && apt-get "$@" source -qq --only-source "$name=$v") >"$dir/.fetch.log" 2>&1; then
      rm -f "$dir/.fetch.log"
      [ ${#tried[@]} -eq 0 ] || echo "$me: $name ${tried[0]} is listed but cannot be fetched ($error); using $name $v" >&2
      echo "$v" && return 0
    fi
    [ -n "$error" ] || error=$(grep -m1 '^E: ' "$dir/.fetch.log" | cut -c4-200)
    find "$dir" -mindepth 1 -maxdepth 1 ! -name .fetch.log -exec rm -rf {} + # nothing half-fetched
    tried+=("$v")
  done < <(pkg_source_versions "$name" "$@")
  rm -f "$dir/.fetch.log"
  [ ${#tried[@]} -eq 0 ] && echo "$me: no source package $name is listed (are source entries configured?)" >&2 ||
    echo "$me: no listed version of source package $name can be fetched (tried ${tried[*]}): $error" >&2
  return 1
}
pkg_source_versions() { apt-cache "${@:2}" showsrc --only-source "$1" 2>/dev/null | awk '/^Version:/ {print $2}' | sort -u | pkg_newest_first; }
# The host's Debian sources, "URI SUITE COMPONENT" each, as apt sees them.
pkg_host_sources() {
  apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' \
    'Created-By: Packages' 2>/dev/null | awk '$4 ~ /^Debian/ {print $1, $2, $3}' | sort -u
}
# pkg_stable_sources TYPE: those as TYPE lines for the current stable release's suites.
pkg_stable_sources() {
  pkg_host_sources | awk -v t="$1" -v c="$(. /etc/os-release && echo "$VERSION_CODENAME")" \
    '{s = $2; sub("^" c, "stable", s); if (s != $2) print t, $1, s, $3}'
}
# pkg_private_state DIR: pkg_private, options for an apt state of its own in DIR (sources.list).
pkg_private_state() {
  mkdir -p "$1/lists/partial" "$1/cache/archives/partial" && : >"$1/status"
  pkg_private=(-o "Dir::Etc::SourceList=$1/sources.list" -o "Dir::Etc::SourceParts=$1/none"
               -o "Dir::State::Lists=$1/lists" -o "Dir::Cache=$1/cache" -o "Dir::State::status=$1/status")
}
# pkg_compare_lists BEFORE AFTER (`dpkg-query -W`): names each removal and downgrade; fails on one.
pkg_compare_lists() {
  local name old new harmed=0 upgraded=0
  list() { awk -F'\t' -v OFS='\t' '$2 == "" {$2 = "-"} 1' "$1" | LC_ALL=C sort -t $'\t' -k1,1; }
  while IFS=$'\t' read -r name old new; do
    if [ "$new" = "(gone)" ]; then echo "removed: $name $old" && harmed=1
    elif [ "$old" != - ] && [ "$new" != - ] && dpkg --compare-versions "$new" lt "$old"; then
      echo "downgraded: $name $old -> $new" && harmed=1
    else upgraded=$((upgraded + 1)); fi
  done < <(LC_ALL=C join -t $'\t' -a 1 -e "(gone)" -o 0,1.2,2.2 <(list "$1") <(list "$2") | awk -F'\t' '$2 != $3')
  echo "host packages: $(LC_ALL=C join -t $'\t' -v 2 <(list "$1") <(list "$2") | wc -l) added, $upgraded upgraded," \
    "$([ $harmed = 0 ] && echo "none removed or downgraded" || echo "SOME REMOVED OR DOWNGRADED (above)")"
  return $harmed
}
