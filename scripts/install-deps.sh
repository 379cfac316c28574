#!/usr/bin/env bash
# Installs the Debian packages that building and testing bvgeo needs. Idempotent:
# when everything is present it does nothing and needs no network.
set -euo pipefail
packages=(
  build-essential cmake ninja-build pkg-config
  libsqlite3-dev libcurl4-openssl-dev nlohmann-json3-dev libgeographiclib-dev libexpat1-dev libgps-dev
  libcpp-httplib-dev libgtest-dev libgmock-dev libbenchmark-dev
  gpsd gpsd-clients
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
