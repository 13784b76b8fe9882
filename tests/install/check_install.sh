#!/usr/bin/env bash
# Installs the build into a scratch prefix and checks what a host sees there:
# the exported symbols, a program built with pkg-config, and one built with
# find_package(Norvane).
set -euo pipefail
build=$1
here=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
lib=$(ls "$work"/prefix/lib*/libnorvane.so 2>/dev/null | head -n1 || true)
[ -z "$lib" ] && lib=$(find "$work/prefix" -name libnorvane.so | head -n1)
[ -n "$lib" ] || { echo "libnorvane.so not installed"; exit 1; }

# Every flat function under its plain name.
symbols=$(nm -D --defined-only "$lib" | awk '{print $3}')
missing=0
for fn in CreateDataCollectionFromFile CreateDataCollectionFromXML CreateDataCollectionFromDOM \
          CreateDataCollectionFromDataMapSpecsCollection GetValueFromSingleRequest \
          SetValueFromSingleRequest CreateRegCacheProvider CreatePrintDataCacheProvider \
          CreateIPPProvider CreateIPPPrintProvider CreateSecureIPPPrintProvider CreateIPPRequest \
          CreateIPPResponse CreateVEXAProvider CreateOIDProvider CreateWSProvider \
          GetDeviceLocaleStrings GetLastError SetLastError VariantInit VariantClear VariantCopy \
          SysAllocString SysAllocStringLen SysFreeString SysStringLen; do
  if ! grep -qx "$fn" <<<"$symbols"; then echo "not exported: $fn"; missing=1; fi
done
# Hosts test the providers' interfaces at run time, across the two libraries.
for ti in _ZTIN7Norvane12IXMLProviderE _ZTIN7Norvane12VEXAProviderE _ZTIN7Norvane14PLSXMLProviderE \
          _ZTIN7Norvane10WSProviderE _ZTIN7Norvane11OIDProviderE _ZTIN7Norvane11IPPProviderE; do
  if ! grep -qx "$ti" <<<"$symbols"; then echo "typeinfo not exported: $ti"; missing=1; fi
done
# Nothing internal: every other exported name belongs to an exported class.
stray=$(grep -v -E '^(_ZN7Norvane|_ZNK7Norvane|_ZT[ISVT]N7Norvane|_ZN7QxUtils11CDisposable|_ZNK7QxUtils11CDisposable|_ZT[ISVT]N7QxUtils11CDisposable|_ZN7QxUtils19LiveDisposableCount|_ZN7QxUtils22IsRegisteredDisposable|_ZN11IDisposable|_ZT[ISV]11IDisposable|_ZN15IDisposableImpl|_ZT[ISVT]15IDisposableImpl|NORVANE_[0-9]|[A-Z][A-Za-z]+$)' <<<"$symbols" || true)
if [ -n "$stray" ]; then echo "internal symbols exported:"; echo "$stray" | head -20; missing=1; fi
[ $missing -eq 0 ] || exit 1

export PKG_CONFIG_PATH="$(dirname "$lib")/pkgconfig"
# shellcheck disable=SC2046
g++ -Wall -Wextra -Werror -o "$work/consumer_pc" "$here/consumer.cpp" $(pkg-config --cflags --libs norvane)
LD_LIBRARY_PATH="$(dirname "$lib")" "$work/consumer_pc"

cmake -S "$here" -B "$work/consumer_build" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer_build" >/dev/null
LD_LIBRARY_PATH="$(dirname "$lib")" "$work/consumer_build/consumer"
echo "install check passed"
