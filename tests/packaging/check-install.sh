#!/usr/bin/env bash
# Installs the build into a temporary prefix, checks what lands there, and
# builds a tiny host program against the installed files only, once with
# pkg-config and once with find_package(sensor), then runs both.
#   check-install.sh BUILD_DIR CXX HOST_LIBRARY [TOOLCHAIN_FILE]
# HOST_LIBRARY implements host/*.h for the program (the simulated host: a
# camera's own host process does this). SENSOR_EMULATOR, when set, runs the
# programs of a cross build.
set -euo pipefail
build=$1; cxx=$2; hostlib=$3; toolchain=${4:-}
consumer=$(cd "$(dirname "$0")/../../cmake/consumer" && pwd)
work=$(mktemp -d /tmp/sensor-install-XXXXXX)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "check-install: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" > "$work/install.log"
libdir=$(dirname "$(find "$prefix" -name 'libsensor.so.1.0.0' | head -n 1)")
[ -f "$libdir/libsensor.so.1.0.0" ] || fail "libsensor.so.1.0.0 not installed"
[ "$(readlink "$libdir/libsensor.so.1")" = libsensor.so.1.0.0 ] || fail "libsensor.so.1 link missing"
[ "$(readlink "$libdir/libsensor.so")" = libsensor.so.1 ] || fail "libsensor.so link missing"
soname=$(readelf -d "$libdir/libsensor.so.1.0.0" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = libsensor.so.1 ] || fail "SONAME is '$soname', not libsensor.so.1"
if find "$prefix" -name 'libsensorsim*' | grep -q .; then fail "the simulated host was installed"; fi
[ -f "$libdir/pkgconfig/sensor.pc" ] || fail "sensor.pc not installed"
[ -f "$libdir/cmake/sensor/sensorConfig.cmake" ] || fail "sensorConfig.cmake not installed"
inc=$prefix/include/sensor
[ -f "$inc/controller/ISensorController.h" ] || fail "ISensorController.h not installed"

# Every installed header compiles on its own from the installed tree.
(cd "$inc" && find . -name '*.h' | sed 's|^\./||' | LC_ALL=C sort) > "$work/headers"
while read -r h; do
  echo "#include \"$h\"" | "$cxx" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I "$inc" -x c++ - ||
    fail "installed header $h does not compile alone"
done < "$work/headers"
echo "check-install: $(wc -l < "$work/headers") headers compile alone"

run() {
  local out
  # shellcheck disable=SC2086
  out=$(cd "$work" && SENSOR_ROOT="$work/root" ${SENSOR_EMULATOR:-} "$@") || fail "$1 failed: $out"
  grep -qx 'host: beaway withdrawn, KeyVal 8 bytes' <<<"$out" || fail "$1 printed: $out"
  echo "check-install: $(basename "$1"): $out"
}
mkdir -p "$work/root"
hostdir=$(dirname "$hostlib")

# pkg-config, seeing only the installed package.
pc() { PKG_CONFIG_LIBDIR="$libdir/pkgconfig" PKG_CONFIG_PATH= pkg-config "$@" sensor; }
[ "$(pc --modversion)" = 1.0.0 ] || fail "pkg-config gives version $(pc --modversion)"
# shellcheck disable=SC2046
"$cxx" -std=c++17 -Wall -Wextra -Werror $(pc --cflags) "$consumer/host.cpp" -o "$work/host-pkg-config" \
  -Wl,--no-as-needed $(pc --libs) "$hostlib" -Wl,-rpath,"$libdir:$hostdir"
run "$work/host-pkg-config"

# find_package(sensor) in a separate project.
args=(-DCMAKE_PREFIX_PATH="$prefix" -DSENSOR_HOST_LIBRARY="$hostlib" -DCMAKE_CXX_COMPILER="$cxx")
[ -n "$toolchain" ] && args+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
cmake -S "$consumer" -B "$work/consumer" "${args[@]}" > "$work/consumer.log" ||
  { cat "$work/consumer.log"; fail "find_package(sensor) project did not configure"; }
cmake --build "$work/consumer" > "$work/consumer-build.log" ||
  { cat "$work/consumer-build.log"; fail "find_package(sensor) project did not build"; }
run "$work/consumer/host"

# libsensor-onvif, when built: its headers compile alone, and a program links
# it with pkg-config and with find_package(sensor-onvif).
if [ -f "$libdir/libsensor-onvif.so.1.0.0" ]; then
  [ -f "$libdir/pkgconfig/sensor-onvif.pc" ] || fail "sensor-onvif.pc not installed"
  [ -f "$libdir/cmake/sensor-onvif/sensor-onvifConfig.cmake" ] || fail "sensor-onvifConfig.cmake not installed"
  oinc=$prefix/include/sensor-onvif
  for h in sensor-onvif/Soap.h sensor-onvif/ImagingService.h; do
    echo "#include \"$h\"" | "$cxx" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I "$oinc" -x c++ - ||
      fail "installed header $h does not compile alone"
  done
  runonvif() {
    local out
    # shellcheck disable=SC2086
    out=$(cd "$work" && SENSOR_ROOT="$work/root" ${SENSOR_EMULATOR:-} "$@") || fail "$1 failed: $out"
    grep -qx 'onvif-host: HTTP 400, ter:WellFormed' <<<"$out" || fail "$1 printed: $out"
    echo "check-install: $(basename "$1"): $out"
  }
  opc() { PKG_CONFIG_LIBDIR="$libdir/pkgconfig" PKG_CONFIG_PATH= pkg-config "$@" sensor-onvif; }
  # shellcheck disable=SC2046
  "$cxx" -std=c++17 -Wall -Wextra -Werror $(opc --cflags) "$consumer/onvif-host.cpp" \
    -o "$work/onvif-host-pkg-config" -Wl,--no-as-needed $(opc --libs) "$hostlib" \
    -Wl,-rpath,"$libdir:$hostdir"
  runonvif "$work/onvif-host-pkg-config"
  [ -x "$work/consumer/onvif-host" ] || fail "find_package(sensor-onvif) did not build onvif-host"
  runonvif "$work/consumer/onvif-host"
fi
