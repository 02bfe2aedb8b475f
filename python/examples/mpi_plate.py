"""The heated plate of examples/mpi_plate, computed by several MPI processes
in Python (mpi4py and NumPy) and served by the orlavex package to the same
front-end, plate_client.

The plate is cut into horizontal strips of rows, one per process. Every time
step each process swaps its edge rows with the processes above and below
(Sendrecv) and updates its own cells. Process 0 alone talks to the front-end:
each cycle it reads the control changes and broadcasts them, gathers the
strips into the whole field (Gatherv) and sends the records. When the
front-end goes, process 0 broadcasts a stop and every process ends. The field
is the same, bit for bit, on any number of processes.

    mpirun -n P /usr/bin/python3 mpi_plate.py [--port N] [--address A] [--cycles N]
                                             [--unpaced] [--dump-cycle K FILE]

The options are those of mpi_plate_server (C++).
"""

import argparse
import math
import os
import sys
import time

import numpy as np
from mpi4py import MPI

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

from orlavex import FrontEndClosed, SimulationServer, encode_record  # noqa: E402

# What the front-end expects: examples/mpi_plate/PlateProtocol.h.
GRID, HEATER, HOTTEST, MEAN, RANKS = 1, 2, 3, 4, 5
HEATER_X, HEATER_Y, HEATER_POWER = 1, 2, 3
NX, NY, WIDTH, HEIGHT = 75, 50, 1.2, 0.8
DIFFUSIVITY, HEATER_WIDTH, LOSS, EDGE = 0.01, 0.06, 0.05, 20.0
FRAME = 1.0 / 30.0

# Sent from process 0 to all others every cycle: running, heater x, y, power.
RUNNING = 0
START = (1.0, 0.35, 0.45, 120.0)


def first_row(rank, size):
    """The first row of a process's strip; the first processes take one row
    more when the rows do not divide evenly."""
    base, extra = divmod(NY, size)
    return rank * base + min(rank, extra)


class Strip:
    """Rows [first, first + rows) of the plate with a ghost row below and above
    and a ghost column on either side.

    The update is written term by term as in the C++ server (and the demo's
    HeatedPlate), element-wise in NumPy, with the same association of every
    sum, so that each cell gets the same bits whoever computes it. The
    heater's term uses math.exp, the C library's exp, cell by cell.
    """

    def __init__(self, comm):
        self.comm = comm
        rank, size = comm.Get_rank(), comm.Get_size()
        self.first = first_row(rank, size)
        self.rows = first_row(rank + 1, size) - self.first
        self.below = rank - 1 if rank > 0 else MPI.PROC_NULL
        self.above = rank + 1 if rank + 1 < size else MPI.PROC_NULL
        self.t = np.full((self.rows + 2, NX + 2), EDGE)
        self.dx, self.dy = WIDTH / NX, HEIGHT / NY
        i = np.arange(NX, dtype=float)
        j = np.arange(self.first, self.first + self.rows, dtype=float)
        self.cx = (i + 0.5) * self.dx  # cell centres
        self.cy = (j + 0.5) * self.dy

    def advance(self, seconds, heater_x, heater_y, power):
        dx, dy = self.dx, self.dy
        limit = 0.8 / (2 * DIFFUSIVITY * (1 / (dx * dx) + 1 / (dy * dy)) + LOSS)
        steps = max(1, int(math.ceil(seconds / limit)))
        h = seconds / steps
        two_sigma2 = 2 * HEATER_WIDTH * HEATER_WIDTH
        x = self.cx[np.newaxis, :] - heater_x
        y = self.cy[:, np.newaxis] - heater_y
        exponent = -(x * x + y * y) / two_sigma2
        heating = power * np.fromiter(map(math.exp, exponent.ravel()), float,
                                      exponent.size).reshape(exponent.shape)
        t = self.t
        for _ in range(steps):
            self.fill_ghosts()
            c = t[1:-1, 1:-1]
            laplacian = ((t[1:-1, :-2] - 2 * c + t[1:-1, 2:]) / (dx * dx)
                         + (t[:-2, 1:-1] - 2 * c + t[2:, 1:-1]) / (dy * dy))
            t[1:-1, 1:-1] = c + h * (DIFFUSIVITY * laplacian + heating - LOSS * (c - EDGE))

    def fill_ghosts(self):
        t, rows = self.t, self.rows
        low, high = np.empty(NX), np.empty(NX)
        self.comm.Sendrecv(np.ascontiguousarray(t[1, 1:-1]), dest=self.below, sendtag=0,
                           recvbuf=high, source=self.above, recvtag=0)
        self.comm.Sendrecv(np.ascontiguousarray(t[rows, 1:-1]), dest=self.above, sendtag=1,
                           recvbuf=low, source=self.below, recvtag=1)
        # At the plate's edges the ghost mirrors the cell about the held temperature.
        t[rows + 1, 1:-1] = high if self.above != MPI.PROC_NULL else 2 * EDGE - t[rows, 1:-1]
        t[0, 1:-1] = low if self.below != MPI.PROC_NULL else 2 * EDGE - t[1, 1:-1]
        t[1:-1, 0] = 2 * EDGE - t[1:-1, 1]
        t[1:-1, -1] = 2 * EDGE - t[1:-1, -2]

    def gather(self, field):
        """Every strip into `field` on process 0 (x fastest, row 0 first)."""
        size = self.comm.Get_size()
        counts = [(first_row(r + 1, size) - first_row(r, size)) * NX for r in range(size)]
        offsets = [first_row(r, size) * NX for r in range(size)]
        mine = np.ascontiguousarray(self.t[1:-1, 1:-1])
        self.comm.Gatherv(mine, [field, counts, offsets, MPI.DOUBLE] if field is not None
                          else None, root=0)


def broadcast(comm, controls):
    """Process 0 waits on the front-end, which may be paused for minutes; the
    others poll with a short sleep instead of spinning a core each."""
    request = comm.Ibcast(controls, root=0)
    if comm.Get_rank() == 0:
        request.Wait()
        return
    while not request.Test():
        time.sleep(0.001)


def rounded(v, step):
    return round(v / step) * step


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--port", type=int, default=4848)
    parser.add_argument("--address", default="127.0.0.1")
    parser.add_argument("--cycles", type=int, default=0)
    parser.add_argument("--unpaced", action="store_true")
    parser.add_argument("--dump-cycle", nargs=2, metavar=("K", "FILE"))
    options = parser.parse_args()
    dump_cycle = int(options.dump_cycle[0]) if options.dump_cycle else -1

    comm = MPI.COMM_WORLD
    rank, size = comm.Get_rank(), comm.Get_size()
    if size > NY:
        if rank == 0:
            print("mpi_plate.py: at most %d processes, one row each" % NY, file=sys.stderr)
        return 2

    controls = np.array(START)
    server, field, dumped = None, None, False
    if rank == 0:
        field = np.empty(NX * NY)
        # A paused front-end keeps us waiting as long as the user likes: the
        # data message is awaited without a time limit.
        server = SimulationServer(host=options.address, port=options.port)
        print("listening on port %d" % server.port, flush=True)  # whoever started us reads this
        print("the plate's %d rows are computed by %d process%s"
              % (NY, size, "" if size == 1 else "es"), flush=True)
        server.wait_for_client()
    start = time.monotonic()

    strip = Strip(comm)
    cycle = 0
    while True:
        if rank == 0 and 0 < options.cycles <= cycle:
            controls[RUNNING] = 0
        elif rank == 0 and controls[RUNNING] > 0:
            try:
                for index, value in server.next_cycle():
                    if index in (HEATER_X, HEATER_Y, HEATER_POWER):
                        controls[index] = value
            except FrontEndClosed:
                controls[RUNNING] = 0
        broadcast(comm, controls)
        if controls[RUNNING] <= 0:
            break
        strip.advance(FRAME, controls[1], controls[2], controls[3])
        strip.gather(field)
        if rank == 0:
            # Full precision: the record carries the field bit for bit.
            cells = field.tolist()
            if cycle == dump_cycle:
                with open(options.dump_cycle[1], "wb") as dump:
                    dump.write(encode_record(GRID, cells))
                dumped = True
            hottest, total = cells[0], 0.0
            for t in cells:  # in cell order, so that the mean does not depend on the strips
                total += t
                hottest = max(hottest, t)
            try:
                server.add_record(GRID, cells)
                server.add_record(HEATER, [controls[1], controls[2], 0.07, 0, 0, 0, 0, 0, 0,
                                           0.045, 0.12])
                server.add_record(HOTTEST, [rounded(hottest, 0.01)])
                server.add_record(MEAN, [rounded(total / len(cells), 0.01)])
                server.add_record(RANKS, [size])
                server.finish_cycle(cycle)
            except FrontEndClosed:
                controls[RUNNING] = 0
            if not options.unpaced:  # simulated time never runs ahead of the clock
                time.sleep(max(0.0, start + (cycle + 1) * FRAME - time.monotonic()))
        cycle += 1

    if rank == 0:
        server.close(check_acks=False)
        print("front-end closed after %d cycles" % cycle, flush=True)
        if dump_cycle >= 0 and not dumped:
            print("mpi_plate.py: cycle %d was never reached" % dump_cycle, file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
