# Package handling shared by the install scripts (sourced, not run).
#
# The scripts install what is missing and never change the version of an installed package,
# or remove one, unless the caller consents: VELCAN_ALLOW_PACKAGE_CHANGES=1 in the environment
# or --allow-package-changes on the command line (pkg_parse_consent). Without consent a plan
# that would change something is printed with the command that would carry it out, and
# nothing is done.
#
# Callers set `me` (the script's name, for messages) before sourcing.

export DEBIAN_FRONTEND=noninteractive
: "${VELCAN_ALLOW_PACKAGE_CHANGES:=0}"

# Removes --allow-package-changes from the arguments given, turning consent on; the remaining
# arguments are left in the array `args`.
pkg_parse_consent() {
  args=()
  local a
  for a in "$@"; do
    if [ "$a" = --allow-package-changes ]; then
      VELCAN_ALLOW_PACKAGE_CHANGES=1
    else
      args+=("$a")
    fi
  done
  export VELCAN_ALLOW_PACKAGE_CHANGES
}

pkg_consent() { [ "$VELCAN_ALLOW_PACKAGE_CHANGES" = 1 ]; }

pkg_sudo=()
pkg_need_root() {
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "$me: need root to install: $*" >&2; exit 1; }
    pkg_sudo=(sudo)
  fi
}

pkg_installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q '^install ok installed$'
}

pkg_updated=no
# apt-get update. An index that fails its checks is reported by apt and left out; the rest is
# still usable, so that is not an error here.
pkg_update() {
  "${pkg_sudo[@]}" apt-get update -qq || true
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

# pkg_install WHY COMMAND APT-ARGS...: installs with apt-get, after a simulation shows that
# nothing installed changes version or goes (or the caller consented). WHY says in a few
# words what needs the packages; COMMAND is how the caller re-runs this with consent.
# Returns 0 when installed, 3 when it stopped for want of consent, 2 when apt cannot find a
# plan at all (its message is printed).
pkg_install() {
  local why=$1 command=$2
  shift 2
  local plan changes
  [ $pkg_updated = yes ] || pkg_update
  if ! plan=$(apt-get install -s -y --allow-downgrades --no-install-recommends "$@" 2>&1); then
    echo "$me: apt cannot install $why:" >&2
    printf '%s\n' "$plan" | grep -E '^( |E:)' | head -n 20 >&2
    return 2
  fi
  changes=$(printf '%s\n' "$plan" | pkg_changes_in_plan)
  if [ -n "$changes" ] && ! pkg_consent; then
    pkg_refuse "$why" "$command" "$changes"
    return 3
  fi
  local allow=()
  if [ -n "$changes" ]; then
    allow=(--allow-downgrades --allow-remove-essential --allow-change-held-packages)
    echo "$me: changing installed packages, as allowed:" >&2
    printf '  %s\n' "$changes" >&2
  fi
  echo "$me: installing $*"
  "${pkg_sudo[@]}" apt-get install -y -qq --no-install-recommends "${allow[@]}" "$@" >/dev/null
}

# Prints why a plan was not carried out: what it would change and how to allow it.
pkg_refuse() {
  local why=$1 command=$2 changes=$3
  local n
  n=$(printf '%s\n' "$changes" | wc -l)
  {
    echo "$me: not installing $why: it would change $n installed package(s):"
    printf '%s\n' "$changes" | sed 's/^/  /'
    echo "$me: nothing was changed. To allow these changes, run:"
    echo "  VELCAN_ALLOW_PACKAGE_CHANGES=1 $command"
  } >&2
}

# Versions of a source package that the source index lists, newest first, one per line.
pkg_source_versions() {
  local versions v sorted=() i j
  versions=$(apt-cache showsrc --only-source "$1" 2>/dev/null | awk '/^Version:/ {print $2}' | sort -u)
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

# pkg_fetch_source NAME DIR: unpacks the newest version of source package NAME that the
# archive can actually serve into DIR, trying the listed versions newest first (an index may
# list a version whose files are gone). Prints the version taken; says so on stderr when it
# is not the newest listed.
pkg_fetch_source() {
  local name=$1 dir=$2 newest="" v tried=()
  while read -r v; do
    [ -n "$v" ] || continue
    [ -n "$newest" ] || newest=$v
    if (cd "$dir" && apt-get source -qq --only-source "$name=$v") >"$dir/.fetch.log" 2>&1; then
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
  done < <(pkg_source_versions "$name")
  if [ ${#tried[@]} -eq 0 ]; then
    echo "$me: no source package $name is listed (are deb-src entries configured?)" >&2
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
