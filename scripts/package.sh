#!/usr/bin/env bash
# package.sh [FOLDER]: makes Debian packages of this version in FOLDER (build-package/debian when left out): libzor1 with the
# libraries, libzor-dev with headers, CMake and pkg-config files, zor-tools with the program and its manual pages, and
# libblas3-zor with the BLAS for other programs, when the build has it. Each is checked by lintian.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh packages
folder=$(realpath -m "${1:-build-package/debian}")
build=build-package
triplet=$(gcc -print-multiarch)
cmake --preset release -B "$build" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$triplet" \
  -DZOR_BUILDS="baseline;v3;v4" -DBUILD_TESTING=OFF -DZOR_SYSTEM_PACKAGE=ON >/dev/null
cmake --build "$build"
version=$(sed -n 's/^project(zor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
all=$build/all
rm -rf "$all" "$folder"
mkdir -p "$folder"
DESTDIR=$(realpath -m "$all") cmake --install "$build" --strip >/dev/null
date=$(git log -1 --format=%aD 2>/dev/null || date -R)

# package NAME SECTION DEPENDS TEXT FILES...: moves files of the whole tree into a package of their own.
package() {
  local name=$1 section=$2 depends=$3 text=$4
  shift 4
  local root=$build/packages/$name
  rm -rf "$root"
  for file in "$@"; do
    mkdir -p "$root/$(dirname "$file")"
    mv "$all/$file" "$root/$(dirname "$file")/"
  done
  local doc=$root/usr/share/doc/$name
  mkdir -p "$doc" "$root/DEBIAN"
  { printf 'zor is under the MIT licence.\n\n'; cat LICENSE
    printf '\n\nThe libraries contain GMP, which is under the GNU Lesser General Public License, version 3:\n'
    printf '/usr/share/common-licenses/LGPL-3. Its source is the Debian package gmp; how to relink is told in\n'
    printf '/usr/share/doc/libzor-dev/integers.md.gz of the package libzor-dev.\n'; } >"$doc/copyright"
  printf 'zor (%s) unstable; urgency=medium\n\n  * See the changes of the project.\n\n -- The zor authors <zor@localhost>  %s\n' \
    "$version" "$date" | gzip -9n >"$doc/changelog.gz"
  find "$root" -path "$root/DEBIAN" -prune -o -type d -exec chmod 755 {} +
  cat >"$root/DEBIAN/control" <<CONTROL
Package: $name
Version: $version
Architecture: amd64
Maintainer: The zor authors <zor@localhost>
Section: $section
Priority: optional
Depends: $depends
Installed-Size: $(du -sk "$root" | cut -f1)
Description: $text
CONTROL
  (cd "$root" && find usr -type f -print0 | sort -z | xargs -0 md5sum) >"$root/DEBIAN/md5sums"
}

libc="libc6 (>= 2.36)"
lib=usr/lib/$triplet
hwcaps=("$lib/glibc-hwcaps/x86-64-v3/libzor_kern.so.1" "$lib/glibc-hwcaps/x86-64-v4/libzor_kern.so.1")
about=" The same bits on every x86-64 processor and for every number of threads,
 at the speed of the processor at hand: dense and sparse linear algebra,
 Fourier transforms, multi-precision integers."
package libzor1 libs "$libc" "numerical kernels with the same bits everywhere
$about" "$lib"/libzor_kern.so.1* "$lib"/libzor_core.so.1* "${hwcaps[@]}"
