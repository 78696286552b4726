# The project's facts, for the scripts (sourced, not run). Each is read from the one place
# that defines it, never written here again.
facts_top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# The version: project(velcan VERSION ...) in CMakeLists.txt.
velcan_version=$(sed -n 's/^project(velcan VERSION \([0-9.]*\).*/\1/p' "$facts_top/CMakeLists.txt")
# The shared library's SONAME: CMakeLists.txt gives it the major version as its SOVERSION.
velcan_soname=libvelcan.so.${velcan_version%%.*}
# abidw's description of the last release's interface, which scripts/check-abi compares with.
velcan_abi_baseline=tests/library/$velcan_soname.abi
# velcan_cache and velcan_win32_deps_cache: where things made once are kept (cmake/cache.cmake).
eval "$(cmake -P "$facts_top/cmake/cache.cmake")"

# The Windows targets, one line each: ARCH (win32, win64), the mingw TRIPLE and the TOOLCHAIN
# file's name, as the toolchain files under cmake/ set them.
windows_targets() {
  local file
  for file in "$facts_top"/cmake/mingw*-toolchain.cmake; do
    printf '%s %s %s\n' "$(sed -n 's/^set(VELCAN_WINE_ARCH \(.*\))$/\1/p' "$file")" \
      "$(sed -n 's/^set(VELCAN_MINGW_TRIPLE \(.*\))$/\1/p' "$file")" "$(basename "$file")"
  done
}
# windows_target ARCH: "TRIPLE TOOLCHAIN" of that architecture.
windows_target() {
  windows_targets | awk -v arch="$1" '$1 == arch { print $2, $3 }'
}

# The DLLs a Windows binary of velcan's may import: Windows' own, one a line (the DLL's
# import test reads the same list).
windows_imports_file=$facts_top/cmake/windows-imports.txt
