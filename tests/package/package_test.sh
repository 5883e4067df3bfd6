#!/usr/bin/env bash
# The library as its users get it: installed, packaged, built against.
#
#   package_test.sh MODE BUILD_DIR SOURCE_DIR
#
# MODE is one of
#   install      cmake --install into a temporary prefix; checks what lies
#                there (the versioned library and its links, every public
#                header and nothing else, the CMake and pkg-config packages,
#                the jar, kpz with its manual page, server program, sample and JSON key
#                reference); runs the installed kpz and kpz serve; builds and runs the
#                consumer (tests/package/consumer) with find_package; moves
#                the whole prefix and builds the consumer again from there.
#   pkg-config   installs likewise and builds the consumer with
#                `pkg-config --cflags --libs kpzinterface` alone, then by
#                README.md's lines for a prefix outside the system's (read
#                out of README.md, only the prefix replaced): the program
#                must find the library at run time by its rpath.
#   subdir       builds the consumer with the library's sources added as a
#                subdirectory (tests/package/subdir).
#   debian       makes the Debian packages with CPack, lists them with
#                dpkg-deb, checks each package's dependencies against the
#                libraries its binaries need, unpacks all three into a
#                temporary root and builds the consumer against that root
#                through CMake and pkg-config. The library and its packages
#                must lie in the multiarch directory, usr/lib/<triplet>.
#
# The consumer must print the preview size and the model name that the build
# tree's own kpz reads from the bundled sample. Every check that fails says
# what it expected; the first one ends the test.
set -euo pipefail

mode=$1
build=$(cd "$2" && pwd)
src=$(cd "$3" && pwd)
sample=$src/samples/sample.kpz
jobs=$(nproc 2>/dev/null || echo 2)

work=$(mktemp -d /tmp/kpz-package-XXXXXX)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAIL: $*" >&2
  exit 1
}
step() { echo "--- $*"; }

# The expected consumer output, from the build tree's kpz (JSON Lines).
json=$("$build/bin/kpz" info --json "$sample" 2>/dev/null)
size=$(sed -n 's/.*"screennail":{[^}]*"size":\([0-9]*\).*/\1/p' <<<"$json")
model=$(sed -n 's/.*"model":{"result":0,"value":"\([^"]*\)".*/\1/p' <<<"$json")
[ -n "$size" ] && [ -n "$model" ] || fail "kpz info --json gave no preview size or model: $json"
expected=$(printf 'screennail: %s bytes\nmodel: %s' "$size" "$model")

# run_consumer BINARY [env...]: runs it on the sample and compares its output.
run_consumer() {
  local bin=$1
  shift
  local out
  out=$(env "$@" "$bin" "$sample" 2>"$work/consumer.err") ||
    fail "$bin exited with $? ($(cat "$work/consumer.err"))"
  [ "$out" = "$expected" ] || fail "$bin printed
$out
instead of
$expected"
  echo "$out"
}

# build_cmake_consumer SOURCE BUILD [cmake args...]
build_cmake_consumer() {
  local csrc=$1 cbuild=$2
  shift 2
  cmake -S "$csrc" -B "$cbuild" -DCMAKE_BUILD_TYPE=Release "$@" >"$work/consumer-configure.log" 2>&1 ||
    { cat "$work/consumer-configure.log" >&2; fail "the consumer did not configure"; }
  cmake --build "$cbuild" -j "$jobs" >"$work/consumer-build.log" 2>&1 ||
    { cat "$work/consumer-build.log" >&2; fail "the consumer did not build"; }
}

# build_pkgconfig_consumer OUT [env...]: compiles the consumer with the flags
# pkg-config gives, and nothing else; the library directory becomes its rpath.
build_pkgconfig_consumer() {
  local out=$1
  shift
  local cflags libs libdir
  cflags=$(env "$@" pkg-config --cflags kpzinterface) || fail "pkg-config --cflags kpzinterface failed"
  libs=$(env "$@" pkg-config --libs kpzinterface) || fail "pkg-config --libs kpzinterface failed"
  libdir=$(env "$@" pkg-config --variable=libdir kpzinterface)
  echo "pkg-config: $cflags $libs"
  # shellcheck disable=SC2086
  c++ -std=c++17 -O1 -o "$out" "$src/tests/package/consumer/kpz_consumer.cpp" $cflags $libs \
    "-Wl,-rpath,$libdir" || fail "the consumer did not compile with pkg-config's flags"
}

install_into() {
  cmake --install "$build" --prefix "$1" >"$work/install.log" 2>&1 ||
    { cat "$work/install.log" >&2; fail "cmake --install failed"; }
}

# Debian's multiarch triplet of this machine (x86_64-linux-gnu).
multiarch() {
  dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || c++ -print-multiarch
}

# The library directory the build tree installs into, relative to the prefix
# (KPZ_INSTALL_LIBDIR): on Debian the multiarch one under every prefix.
configured_libdir() {
  local dir
  dir=$(sed -n 's/^KPZ_INSTALL_LIBDIR:[A-Z]*=//p' "$build/CMakeCache.txt")
  [ -n "$dir" ] || fail "no KPZ_INSTALL_LIBDIR in $build/CMakeCache.txt"
  if [ -f /etc/debian_version ] && [ "$dir" != "lib/$(multiarch)" ]; then
    fail "KPZ_INSTALL_LIBDIR is '$dir' on Debian, not the multiarch lib/$(multiarch)"
  fi
  echo "$dir"
}

# The library directory under a prefix (lib, or lib/<multiarch>).
libdir_of() {
  local dir
  dir=$(dirname "$(find "$1" -name 'libKpzInterface.so.1' -print -quit)")
  [ -n "$dir" ] && [ "$dir" != "." ] || fail "no libKpzInterface.so.1 under $1"
  echo "$dir"
}

# check_layout PREFIX LIBDIR: what lies under PREFIX, the library and its
# CMake and pkg-config packages in PREFIX/LIBDIR and nowhere else.
check_layout() {
  local prefix=$1 want=$2 lib
  lib=$(libdir_of "$prefix")
  step "layout of $prefix"
  [ "$lib" = "$prefix/$want" ] || fail "the library lies in ${lib#"$prefix"/}, not in $want"
  [ "$(find "$prefix" -name 'libKpzInterface.so*' | grep -vc "^$prefix/$want/")" = 0 ] ||
    fail "a libKpzInterface.so* outside $want: $(find "$prefix" -name 'libKpzInterface.so*')"
  echo "ok: the library in $want"
  local real
  real=$(readlink -f "$lib/libKpzInterface.so")
  [ -L "$lib/libKpzInterface.so" ] && [ -L "$lib/libKpzInterface.so.1" ] ||
    fail "libKpzInterface.so and .so.1 must be links"
  local version
  version=$(tr -d '[:space:]' <"$src/VERSION")  # the project's one version
  [ "$(basename "$real")" = "libKpzInterface.so.$version" ] ||
    fail "the links lead to $real, not libKpzInterface.so.$version"
  readelf -d "$real" | grep -q 'SONAME.*\[libKpzInterface.so.1\]' || fail "SONAME is not libKpzInterface.so.1"
  # Every header of jni/util and jni/raw, under include/KpzInterface, and no other file.
  (cd "$src/jni" && find util raw -name '*.h' | sort) >"$work/headers.want"
  (cd "$prefix/include/KpzInterface" && find . -type f | sed 's|^\./||' | sort) >"$work/headers.got"
  diff -u "$work/headers.want" "$work/headers.got" || fail "installed headers differ from the public ones"
  for f in "$lib/cmake/KpzInterface/KpzInterfaceConfig.cmake" \
           "$lib/cmake/KpzInterface/KpzInterfaceConfigVersion.cmake" \
           "$lib/pkgconfig/kpzinterface.pc" \
           "$prefix/bin/kpz" "$prefix/libexec/kpz/kpz-serve" "$prefix/share/kpz/sample.kpz" \
           "$prefix/share/doc/kpz/KPZ-JSON.md"; do
    [ -f "$f" ] || fail "missing: $f"
  done
  if [ -f "$build/lib/kpzinterface.jar" ]; then
    [ -f "$prefix/share/java/kpzinterface.jar" ] || fail "missing: share/java/kpzinterface.jar"
  fi
  if [ -f "$build/man/kpz.1.gz" ]; then
    zcat "$prefix/share/man/man1/kpz.1.gz" | grep -q '^\.TH KPZ "1"' || fail "no manual page for kpz"
  fi
  if find "$prefix" -name 'KpzFileBuilder*' -o -name 'FaultInjection*' -o -name '*.a' | grep -q .; then
    fail "test support or static layers were installed"
  fi
  # The installed kpz runs on its own, on the installed sample.
  local version
  version=$("$prefix/bin/kpz" --version)
  [ "$version" = "kpz $(sed -n 's/^Version: //p' "$lib/pkgconfig/kpzinterface.pc")" ] ||
    fail "kpz --version printed '$version'"
  "$prefix/bin/kpz" info 2>/dev/null | head -1 | grep -qx "$prefix/share/kpz/sample.kpz" ||
    fail "the installed kpz does not read the installed sample"
  # kpz serve runs the installed server program (found from kpz's own path):
  # its first line is read through a FIFO, then it is stopped by its pid.
  mkfifo "$work/serve.out"
  "$prefix/bin/kpz" serve --listen 127.0.0.1:0 "$prefix/share/kpz" >"$work/serve.out" 2>"$work/serve.err" &
  local pid=$! line=""
  line=$(timeout 60 head -1 "$work/serve.out") || true
  kill "$pid" 2>/dev/null || true
  wait "$pid" || true
  case "$line" in
    "kpz: serving $prefix/share/kpz on http://127.0.0.1:"*) ;;
    *) fail "the installed kpz serve printed '$line' ($(cat "$work/serve.err"))" ;;
  esac
  echo "ok: $(cd "$prefix" && find . -type f | wc -l) files"
}

case "$mode" in
  install)
    prefix=$work/prefix
    step "cmake --install --prefix $prefix"
    libdir=$(configured_libdir)
    install_into "$prefix"
    check_layout "$prefix" "$libdir"
    step "consumer with find_package(KpzInterface)"
    build_cmake_consumer "$src/tests/package/consumer" "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix"
    run_consumer "$work/consumer/kpz_consumer"
    step "a caller asking for version 2 is refused, 1.0 is taken"
    for want in 2 1.0; do
      mkdir -p "$work/v$want"
      printf 'cmake_minimum_required(VERSION 3.25)\nproject(V LANGUAGES CXX)\nfind_package(KpzInterface %s CONFIG REQUIRED)\n' \
        "$want" >"$work/v$want/CMakeLists.txt"
      if cmake -S "$work/v$want" -B "$work/v$want/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null 2>&1; then
        [ "$want" = 1.0 ] || fail "find_package(KpzInterface $want) accepted version 1"
      else
        [ "$want" = 2 ] || fail "find_package(KpzInterface $want) refused version 1"
      fi
    done
    step "the prefix moved elsewhere"
    mv "$prefix" "$work/moved"
    build_cmake_consumer "$src/tests/package/consumer" "$work/consumer-moved" -DCMAKE_PREFIX_PATH="$work/moved"
    run_consumer "$work/consumer-moved/kpz_consumer"
    grep -q "$work/moved" "$work/consumer-moved/CMakeCache.txt" || fail "the moved package was not the one found"
    ;;
  pkg-config)
    prefix=$work/prefix
    install_into "$prefix"
    lib=$(libdir_of "$prefix")
    step "consumer with pkg-config"
    build_pkgconfig_consumer "$work/kpz_consumer" PKG_CONFIG_PATH="$lib/pkgconfig"
    run_consumer "$work/kpz_consumer"
    step "README.md's lines for a program built against a prefix outside the system's"
    # The shell block that builds app.cpp with pkg-config and an rpath, run
    # as written in a directory holding app.cpp (the consumer) and a.kpz,
    # /opt/kpz replaced by this prefix; no LD_LIBRARY_PATH.
    block=$(awk '/^```sh$/ {inb=1; b=""; next}
                 /^```$/ {if (inb && b ~ /-Wl,-rpath,\$\(pkg-config --variable=libdir kpzinterface\)/) {printf "%s", b; exit}
                          inb=0; next}
                 inb {b = b $0 "\n"}' "$src/README.md")
    [ -n "$block" ] || fail "README.md has no shell block building app.cpp with pkg-config and an rpath"
    grep -q '/opt/kpz' <<<"$block" || fail "README.md's pkg-config block names no /opt/kpz: $block"
    printf '%s\n' "$block" | sed 's/^/  /'
    mkdir -p "$work/readme"
    cp "$src/tests/package/consumer/kpz_consumer.cpp" "$work/readme/app.cpp"
    cp "$sample" "$work/readme/a.kpz"
    out=$(cd "$work/readme" && env -u LD_LIBRARY_PATH -u PKG_CONFIG_PATH \
            bash -euo pipefail -c "${block//\/opt\/kpz/$prefix}" 2>"$work/readme.err") ||
      fail "README.md's pkg-config lines failed: $(cat "$work/readme.err")"
    [ "$out" = "$expected" ] || fail "README.md's ./app printed
$out
instead of
$expected"
    echo "$out"
    # Its rpath (pkg-config's libdir, as the .pc file spells it) is the
    # prefix's library directory.
    rpath=$(readelf -d "$work/readme/app" | sed -n 's/.*(R[UN]*PATH).*\[\(.*\)\]/\1/p')
    [ -n "$rpath" ] && [ "$(readlink -f "$rpath")" = "$(readlink -f "$lib")" ] ||
      fail "README.md's app carries the rpath '$rpath', not $lib"
    ;;
  subdir)
    step "consumer with add_subdirectory($src)"
    build_cmake_consumer "$src/tests/package/subdir" "$work/subdir" -DKPZ_SOURCE_DIR="$src"
    run_consumer "$work/subdir/kpz_consumer"
    ;;
  debian)
    step "cpack -G DEB"
    rm -rf "$build/packages"
    (cd "$build" && cpack -G DEB) >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log" >&2; fail "cpack failed"; }
    grep -i 'warning' "$work/cpack.log" && fail "cpack warned (above)"
    version=$(sed -n 's/^Version: //p' "$build/package/kpzinterface.pc")
    root=$work/root
    mkdir -p "$root"
    for pkg in "libkpzinterface1" "libkpzinterface-dev" "kpz"; do
      deb=$(find "$build/packages" -maxdepth 1 -name "${pkg}_${version}-1_*.deb" -print -quit)
      [ -n "$deb" ] || fail "no package $pkg in $build/packages ($(ls "$build/packages"))"
      step "$(basename "$deb")"
      dpkg-deb -f "$deb" Package Version Architecture Depends
      dpkg-deb -c "$deb" | awk '{print "  " $6 ($7 ? " " $7 " " $8 : "")}'
      depends=$(dpkg-deb -f "$deb" Depends)
      mkdir -p "$work/one/$pkg"
      dpkg-deb -x "$deb" "$work/one/$pkg"
      dpkg-deb -x "$deb" "$root"
      # Each library a binary of the package needs must come from a package
      # it depends on (or from itself).
      while IFS= read -r elf; do
        while IFS= read -r needed; do
          if find "$work/one/$pkg" -name "$needed" | grep -q .; then continue; fi
          path=$(env LD_LIBRARY_PATH="$(dirname "$(find "$root" -name libKpzInterface.so.1 -print -quit)")" \
                   ldd "$elf" | awk -v n="$needed" '
                   $2 == "=>" && $1 == n {print $3}
                   $2 != "=>" && $1 ~ ("/" n "$") {print $1}')
          [ -n "$path" ] || fail "$pkg: $elf needs $needed, which is not found on this machine"
          if [[ "$path" == "$root"/* ]]; then
            owner=libkpzinterface1
          else
            owner=$(dpkg -S "$path" 2>/dev/null || dpkg -S "$(readlink -f "$path")" 2>/dev/null || true)
            owner=${owner%%:*}
          fi
          [ -n "$owner" ] || fail "$pkg: no package owns $path"
          # The package names of Depends, without versions; alternatives count.
          sed 's/([^)]*)//g; s/|/,/g' <<<"$depends" | tr ',' '\n' | awk 'NF {print $1}' |
            grep -Fqx "$owner" ||
            fail "$pkg: $(basename "$elf") needs $needed from $owner, but Depends is '$depends'"
          echo "  $(basename "$elf") needs $needed: from $owner, a dependency"
        done < <(readelf -d "$elf" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
      done < <(find "$work/one/$pkg" -type f -exec sh -c 'head -c 4 "$1" | grep -q "ELF"' _ {} \; -print)
      case "$pkg" in
        libkpzinterface-dev)
          grep -Fq "libkpzinterface1 (= $version-1)" <<<"$depends" ||
            fail "libkpzinterface-dev must depend on libkpzinterface1 (= $version-1), not '$depends'"
          ;;
        libkpzinterface1)
          dpkg-deb -I "$deb" shlibs | grep -q "^libKpzInterface 1 libkpzinterface1" ||
            fail "libkpzinterface1 carries no shlibs entry"
          ;;
      esac
    done
    check_layout "$root/usr" "lib/$(multiarch)"
    step "consumer against the unpacked packages: find_package"
    build_cmake_consumer "$src/tests/package/consumer" "$work/consumer" -DCMAKE_PREFIX_PATH="$root/usr"
    run_consumer "$work/consumer/kpz_consumer"
    step "consumer against the unpacked packages: pkg-config"
    lib=$(libdir_of "$root/usr")
    build_pkgconfig_consumer "$work/kpz_consumer" PKG_CONFIG_PATH="$lib/pkgconfig"
    run_consumer "$work/kpz_consumer"
    ;;
  *)
    fail "unknown mode '$mode' (install, pkg-config, subdir, debian)"
    ;;
esac
echo "ok: $mode"
