"""A minimal simulation server: a ball bouncing on the floor under gravity.

It serves one front-end (examples/minimal_client) and sends two records
every cycle:
  1: the ball, a Sphere with p = 1 (x, y, z, origin x, y, z, three turns, radius)
  2: a DisplayDouble read-out (the height)
and takes control 1, the gravity, from the front-end's number field.

    python3 minimal_server.py [--port P]     P = 0 picks a free port; the port is printed
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
    port = parser.parse_args().port

    # A paused front-end keeps us waiting as long as the user likes: the data
    # message is awaited without a time limit.
    with SimulationServer(port=port) as server:
        print("listening on port %d" % server.port, flush=True)  # whoever started us reads this
        server.wait_for_client()

        dt, radius = 0.02, 0.25
        gravity, height, velocity = 9.81, 2.0, 0.0
        cycle = 0
        try:
            while True:
                for index, value in server.next_cycle():
                    if index == 1:
                        gravity = value

                velocity -= gravity * dt
                height += velocity * dt
                if height < radius:  # an elastic bounce off the floor at y = 0
                    height = 2 * radius - height
                    velocity = -velocity

                # The chalk string, both records and the next ack go out in one write.
                server.add(records.solid(1, "Sphere", position=(0, height, 0), radius=radius))
                server.add(records.readout(2, height))
                server.finish_cycle(cycle)
                cycle += 1
                time.sleep(dt)  # one cycle per time step: the ball moves in real time
        except FrontEndClosed:
            pass  # the front-end has gone: the session is over
    print("front-end closed after %d cycles" % cycle)
    return 0


if __name__ == "__main__":
    sys.exit(main())
