# The project's facts for the scripts (sourced), each read from the one place that defines it.
facts_top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
velcan_version=$(sed -n 's/^project(velcan VERSION \([0-9.]*\).*/\1/p' "$facts_top/CMakeLists.txt")
velcan_soname=libvelcan.so.${velcan_version%%.*} # the major version is the SOVERSION
velcan_abi_baseline=tests/library/$velcan_soname.abi
eval "$(cmake -P "$facts_top/cmake/cache.cmake")" # velcan_cache, velcan_win32_deps_cache
# The DLLs a Windows binary of velcan's may import, one a line (the DLL's import test reads it).
windows_imports_file=$facts_top/cmake/windows-imports.txt
# "ARCH TRIPLE TOOLCHAIN-FILE" of each Windows target, as its toolchain file under cmake/ sets it.
windows_targets() {
  local file
  for file in "$facts_top"/cmake/mingw*-toolchain.cmake; do
    awk -F'[ )]' -v f="${file##*/}" '/^set\(VELCAN_WINE_ARCH / {a = $2} /^set\(VELCAN_MINGW_TRIPLE / {t = $2}
      END {print a, t, f}' "$file"
  done
}
# windows_target ARCH: "TRIPLE TOOLCHAIN-FILE".
windows_target() { windows_targets | awk -v arch="$1" '$1 == arch {print $2, $3}'; }
