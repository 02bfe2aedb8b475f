import functools
import json
import os
import random
import struct
import subprocess
import sys
import socket
import threading
import traceback

import pytest

from conftest import front_end, gui_command
from orlavex import (Colour, FrontEndClosed, ProtocolError, Registry, RegistryError,
                     SimulationServer, format_numbers, records)
from orlavex.numbers import FLT_MAX

COLOUR = Colour(rgb=(0.1, 0.2, 0.3), diffuse=0.7, specular=0.4, specular_power=12.5,
                opacity=0.9, edges=True, edge_rgb=(0.6, 0.5, 0.4))
SOLIDS = {1: ("Sphere", dict(radius=0.35)), 2: ("Cylinder", dict(radius=0.21, height=0.77)),
          3: ("Cube", dict(lengths=(0.3, 0.4, 0.5))), 5: ("PolygonC", {}), 10: ("Plane", {}),
          4: ("RegularPolygon", dict(normal=(0, 0.6, 0.8), radius=0.45)),
          6: ("DiskSource", dict(inner_radius=0.1, outer_radius=0.3)),
          7: ("Arrow", dict(scale=1.7)), 8: ("Cone", dict(radius=0.22, height=0.6)),
          9: ("HalfPipe", dict(radius_min=0.25, radius_max=0.45, length=1.1))}


def f32(x):
    return struct.unpack("f", struct.pack("f", x))[0]


def kinds(cycle):
    """{num: (builder, arguments)} for the kinds front-end: the same in every
    cycle but for the turn (first cycle only) and the appended trail point."""
    def place(num, **more):
        return dict(position=(0.1 * num, -1.3, 2.7), origin=(0.01, 0.02, 0.03),
                    turns=(0, 0, 30.0 if cycle == 0 else 0), **more)
    out = {num: (functools.partial(records.solid, kind=kind), place(num, colour=COLOUR, **tail))
           for num, (kind, tail) in SOLIDS.items()}
    out[11] = records.text, place(11, value=3.14159, colour=COLOUR)
    out[12] = records.grid, place(12, lengths=(2.5, 1.25, 0), corner=(0.5, -0.5, 0),
                                  magnitudes=[0.1 * i for i in range(12)], vector_scale=0.3,
                                  vectors=[(i % 3 == j) + 0.01 * i for i in range(12)
                                           for j in range(3)], cells=[0.7 * i for i in range(12)])
    out[13] = records.trail, dict(x=0.1 * cycle, y=1 / 3 + cycle)
    out[14] = records.trail, dict(x=(0.1, 0.2, 0.3), y=(1 / 3, 2 / 3, 1e-300))
    out[15] = records.number_field_enabled, dict(enabled=False)
    out[16] = records.readout, dict(value=2.71828)
    out[17] = records.empty, {}
    return out


@pytest.fixture(scope="module", params=["pipelined", "lock-step"])
def kinds_run(request, registry, tmp_path_factory):
    """(control changes, cycles, state) of a run of the kinds front-end."""
    state = tmp_path_factory.mktemp(request.param) / "state.json"
    with SimulationServer(pipelined=request.param == "pipelined", registry=registry,
                          data_timeout=60) as srv:
        options = ["--port", srv.port, "--cycles", 6, "--state", state, "--set", "1=2.5",
                   "--set", "2=1"]
        client = subprocess.Popen(gui_command("ORLAVEX_KINDS_CLIENT", *options))
        try:
            srv.wait_for_client(timeout=60)
            changes = []
            with pytest.raises(FrontEndClosed):  # the front-end closes after its cycles
                for cycles in range(500):
                    changes += srv.next_cycle()
                    for num, (build, args) in kinds(cycles).items():
                        srv.add(build(num, **args))
                    srv.finish_cycle()
            assert client.wait(timeout=60) == 0
        finally:
            client.kill()
            client.wait()
    return changes, cycles, json.loads(state.read_text())


@pytest.mark.parametrize("num", range(1, 17))
def test_every_kind_is_applied(kinds_run, registry, num):
    changes, cycles, state = kinds_run[0], kinds_run[1], kinds_run[2][str(num)]
    assert (1, 2.5) in changes and (2, 1.0) in changes  # the controls set by "user"
    build, args = kinds(1)[num]
    entry, sent = registry.records[num], list(build(num, **args).values)
    assert state["kind"] == entry.kind
    assert list(registry.build(num, **args).values) == sent  # the same by the field names
    slots = [(name, i if n > 1 else None) for name, n in entry.fields for i in range(n)]
    for (name, i), sent in zip(slots, sent):
        if name in state:  # position, sizes, colours, grid blocks: as sent, read as floats
            assert (state[name] if i is None else state[name][i]) == f32(sent), name
    if "orientation" in state:  # turns are increments: 30 degrees about z in all
        assert state["orientation"] == pytest.approx([0, 0, 30], abs=1e-4)
    expected = {11: {"text": "v=3.14 m"}, 15: {"enabled": False}, 16: {"text": "2.72"},
                14: {"points": [[0.1, 1 / 3], [0.2, 2 / 3], [0.3, 1e-300]]}}.get(num, {})
    assert {k: state[k] for k in expected} == expected
    if num == 13:  # one point per cycle, in double precision
        points = state["points"]
        assert 6 <= len(points) <= cycles and points == [[0.1 * c, 1 / 3 + c]
                                                          for c in range(len(points))]


@pytest.mark.parametrize("script, pipelined, error", [
    (functools.partial(front_end, data=b"", reads=0), True, FrontEndClosed),
    (functools.partial(front_end, reads=2), True, FrontEndClosed),
    (functools.partial(front_end, reset=True), False, FrontEndClosed),
    (functools.partial(front_end, data=b"2,1,0.5#", reads=0), True, ProtocolError),
    (functools.partial(front_end, last=b"\x07"), False, ProtocolError),
], ids=["gone-before-data", "gone-mid-cycle", "reset-lock-step", "bad-data", "bad-ack"])
def test_broken_front_end(fake_front_end, script, pipelined, error):
    srv = fake_front_end(script, pipelined=pipelined)
    with pytest.raises(error) as caught:
        for _ in range(5):
            srv.next_cycle()
            srv.add_record(1, [0.5, 2])
            srv.finish_cycle()
    text = "".join(traceback.format_exception(caught.type, caught.value, caught.tb))
    assert "Errno" not in text and "During handling" not in text


@pytest.mark.parametrize("act, words", [
    (lambda s: s.add(records.solid(1, "Sphere", position=(0, 0, 0), radius=1)),
     ["record 1 (Sphere) carries 10 numbers", "reads 21", "radius", "edgeColor.b"]),
    (lambda s: s.add(records.solid(2, "Sphere", colour=COLOUR)), ["built as Sphere", "Cylinder"]),
    (lambda s: s.add_record(99, [1]), ["record 99 is not registered"]),
    (lambda s: s.record(16, valu=1), ["missing: value", "not its fields: valu"]),
    (lambda s: s.finish_cycle(), ["the cycle has 0 records, the front-end reads 17"]),
])
def test_registry_mismatch_is_refused_before_sending(fake_front_end, registry, act, words):
    received = []
    srv = fake_front_end(functools.partial(front_end, got=received, last=b"\0"),
                         registry=registry)
    srv.next_cycle()
    with pytest.raises(RegistryError) as caught:
        act(srv)
    assert all(w in str(caught.value) for w in words), str(caught.value)
    srv.send_raw(b"MARK#")  # the first bytes after the ack: nothing went before
    srv.read_client_ack()
    assert received == [b"MARK#"]


NAMED_CONTROLS = [{"index": 3, "kind": "NumberField", "name": "gravity"},
                  {"index": 4, "kind": "RadioButton", "name": "Euler", "group": "integrator"},
                  {"index": 5, "kind": "RadioButton", "name": "on", "group": "trail"},
                  {"index": 6, "kind": "RadioButton", "name": "on", "group": "grid"},
                  {"index": 7, "kind": "DisplayDouble"}]


@pytest.mark.parametrize("controls, ask, expected", [
    (NAMED_CONTROLS, lambda r: r.control("gravity"), 3),
    (NAMED_CONTROLS, lambda r: r.control("on", group="grid"), 6),
    (NAMED_CONTROLS, lambda r: tuple(c.get("name") for c in r.controls),
     ("gravity", "Euler", "on", "on", None)),
    (NAMED_CONTROLS, lambda r: r.control("on"), ['2 controls are called "on"', "group="]),
    (NAMED_CONTROLS, lambda r: r.control("drag"),
     ['no control is called "drag"', '3 NumberField "gravity"', '4 RadioButton "Euler"']),
    ([NAMED_CONTROLS[0], dict(NAMED_CONTROLS[1], index=3)], None,
     ['control index 3 is registered twice: NumberField "gravity" and RadioButton "Euler" '
      '(group "integrator")']),
    ([{"index": 1, "kind": "NumberField"}, NAMED_CONTROLS[4], {"index": 1, "kind": "RadioButton"}],
     None, ["control index 1 is registered twice: NumberField and RadioButton"]),
    ([{"index": "1", "kind": "NumberField"}], None, ["malformed control entry"]),
], ids=["by-name", "by-name-and-group", "names", "ambiguous-name", "unknown-name",
        "duplicate-named", "duplicate-unnamed", "malformed"])
def test_registry_controls(tmp_path, controls, ask, expected):
    """`expected`: what `ask` returns, or as a list the words of the RegistryError."""
    path = tmp_path / "registry.json"
    path.write_text(json.dumps({"format": "orlavex-registry", "version": 1, "records": [],
                                "controls": controls}))
    for load in (Registry.load, lambda p: Registry.from_json(json.loads(p.read_text()))):
        if isinstance(expected, list):
            with pytest.raises(RegistryError) as caught:
                (ask or len)(load(path))
            assert all(w in str(caught.value) for w in expected), str(caught.value)
        else:
            assert ask(load(path)) == expected


def bit_patterns(fmt, count, rng=random.Random(5)):
    size = struct.calcsize(fmt)
    values = [struct.unpack(fmt, rng.getrandbits(8 * size).to_bytes(size, "little"))[0]
              for _ in range(count)]
    edges = [0.1, 1 / 3, -0.0, 0.0, 1e-45, 1.17549435e-38, FLT_MAX, 123456789.0, -1e-310]
    return [v for v in values if v - v == 0] + edges  # finite ones only


@pytest.mark.parametrize("fmt, precision, dtype, count", [
    ("d", "double", None, 3000), ("f", "float", None, 3000), ("d", "float", None, 3000),
    ("d", "float", "float64", 20000), ("f", "float", "float32", 10)])
def test_numbers_read_back_exactly(fmt, precision, dtype, count):
    values = [v for v in bit_patterns(fmt, count) if precision == "double" or abs(v) <= FLT_MAX]
    if dtype:
        values = pytest.importorskip("numpy").array(values, dtype)
    # The front-end reads the text as a double; in a float record it rounds that to float.
    read = f32 if precision == "float" else float
    text = format_numbers(values, precision)
    assert [struct.pack("d", read(float(t))) for t in text.split(b",")] \
        == [struct.pack("d", read(float(v))) for v in values]


@pytest.mark.parametrize("queued", [False, True], ids=["formatted", "queued"])
def test_non_finite_values_are_refused_unless_allowed(fake_front_end, queued):
    received = []
    if queued:  # one cycle: refused records are left out of it, the allowed one goes out
        srv = fake_front_end(functools.partial(front_end, reads=2, last=b"\0\0", got=received))
        srv.next_cycle()

    def send(values, precision=None, **args):
        if not queued:
            return format_numbers(values, precision, **args)
        srv.add_record(1, values, precision, **args)
        srv.finish_cycle()
        srv.close()  # reads the client acks, sent once both strings were read
        return received
    np = sys.modules.get("numpy")
    for values in ([1.0, float("nan")], [float("inf")]) + ((np.full(99, np.nan),) if np else ()):
        for precision in (None, "float"):
            with pytest.raises(ValueError, match="only finite values"):
                send(values, precision)
    with pytest.raises(ValueError, match="single precision"):
        send([1e39], "float")
    assert send([float("nan")], allow_nonfinite=True) == ([b"0#", b"1,nan#"] if queued else b"nan")


def test_minimal_example_pair():
    script = os.path.join(os.path.dirname(__file__), "..", "examples", "minimal_server.py")
    server = subprocess.Popen([sys.executable, script, "--port", "0"], stdout=subprocess.PIPE,
                              text=True)
    try:
        port = int(server.stdout.readline().split()[-1])
        command = gui_command("ORLAVEX_MINIMAL_CLIENT", "--port", port, "--cycles", 30)
        assert subprocess.run(command, timeout=120).returncode == 0
        assert server.wait(timeout=60) == 0
        assert "front-end closed after" in server.stdout.read()
    finally:
        server.kill()
        server.wait()


@pytest.mark.parametrize("pipelined", [True, False], ids=["pipelined", "lock-step"])
@pytest.mark.parametrize("silent", [False, True], ids=["leaves", "silent"])
def test_server_takes_a_front_end_back(pipelined, silent):
    """After a front-end leaves, or (take-back) goes silent while a new one
    connects, the next is served and the same simulation goes on."""
    srv = SimulationServer(timeout=10, data_timeout=10, pipelined=pipelined, take_back=True)
    calls = []

    def cycle(changes):
        calls.append(changes)
        if len(calls) > 4:
            return False
        srv.add(records.readout(2, float(len(calls))))
        return True

    server = threading.Thread(target=srv.serve_forever, args=(cycle,), daemon=True)
    server.start()

    def run(sock, n):
        chalks = []
        for _ in range(n):
            sock.recv(1)  # the server ack
            sock.sendall(b"0#")
            for k in range(2):  # the chalk string and the record, each acked
                string = b""
                while not string.endswith(b"#"):
                    string += sock.recv(1)
                sock.sendall(b"\0")
                if k == 0:
                    chalks.append(int(string[:-1]))
        return chalks

    first = socket.create_connection(("127.0.0.1", srv.port), timeout=10)
    before = run(first, 2)
    if not silent:
        first.close()
    second = socket.create_connection(("127.0.0.1", srv.port), timeout=10)
    assert run(second, 2) == [before[-1] + 1, before[-1] + 2]
    second.recv(1)
    second.sendall(b"0#")  # a fifth cycle: the simulation ends
    server.join(timeout=10)
    assert not server.is_alive()
    for sock in (first, second):
        sock.close()
    srv.close(check_acks=False)
