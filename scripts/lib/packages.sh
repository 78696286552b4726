# Package handling shared by the scripts (sourced, not run). Callers set `me` (the script's
# name, for messages) before sourcing.
#
# This file carries out the package rule, "Packages: the host only ever gains" in
# docs/scripts.md, where it is written.

export DEBIAN_FRONTEND=noninteractive

pkg_installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q '^install ok installed$'
}

# The installed version of a package, or nothing.
pkg_version() {
  pkg_installed "$1" && dpkg-query -W -f='${Version}' "$1" 2>/dev/null
}

# The version apt would install, or nothing.
pkg_candidate() {
  apt-cache policy "$1" 2>/dev/null | awk '/^  Candidate:/ {if ($2 != "(none)") print $2; exit}'
}

# The words given, each once, in their first order, on one line.
pkg_unique() {
  printf '%s\n' "$@" | awk 'NF && !seen[$0]++' | paste -sd ' ' -
}

# Root, or sudo: checked once, before the first apt call. sudo is asked without a prompt
# first; on a terminal it may ask for the password, once (sudo keeps it for the later calls).
pkg_sudo=()
pkg_root=""
pkg_have_root() {
  if [ -z "$pkg_root" ]; then
    pkg_root=no
    if [ "$(id -u)" -eq 0 ]; then
      pkg_root=yes
    elif command -v sudo >/dev/null 2>&1; then
      if sudo -n true 2>/dev/null; then
        pkg_root=yes
      elif [ -t 0 ] && [ -t 2 ] && sudo -v; then
        pkg_root=yes
      fi
      [ "$pkg_root" = no ] || pkg_sudo=(sudo)
    fi
  fi
  [ "$pkg_root" = yes ]
}

# Stops the script with one line when packages are to be installed and this user can neither
# do it nor use sudo: the line names each package once and the command an administrator can run.
pkg_require_root() {
  pkg_have_root && return 0
  local names
  names=$(pkg_unique "$@")
  echo "$me: cannot install $names: this needs root and sudo is not available to this user;" \
       "an administrator can run: apt-get update && apt-get install -y --no-install-recommends $names" >&2
  exit 4
}

# Reads apt-get output and prints one line per index that failed apt's checks:
# "SUITE COMPONENT TARGET URI REASON" (COMPONENT and TARGET are "-" for a whole release file).
pkg_failed_indexes() {
  sed -nE 's#^[EW]: Failed to fetch ([^ ]*)/dists/([^/ ]*)/([^ ]*)[ ]+(.*)$#\2 \3 \1 \4#p' |
    while read -r suite path uri reason; do
      local component=- target=-
      case $path in
        */*/*) component=${path%%/*}; target=${path#*/}; target=${target%%/*} ;;
      esac
      reason=${reason%% Mirror sync*}
      reason=${reason%% \[IP:*}
      echo "$suite $component $target $uri $reason"
    done
}

# Says, one line each, which indexes were left out; reads pkg_failed_indexes lines.
pkg_say_left_out() {
  local suite component target uri reason
  while read -r suite component target uri reason; do
    [ -n "$suite" ] || continue
    if [ "$component" = - ]; then
      echo "$me: leaving out $suite ($uri): its release file failed apt's checks: $reason" >&2
    else
      echo "$me: leaving out the $suite/$component $target index ($uri): it failed apt's checks: $reason" >&2
    fi
  done
}

# apt-get update. An index that fails its checks is named in one line and left out (apt
# ignores it); that does not fail the run.
pkg_updated=no
pkg_left_out=""
pkg_update() {
  local out
  out=$("${pkg_sudo[@]}" apt-get update 2>&1) || true
  pkg_left_out=$(printf '%s\n' "$out" | pkg_failed_indexes)
  printf '%s\n' "$pkg_left_out" | pkg_say_left_out
  pkg_updated=yes
}

# Reads `apt-get -s install` output and prints one line per installed package whose version
# the plan changes or that it removes: "name old -> new (upgrade|downgrade)" or
# "name old -> removed".
pkg_changes_in_plan() {
  local name old arrow new
  awk '
    $1 == "Inst" && $3 ~ /^\[/ { old = $3; gsub(/[][]/, "", old); new = $4; sub(/^\(/, "", new)
                                 print $2, old, "->", new }
    $1 == "Remv" { old = $3; gsub(/[][]/, "", old); print $2, (old == "" ? "?" : old), "->", "removed" }' |
    while read -r name old arrow new; do
      if [ "$new" = removed ]; then
        echo "$name $old $arrow removed"
      elif dpkg --compare-versions "$new" gt "$old"; then
        echo "$name $old $arrow $new (upgrade)"
      else
        echo "$name $old $arrow $new (downgrade)"
      fi
    done
}

# pkg_install WHY PACKAGE...: installs the packages (and upgrades those given that are
# installed, where the archive has a newer one), after a simulation shows that nothing
# installed would be downgraded or removed. WHY says in a few words what needs them.
# Returns 0 when done, 3 when the plan was refused (its changes and the reason are printed,
# nothing is changed), 2 when apt finds no plan at all (its message is printed), 1 when the
# install itself failed. Call pkg_require_root first.
pkg_install() {
  local why=$1
  shift
  local plan changes harmful
  [ $pkg_updated = yes ] || pkg_update
  if ! plan=$(apt-get install -s -y --no-install-recommends "$@" 2>&1); then
    echo "$me: apt cannot install $why:" >&2
    printf '%s\n' "$plan" | grep -E '^( |E:)' | head -n 20 >&2
    pkg_explain_left_out
    return 2
  fi
  changes=$(printf '%s\n' "$plan" | pkg_changes_in_plan)
  harmful=$(printf '%s\n' "$changes" | grep -E ' (\(downgrade\)|removed)$' || true)
  if [ -n "$harmful" ]; then
    pkg_refuse "$why" "$harmful" "$@"
    return 3
  fi
  printf '%s\n' "$changes" | awk 'NF {print "upgrading", $1, $2, "->", $4}' |
    sed "s/^/$me: /" >&2
  local new
  new=$(printf '%s\n' "$plan" | awk '$1 == "Inst" && $3 !~ /^\[/ {print $2}' | paste -sd ' ' -)
  [ -z "$new" ] || echo "$me: installing $new" >&2
  local out
  if ! out=$("${pkg_sudo[@]}" apt-get install -y -qq --no-install-recommends "$@" 2>&1); then
    printf '%s\n' "$out" | tail -n 20 >&2
    echo "$me: apt-get install failed for $why" >&2
    return 1
  fi
}

# Prints why a plan was not carried out: what it would downgrade or remove, what asked for
# it, and which indexes were left out.
pkg_refuse() {
  local why=$1 harmful=$2
  shift 2
  {
    echo "$me: not installing $why: apt's plan for $(pkg_unique "$@") would downgrade or remove" \
         "installed packages, which these scripts never do:"
    printf '%s\n' "$harmful" | sed 's/^/  /'
    pkg_explain_left_out
    echo "$me: nothing was changed."
  } >&2
}

# Names the indexes left out at the last update, as the likely reason a plan went wrong:
# packages of one release that must match are then older in one index than in another.
pkg_explain_left_out() {
  local suite component target uri reason
  while read -r suite component target uri reason; do
    [ -n "$suite" ] || continue
    echo "$me: the $suite/$component $target index was left out ($reason), so its packages are" \
         "older than those installed from it" >&2
  done <<<"$pkg_left_out"
}

# Versions of a source package that the source index lists, newest first, one per line.
# Extra arguments go to apt-cache (a private apt state, say).
pkg_source_versions() {
  local name=$1 versions v sorted=() i j
  shift
  versions=$(apt-cache "$@" showsrc --only-source "$name" 2>/dev/null | awk '/^Version:/ {print $2}' | sort -u)
  for v in $versions; do
    # Insertion into a list kept newest first, with dpkg's own ordering.
    i=${#sorted[@]}
    sorted+=("$v")
    while [ "$i" -gt 0 ] && dpkg --compare-versions "$v" gt "${sorted[$((i - 1))]}"; do
      j=$((i - 1))
      sorted[i]=${sorted[j]}
      sorted[j]=$v
      i=$j
    done
  done
  [ ${#sorted[@]} -eq 0 ] || printf '%s\n' "${sorted[@]}"
}

# pkg_fetch_source NAME DIR [APT-OPTION...]: unpacks the newest version of source package
# NAME that the archive can actually serve into DIR, trying the listed versions newest first
# (an index may list a version whose files are gone). Prints the version taken; says so on
# stderr when it is not the newest listed. APT-OPTIONs (-o ...) select a private apt state.
pkg_fetch_source() {
  local name=$1 dir=$2 newest="" v tried=()
  shift 2
  while read -r v; do
    [ -n "$v" ] || continue
    [ -n "$newest" ] || newest=$v
    if (cd "$dir" && apt-get "$@" source -qq --only-source "$name=$v") >"$dir/.fetch.log" 2>&1; then
      if [ "$v" != "$newest" ]; then
        echo "$me: $name $newest is listed but cannot be fetched ($(pkg_fetch_error "$dir/.fetch-$newest.log")); using $name $v" >&2
      fi
      rm -f "$dir"/.fetch*.log
      echo "$v"
      return 0
    fi
    mv "$dir/.fetch.log" "$dir/.fetch-$v.log"
    # Nothing half-fetched stays behind for the next try.
    find "$dir" -mindepth 1 -maxdepth 1 ! -name '.fetch*' -exec rm -rf {} +
    tried+=("$v")
  done < <(pkg_source_versions "$name" "$@")
  if [ ${#tried[@]} -eq 0 ]; then
    echo "$me: no source package $name is listed (are source entries configured?)" >&2
  else
    echo "$me: no listed version of source package $name can be fetched (tried ${tried[*]}):" \
      "$(pkg_fetch_error "$dir/.fetch-${tried[0]}.log")" >&2
  fi
  return 1
}

# The line of an apt-get log that says what went wrong.
pkg_fetch_error() {
  { grep -m1 '^E:' "$1" || grep -m1 '^Err:' "$1" || echo "apt-get source failed"; } 2>/dev/null |
    sed 's/^E: //' | cut -c1-200
}

# The host's Debian package sources, one "URI SUITE COMPONENT" line each (from apt's own
# view of its configuration, whatever its format).
pkg_host_sources() {
  apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' \
      'Created-By: Packages' 2>/dev/null |
    awk '$4 ~ /^Debian/ {print $1, $2, $3}' | sort -u
}

# pkg_stable_sources TYPE: the host's Debian sources (pkg_host_sources lines) as TYPE ("deb" or
# "deb-src") entries for the current stable release's suites: each suite of this release renamed
# from its codename to "stable" (bookworm-updates -> stable-updates), for what is newer there.
pkg_stable_sources() {
  local codename
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  pkg_host_sources |
    awk -v t="$1" -v c="$codename" '{s = $2; sub("^" c, "stable", s); if (s != $2) print t, $1, s, $3}'
}

# Options that give apt a private state under DIR (its own sources list, lists and cache),
# leaving the host's apt configuration and lists untouched. Sets the array `pkg_private`.
pkg_private_state() {
  local dir=$1
  mkdir -p "$dir/lists/partial" "$dir/cache/archives/partial"
  pkg_private=(-o "Dir::Etc::SourceList=$dir/sources.list" -o "Dir::Etc::SourceParts=$dir/none"
               -o "Dir::State::Lists=$dir/lists" -o "Dir::Cache=$dir/cache"
               -o "Dir::State::status=$dir/status")
  : >"$dir/status"
}

# pkg_compare_lists BEFORE AFTER: reads two `dpkg-query -W` listings ("name<TAB>version" lines)
# and prints one line per package removed or downgraded between them, then a summary line of
# what was added and upgraded. Returns 1 when anything was removed or downgraded.
pkg_compare_lists() {
  local name before after added=0 upgraded=0 harmed=0
  declare -A then_version now_version
  while IFS=$'\t' read -r name before; do then_version[$name]=$before; done <"$1"
  while IFS=$'\t' read -r name after; do now_version[$name]=$after; done <"$2"
  for name in $(printf '%s\n' "${!then_version[@]}" | sort); do
    before=${then_version[$name]}
    after=${now_version[$name]-}
    if [ -z "${now_version[$name]+set}" ]; then
      echo "removed: $name $before"
      harmed=1
    elif [ -n "$before" ] && [ -n "$after" ] && dpkg --compare-versions "$after" lt "$before"; then
      echo "downgraded: $name $before -> $after"
      harmed=1
    elif [ "$after" != "$before" ]; then
      upgraded=$((upgraded + 1))
    fi
  done
  for name in "${!now_version[@]}"; do
    [ -n "${then_version[$name]+set}" ] || added=$((added + 1))
  done
  echo "host packages: $added added, $upgraded upgraded, none removed or downgraded" |
    { [ $harmed = 0 ] && cat || sed 's/none removed or downgraded/SOME REMOVED OR DOWNGRADED (above)/'; }
  return $harmed
}
