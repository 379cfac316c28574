#!/usr/bin/env bash
# Installs what building and testing bvgeo needs: Debian packages, and the npm
# packages of the debug console's pages (built into the library) and of its
# browser tests, as their lockfiles pin them. Idempotent: when everything is
# present it does nothing and needs no network.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
packages=(
  build-essential cmake ninja-build pkg-config
  libsqlite3-dev libcurl4-openssl-dev nlohmann-json3-dev libgeographiclib-dev libexpat1-dev libgps-dev
  libcpp-httplib-dev libgtest-dev libgmock-dev libbenchmark-dev
  libgeos-dev
  gpsd gpsd-clients
  chromium
  python3 python3-pytest
  # Packaging and the API reference: Debian packages checked with lintian, pip
  # installs into a venv with Debian's setuptools, Doxygen.
  file lintian python3-venv python3-setuptools python3-wheel doxygen
  # Fuzzing the readers of outside bytes (libFuzzer).
  clang-14 libclang-rt-14-dev llvm-14
)
command -v npm >/dev/null || packages+=(nodejs npm)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}" >&2
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi

# npm ci again only when the lockfile is newer than what was installed from it.
for dir in "$root/src/debug/web" "$root/tests/e2e"; do
  if [ ! -f "$dir/node_modules/.package-lock.json" ] || [ "$dir/package-lock.json" -nt "$dir/node_modules/.package-lock.json" ]; then
    echo "npm ci in ${dir#"$root"/}" >&2
    npm ci --prefix "$dir" --no-audit --no-fund --loglevel=error
  fi
done
