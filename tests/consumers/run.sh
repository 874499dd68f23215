#!/usr/bin/env bash
# Builds and runs hosts of the library the ways a C++ project adopts one: against the installed
# package (find_package and pkg-config), from a checkout (add_subdirectory) and against the
# shared library; checks what the shared library exports and that no host gets our allocator.
# usage: run.sh BUILD_DIR SOURCE_DIR   (BUILD_DIR: a configured and built top-level build)
set -euo pipefail
build=$(realpath "$1")
source=$(realpath "$2")
here=$source/tests/consumers
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "$*"; }; }
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
version=$(sed -n 's/^#define TARNWICK_MARKDOWN_VERSION "\(.*\)"$/\1/p' "$source/include/tarnwick/version.hpp")
minor=${version%.*}

# A host prints the version it was compiled against, then parses 300-deep quotes and lists.
check_host() {
  local out
  out=$("$1") || fail "$1 failed"
  [ "$(head -1 <<<"$out")" = "tarnwick-markdown $version" ] || fail "$1 printed: $out"
  [ "$(grep -c '^hostile: ' <<<"$out")" = 2 ] || fail "$1 did not parse the hostile documents: $out"
  if ldd "$1" | grep -q mimalloc || nm "$1" 2>/dev/null | grep -q ' mi_malloc$'; then
    fail "$1 links mimalloc"
  fi
}

echo "== installed static library"
quietly cmake --install "$build" --prefix "$work/static"
[ "$("$work/static/bin/tarnwick-md" --version)" = "tarnwick-md $version" ] ||
  fail "tarnwick-md --version does not print 'tarnwick-md $version'"
for f in share/man/man1/tarnwick-md.1 share/bash-completion/completions/tarnwick-md \
  share/zsh/site-functions/_tarnwick-md; do
  [ -f "$work/static/$f" ] || fail "$f is not installed"
done

echo "== find_package host"
quietly cmake -S "$here/find_package" -B "$work/find" "${launcher[@]}" \
  -DCMAKE_PREFIX_PATH="$work/static" -DTARNWICK_WANTED_VERSION="$minor"
quietly cmake --build "$work/find"
check_host "$work/find/host"
for wanted in "${version%%.*}.$((${minor#*.} + 1))" "$((${version%%.*} + 1)).0"; do
  if cmake -S "$here/find_package" -B "$work/find-$wanted" -DCMAKE_PREFIX_PATH="$work/static" \
    -DTARNWICK_WANTED_VERSION="$wanted" >/dev/null 2>&1; then
    fail "find_package(tarnwick-markdown $wanted) accepted version $version"
  fi
done

echo "== pkg-config host, from a moved prefix"
mv "$work/static" "$work/moved"
flags=$(PKG_CONFIG_PATH="$work/moved/lib/pkgconfig" pkg-config --static --cflags --libs tarnwick-markdown)
quietly g++ -std=c++20 "$here/host.cpp" -o "$work/pkg-config-host" $flags
check_host "$work/pkg-config-host"

echo "== add_subdirectory host"
quietly cmake -S "$here/subdirectory" -B "$work/sub" "${launcher[@]}" -DTARNWICK_SOURCE_DIR="$source"
quietly cmake --build "$work/sub" -j2
check_host "$work/sub/host"
tests=$(ctest --test-dir "$work/sub" -N | sed -n 's/^Total Tests: //p')
[ "$tests" = 1 ] || fail "the add_subdirectory host's ctest lists $tests tests, not its one"
[ ! -e "$work/sub/tarnwick/src/cli/tarnwick-md" ] || fail "add_subdirectory built the command line"

echo "== shared library"
quietly cmake -S "$source" -B "$work/shared-build" "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release \
  -DBUILD_SHARED_LIBS=ON -DTARNWICK_CLI=OFF -DTARNWICK_TESTS=OFF -DTARNWICK_PYTHON=OFF \
  -DTARNWICK_INSTALL=ON
quietly cmake --build "$work/shared-build" -j2 --target tarnwick_markdown
quietly cmake --install "$work/shared-build" --prefix "$work/shared"
library="$work/shared/lib/libtarnwick-markdown.so.${version%%.*}"
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[ "$soname" = "libtarnwick-markdown.so.${version%%.*}" ] || fail "SONAME is '$soname'"
nm -D --defined-only "$library" | awk '{print $3}' | c++filt >"$work/exported"
foreign=$(grep -E '^(ts_|mi_|mi[-_]|pcre2_|yaml_)|fmt::|^_ZN3fmt' "$work/exported" || true)
[ -z "$foreign" ] || fail "the shared library exports symbols of its dependencies:
$(head -20 <<<"$foreign")"
# Besides the API, only the standard library's template code that the API's types instantiate
# (vague linkage, which every C++ library with std types in its interface exports).
outside=$(grep -v -E '^tarnwick|^_init$|^_fini$|[( ]tarnwick::|^((typeinfo|typeinfo name|vtable) for )?(std|__gnu_cxx)::' \
  "$work/exported" || true)
[ -z "$outside" ] || fail "the shared library exports symbols outside its API:
$(head -20 <<<"$outside")"
echo "the shared library exports $(grep -c -E '^tarnwick|tarnwick::' "$work/exported") symbols" \
  "of its API and $(grep -c -E '^(std|__gnu_cxx)::' "$work/exported") of std templates it instantiates"
quietly cmake -S "$here/find_package" -B "$work/find-shared" "${launcher[@]}" \
  -DCMAKE_PREFIX_PATH="$work/shared" -DTARNWICK_WANTED_VERSION="$minor"
quietly cmake --build "$work/find-shared"
check_host "$work/find-shared/host"
# ldd is read whole: with pipefail, grep -q stopping at the first match would fail the pipe.
grep -q "libtarnwick-markdown.so.${version%%.*}" <(ldd "$work/find-shared/host") ||
  fail "the shared host does not load the shared library"
echo "4 hosts passed"
