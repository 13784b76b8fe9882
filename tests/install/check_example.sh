#!/usr/bin/env bash
# The README's example, compiled as written against an installed tree, and the
# installed tool, both run against the bench's real printer: what a user who
# follows the README gets.
#   check_example.sh BUILD_DIR SOURCE_DIR PRINTER_SIM
set -euo pipefail
build=$1
source=$2
sim=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
prefix=$work/prefix
for file in bin/norvane bin/norvane-printer-sim share/norvane/datamaps/printer-status-ipp.xml \
            share/norvane/datamaps/printer-supplies-snmp.xml share/norvane/bench/bench.sh; do
  [[ -e $prefix/$file ]] || { echo "not installed: $file"; exit 1; }
done
if command -v help2man >/dev/null; then
  [[ -e $prefix/share/man/man1/norvane.1 && -e $prefix/share/man/man1/norvane-collect.1 ]] ||
    { echo "man pages not installed"; exit 1; }
fi

# The example is the README's only C++ block, taken verbatim.
sed -n '/^```cpp$/,/^```$/{/^```/d;p}' "$source/README.md" >"$work/host.cpp"
grep -q 'CreateDataCollectionFromFile' "$work/host.cpp" || { echo "no example in README.md"; exit 1; }
lib=$(dirname "$(find "$prefix" -name libnorvane.so | head -n1)")
export PKG_CONFIG_PATH=$lib/pkgconfig
# shellcheck disable=SC2046
g++ -std=c++20 -Wall -Wextra -Werror -o "$work/host" "$work/host.cpp" $(pkg-config --cflags --libs norvane-host norvane)

cat >"$work/run.sh" <<RUN
set -e
LD_LIBRARY_PATH=$lib "$work/host" localhost "$prefix/share/norvane/datamaps/printer-status-ipp.xml" | tee "$work/example.out"
grep -q '^ipp:State = idle$' "$work/example.out"
"$prefix/bin/norvane" --json collect localhost --no-cache ipp:State | grep -q '"value":"idle"'
RUN
status=0
NORVANE_REGISTRY_DIR=$work/registry bash "$prefix/share/norvane/bench/bench.sh" --sim "$sim" \
  --fixtures "$prefix/share/norvane/printer-sim" -- bash "$work/run.sh" || status=$?
[[ $status == 0 ]] && echo "README example and installed tool work"
exit $status
