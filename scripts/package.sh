#!/usr/bin/env bash
# package.sh [FOLDER]: Debian packages in FOLDER (build-package/debian when left out): libzor1 (libraries), libzor1-fused (the
# kernel library of the fused arithmetic), libzor-dev (headers,
# CMake, pkg-config, pages), zor-tools (the program and its manual), libblas3-zor (libblas.so.3, an alternative that is chosen by
# hand). lintian looks at each; as root they are also installed, used and removed on this machine.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh packages
build=$PWD/build-package
folder=$(realpath -m "${1:-$build/debian}")
command -v ccache >/dev/null && export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
mkdir -p "$build" "$folder"
{ printf 'zor\n\n'; cat LICENSE; printf '\nThe libraries contain GMP, under the GNU Lesser General Public License, version 3:\n'
  printf '/usr/share/common-licenses/LGPL-3. Its source is the Debian source package gmp; integers.md in the package\n'
  printf 'libzor-dev tells how to link the libraries with another GMP.\n'; } >"$build/copyright"
version=$(sed -n 's/^project(zor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
printf 'zor (%s) unstable; urgency=medium\n\n  * CHANGELOG.md in libzor-dev tells the changes.\n\n -- The zor authors <zor@localhost>  %s\n' \
  "$version" "$(date -R)" | gzip -9n >"$build/changelog.gz"
cmake --preset release -B "$build" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$(gcc -print-multiarch)" \
  -DCMAKE_SKIP_RPATH=ON -DBUILD_TESTING=OFF -DZOR_SYSTEM_PACKAGE=ON >"$build/log" || { cat "$build/log"; exit 1; }
LD_LIBRARY_PATH=$build/lib cmake --build "$build" >"$build/log" || { tail -50 "$build/log"; exit 1; }
(cd "$build" && LD_LIBRARY_PATH=$build/lib cpack -B "$folder" >log) || { cat "$build/log"; exit 1; }
rm -rf "$folder/_CPack_Packages"
packages=("$folder"/*.deb)
printf '%s\n' "${packages[@]}"

# The libraries hold GMP on purpose, and nobody answers mail for the project.
lintian --allow-root --fail-on error --suppress-tags embedded-library,bogus-mail-host,bogus-mail-host-in-debian-changelog "${packages[@]}"

[ "$(id -u)" -eq 0 ] || { echo "not installed: that needs root"; exit 0; }
names=(libblas3-zor zor-tools libzor-dev libzor1-fused libzor1)
trap 'dpkg --purge "${names[@]}" >/dev/null 2>&1 || true' EXIT
dpkg -i "${packages[@]}" >"$build/log" 2>&1 || { cat "$build/log"; exit 1; }
scratch=$(mktemp -d)
read -ra flags < <(pkg-config --cflags --libs zor)
cc examples/matrix_product.c "${flags[@]}" -o "$scratch/product"
"$scratch/product" >/dev/null
/usr/bin/zor verify >/dev/null
/usr/bin/zor --arithmetic fused verify --family gemm >/dev/null
read -ra flags < <(pkg-config --cflags --libs zor-fused)
cc examples/matrix_product.c "${flags[@]}" -o "$scratch/fused_product"
"$scratch/fused_product" >/dev/null
[ -e /usr/share/man/man1/zor-matmul.1.gz ]
update-alternatives --query "libblas.so.3-$(gcc -print-multiarch)" | grep -q '^Alternative: .*/zor/blas/libblas.so.3$'
rm -rf "$scratch"
files=$(dpkg -L "${names[@]}")
trap - EXIT
dpkg --purge "${names[@]}" >"$build/log" 2>&1 || { cat "$build/log"; exit 1; }
left=$(while read -r file; do [ -d "$file" ] || ! [ -e "$file" ] || echo "$file"; done <<<"$files")
[ -z "$left" ] || { echo "left behind: $left"; exit 1; }
echo "installed, used and removed"
