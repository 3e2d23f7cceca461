#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with (curl: the
# digest client of the serve tests), only those
# missing. A mirror that fails part of 'apt-get update' does not stop us while
# the packages still install.
#   scripts/bootstrap.sh            build and test tools
#   scripts/bootstrap.sh EXTRA...   also these packages (CI's sanitizer, fuzz and browser stages)
set -uo pipefail

packages=(cmake g++ make libtinyxml-dev libssl-dev libgtest-dev libgmock-dev libbenchmark-dev
          libcpp-httplib-dev libturbojpeg0-dev nlohmann-json3-dev pkg-config curl
          python3-lxml "$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "bootstrap: all packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
echo "bootstrap: installing ${missing[*]}"
for attempt in 1 2 3; do
  $SUDO apt-get update -q || echo "bootstrap: apt-get update failed in part (attempt $attempt); trying the install anyway"
  if $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"; then
    exit 0
  fi
  sleep $((attempt * 5))
done
echo "bootstrap: could not install ${missing[*]}" >&2
exit 1
