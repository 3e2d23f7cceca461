#!/usr/bin/env bash
# The simulated camera's picture through decoders nobody here wrote: ffprobe
# reads /snapshot.jpg and the /video.mjpg stream of `sensorctl serve`, and
# ffmpeg's own signalstats filter measures the stream's frames: the mean luma
# (YAVG) rises with the brightness setting, and the saturation (SATAVG) falls
# to about 0 at night, when the IR-cut filter is out.
#   scripts/picture-decoders.sh BUILD_DIR
# Exits 77 (skipped) when ffprobe or ffmpeg is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
for tool in ffprobe ffmpeg curl; do
  if ! command -v "$tool" >/dev/null; then
    echo "picture-decoders: SKIPPED: $tool is not installed (Debian: ffmpeg, curl)"
    exit 77
  fi
done

source scripts/serve-e2e.sh
serve_start picture-decoders "$build"
url="http://127.0.0.1:$serve_port"
work=$(mktemp -d /tmp/picture-decoders-XXXXXX)
trap 'serve_cleanup; rm -rf "$work"' EXIT
failures=0
check() { # check WHAT OK
  if [ "$2" = 1 ]; then echo "picture-decoders: ok: $1"; else echo "picture-decoders: FAILED: $1"; failures=$((failures + 1)); fi
}
post() { curl -sf --max-time 10 "$url/api/$1" -d "$2" >/dev/null; }
probe() { timeout 30 ffprobe -v error -select_streams v:0 -show_entries stream=codec_name,width,height -of csv=p=0 "$@"; }
# signalstats over N frames of the stream; prints the mean of KEY over the last HALF of them.
measure() { # measure N KEY
  local n=$1 key=$2 out="$work/stats.txt"
  rm -f "$out"
  timeout 60 ffmpeg -hide_banner -nostdin -v error -f mpjpeg -i "$url/video.mjpg" -frames:v "$n" \
    -vf "signalstats,metadata=mode=print:file=$out" -f null - || true
  awk -F= -v key="lavfi.signalstats.$key" -v n="$n" '
    $1 == key { v[c++] = $2 }
    END { if (c < n) { print "none"; exit } s = 0; for (i = int(c / 2); i < c; i++) { s += v[i]; k++ } printf "%.2f\n", s / k }' "$out"
}

snap=$(probe "$url/snapshot.jpg")
check "snapshot decodes as a 1280x720 JPEG ($snap)" "$([ "$snap" = "mjpeg,1280,720" ] && echo 1 || echo 0)"

post size 320x180
snap=$(probe "$url/snapshot.jpg")
check "after size 320x180 the snapshot is 320x180 ($snap)" "$([ "$snap" = "mjpeg,320,180" ] && echo 1 || echo 0)"

stream=$(probe -f mpjpeg -read_intervals "%+#2" "$url/video.mjpg" | head -n1)
check "the stream decodes as 320x180 JPEG frames ($stream)" "$([ "$stream" = "mjpeg,320,180" ] && echo 1 || echo 0)"

timeout 60 ffmpeg -hide_banner -nostdin -v error -f mpjpeg -i "$url/video.mjpg" -frames:v 12 \
  -f framemd5 "$work/frames.md5" || true
frames=$(grep -vc '^#' "$work/frames.md5" || true)
check "ffmpeg reads 12 frames from the stream ($frames)" "$([ "$frames" = 12 ] && echo 1 || echo 0)"

# Daylight held fixed, so that only the setting changes the picture.
post daynight day
post light 2000
post set "(34,20)"
dark=$(measure 16 YAVG)
post set "(34,80)"
bright=$(measure 16 YAVG)
check "mean luma rises with brightness: YAVG $dark at 20, $bright at 80" \
  "$(awk -v a="$dark" -v b="$bright" 'BEGIN { print (a != "none" && b != "none" && b > a + 8) ? 1 : 0 }')"
post set "(34,50)"

day_sat=$(measure 16 SATAVG)
post daynight night
post light 0.5
night_sat=$(measure 16 SATAVG)
ircut=$(curl -sf --max-time 10 "$url/api/picture" | sed -n 's/.*"ircut":"\([a-z]*\)".*/\1/p')
check "at night the IR-cut filter is out ($ircut)" "$([ "$ircut" = out ] && echo 1 || echo 0)"
check "saturation falls to about 0 at night: SATAVG $day_sat by day, $night_sat at night" \
  "$(awk -v d="$day_sat" -v n="$night_sat" 'BEGIN { print (d != "none" && n != "none" && d > 3 && n < 1) ? 1 : 0 }')"

# The shell's snapshot and stats verbs on a camera of their own.
shell_out=$(printf 'size 320x180\nsnapshot %s\nstats\nsnapshot %s\n' "$work/shell.jpg" "$work/no/such/folder.jpg" |
  SENSORCTL_DATA="$PWD/data/device" timeout 60 "$build/tools/sensorctl/sensorctl" shell --time-scale 0.01 2>&1 || true)
snap=$(probe "$work/shell.jpg" || true)
check "the shell's snapshot decodes as a 320x180 JPEG ($snap)" "$([ "$snap" = "mjpeg,320,180" ] && echo 1 || echo 0)"
for field in "mean" "channels" "colourfulness" "sharpness" "noise" "exposure level" "light level" \
             "shutter" "gain" "lux" "ircut"; do
  check "stats lists $field" "$(grep -q "^$field " <<<"$shell_out" && echo 1 || echo 0)"
done
check "a snapshot path that cannot be written is an error" \
  "$(grep -q "^= error: cannot write $work/no/such/folder.jpg: No such file or directory" <<<"$shell_out" && echo 1 || echo 0)"

serve_finish picture-decoders "$failures"
echo "picture-decoders: passed"
