#!/usr/bin/env bash
# Runs an example server on a free loopback port and its front-end against
# it for a number of cycles; both must end by themselves with status 0.
#
#   run_example.sh SERVER CLIENT CYCLES [FURTHER CLIENT ARGUMENTS...]
set -uo pipefail
server=$1 client=$2 cycles=$3
shift 3

out=$(mktemp)
trap 'rm -f "$out"; [ -n "${pid:-}" ] && kill "$pid" 2>/dev/null' EXIT
timeout 100 "$server" --port 0 >"$out" &
pid=$!

port=""
for _ in $(seq 100); do
  port=$(sed -n 's/^listening on port \([0-9]*\)$/\1/p' "$out")
  [ -n "$port" ] && break
  sleep 0.1
done
if [ -z "$port" ]; then
  echo "the server did not report its port"
  exit 1
fi

run=()
if [ -z "${DISPLAY:-}" ] && command -v xvfb-run >/dev/null; then
  run=(xvfb-run -a -s "-screen 0 1280x1024x24 -noreset")
fi
"${run[@]}" timeout 90 "$client" --port "$port" --cycles "$cycles" "$@"
client_rc=$?
wait "$pid"
server_rc=$?
pid=""
cat "$out"
echo "client exit $client_rc, server exit $server_rc"
[ "$client_rc" -eq 0 ] && [ "$server_rc" -eq 0 ]
