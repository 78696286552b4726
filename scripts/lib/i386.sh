# shellcheck shell=bash
# How this machine runs the i386 programs of the private 32-bit root (sourced, not run; needs
# lib/packages.sh, lib/roots.sh and `me`). Some kernels cannot run them (x86-64 kernels since 6.7
# can be booted with 32-bit emulation off, "ia32_emulation=off"); there, i386 programs run under
# Debian's qemu-i386 user emulation, through a binfmt_misc handler that lives only while a run
# needs it. Nothing of the host's packages changes: qemu comes out of Debian's package, unpacked
# into the cache, never installed. Emulation can be asked for where the kernel runs them too
# (VELCAN_I386_WAY=emulated): a handler, once registered, comes before the kernel's own loader,
# so that the emulated way is tried on every machine.

i386_qemu=$velcan_cache/qemu/qemu-i386
i386_binfmt=/proc/sys/fs/binfmt_misc
# mmdebstrap recognises a handler of this name (flag F: the kernel holds qemu open, so it runs in
# any root) and then needs no qemu inside the root.
i386_handler=$i386_binfmt/qemu-i386
# An i386 ELF executable, as binfmt_misc matches it (qemu's own rule).
i386_rule=':qemu-i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00:\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'

# The ways the 32-bit suite can run, as VELCAN_I386_WAY (and test-win32's --i386) name them:
#   auto      the best this machine has: native, else emulated, else static (the default);
#   native    the kernel runs i386 programs itself;
#   emulated  under qemu-i386, even where the kernel could run them (the machine's own handler,
#             or Debian's qemu-i386 through one registered for the run);
#   static    none is run: the 32-bit build is checked from its files alone.
i386_ways="auto native emulated static"

# i386_wanted: the way asked for (VELCAN_I386_WAY, else auto).
i386_wanted() {
  echo "${VELCAN_I386_WAY:-auto}"
}

# i386_way [WANTED]: prints the way i386 programs run here, as one word and the reason
# ("native: ...", "emulated: ...", "static: ..."). WANTED (default: i386_wanted) other than
# auto is that way or nothing: one that cannot be had here prints "unavailable: WANTED: why"
# and fails, as does a word that is no way. Fetches qemu (once, into the cache) where it is
# needed and can be had. First clears a handler of ours that a killed run left behind, so it is
# not taken for the machine's own: for a script that no other holder runs inside (test-win32,
# test-release).
i386_way() {
  local wanted=${1:-$(i386_wanted)} native=no why
  case " $i386_ways " in
    *" $wanted "*) ;;
    *) echo "unavailable: '$wanted' is not a way to run the 32-bit suite (${i386_ways// /, })"
       return 1 ;;
  esac
  i386_clear_stale
  if [ "$wanted" = static ]; then
    echo "static: chosen; the 32-bit build is checked from its files, and no program of it runs"
    return 0
  fi
  arch-test -n i386 >/dev/null 2>&1 && native=yes
  if [ "$native" = yes ] && [ "$wanted" != emulated ]; then
    echo "native: this kernel runs i386 programs"
    return 0
  fi
  if [ "$native" = yes ]; then
    why="chosen, though this kernel runs i386 programs itself"
  else
    why="this kernel cannot run i386 programs$(i386_kernel_says)"
  fi
  if [ "$wanted" = native ]; then
    echo "unavailable: native: $why"
    return 1
  fi
  local cannot=""
  if i386_machine_handler; then
    echo "emulated: $why; the machine's own binfmt_misc handler runs them"
    return 0
  elif ! pkg_have_root; then
    cannot="emulating them needs root (or sudo) for a binfmt_misc handler"
  elif ! i386_fetch_qemu; then
    cannot="qemu-i386 cannot be had from Debian's archive ($i386_fetch_error)"
  elif ! i386_binfmt_usable; then
    cannot="binfmt_misc cannot be used here to emulate them"
  else
    echo "emulated: $why; Debian's qemu-i386 runs them, through a binfmt_misc handler held for this run"
    return 0
  fi
  if [ "$wanted" = emulated ]; then
    echo "unavailable: emulated: $why, and $cannot"
    return 1
  fi
  echo "static: $why, and $cannot"
}

# i386_plan ASKED: the ways to run the 32-bit suite for ASKED, a comma-separated list of ways
# or "all" (every way this machine has: native and emulated, static where it has neither), one
# line each: "run WAY: reason", or "left out WAY: reason" for what all could not have. Fails,
# saying why on stdout, when a way asked for by name cannot be had.
i386_plan() {
  local wanted way plan=() ran=no w a
  IFS=, read -r -a wanted <<<"$1"
  [ ${#wanted[@]} -gt 0 ] || wanted=(auto)
  for w in "${wanted[@]}"; do
    if [ "$w" = all ]; then
      for a in native emulated; do
        if way=$(i386_way "$a"); then
          plan+=("run $way") ran=yes
        else
          plan+=("left out ${way#unavailable: }")
        fi
      done
      if [ "$ran" = no ]; then
        way=$(i386_way auto) # static, with the reason
        plan+=("run $way")
      fi
    elif way=$(i386_way "$w"); then
      plan+=("run $way")
    else
      echo "$way"
      return 1
    fi
  done
  printf '%s\n' "${plan[@]}"
}

# Whether the machine has a binfmt_misc handler of its own that runs i386 programs: where the
# kernel cannot run them, any that does (arch-test says so); where it can, one named qemu-i386
# (ours were cleared) that is enabled.
i386_machine_handler() {
  if arch-test -n i386 >/dev/null 2>&1; then
    [ -e "$i386_handler" ] && grep -qx enabled "$i386_handler"
  else
    arch-test i386 >/dev/null 2>&1
  fi
}

# What the kernel said when it switched 32-bit programs off, if it said it.
i386_kernel_says() {
  if grep -qw 'ia32_emulation=off' /proc/cmdline 2>/dev/null; then
    echo " (booted with ia32_emulation=off)"
  elif dmesg 2>/dev/null | grep -q '32-bit emulation disabled'; then
    echo " (32-bit emulation is off in it)"
  fi
}

# Puts a static qemu-i386 into the cache, once: the newest that Debian's archive serves for this
# release, its backports or the current stable release (the package qemu-user, or
# qemu-user-static before 8.x), unpacked, never installed. Before 8.1 qemu spends about a minute
# starting each Wine program (page tracking that scans Wine's whole reserved address space), so
# older ones are not used.
i386_qemu_oldest=1:8.1
i386_fetch_error=""
i386_fetch_qemu() {
  [ -x "$i386_qemu" ] && return 0
  local state=$velcan_cache/apt/qemu work codename sources best="" v p bin
  sources=$(pkg_host_sources)
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  pkg_private_state "$state"
  {
    awk '{print "deb", $1, $2, $3}' <<<"$sources"
    awk -v c="$codename" '$2 == c {print "deb", $1, c "-backports", $3}' <<<"$sources"
    pkg_stable_sources deb
  } >"$state/sources.list"
  apt-get "${pkg_private[@]}" update 2>&1 | pkg_failed_indexes | pkg_say_left_out
  for p in qemu-user qemu-user-static; do
    for v in $(apt-cache "${pkg_private[@]}" madison "$p" 2>/dev/null | awk -F' *[|] *' '{print $2}'); do
      if [ -z "$best" ] || dpkg --compare-versions "$v" gt "${best#*=}"; then best=$p=$v; fi
    done
  done
  if [ -z "$best" ]; then
    i386_fetch_error="the archive lists neither qemu-user nor qemu-user-static"
    return 1
  fi
  if dpkg --compare-versions "${best#*=}" lt "$i386_qemu_oldest"; then
    i386_fetch_error="the newest the archive serves is ${best#*=}, and Wine needs ${i386_qemu_oldest#1:} or later to start programs in seconds, not minutes"
    return 1
  fi
  work=$(mktemp -d)
  chmod 755 "$work" # apt's sandbox user writes the download here
  if (cd "$work" && apt-get "${pkg_private[@]}" download "$best") >"$work/log" 2>&1 &&
     dpkg-deb -x "$work"/*.deb "$work/unpacked" 2>>"$work/log"; then
    for bin in "$work/unpacked/usr/bin/qemu-i386-static" "$work/unpacked/usr/bin/qemu-i386"; do
      if [ -x "$bin" ]; then
        mkdir -p "${i386_qemu%/*}"
        mv "$bin" "$i386_qemu"
        rm -rf "$work"
        return 0
      fi
    done
    echo "E: $best holds no qemu-i386" >>"$work/log"
  fi
  i386_fetch_error="$best: $(grep -E '^(E|dpkg-deb): ' "$work/log" | head -n 1 | cut -c1-200)"
  rm -rf "$work"
  return 1
}

# Whether a handler can be registered: binfmt_misc is mounted, or the kernel has it to mount.
i386_binfmt_usable() {
  [ -e "$i386_binfmt/register" ] || grep -qw binfmt_misc /proc/filesystems
}

# i386_hold: makes i386 programs runnable, the way asked for (i386_wanted), for as long as the
# caller needs them: registers the qemu-i386 handler unless the kernel (where emulation is not
# asked for) or a handler already runs them. i386_release takes away what i386_hold added, and
# only that. Callers release on exit.
i386_registered=""
i386_mounted=""
i386_hold() {
  if [ "$(i386_wanted)" != emulated ] || ! arch-test -n i386 >/dev/null 2>&1; then
    arch-test i386 >/dev/null 2>&1 && return 0
  elif [ -e "$i386_handler" ]; then
    return 0 # emulation asked for on a kernel that runs them: the machine's, or a caller's
  fi
  i386_fetch_qemu || { echo "$me: cannot emulate i386: $i386_fetch_error" >&2; return 1; }
  if [ ! -e "$i386_binfmt/register" ]; then
    "${pkg_sudo[@]}" mount -t binfmt_misc binfmt_misc "$i386_binfmt" ||
      { echo "$me: cannot emulate i386: binfmt_misc cannot be mounted" >&2; return 1; }
    i386_mounted=yes
  fi
  # shellcheck disable=SC2059 # the rule's escapes are printf's to expand
  printf "$i386_rule:$i386_qemu:F" | "${pkg_sudo[@]}" tee "$i386_binfmt/register" >/dev/null ||
    { echo "$me: cannot emulate i386: the binfmt_misc handler was refused" >&2; return 1; }
  i386_registered=yes
}

# i386_clear_stale: takes away a handler of ours that a run killed before its release left
# behind.
i386_clear_stale() {
  if [ -e "$i386_handler" ] && grep -qxF "interpreter $i386_qemu" "$i386_handler"; then
    echo -1 | "${pkg_sudo[@]}" tee "$i386_handler" >/dev/null
  fi
}

i386_release() {
  if [ -n "$i386_registered" ] && [ -e "$i386_handler" ]; then
    echo -1 | "${pkg_sudo[@]}" tee "$i386_handler" >/dev/null || true
  fi
  i386_registered=""
  if [ -n "$i386_mounted" ]; then
    "${pkg_sudo[@]}" umount "$i386_binfmt" 2>/dev/null || true
  fi
  i386_mounted=""
}
