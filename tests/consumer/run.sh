#!/bin/sh
# Builds and runs the consumer programs against an installed fbc, once through find_package(fbc)
# and once through pkg-config.
#
#   run.sh [--install BUILD_DIR] [--readme README.md] [--version V] [--subproject SRC] PREFIX WORK_DIR
#
# --install first installs the build tree BUILD_DIR into PREFIX (a scratch prefix: it is
# emptied first); --readme checks that the README shows each consumer source verbatim;
# --version checks the version both package files report; --subproject also builds the C
# program in a project that includes the source tree SRC by add_subdirectory. WORK_DIR is
# emptied and rebuilt.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build= readme= version= subproject=
while [ $# -gt 2 ]; do
  case $1 in
    --install) build=$2 ;;
    --readme) readme=$2 ;;
    --version) version=$2 ;;
    --subproject) subproject=$2 ;;
    *) echo "run.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift 2
done
[ $# -eq 2 ] || { echo "usage: run.sh [--install BUILD_DIR] [--readme README.md] [--version V] [--subproject SRC] PREFIX WORK_DIR" >&2; exit 2; }
prefix=$1 work=$2
CC=${CC:-cc} CXX=${CXX:-c++}
rm -rf "$work"
mkdir -p "$work"

if [ -n "$readme" ]; then
  # Each file appears in the README as a fenced block right after a line "<!-- FILE -->".
  for f in hello_fbc.c hello_fbc.cpp CMakeLists.txt; do
    awk -v m="<!-- $f -->" '$0 == m { on = 1; next } on && /^```/ { if (fence++) exit; next } on' "$readme" > "$work/readme_$f"
    diff -u "$here/$f" "$work/readme_$f" || { echo "run.sh: the README's $f differs from tests/consumer/$f" >&2; exit 1; }
  done
fi

if [ -n "$build" ]; then
  rm -rf "$prefix"
  cmake --install "$build" --prefix "$prefix" >"$work/install.log"
fi

echo "== find_package(fbc) in $prefix"
cmake -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" >"$work/configure.log"
cmake --build "$work/cmake" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/cmake/hello_fbc_c"
"$work/cmake/hello_fbc_cxx"
"$work/cmake/blocks_fbc" "$prefix/share/fbc/sample_params.ini"
if [ -n "$version" ]; then
  grep -q "PACKAGE_VERSION \"$version\"" "$(find "$prefix/lib" -maxdepth 4 -path '*/cmake/fbc/fbcConfigVersion.cmake')"
fi

echo "== pkg-config fbc in $prefix"
PKG_CONFIG_PATH=$(dirname "$(find "$prefix/lib" -maxdepth 3 -path '*/pkgconfig/fbc.pc' | head -n 1)")${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}
export PKG_CONFIG_PATH
[ -z "$version" ] || [ "$(pkg-config --modversion fbc)" = "$version" ]
for h in fbc.h FBC_dll.h; do
  # shellcheck disable=SC2046
  echo "#include <fbc/$h>" | "$CC" -std=c99 -Wall -Wextra -pedantic -Werror -fsyntax-only -x c - $(pkg-config --cflags fbc)
done
# shellcheck disable=SC2046
"$CC" -std=c99 -Wall -Wextra -pedantic -Werror "$here/hello_fbc.c" $(pkg-config --cflags --libs fbc) -o "$work/pc_c"
# shellcheck disable=SC2046
"$CXX" -std=c++17 -Wall -Wextra -pedantic -Werror "$here/hello_fbc.cpp" $(pkg-config --cflags --libs fbc) -pthread \
  -o "$work/pc_cxx"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir fbc)${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH} "$work/pc_c"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir fbc)${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH} "$work/pc_cxx"

if [ -n "$subproject" ]; then
  echo "== add_subdirectory($subproject)"
  cmake -S "$here/subproject" -B "$work/subproject" -DFBC_SOURCE_DIR="$subproject" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" ${LAUNCHER:+-DCMAKE_CXX_COMPILER_LAUNCHER=$LAUNCHER} \
    >"$work/subproject.log"
  cmake --build "$work/subproject" -j "${JOBS:-2}" --target hello_fbc_c >>"$work/subproject.log" ||
    { cat "$work/subproject.log"; exit 1; }
  "$work/subproject/hello_fbc_c"
fi

echo "== the tool in $prefix"
"$prefix/bin/fbc" regs "$prefix/share/fbc/sample_params.ini" | head -n 2
