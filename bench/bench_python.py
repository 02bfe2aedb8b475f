#!/usr/bin/python3
"""The Python server package against the C++ server class, on the same labs.

Both servers run pipelined cycles against the same raw front-end (a minimal
C++ client that reads and acks strings and parses nothing, in its own
process, on loopback), so the time per cycle is the server's own work plus
the protocol's round trip. Labs:

  lab20     20 records: 12 solids (p = 1, c = 1), a 24 x 16 grid with vectors
            and cell colours, 4 trails, 3 read-outs
  grid300k  one grid record of 300,000 cell colours

    bench_python.py [--peer PATH] [--runs N] [--cycles-scale F]

PATH is the bench_python_peer program (default: $ORLAVEX_BENCH_PEER, else
build/python/bench_python_peer). Each lab runs N times per server,
alternating, and the best run of each counts: the machine is shared.
"""

import argparse
import math
import os
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "python"))

import numpy as np  # noqa: E402

from orlavex import Colour, SimulationServer, records  # noqa: E402

COLOUR = Colour(rgb=(0.8, 0.3, 0.2), diffuse=0.9, specular=0.3, specular_power=20, opacity=1,
                edges=False, edge_rgb=(0, 0, 0))
# Tails of 0.25, 0.30, ... as in the C++ peer.
SOLIDS = [("Sphere", dict(radius=0.25)), ("Cylinder", dict(radius=0.25, height=0.3)),
          ("Cube", dict(lengths=(0.25, 0.3, 0.35))),
          ("RegularPolygon", dict(normal=(0.25, 0.3, 0.35), radius=0.4)),
          ("Arrow", dict(scale=0.25)), ("Cone", dict(radius=0.25, height=0.3)),
          ("DiskSource", dict(inner_radius=0.25, outer_radius=0.3)),
          ("HalfPipe", dict(radius_min=0.25, radius_max=0.3, length=0.35))]
SOLIDS += SOLIDS[:4]
GRID_CELLS = 24 * 16
BIG_CELLS = 300000
BIG_BASE = 20.0 + 0.0001 * np.arange(BIG_CELLS)
GRID_OFFSETS = 0.01 * np.arange(GRID_CELLS)


def lab20(srv, cycle):
    t = cycle * 0.01
    for i, (kind, tail) in enumerate(SOLIDS):
        srv.add(records.solid(1 + i, kind, position=(math.sin(t + i), math.cos(t + i), 0.1 * i),
                              turns=(0, 0, 1), colour=COLOUR, **tail))
    phase = t + GRID_OFFSETS
    s, c = np.sin(phase), np.cos(phase)
    srv.add(records.grid(13, magnitudes=0.5 + 0.5 * s,
                         vectors=np.column_stack((c, s, np.zeros(GRID_CELLS))),
                         vector_scale=0.1, cells=20.0 + 10.0 * s))
    for k in range(4):
        srv.add(records.trail(14 + k, t, math.sin(t + k)))
    for k in range(3):
        srv.add(records.readout(18 + k, t * (k + 1)))


def grid300k(srv, cycle):
    srv.add(records.grid(1, cells=BIG_BASE * (1.0 + 0.001 * cycle)))


LABS = {"lab20": (lab20, 20, 2000, 1.5), "grid300k": (grid300k, 1, 60, 2.0)}


def raw_client(peer, port, nrecords, cycles):
    return subprocess.Popen([peer, "client", "--port", str(port), "--records", str(nrecords),
                             "--cycles", str(cycles)])


def run_python(peer, lab, cycles, warmup):
    build, nrecords = LABS[lab][:2]
    with SimulationServer(timeout=60) as srv:
        client = raw_client(peer, srv.port, nrecords, cycles)
        srv.wait_for_client(timeout=60)
        for cycle in range(cycles):
            if cycle == warmup:
                start = time.perf_counter()
            srv.next_cycle()
            build(srv, cycle)
            srv.finish_cycle(cycle)
        srv.next_cycle()  # the last cycle's acks: its strings have arrived
        elapsed = time.perf_counter() - start
    if client.wait(timeout=60) != 0:
        raise SystemExit("the raw front-end failed against the Python server")
    return 1e3 * elapsed / (cycles - warmup)


def run_cpp(peer, lab, cycles, warmup):
    nrecords = LABS[lab][1]
    server = subprocess.Popen([peer, "server", "--lab", lab, "--cycles", str(cycles),
                               "--warmup", str(warmup)], stdout=subprocess.PIPE, text=True)
    port = int(server.stdout.readline().split()[-1])
    client = raw_client(peer, port, nrecords, cycles)
    out = server.stdout.read()
    if server.wait(timeout=60) != 0 or client.wait(timeout=60) != 0:
        raise SystemExit("the C++ peer failed")
    return float(out.split()[-1])


def main():
    parser = argparse.ArgumentParser(description="Python vs C++ server, per cycle")
    parser.add_argument("--peer", default=os.environ.get("ORLAVEX_BENCH_PEER", os.path.join(
        ROOT, "build", "python", "bench_python_peer")))
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--cycles-scale", type=float, default=1.0)
    args = parser.parse_args()
    if not os.access(args.peer, os.X_OK):
        raise SystemExit("no bench_python_peer at %s (build the target, or pass --peer)"
                         % args.peer)
    failed = False
    for lab, (_, _, cycles, target) in LABS.items():
        cycles = max(20, int(cycles * args.cycles_scale))
        warmup = max(5, cycles // 10)
        py, cpp = [], []
        for _ in range(args.runs):
            py.append(run_python(args.peer, lab, cycles, warmup))
            cpp.append(run_cpp(args.peer, lab, cycles, warmup))
        ratio = min(py) / min(cpp)
        failed |= ratio > target
        print("%s: python %.3f ms/cycle, c++ %.3f ms/cycle, ratio %.2f (target <= %g)"
              % (lab, min(py), min(cpp), ratio, target), flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
