#!/usr/bin/env bash
# Installs the Debian 12 packages that building, testing and benchmarking need.
# Safe to run again: packages already present are skipped, and apt is only
# touched when something is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git ccache clang-format
  clang libclang-rt-14-dev
  libxml2-dev libcurl4-openssl-dev libsnmp-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libcpp-httplib-dev
  cups-ipp-utils libcups2-dev cups-daemon lprint libmagic-dev
  snmpd snmp snmpsim dbus iproute2 procps curl prometheus-snmp-exporter
  gcovr
  help2man dpkg-dev time
  prometheus
  libavahi-client-dev avahi-daemon jq
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
