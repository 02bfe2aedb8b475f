"""A minimal simulation server: a ball bouncing on the floor under gravity.

It serves one front-end (examples/minimal_client) and sends two records
every cycle:
  1: the ball, a Sphere with p = 1 (x, y, z, origin x, y, z, three turns, radius)
  2: a DisplayDouble read-out (the height)
and takes control 1, the gravity, from the front-end's number field.

    python3 minimal_server.py [--port P] [--keep-serving]
      P = 0 picks a free port; the port is printed. --keep-serving serves the
      next front-end (or the same one reconnecting) when one leaves, and the
      ball bounces on where it was.
"""

import argparse
import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

from orlavex import FrontEndClosed, SimulationServer, records  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--port", type=int, default=4848)
    parser.add_argument("--keep-serving", action="store_true")
    args = parser.parse_args()
    port = args.port

    # A paused front-end keeps us waiting as long as the user likes: the data
    # message is awaited without a time limit.
    dt, radius = 0.02, 0.25
    ball = {"gravity": 9.81, "height": 2.0, "velocity": 0.0, "cycle": 0}

    def step(changes):
        for index, value in changes:
            if index == 1:
                ball["gravity"] = value
        ball["velocity"] -= ball["gravity"] * dt
        ball["height"] += ball["velocity"] * dt
        if ball["height"] < radius:  # an elastic bounce off the floor at y = 0
            ball["height"] = 2 * radius - ball["height"]
            ball["velocity"] = -ball["velocity"]
        # The chalk string, both records and the next ack go out in one write.
        server.add(records.solid(1, "Sphere", position=(0, ball["height"], 0), radius=radius))
        server.add(records.readout(2, ball["height"]))
        ball["cycle"] += 1
        time.sleep(dt)  # one cycle per time step: the ball moves in real time
        return True

    with SimulationServer(port=port, take_back=args.keep_serving) as server:
        print("listening on port %d" % server.port, flush=True)  # whoever started us reads this
        if args.keep_serving:
            server.serve_forever(step)  # front-end after front-end, one simulation
        server.wait_for_client()
        try:
            while True:
                step(server.next_cycle())
                server.finish_cycle()
        except FrontEndClosed:
            pass  # the front-end has gone: the session is over
    print("front-end closed after %d cycles" % ball["cycle"])
    return 0


if __name__ == "__main__":
    sys.exit(main())
