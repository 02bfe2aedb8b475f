#!/usr/bin/env bash
# Runs MPI plate servers, each on its number of processes and each driven by
# the real front-end through the same scripted changes, and checks that the
# grid record of one cycle comes out byte for byte the same in every session.
#
#   compare_ranks.sh MPIRUN CLIENT N:SERVER...
#
# N:SERVER runs SERVER on N processes; a SERVER ending in .py runs under
# $ORLAVEX_PYTHON (/usr/bin/python3). Exits 77 (skipped) without mpirun, or
# for a Python server, without mpi4py and NumPy.
set -uo pipefail
mpirun=$1 client=$2
shift 2
sessions=("$@")
python=${ORLAVEX_PYTHON:-/usr/bin/python3}

if [ -z "$mpirun" ] || ! command -v "$mpirun" >/dev/null; then
  echo "mpirun is not installed: skipped"
  exit 77
fi
for s in "${sessions[@]}"; do
  if [[ $s == *.py ]] && ! "$python" -c "import mpi4py, numpy" 2>/dev/null; then
    echo "$python has no mpi4py or NumPy: skipped"
    exit 77
  fi
done

cycles=40 dump_cycle=30
# The heater turned up, then moved, part-way: every process must take each
# change in the same cycle.
script=(--set 8 3 300 --set 15 1 0.8 --set 15 2 0.3)

work=$(mktemp -d)
pid=""
trap '[ -n "$pid" ] && kill "$pid" 2>/dev/null; rm -rf "$work"' EXIT

gui=()
if [ -z "${DISPLAY:-}" ] && command -v xvfb-run >/dev/null; then
  gui=(xvfb-run -a -s "-screen 0 1280x1024x24 -noreset")
fi

# Session $1 (N:SERVER); its grid record lands in $work/grid.$2.
session() {
  local n=${1%%:*} server=${1#*:} out=$work/server.$2.out port="" rc_client rc_server
  local command=("$server")
  [[ $server == *.py ]] && command=("$python" "$server")
  # Built with AddressSanitizer, the servers are not checked for leaks: Open
  # MPI keeps its components' memory to the end and unloads their libraries
  # first, which leaves blocks that no suppression can name. The front-end
  # is still checked.
  ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0 \
    timeout 300 "$mpirun" -n "$n" --bind-to none "${command[@]}" --port 0 --unpaced \
    --dump-cycle "$dump_cycle" "$work/grid.$2" >"$out" 2>&1 &
  pid=$!
  # Starting the processes can take long on a busy machine: the port line
  # is polled for, up to two minutes.
  for _ in $(seq 1200); do
    port=$(sed -n 's/^listening on port \([0-9]*\)$/\1/p' "$out")
    [ -n "$port" ] && break
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  if [ -z "$port" ]; then
    cat "$out"
    echo "$1: the server did not report its port"
    return 1
  fi
  "${gui[@]}" timeout 240 "$client" --port "$port" --cycles "$cycles" "${script[@]}"
  rc_client=$?
  wait "$pid"
  rc_server=$?
  pid=""
  cat "$out"
  echo "$1: client exit $rc_client, server exit $rc_server"
  [ "$rc_client" -eq 0 ] && [ "$rc_server" -eq 0 ] && [ -s "$work/grid.$2" ]
}

for k in "${!sessions[@]}"; do
  session "${sessions[k]}" "$k" || exit 1
done

if ! head -c 2 "$work/grid.0" | grep -q '^1,'; then
  echo "the dump is not a grid record"
  exit 1
fi
status=0
for k in "${!sessions[@]}"; do
  [ "$k" -eq 0 ] && continue
  if cmp "$work/grid.0" "$work/grid.$k"; then
    echo "cycle $dump_cycle: ${sessions[0]} and ${sessions[k]} sent the same $(wc -c <"$work/grid.$k") bytes"
  else
    echo "cycle $dump_cycle: ${sessions[0]} and ${sessions[k]} sent different grids"
    status=1
  fi
done
exit $status
