import os
import shutil
import socket
import struct
import subprocess
import sys
import threading

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), ".."))
os.environ["QTWEBENGINE_DISABLE_SANDBOX"] = "1"

from orlavex import Registry, SimulationServer  # noqa: E402


def gui_command(env_name, *args):
    """The front-end's command line, under Xvfb when there is no display."""
    program = os.environ.get(env_name)
    if not program:
        pytest.skip("%s is not set (ctest sets it)" % env_name)
    command = [program, *map(str, args)]
    if not os.environ.get("DISPLAY") and shutil.which("xvfb-run"):
        command = ["xvfb-run", "-a", "-s", "-screen 0 1280x1024x24 -noreset"] + command
    return command


@pytest.fixture(scope="session", autouse=True)
def work_dir(tmp_path_factory):
    """The front-ends write their log file into the working directory."""
    old = os.getcwd()
    os.chdir(tmp_path_factory.mktemp("cwd"))
    yield
    os.chdir(old)


@pytest.fixture(scope="session")
def registry(tmp_path_factory):
    path = tmp_path_factory.mktemp("registry") / "kinds.json"
    subprocess.run(gui_command("ORLAVEX_KINDS_CLIENT", "--describe", path), check=True,
                   timeout=60)
    return Registry.load(path)


def front_end(sock, data=b"0#", reads=1, last=b"", reset=False, got=None):
    """A scripted front-end: reads the ack, sends `data`, reads `reads`
    strings (into `got`), sends `last` and goes (with a reset if asked)."""
    sock.recv(1)
    sock.sendall(data)
    for _ in range(reads):
        string = b""
        while not string.endswith(b"#") and (chunk := sock.recv(1)):
            string += chunk
        if got is not None:
            got.append(string)
    sock.sendall(last)
    if reset:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    sock.close()


@pytest.fixture
def fake_front_end():
    """start(script, **server_args): a server with script(sock) connected to
    it on a thread, as its front-end."""
    threads, servers = [], []

    def start(script, **server_args):
        srv = SimulationServer(timeout=10, data_timeout=10, **server_args)
        servers.append(srv)
        sock = socket.create_connection(("127.0.0.1", srv.port), timeout=10)
        threads.append(threading.Thread(target=script, args=(sock,), daemon=True))
        threads[-1].start()
        srv.wait_for_client(timeout=10)
        return srv

    yield start
    for t in threads:
        t.join(timeout=10)
    for srv in servers:
        srv.close(check_acks=False)
