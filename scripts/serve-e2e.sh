# Sourced by the end-to-end scripts: runs `sensorctl serve` on a free loopback
# port beside a browser or client test, and stops it again.
#   serve_start NAME BUILD_DIR [serve options...]   sets serve_pid, serve_port, serve_log
#   serve_finish NAME STATUS                          stops the server; fails when the
#                                                     test (STATUS) or the server failed
# The server is stopped and its log removed on exit whatever happens.
serve_pid=""
serve_port=""
serve_log=$(mktemp /tmp/sensorctl-serve-XXXXXX.log)

serve_kill() {
  if [ -n "$serve_pid" ] && kill -0 "$serve_pid" 2>/dev/null; then
    kill -TERM "$serve_pid"
    for _ in $(seq 50); do kill -0 "$serve_pid" 2>/dev/null || break; sleep 0.1; done
    kill -0 "$serve_pid" 2>/dev/null && kill -KILL "$serve_pid"
  fi
  if [ -n "$serve_pid" ]; then wait "$serve_pid" 2>/dev/null || true; fi
  serve_pid=""
}
serve_cleanup() {
  serve_kill
  rm -f "$serve_log"
}
trap serve_cleanup EXIT

serve_start() {
  local name=$1 build=$2
  shift 2
  SENSORCTL_DATA="$PWD/data/device" "$build/tools/sensorctl/sensorctl" serve --port 0 "$@" \
    >"$serve_log" 2>&1 &
  serve_pid=$!
  for _ in $(seq 300); do
    serve_port=$(sed -n 's|.*listening on http://127\.0\.0\.1:\([0-9]*\)/.*|\1|p' "$serve_log" | head -n1)
    [ -n "$serve_port" ] && break
    if ! kill -0 "$serve_pid" 2>/dev/null; then
      cat "$serve_log"
      echo "$name: the server ended at start" >&2
      exit 1
    fi
    sleep 0.1
  done
  if [ -z "$serve_port" ]; then
    cat "$serve_log"
    echo "$name: the server did not announce its port" >&2
    exit 1
  fi
  echo "$name: sensorctl serve on 127.0.0.1:$serve_port"
}

# The server must end cleanly on SIGTERM too.
serve_finish() {
  local name=$1 status=$2 server_status=0
  kill -TERM "$serve_pid"
  for _ in $(seq 100); do kill -0 "$serve_pid" 2>/dev/null || break; sleep 0.1; done
  if kill -0 "$serve_pid" 2>/dev/null; then
    echo "$name: the server did not stop on SIGTERM" >&2
    server_status=1
  else
    wait "$serve_pid" || server_status=$?
    serve_pid=""
  fi
  if [ "$status" -ne 0 ] || [ "$server_status" -ne 0 ]; then
    echo "$name: FAILED (e2e $status, server $server_status); the server's last output:" >&2
    tail -n 40 "$serve_log" >&2
    exit 1
  fi
}
