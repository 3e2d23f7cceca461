#!/usr/bin/env bash
# Installs, only when missing, what cross-building for 32-bit ARM hard-float
# and running the result under emulation needs: the cross compiler, qemu-arm,
# and the armhf builds of TinyXML and GoogleTest from Debian's multiarch.
# Exits non-zero, saying why, when the packages cannot be had; the caller
# must not mistake a missing toolchain for a passing run.
set -uo pipefail

native=(cmake make pkg-config binutils-arm-linux-gnueabihf g++-arm-linux-gnueabihf qemu-user)
armhf=(libtinyxml-dev:armhf libgtest-dev:armhf libgmock-dev:armhf libstdc++6:armhf)

installed() {
  local status
  status=$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)
  [ "$status" = "install ok installed" ]
}

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive


if ! dpkg --print-foreign-architectures | grep -qx armhf; then
  echo "bootstrap-arm: adding the armhf architecture"
  $SUDO dpkg --add-architecture armhf || { echo "bootstrap-arm: dpkg --add-architecture armhf failed" >&2; exit 1; }

fi

missing=()
for p in "${native[@]}" "${armhf[@]}"; do
  installed "$p" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "bootstrap-arm: all packages present"
  exit 0
fi

# Packages the index does not offer (an armhf index that failed to download).
unknown() {
  local p policy out=()
  for p in "$@"; do
    # Captured first: grep -q quitting early would fail the pipe (pipefail).
    policy=$(apt-cache policy "$p" 2>/dev/null)
    grep -q 'Candidate: [0-9]' <<<"$policy" || out+=("$p")
  done
  echo "${out[*]}"
}

echo "bootstrap-arm: installing ${missing[*]}"
why=""
for attempt in 1 2 3 4; do
  [ $attempt -gt 1 ] && sleep $((attempt * 10))
  if ! $SUDO apt-get -o DPkg::Lock::Timeout=300 update -q; then
    echo "bootstrap-arm: apt-get update failed in part (attempt $attempt of 4)" >&2
  fi
  # A partial index is enough when every package we want is in it (a security
  # index out of sync, say); a package it lacks means waiting for the mirror.
  absent=$(unknown "${missing[@]}")
  if [ -n "$absent" ]; then
    why="the package index does not offer $absent (armhf index unavailable?)"
    echo "bootstrap-arm: $why" >&2
    continue
  fi
  if $SUDO apt-get -o DPkg::Lock::Timeout=300 install -y -q --no-install-recommends "${missing[@]}"; then
    exit 0
  fi
  why="apt-get install ${missing[*]} failed"
  echo "bootstrap-arm: $why (attempt $attempt of 4)" >&2
done
echo "bootstrap-arm: giving up after 4 attempts: $why; the ARM build and tests" \
     "cannot run" >&2
exit 1
