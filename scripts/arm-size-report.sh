#!/usr/bin/env bash
# The figures of the ARM library: stripped size and dynamic dependencies.
# Fails when the library is not 32-bit ARM hard-float or when it needs
# anything beyond the C and C++ runtimes and TinyXML.
#   arm-size-report.sh path/to/libsensor.so
set -euo pipefail
lib=$(readlink -f "${1:?usage: arm-size-report.sh libsensor.so}")
readelf -h "$lib" | grep -q 'Machine: *ARM$' || { echo "arm-size: $lib is not an ARM library" >&2; exit 1; }
readelf -h "$lib" | grep -q 'Class: *ELF32' || { echo "arm-size: $lib is not 32-bit" >&2; exit 1; }
readelf -A "$lib" | grep -q 'Tag_ABI_VFP_args: VFP registers' ||
  { echo "arm-size: $lib does not pass floats in VFP registers (not hard-float)" >&2; exit 1; }

stripped=$(mktemp /tmp/libsensor-stripped-XXXXXX)
trap 'rm -f "$stripped"' EXIT
arm-linux-gnueabihf-strip --strip-all -o "$stripped" "$lib"
echo "arm-size: $(basename "$lib") unstripped $(stat -c %s "$lib") bytes, stripped $(stat -c %s "$stripped") bytes"

needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
echo "arm-size: NEEDED $(echo $needed)"
bad=$(grep -vE '^(libc\.so\.6|libm\.so\.6|libstdc\+\+\.so\.6|libgcc_s\.so\.1|libtinyxml\.so\.[0-9.]+)$' <<<"$needed" || true)
if [ -n "$bad" ]; then
  echo "arm-size: libsensor.so needs more than the runtimes and TinyXML: $(echo $bad)" >&2
  exit 1
fi
