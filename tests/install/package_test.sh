#!/bin/bash
# Makes the Debian packages and looks into them; where packages of the other architecture have been
# made of the same sources, installs both side by side: package_test.sh SOURCE-FOLDER BUILD-FOLDER
set -euo pipefail
source_dir=$1 build_dir=$2
fail() { echo "$*" >&2; exit 1; }

cd "$build_dir"
rm -f ./*.deb packages.stamp
cpack >/dev/null
(cd "$source_dir" && find CMakeLists.txt cmake include packaging src tools -type f -print0 |
  sort -z | xargs -0 sha256sum | sha256sum) >packages.stamp
architecture=$(dpkg --print-architecture)
runtime=$(echo libnorvaks1_*_"$architecture".deb)
dev=$(echo libnorvaks-dev_*_"$architecture".deb)

# field PACKAGE NAME VALUE
field() {
  local have
  have=$(dpkg-deb -f "$1" "$2")
  [ "$have" = "$3" ] || fail "$1: field $2 is '$have', not '$3'"
}
for package in "$runtime" "$dev"; do
  field "$package" Multi-Arch same
  field "$package" Architecture "$architecture"
done
version=$(dpkg-deb -f "$runtime" Version)
field "$dev" Depends "libnorvaks1 (= $version)"
for library in libc6 libtinfo6; do
  dpkg-deb -f "$runtime" Depends | tr , '\n' | grep -q "^ *$library (>= " ||
    fail "$runtime does not depend on $library"
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dpkg-deb -e "$runtime" "$work/control"
grep -qx "libnorvaks 1 libnorvaks1 (>= $version)" "$work/control/shlibs" || fail "no shlibs entry"

# Both packages of each architecture in one empty system: dpkg refuses what may not stand together,
# and files of one name with different contents.
mkdir -p "$work/root/var/lib/dpkg/"{info,updates,triggers}
touch "$work/root/var/lib/dpkg/"{status,available}
printf 'amd64\ni386\n' >"$work/root/var/lib/dpkg/arch"
packages=("$build_dir"/*.deb)
for other in "$build_dir"/../{x86_64,i386}; do
  [ "$other" -ef "$build_dir" ] || ! cmp -s "$other/packages.stamp" packages.stamp ||
    packages+=("$other"/*.deb)
done
dpkg --root="$work/root" --log=/dev/null --force-depends --unpack "${packages[@]}" >/dev/null
unpacked=$(dpkg-query --admindir="$work/root/var/lib/dpkg" -W -f '${db:Status-Status}\n' | grep -cx unpacked)
[ "$unpacked" = ${#packages[@]} ] || fail "$unpacked of ${#packages[@]} packages unpacked"
echo "unpacked side by side: ${packages[*]##*/}"
