#!/bin/sh
# One check of the package:  check_package.sh CHECK SOURCE_FOLDER BUILD_FOLDER COMPILER
# Status 77: skipped, with the reason. `install` and `deb` leave their results to the checks that use them.
set -eu
export LC_ALL=C
check=$1 source=$2 build=$3 compiler=$4
here=$source/tests/package
work=$build/package_test
moved=$work/moved

fail() {
  echo "package: $1" >&2
  exit 1
}

skip() {
  echo "SKIPPED: $1"
  exit 77
}

need() {
  for tool in "$@"; do
    command -v "$tool" >/dev/null || skip "$tool is missing (scripts/install_packages.sh tests installs it)"
  done
}

# A folder that has all that a program outside of the repository consists of: examples, and what builds them.
make_consumer() {
  rm -rf "$1"
  mkdir -p "$1"
  cp -r "$here"/consumer/* "$source/examples" "$1"
}

# The libraries of this project that a program loads must all be below the given folder.
check_loaded() {
  ldd "$2" | grep libvq_ >"$work/loaded.$check" || fail "$2 loads no library"
  if grep -v "=> $1/" "$work/loaded.$check"; then fail "$2 loads libraries from elsewhere than $1"; fi
}

# Class or function of each exported symbol, as "library name". Symbols of the standard library are left out.
list_exports() {
  for library in "$build"/lib/libvq_*.so; do
    nm -DC --defined-only "$library" | cut -d' ' -f3- | awk -v library="$(basename "$library" .so)" '
      {
        sub(/^(vtable|typeinfo|typeinfo name|VTT|guard variable) for /, "")
        sub(/^(virtual|non-virtual) thunk to /, "")
        sub(/::operator.*/, "::operator")
        name = ""
        depth = 0
        for (i = 1; i <= length($0); ++i) {  # without template arguments and parameters
          c = substr($0, i, 1)
          if (c == "<") ++depth
          else if (c == ">") --depth
          else if (depth == 0 && c == "(") break
          else if (depth == 0) name = name c
        }
        sub(/.* /, "", name)
        sub(/::.*/, "", name)
        sub(/\[.*/, "", name)
        if (name !~ /^(std|__gnu_cxx|operator)/) print library, name
      }'
  done
}

case $check in
  exports)
    need nm awk
    mkdir -p "$work"
    list_exports | sort | uniq -c | awk '{ symbols[$2] += $1; names[$2]++ }
      END { for (library in symbols) print library ": " symbols[library] " symbols of " names[library] " names" }' | sort
    # Without the library: copies of a record of types may be in others too, as the compiler chooses.
    list_exports | cut -d' ' -f2 | sort -u >"$work/exported_names.txt"
    diff -u "$here/exported_names.txt" "$work/exported_names.txt" ||
      fail "exported names differ from tests/package/exported_names.txt"
    ;;

  install)
    rm -rf "$work/prefix" "$moved"
    cmake --install "$build" --prefix "$work/prefix" >/dev/null
    mv "$work/prefix" "$moved"
    ! grep -rlI -e "$source" "$moved" || fail "these files name the repository's folder"
    if [ -x "$build/bin/vqgas" ]; then
      check_loaded "$moved" "$moved/bin/vqgas"
      "$moved/bin/vqgas" --version
      for file in man/man1/vqgas.1.gz man/man1/vqgas-trace.1.gz bash-completion/completions/vqgas \
                  zsh/site-functions/_vqgas fish/vendor_completions.d/vqgas.fish vq_gas/schemas/trace.json; do
        [ -s "$moved/share/$file" ] || fail "share/$file is not installed"
      done
    fi
    ;;

  headers)
    include=$moved/include/vq_gas
    cd "$include"
    find . -name '*.h' | sed 's,^\./,,' | sort >"$work/installed"
    [ -s "$work/installed" ] || fail "no header is installed"
    # Installed headers and examples include only what is installed. Each header compiles alone in the repository.
    find . "$source/examples" -name '*.[hc]*' -type f -exec sed -n 's/^#include "\(.*\)"$/\1/p' {} + | sort -u |
      grep -v examples/ | grep -vxF -f "$work/installed" && fail "these headers are included and not installed"
    sed 's/.*/#include "&"/' "$work/installed" | "$compiler" -std=c++20 -Wall -Wextra -Werror -I. -fsyntax-only -x c++ -
    # Internal headers of the library are installed only where a public one includes them.
    grep -x 'gas/[^/]*\.h' "$work/installed" | sed 's/.*/#include "&"/' | "$compiler" -std=c++20 -I. -MM -x c++ - |
      tr -s '\\ ' '\n' | sed -n 's,^\./,,; s/:$//; /\.h$/p' | sort >"$work/reached"
    grep '^gas/' "$work/installed" | grep -vxF -f "$work/reached" && fail "these headers are private and installed"
    wc -l <"$work/installed"
    ;;

  find_package)
    make_consumer "$work/by_cmake"
    cd "$work/by_cmake"
    cmake -G Ninja -D CMAKE_CXX_COMPILER="$compiler" -D CMAKE_PREFIX_PATH="$moved" -B build . | grep "found $moved"
    cmake --build build >/dev/null
    for program in consumer host_consumer sys_consumer my_renderer; do
      check_loaded "$moved" build/$program
      build/$program
    done
    # The first program of the documentation, and a copy of the repository beside a program: this one is not built.
    cp -r "$here/first" "$here/renderer" .
    cp examples/01_nearest_hit.cpp first/first.cpp
    cp examples/01_nearest_hit.cpp renderer/my_renderer.cpp
    ln -s "$source" renderer/vq_gas
    cmake -S first -B first/build -D CMAKE_CXX_COMPILER="$compiler" -D CMAKE_PREFIX_PATH="$moved" >/dev/null
    cmake --build first/build >/dev/null
    first/build/first
    cmake -G Ninja -S renderer -B renderer/build -D CMAKE_CXX_COMPILER="$compiler" >/dev/null
    ;;

  pkg_config)
    need pkg-config
    make_consumer "$work/by_pkg_config"
    cd "$work/by_pkg_config"
    libraries=$(dirname "$(find "$moved" -name libvq_gas.so)")
    PKG_CONFIG_PATH=$libraries/pkgconfig
    export PKG_CONFIG_PATH
    pkg-config --exists "vq_gas >= 1 vq_gas < 2"
    # shellcheck disable=SC2046  # one argument a flag
    "$compiler" -std=c++20 -I. examples/08_curves.cpp $(pkg-config --cflags --libs vq_gas) "-Wl,-rpath,$libraries" -o curves
    check_loaded "$moved" curves
    ./curves
    ;;

  deb)
    rm -rf "$work/deb"
    need cpack dpkg-deb dpkg-shlibdeps lintian
    mkdir -p "$work/deb"
    cd "$work/deb"
    cpack --config "$build/CPackConfig.cmake" -B . >log 2>&1 || { cat log; fail "cpack failed"; }
    if grep -i warning log; then fail "cpack warns"; fi
    dpkg-deb -I ./libvq-gas1_*.deb | grep -E 'Package|Version|Depends'
    lintian --allow-root --fail-on error ./*.deb
    ;;

  deb_in_clean_root)
    need dpkg unshare
    ls "$work"/deb/*.deb >/dev/null 2>&1 || skip "there are no packages to install"
    make_consumer "$work/in_root"
    cp "$work"/deb/*.deb "$here/use_debs.sh" "$work/in_root"
    if [ "$(id -u)" -ne 0 ] || ! unshare --mount true; then
      skip "needs root and a mount namespace; docs/testing.md says how to run it by hand"
    fi
    unshare --mount sh "$here/enter_clean_root.sh" "$source" "$work/in_root" "$compiler"
    ;;

  *) fail "unknown check $check" ;;
esac
