#!/usr/bin/env bash
# Checks the README's two commands on a fresh Debian 12 machine: builds a minimal
# Debian 12 root with debootstrap, copies a clean clone of this repository's
# current branch into it, and runs scripts/demo.sh and scripts/test.sh there as
# root, as a new user of a fresh machine would. It takes long (apt, a full build
# without a compiler cache, the whole suite), so it is run by hand, not in CI.
#
#   sudo scripts/fresh-debian12-check.sh [--reuse] [WORK_DIR]   (default /var/tmp/bvgeo-fresh-debian12)
#
# --reuse keeps a root made by an earlier run (its packages stay installed) and
# only copies a new clone in. The certificate authorities this machine adds to its
# own (/usr/local/share/ca-certificates) are added in the root too, so it reaches
# the package registries the way this machine does.
#
# The Debian mirror is the one this machine's apt uses. WORK_DIR is made anew;
# the output of both commands goes to WORK_DIR/demo.log and WORK_DIR/test.log,
# and the last lines of each are printed at the end.
set -euo pipefail
[ "$(id -u)" -eq 0 ] || { echo "run as root (debootstrap and chroot need it)" >&2; exit 2; }
repo="$(cd "$(dirname "$0")/.." && pwd)"
reuse=0
if [ "${1:-}" = "--reuse" ]; then reuse=1; shift; fi
work="${1:-/var/tmp/bvgeo-fresh-debian12}"
root="$work/root"

mirror="$(awk '/^URIs:/ { print $2; exit }' /etc/apt/sources.list.d/debian.sources 2>/dev/null || true)"
[ -n "$mirror" ] || mirror="$(awk '$1 == "deb" { print $2; exit }' /etc/apt/sources.list 2>/dev/null || true)"
[ -n "$mirror" ] || { echo "no Debian mirror found in this machine's apt sources" >&2; exit 2; }
command -v debootstrap >/dev/null || apt-get install -y --no-install-recommends debootstrap

mounted=()
cleanup() {
  local i
  for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do umount -l "${mounted[$i]}" 2>/dev/null || true; done
}
trap cleanup EXIT
mountin() { mkdir -p "$root$2"; mount "${@:3}" "$1" "$root$2"; mounted+=("$root$2"); }

if [ "$reuse" -eq 0 ] || [ ! -x "$root/bin/bash" ]; then
  rm -rf "$work"
  mkdir -p "$work"
  echo "== debootstrap bookworm (minbase) from $mirror" >&2
  debootstrap --variant=minbase bookworm "$root" "$mirror" >"$work/debootstrap.log" 2>&1
fi
rm -rf "$root/root/bvgeo"
if compgen -G "/usr/local/share/ca-certificates/*.crt" >/dev/null; then
  mkdir -p "$root/usr/local/share/ca-certificates"
  cp /usr/local/share/ca-certificates/*.crt "$root/usr/local/share/ca-certificates/"
fi
# The same sources as this machine (security updates included), and its resolver.
if [ -f /etc/apt/sources.list.d/debian.sources ]; then
  cp /etc/apt/sources.list.d/debian.sources "$root/etc/apt/sources.list.d/"
  : >"$root/etc/apt/sources.list"
fi
cp /etc/resolv.conf "$root/etc/resolv.conf"
mountin proc /proc -t proc
mountin sysfs /sys -t sysfs
mountin /dev /dev --bind
mountin devpts /dev/pts -t devpts
mountin tmpfs /dev/shm -t tmpfs

echo "== clean clone of $(git -C "$repo" rev-parse --short HEAD) ($(git -C "$repo" rev-parse --abbrev-ref HEAD))" >&2
git clone --quiet --no-local --branch "$(git -C "$repo" rev-parse --abbrev-ref HEAD)" "$repo" "$root/root/bvgeo"

run() { # name command: runs the README's command in the root, as a login shell of root would
  echo "== $2" >&2
  local status=0
  chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    LANG=C.UTF-8 TERM=dumb NODE_EXTRA_CA_CERTS=/etc/ssl/certs/ca-certificates.crt \
    bash -c "{ command -v update-ca-certificates >/dev/null && update-ca-certificates >/dev/null 2>&1; } ; cd /root/bvgeo && $2" \
    >"$work/$1.log" 2>&1 || status=$?
  echo "-- $2: exit $status; last lines of $work/$1.log:"
  tail -n 25 "$work/$1.log"
  return "$status"
}
status=0
run demo scripts/demo.sh || status=1
run test scripts/test.sh || status=1
exit "$status"
