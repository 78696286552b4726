# shellcheck shell=bash
# The ways this machine runs the private root's i386 programs (docs/windows.md; sourced, callers
# set `me`). Emulation is Debian's qemu-i386, unpacked into the cache, never installed, through a
# binfmt_misc handler held while a run needs it; it comes before the kernel's own loader.
. "$(dirname "${BASH_SOURCE[0]}")/roots.sh"
i386_ways="auto native emulated static"
i386_qemu=$velcan_cache/qemu/qemu-i386
i386_binfmt=/proc/sys/fs/binfmt_misc
# So named, mmdebstrap takes it (flag F: the kernel holds qemu open) for any root.
i386_handler=$i386_binfmt/qemu-i386
i386_rule=':qemu-i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00:\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
i386_wanted() { echo "${VELCAN_I386_WAY:-auto}"; }
i386_native() { arch-test -n i386 >/dev/null 2>&1; }
# i386_way [WAY]: "WAY: why", WAY (i386_wanted) or auto's best, or "unavailable: WAY: why" and
# fails. A handler of ours that a killed run left is cleared first, not taken for the machine's.
i386_way() {
  local wanted=${1:-$(i386_wanted)} why cannot=""
  [[ " $i386_ways " == *" $wanted "* ]] ||
    { echo "unavailable: '$wanted' is not a way to run the 32-bit suite (${i386_ways// /, })"; return 1; }
  i386_clear_stale
  [ "$wanted" != static ] ||
    { echo "static: chosen; the 32-bit build is checked from its files, and no program of it runs"; return 0; }
  if i386_native && [ "$wanted" != emulated ]; then echo "native: this kernel runs i386 programs"; return 0; fi
  why="this kernel cannot run i386 programs"
  if i386_native; then why="chosen, though this kernel runs i386 programs itself"
  elif grep -qsw 'ia32_emulation=off' /proc/cmdline; then why+=" (booted with ia32_emulation=off)"
  elif dmesg 2>/dev/null | grep -q '32-bit emulation disabled'; then why+=" (32-bit emulation is off in it)"; fi
  [ "$wanted" != native ] || { echo "unavailable: native: $why"; return 1; }
  if i386_machine_handler; then echo "emulated: $why; the machine's own binfmt_misc handler runs them"; return 0
  elif ! pkg_have_root; then cannot="emulating them needs root (or sudo) for a binfmt_misc handler"
  elif ! i386_fetch_qemu; then cannot="qemu-i386 cannot be had from Debian's archive ($i386_fetch_error)"
  elif [ ! -e "$i386_binfmt/register" ] && ! grep -qw binfmt_misc /proc/filesystems; then
    cannot="binfmt_misc cannot be used here to emulate them"
  else echo "emulated: $why; Debian's qemu-i386 runs them, through a binfmt_misc handler held for this run"; return 0; fi
  [ "$wanted" = emulated ] && { echo "unavailable: emulated: $why, and $cannot"; return 1; }
  echo "static: $why, and $cannot"
}
# i386_plan WAY[,WAY...]: "run WAY: why" each, or fails saying why; all is native and emulated
# where the machine has them ("left out WAY: why" where not), static where it has neither.
i386_plan() {
  local w way ran=no asked
  IFS=, read -r -a asked <<<"${1:-auto}"
  for w in "${asked[@]}"; do
    if [ "$w" = all ]; then
      for w in native emulated; do
        if way=$(i386_way "$w"); then echo "run $way" && ran=yes; else echo "left out ${way#unavailable: }"; fi
      done
      [ $ran = yes ] || echo "run $(i386_way auto)"
    else
      way=$(i386_way "$w") || { echo "$way"; return 1; }
      echo "run $way"
    fi
  done
}
# The machine's own handler runs them: any, where the kernel cannot; else one named qemu-i386.
i386_machine_handler() {
  if i386_native; then grep -qsx enabled "$i386_handler"; else arch-test i386 >/dev/null 2>&1; fi
}
# qemu-i386 into the cache, once: the newest qemu-user(-static) of this release, its backports
# or stable. Before 8.1 qemu takes a minute to start each Wine program (it scans all of Wine's
# reserved address space), so none older is taken.
i386_fetch_error=""
i386_fetch_qemu() {
  [ -x "$i386_qemu" ] && return 0
  local state=$velcan_cache/apt/qemu work best="" p v
  pkg_private_state "$state"
  {
    pkg_host_sources | awk -v c="$(. /etc/os-release && echo "$VERSION_CODENAME")" \
      '{print "deb", $1, $2, $3} $2 == c {print "deb", $1, c "-backports", $3}'
    pkg_stable_sources deb
  } >"$state/sources.list"
  apt-get "${pkg_private[@]}" update 2>&1 | pkg_failed_indexes >/dev/null || true
  for p in qemu-user qemu-user-static; do
    v=$(apt-cache "${pkg_private[@]}" madison "$p" 2>/dev/null | awk -F' *[|] *' '{print $2}' | pkg_newest_first | head -n 1)
    [ -z "$v" ] || { [ -n "$best" ] && ! dpkg --compare-versions "$v" gt "${best#*=}"; } || best=$p=$v
  done
  [ -n "$best" ] || { i386_fetch_error="the archive lists neither qemu-user nor qemu-user-static"; return 1; }
  dpkg --compare-versions "${best#*=}" ge 1:8.1 ||
    { i386_fetch_error="the newest the archive serves is ${best#*=}, and Wine needs 8.1 or later" && return 1; }
  work=$(mktemp -d)
  chmod 755 "$work" # apt's sandbox user downloads into it
  if (cd "$work" && apt-get "${pkg_private[@]}" download "$best") >"$work/log" 2>&1 &&
     dpkg-deb -x "$work"/*.deb "$work/x" 2>>"$work/log"; then
    for p in "$work/x/usr/bin/qemu-i386-static" "$work/x/usr/bin/qemu-i386" ""; do [ ! -x "$p" ] || break; done
    [ -n "$p" ] && mkdir -p "${i386_qemu%/*}" && mv "$p" "$i386_qemu" || echo "E: $best holds no qemu-i386" >>"$work/log"
  fi
  [ -x "$i386_qemu" ] || i386_fetch_error="$best: $(grep -m1 -E '^(E|dpkg-deb): ' "$work/log" | cut -c1-200)"
  rm -rf "$work"
  [ -x "$i386_qemu" ]
}
# i386_hold: i386 programs runnable the way asked for, by the kernel, a handler there, or one
# registered here, until i386_release takes away what the hold added and only that.
i386_registered="" i386_mounted=""
i386_hold() {
  if [ "$(i386_wanted)" = emulated ] && i386_native; then [ ! -e "$i386_handler" ] || return 0
  elif arch-test i386 >/dev/null 2>&1; then return 0; fi
  local cannot="$me: cannot emulate i386:"
  i386_fetch_qemu || { echo "$cannot $i386_fetch_error" >&2; return 1; }
  [ -e "$i386_binfmt/register" ] || { "${pkg_sudo[@]}" mount -t binfmt_misc binfmt_misc "$i386_binfmt" && i386_mounted=yes; } ||
    { echo "$cannot binfmt_misc cannot be mounted" >&2; return 1; }
  # shellcheck disable=SC2059 # the rule's escapes are printf's to expand
  printf "$i386_rule:$i386_qemu:F" | "${pkg_sudo[@]}" tee "$i386_binfmt/register" >/dev/null ||
    { echo "$cannot the binfmt_misc handler was refused" >&2; return 1; }
  i386_registered=yes
}
i386_clear_stale() {
  ! grep -qsxF "interpreter $i386_qemu" "$i386_handler" || echo -1 | "${pkg_sudo[@]}" tee "$i386_handler" >/dev/null
}
i386_release() {
  [ -z "$i386_registered" ] || [ ! -e "$i386_handler" ] || echo -1 | "${pkg_sudo[@]}" tee "$i386_handler" >/dev/null || true
  [ -z "$i386_mounted" ] || "${pkg_sudo[@]}" umount "$i386_binfmt" 2>/dev/null || true
  i386_registered="" i386_mounted=""
}
