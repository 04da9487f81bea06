#!/usr/bin/env bash
# Builds the libraries of the Windows programs, static, from Debian's source packages, and prints the
# folder that they are in. It lies outside every checkout, ~/.cache/tolven/windows/KEY, where KEY is
# made of this script and the toolchain file; one that is there is used as it is. About 3 minutes.
set -euo pipefail
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
toolchain=$here/windows-toolchain.cmake
triplet=x86_64-w64-mingw32
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tolven/windows
key=$(cat "$here/win-deps.sh" "$toolchain" <($triplet-gcc-posix -dumpfullversion) | sha256sum)
prefix=$cache/${key:0:20}
jobs=$(nproc)
windows_version=-D_WIN32_WINNT=0x0601

mkdir -p "$cache"
exec 9>"$cache/lock"
flock 9
if [[ -e $prefix ]]; then
  echo "$prefix"
  exit
fi
echo "building the Windows libraries into $prefix" >&2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
out=$cache/new
rm -rf "$out"
mkdir -p "$out/lib" "$out/include"
cd "$work"

# Source packages, by lists of our own, so that the machine's are left alone. What is on the mirror
# moves with security updates: fetch_source takes the first version that is complete.
configure_apt() {
  mkdir -p apt/lists/partial apt/archives/partial
  local line='signed-by=/usr/share/keyrings/debian-archive-keyring.gpg'
  cat >apt/sources.list <<LIST
deb-src [$line] http://deb.debian.org/debian bookworm main
deb-src [$line] http://deb.debian.org/debian bookworm-updates main
deb-src [$line] http://deb.debian.org/debian-security bookworm-security main
LIST
  apt=(apt-get -qq -o "Dir::Etc::SourceList=$work/apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
    -o "Dir::State::Lists=$work/apt/lists" -o "Dir::Cache=$work/apt" -o APT::Sandbox::User=root
    -o Acquire::Retries=3)
  "${apt[@]}" update
}

# fetch_source PACKAGE..: unpacks the original source, without Debian's patches.
fetch_source() {
  local package
  for package in "$@"; do
    "${apt[@]}" source --download-only "$package" >/dev/null 2>&1 || true
    compgen -G "${package}_*.orig.tar.*z*" >/dev/null ||
      "${apt[@]}" source --download-only "$package/bookworm" >/dev/null
    tar xf "$(compgen -G "${package}_*.orig.tar.*z*" | grep -v '\.asc$' | tail -n 1)"
  done
}

# Debian's patches count here: they mend what was found since the release.
build_sqlite() {
  "${apt[@]}" source sqlite3 >/dev/null
  mkdir sqlite
  cd sqlite
  # sqlite3.c is put together by native helpers; only the result is cross-compiled.
  ../sqlite3-3*/configure --disable-tcl --disable-readline --disable-shared
  make -s sqlite3.c sqlite3.h
  $triplet-gcc-posix -O2 -DSQLITE_THREADSAFE=1 $windows_version -c sqlite3.c
  $triplet-ar qcs "$out/lib/libsqlite3.a" sqlite3.o
  cp sqlite3.h sqlite3ext.h "$out/include/"
}

# The common library alone. Its tables for case and normal forms are compiled in, so the data library
# may be the stub.
build_icu() {
  cd icu/source
  printf '%s\n' common/*.cpp stubdata/stubdata.cpp | xargs -P "$jobs" -I{} sh -c "
    $triplet-g++-posix -O2 -std=c++17 -w -DU_STATIC_IMPLEMENTATION -DU_COMMON_IMPLEMENTATION \
      -DU_ATTRIBUTE_DEPRECATED= $windows_version -Icommon -Istubdata -c {} \
      -o \"\$(basename {} .cpp).o\" || exit 255"
  $triplet-ar qcs "$out/lib/libicudata.a" stubdata.o
  rm stubdata.o
  $triplet-ar qcs "$out/lib/libicuuc.a" ./*.o
  cp -r common/unicode "$out/include/"
}

# no-module has the legacy provider inside libcrypto; no-autoload-config keeps OpenSSL from reading a
# configuration in a folder that any user may make. The ciphers left out are in no use here.
build_openssl() {
  cd openssl-*/
  CC=gcc-posix CXX=g++-posix ./Configure mingw64 --cross-compile-prefix=$triplet- --prefix=/ \
    --libdir=lib --openssldir=C:/nonexistent no-shared no-module no-tests no-engine no-dso \
    no-autoload-config no-cmp no-ts no-srp no-gost no-aria no-sm2 no-sm3 no-sm4 no-idea no-seed \
    no-camellia no-whirlpool -O2 $windows_version
  make -s -j"$jobs" build_generated
  make -s -j"$jobs" libcrypto.a libssl.a
  cp libcrypto.a libssl.a "$out/lib/"
  cp -r include/openssl "$out/include/"
}

# build_cmake FOLDER [OPTION..]
build_cmake() {
  local source=$1
  shift
  WIN_DEPS_PREFIX=$out cmake -S "$source" -B "build-$source" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$out" \
    -DCMAKE_INSTALL_LIBDIR=lib -DBUILD_SHARED_LIBS=OFF "$@"
  cmake --build "build-$source" --target install
}

# step NAME COMMAND..: its output shows when it fails.
step() {
  local name=$1 status
  shift
  # Not as a condition: that would let the command go on behind its first failure.
  set +e
  (
    set -e
    "$@"
  ) >"$name.log" 2>&1
  status=$?
  set -e
  ((status == 0)) && return
  echo "win-deps.sh: $name failed" >&2
  tail -n 40 "$name.log" >&2
  return "$status"
}

configure_apt
fetch_source icu libjsoncpp googletest openssl fmtlib cli11
step sqlite build_sqlite &
sqlite=$!
step icu build_icu
step jsoncpp build_cmake jsoncpp-* -DBUILD_OBJECT_LIBS=OFF -DJSONCPP_WITH_TESTS=OFF \
  -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF
step googletest build_cmake googletest-*
step fmt build_cmake fmtlib-* -DFMT_TEST=OFF -DFMT_DOC=OFF
step openssl build_openssl
cp -r CLI11-*/include/CLI "$out/include/"
wait $sqlite
mv "$out" "$prefix"
echo "$prefix"
