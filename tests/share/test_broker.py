"""The sharing broker as scripts/share-setup configures it.

One broker for the module: two clustered servers on loopback, with labs a
and b, and a classroom leaf node for lab a, configured as docs/share.md
shows, hanging off the first. Each test opens its own connections. Nothing
here sleeps for a fixed time: waits poll with a deadline, and "nothing
arrived" is shown by a marker message that was sent after the forbidden one
and arrives while the forbidden one does not.
"""

import ctypes
import json
import os
import re
import shutil
import signal
import socket
import ssl
import subprocess
import time
import urllib.request
import uuid
from pathlib import Path

import pytest

from natsproto import Client, Closed, NatsError, tls_context

ROOT = Path(__file__).resolve().parents[2]
SETUP = ROOT / "scripts" / "share-setup"
DOCS = ROOT / "docs" / "share.md"

_search = os.environ.get("PATH", "") + os.pathsep + "/usr/sbin" + os.pathsep + "/sbin"
NATS_SERVER = shutil.which("nats-server", path=_search)
OPENSSL = shutil.which("openssl", path=_search)

pytestmark = pytest.mark.skipif(
    NATS_SERVER is None or OPENSSL is None,
    reason="needs nats-server and openssl (scripts/install-deps)")

STARTUP = 60.0      # generous: the machine may be busy with a build
WAIT = 30.0


def deadline_loop(seconds, what):
    """Yields until the caller breaks out; fails the test after `seconds`."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        yield
    pytest.fail("timed out waiting for " + what)


def free_ports(n):
    """n distinct ports free at this moment (held together while chosen)."""
    socks = []
    try:
        for _ in range(n):
            s = socket.socket()
            s.bind(("127.0.0.1", 0))
            socks.append(s)
        return [s.getsockname()[1] for s in socks]
    finally:
        for s in socks:
            s.close()


def load_env(path):
    env = {}
    for line in Path(path).read_text().splitlines():
        if line and not line.startswith("#") and "=" in line:
            k, v = line.split("=", 1)
            env[k] = v
    return env


def monitor(port, endpoint):
    with urllib.request.urlopen("http://127.0.0.1:%d/%s" % (port, endpoint), timeout=10) as r:
        return json.loads(r.read())


def _end_with_parent():
    # A test run killed by its timeout leaves no broker behind.
    try:
        ctypes.CDLL("libc.so.6").prctl(1, signal.SIGTERM)   # PR_SET_PDEATHSIG
    except (OSError, AttributeError):
        pass


class Server:
    def __init__(self, conf, log):
        self.conf, self.log = conf, log
        self.proc = None

    def start(self):
        self.logf = open(self.log, "wb")
        self.proc = subprocess.Popen([NATS_SERVER, "-c", str(self.conf)],
                                     stdout=self.logf, stderr=subprocess.STDOUT,
                                     preexec_fn=_end_with_parent)

    def log_text(self):
        return Path(self.log).read_text(errors="replace")

    def wait_ready(self, port):
        """INFO on the client port; False when the server exited instead
        (its port was taken between choosing it and starting)."""
        end = time.monotonic() + STARTUP
        while time.monotonic() < end:
            if self.proc.poll() is not None:
                return False
            try:
                with socket.create_connection(("127.0.0.1", port), timeout=2) as s:
                    s.settimeout(5)
                    if s.recv(5) == b"INFO ":
                        return True
            except OSError:
                pass
            try:
                self.proc.wait(0.05)   # poll interval, ends early if it exits
            except subprocess.TimeoutExpired:
                pass
        pytest.fail("nats-server did not come up:\n" + self.log_text())

    def stop(self):
        if self.proc and self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(20)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        if self.proc:
            self.logf.close()


def room_conf_from_docs(directory, port, ws_port, hub_port, password):
    """The classroom leaf node exactly as docs/share.md shows it, pointed at
    this test's files, ports and lab a."""
    blocks = re.findall(r"```conf\n(# room\.conf.*?)```", DOCS.read_text(), re.S)
    assert len(blocks) == 1, "docs/share.md should show one room.conf"
    conf = blocks[0]
    for old, new in (("/etc/orlavex-share", str(directory)),
                     ("room-101.school.lan", "localhost"),
                     ("nats.school.lan:7422", "localhost:%d" % hub_port),
                     ('host: "0.0.0.0"', 'host: "127.0.0.1"'),
                     ("port: 4222", "port: %d" % port),
                     ("port: 8443", "port: %d" % ws_port),
                     ("VIEWER_PASSWORD", password),
                     ("physics", "a")):
        assert old in conf, "room.conf in docs/share.md no longer has " + old
        conf = conf.replace(old, new)
    return conf


class Broker:
    """Runs share-setup and the servers; hands out logged-in clients."""

    def __init__(self, base):
        self.base = base
        self.servers = []
        self._open = []

    def start(self):
        for attempt in range(3):
            if self._try_start(attempt):
                return self
            self.stop()
        pytest.fail("could not start the servers on free ports")

    def _try_start(self, attempt):
        d = self.base / ("broker%d" % attempt)
        (self.port, self.ws, self.cluster, self.mon, self.leaf_hub,
         self.port2, self.ws2, self.cluster2, self.mon2, self.room, self.room_ws) = free_ports(11)
        subprocess.run(
            [str(SETUP), str(d), "--lab", "a", "--lab", "b",
             "--port", str(self.port), "--ws-port", str(self.ws),
             "--monitor-port", str(self.mon), "--leaf-port", str(self.leaf_hub),
             # The room's certificate for this test, and the one docs/share.md names.
             "--room", "localhost", "--room", "room-101.school.lan",
             "--second", "--cluster-port", str(self.cluster),
             "--port2", str(self.port2), "--ws-port2", str(self.ws2),
             "--cluster-port2", str(self.cluster2), "--monitor-port2", str(self.mon2)],
            check=True, capture_output=True, timeout=120)
        self.dir = d
        self.env = load_env(d / "credentials.env")
        self.ca = str(d / "ca-bundle.pem")
        leaf = d / "room.conf"
        leaf.write_text(room_conf_from_docs(d, self.room, self.room_ws, self.leaf_hub,
                                            self.env["ORLAVEX_SHARE_VIEWER_a"]))
        self.s1 = Server(d / "nats.conf", d / "nats.log")
        self.s2 = Server(d / "nats-2.conf", d / "nats-2.log")
        self.leaf = Server(leaf, d / "room.log")
        self.servers = [self.s1, self.s2, self.leaf]
        for s in self.servers:
            s.start()
        for s, port in ((self.s1, self.port), (self.s2, self.port2), (self.leaf, self.room)):
            if not s.wait_ready(port):
                if "address already in use" in s.log_text():
                    return False
                pytest.fail("nats-server exited:\n" + s.log_text())
        # The route and the leaf connection come up on their own schedule.
        for _ in deadline_loop(STARTUP, "the route between the two servers"):
            if self._count(self.mon, "routez", "num_routes") >= 1 and \
               self._count(self.mon2, "routez", "num_routes") >= 1:
                break
            self._pause()
        for _ in deadline_loop(STARTUP, "the classroom leaf node"):
            if self._count(self.mon, "leafz", "leafnodes") >= 1:
                break
            self._pause()
        return True

    @staticmethod
    def _count(port, endpoint, key):
        try:
            return monitor(port, endpoint).get(key, 0)
        except OSError:
            return 0

    def _pause(self):
        # A short wait between polls, and no waiting on a server that died.
        for s in self.servers:
            if s.proc.poll() is not None:
                pytest.fail("nats-server exited:\n" + s.log_text())
        try:
            self.s1.proc.wait(0.1)
        except subprocess.TimeoutExpired:
            pass

    def stop(self):
        for s in reversed(self.servers):
            s.stop()
        self.servers = []

    # -- clients -----------------------------------------------------------

    def login(self, role, lab=None):
        if role == "admin":
            return "admin", self.env["ORLAVEX_SHARE_ADMIN"]
        key = {"publisher": "PUBLISHER", "viewer": "VIEWER"}[role]
        return (self.env["ORLAVEX_SHARE_%s_USER_%s" % (key, lab)],
                self.env["ORLAVEX_SHARE_%s_%s" % (key, lab)])

    def port_of(self, where):
        return {"s1": self.port, "s2": self.port2, "room": self.room}[where]

    def client(self, role, lab=None, where="s1", name=None):
        user, password = self.login(role, lab)
        c = Client("127.0.0.1", self.port_of(where), user, password, cafile=self.ca,
                   name=name, timeout=WAIT)
        self._open.append(c)
        return c.connect()


@pytest.fixture(scope="module")
def broker(tmp_path_factory):
    b = Broker(tmp_path_factory.mktemp("share"))
    try:
        b.start()
        yield b
    finally:
        b.stop()


@pytest.fixture
def br(broker):
    """The module's broker; closes the connections a test opened."""
    yield broker
    for c in broker._open:
        c.close()
    broker._open = []


def token():
    return uuid.uuid4().hex.encode()


def deliver_until_seen(pub, subject, sub, sid, timeout=WAIT):
    """Publishes fresh payloads until `sub` receives one: interest crosses a
    route or a leaf connection a little after the SUB."""
    for _ in deadline_loop(timeout, "delivery on " + subject):
        payload = token()
        pub.pub(subject, payload)
        pub.flush()
        try:
            m = sub.next_msg(0.25)   # poll interval, returns at once on arrival
        except TimeoutError:
            continue
        assert m.sid == sid
        return m


# -- who gets in -----------------------------------------------------------

def _wrong_password(b):
    Client("127.0.0.1", b.port, "view-a", "0" * 32, cafile=b.ca, timeout=WAIT).connect()


def _unknown_user(b):
    Client("127.0.0.1", b.port, "guest", "guest", cafile=b.ca, timeout=WAIT).connect()


def _no_login(b):
    Client("127.0.0.1", b.port, cafile=b.ca, timeout=WAIT).connect()


def _other_labs_password(b):
    Client("127.0.0.1", b.port, "view-a", b.env["ORLAVEX_SHARE_VIEWER_b"],
           cafile=b.ca, timeout=WAIT).connect()


def _plain_text(b):
    user, password = b.login("viewer", "a")
    c = Client("127.0.0.1", b.port, user, password, use_tls=False, timeout=WAIT)
    info = c.open()
    assert info.get("tls_required") is True
    c.send_connect()
    c._send(b"SUB orlavex.a.frame 1\r\nPING\r\n")
    # Never a PONG: the server wanted a TLS handshake and drops the line.
    c.flush()


def _untrusted_ca(b):
    user, password = b.login("viewer", "a")
    # The system's trust store does not know the share CA.
    Client("127.0.0.1", b.port, user, password, context=ssl.create_default_context(),
           timeout=WAIT).connect()


def _websocket_untrusted(b):
    with socket.create_connection(("127.0.0.1", b.ws), timeout=WAIT) as s:
        ssl.create_default_context().wrap_socket(s, server_hostname="localhost")


@pytest.mark.parametrize("attempt, refusal", [
    (_wrong_password, NatsError),
    (_unknown_user, NatsError),
    (_no_login, NatsError),
    (_other_labs_password, NatsError),
    (_plain_text, (Closed, ConnectionError, TimeoutError)),
    (_untrusted_ca, ssl.SSLCertVerificationError),
    (_websocket_untrusted, ssl.SSLCertVerificationError),
], ids=lambda v: v.__name__.strip("_") if callable(v) else None)
def test_refused(br, attempt, refusal):
    with pytest.raises(refusal) as e:
        attempt(br)
    if refusal is NatsError:
        assert "Authorization Violation" in str(e.value)


def test_server_requires_tls_and_limits_messages(br):
    c = Client("127.0.0.1", br.port, timeout=WAIT)
    info = c.open()
    c.close()
    assert info["tls_required"] is True
    assert info["max_payload"] == 8 * 1024 * 1024
    p = br.client("publisher", "a")
    # The server answers as soon as it reads the size, before the payload.
    p._send(b"PUB orlavex.a.key %d\r\n" % (8 * 1024 * 1024 + 1))
    with pytest.raises(NatsError, match="Maximum Payload"):
        p.next_msg()


# -- what each may publish -------------------------------------------------

@pytest.mark.parametrize("role, lab, subject, watcher", [
    # A viewer sends nothing that other viewers would take as the lab's own.
    ("viewer", "a", "orlavex.a.frame", ("viewer", "a")),
    ("viewer", "a", "orlavex.a.key", ("viewer", "a")),
    ("viewer", "a", "orlavex.a.registry", ("viewer", "a")),
    ("viewer", "a", "orlavex.a.status", ("viewer", "a")),
    ("viewer", "a", "orlavex.a.frame", ("admin", None)),
    ("viewer", "b", "orlavex.a.frame", ("admin", None)),
    ("viewer", "b", "orlavex.b.frame", ("viewer", "b")),
    # Nor answers in another viewer's place.
    ("viewer", "a", "_INBOX.victim", ("viewer", "a")),
    # A publisher speaks for its own lab only.
    ("publisher", "b", "orlavex.a.frame", ("viewer", "a")),
    ("publisher", "b", "orlavex.a.key", ("admin", None)),
    ("publisher", "a", "_INBOX.victim", ("admin", None)),
], ids=lambda v: "-".join(x for x in v if x) if isinstance(v, tuple) else v)
def test_publish_refused(br, role, lab, subject, watcher):
    w = br.client(*watcher)
    wsid = w.sub(subject)
    w.flush()
    bad = br.client(role, lab)
    forbidden = b"forbidden " + token()
    bad.pub(subject, forbidden)
    bad.flush()
    assert bad.errors == ['Permissions Violation for Publish to "%s"' % subject]

    # A marker that the watcher may receive, sent after the refused message.
    marker = b"marker " + token()
    if subject.startswith("_INBOX."):
        # An answer to the watcher's own request on that inbox.
        wlab = watcher[1] or "a"
        answerer = br.client("publisher", wlab)
        answerer.sub("orlavex.%s.sync" % wlab)
        answerer.flush()
        w.pub("orlavex.%s.sync" % wlab, b"", reply=subject)
        w.flush()
        req = answerer.next_msg()
        answerer.pub(req.reply, marker)
        answerer.flush()
    else:
        admin = br.client("admin")
        admin.pub(subject, marker)
        admin.flush()
    m, before = w.wait_for(lambda m: m.data == marker)
    assert m.sid == wsid
    assert forbidden not in [x.data for x in before]


# -- what each may read ----------------------------------------------------

@pytest.mark.parametrize("role, lab, subject, marker_subject", [
    ("viewer", "b", "orlavex.a.frame", "orlavex.b.status"),
    ("viewer", "b", "orlavex.a.key", "orlavex.b.status"),
    ("viewer", "b", "orlavex.a.*", "orlavex.b.status"),
    ("viewer", "b", "orlavex.>", "orlavex.b.status"),
    ("viewer", "b", ">", "orlavex.b.status"),
    # Other viewers' keyframe requests are none of a viewer's business.
    ("viewer", "a", "orlavex.a.sync", "orlavex.a.status"),
    ("viewer", "a", "orlavex.b.frame", "orlavex.a.status"),
    ("publisher", "b", "orlavex.a.frame", "orlavex.b.sync"),
    ("publisher", "b", "orlavex.a.>", "orlavex.b.sync"),
], ids=lambda v: "-".join(x for x in v if x) if isinstance(v, tuple) else v)
def test_subscribe_refused(br, role, lab, subject, marker_subject):
    reader = br.client(role, lab)
    reader.sub(subject)
    msid = reader.sub(marker_subject)
    reader.flush()
    assert reader.errors == ['Permissions Violation for Subscription to "%s"' % subject]

    # Something on every subject the refused subscription would have
    # covered, except the marker's own.
    secret = b"secret " + token()
    admin = br.client("admin")
    for s in ("orlavex.a.frame", "orlavex.a.key", "orlavex.a.registry", "orlavex.a.status",
              "orlavex.a.sync", "orlavex.b.frame"):
        if s != marker_subject:
            admin.pub(s, secret)
    admin.flush()
    marker = b"marker " + token()
    admin.pub(marker_subject, marker)
    admin.flush()
    m, before = reader.wait_for(lambda m: m.data == marker)
    assert m.sid == msid
    assert before == []


def test_keyframe_replies_stay_in_their_lab(br):
    """Viewers subscribe to _INBOX.> for their replies; a viewer of lab b
    doing so must not catch the keyframes sent to lab a's viewers."""
    snoop = br.client("viewer", "b")
    snoop.sub("_INBOX.>")
    snoop.flush()
    assert snoop.errors == []
    pa, pb = br.client("publisher", "a"), br.client("publisher", "b")
    for p, lab in ((pa, "a"), (pb, "b")):
        p.sub("orlavex.%s.sync" % lab)
        p.flush()

    va = br.client("viewer", "a")
    secret = b"keyframe of a " + token()
    inbox = "_INBOX.a-viewer." + token().decode()
    va.sub(inbox)
    va.pub("orlavex.a.sync", b"", reply=inbox)
    va.flush()
    req = pa.next_msg()
    pa.pub(req.reply, secret)
    pa.flush()
    assert va.next_msg().data == secret

    # The snooper's own request and its answer come after.
    marker = b"keyframe of b " + token()
    snoop.pub("orlavex.b.sync", b"", reply="_INBOX.b-viewer.1")
    snoop.flush()
    req = pb.next_msg()
    pb.pub(req.reply, marker)
    pb.flush()
    m, before = snoop.wait_for(lambda m: m.data == marker)
    assert secret not in [x.data for x in before]


# -- what arrives ----------------------------------------------------------

@pytest.mark.parametrize("sender, subject, receiver, where", [
    (("publisher", "a"), "orlavex.a.frame", ("viewer", "a"), "s1"),
    (("publisher", "a"), "orlavex.a.key", ("viewer", "a"), "s1"),
    (("publisher", "a"), "orlavex.a.registry", ("viewer", "a"), "s1"),
    (("publisher", "a"), "orlavex.a.status", ("viewer", "a"), "s1"),
    (("publisher", "b"), "orlavex.b.frame", ("viewer", "b"), "s1"),
    (("publisher", "a"), "orlavex.a.frame", ("admin", None), "s1"),
    (("admin", None), "orlavex.a.status", ("viewer", "a"), "s1"),
    # Published on the first server, watched on the second.
    (("publisher", "a"), "orlavex.a.frame", ("viewer", "a"), "s2"),
    (("publisher", "a"), "orlavex.a.key", ("viewer", "a"), "s2"),
    # And in the classroom, through the leaf node.
    (("publisher", "a"), "orlavex.a.frame", ("viewer", "a"), "room"),
    (("publisher", "a"), "orlavex.a.status", ("viewer", "a"), "room"),
], ids=lambda v: "-".join(x for x in v if x) if isinstance(v, tuple) else v)
def test_delivered(br, sender, subject, receiver, where):
    r = br.client(*receiver, where=where)
    sid = r.sub(subject)
    r.flush()
    p = br.client(*sender)
    deliver_until_seen(p, subject, r, sid)
    assert r.errors == [] and p.errors == []


@pytest.mark.parametrize("requester, where", [
    (("viewer", "a"), "s1"),
    (("viewer", "a"), "s2"),
    (("viewer", "a"), "room"),
    (("admin", None), "s1"),
], ids=lambda v: "-".join(x for x in v if x) if isinstance(v, tuple) else v)
def test_late_joiner_gets_keyframe(br, requester, where):
    """A viewer asks orlavex.a.sync; the publisher answers, in two parts here,
    on the viewer's inbox."""
    p = br.client("publisher", "a")
    p.sub("orlavex.a.sync")
    p.flush()
    v = br.client(*requester, where=where)
    inbox = "_INBOX." + token().decode()
    isid = v.sub(inbox + ".*")
    v.flush()
    parts = [b"part 1 " + token(), b"part 2 " + token()]
    n = 0
    for _ in deadline_loop(WAIT, "the keyframe request to reach the publisher"):
        n += 1
        v.pub("orlavex.a.sync", b"want", reply="%s.%d" % (inbox, n))
        v.flush()
        try:
            req = p.next_msg(0.25)   # poll interval while interest propagates
        except TimeoutError:
            continue
        break
    assert req.data == b"want"
    for part in parts:
        p.pub(req.reply, part)
    p.flush()
    got = [v.next_msg(), v.next_msg()]
    assert [m.data for m in got] == parts
    assert all(m.sid == isid for m in got)
    assert p.errors == [] and v.errors == []


# -- slow viewers ----------------------------------------------------------

def test_stopped_viewer_is_cut_off(br):
    """A viewer that stops reading is closed as a slow consumer instead of
    having frames pile up for it; a reading viewer goes on."""
    before = monitor(br.mon, "varz").get("slow_consumers", 0)
    name = "stopped-" + token().decode()
    stopped = br.client("viewer", "a", name=name)
    stopped.sub("orlavex.a.frame")
    stopped.flush()
    live = br.client("viewer", "a")
    live_sid = live.sub("orlavex.a.status")
    live.flush()
    p = br.client("publisher", "a")
    frame = b"f" * (1024 * 1024)
    sent = 0
    for _ in deadline_loop(120, "the stopped viewer to be cut off"):
        for _ in range(4):
            p.pub("orlavex.a.frame", frame)
            sent += 1
        p.flush()
        names = [c.get("name") for c in monitor(br.mon, "connz?limit=1024")["connections"]]
        if name not in names:
            break
        # Past what max_pending and the socket buffers can hold, the broker
        # must have given up on it.
        assert sent < 512, "a viewer that reads nothing held %d MB" % sent
    assert monitor(br.mon, "varz")["slow_consumers"] > before
    assert "Slow Consumer" in br.s1.log_text()
    assert stopped.read_until_closed(WAIT)
    marker = token()
    p.pub("orlavex.a.status", marker)
    p.flush()
    m, _ = live.wait_for(lambda m: m.data == marker)
    assert m.sid == live_sid


# -- browsers --------------------------------------------------------------

def _ws_handshake(sock):
    key = "dGhlIHNhbXBsZSBub25jZQ=="
    sock.sendall(("GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\n"
                  "Connection: Upgrade\r\nSec-WebSocket-Key: %s\r\n"
                  "Sec-WebSocket-Version: 13\r\n\r\n" % key).encode())
    data = b""
    end = time.monotonic() + WAIT
    while b"\r\n\r\n" not in data and time.monotonic() < end:
        chunk = sock.recv(4096)
        if not chunk:
            break
        data += chunk
    return data


@pytest.mark.parametrize("use_tls", [True, False], ids=["tls", "plain"])
def test_websocket_listener(br, use_tls):
    with socket.create_connection(("127.0.0.1", br.ws), timeout=WAIT) as raw:
        if use_tls:
            s = tls_context(br.ca).wrap_socket(raw, server_hostname="localhost")
            assert _ws_handshake(s).startswith(b"HTTP/1.1 101")
            s.close()
        else:
            try:
                answer = _ws_handshake(raw)
            except ConnectionError:
                answer = b""
            assert b" 101 " not in answer.split(b"\r\n")[0]


# -- the docs --------------------------------------------------------------

def test_config_examples_in_docs_parse(br, tmp_path):
    """Every nats-server configuration in docs/share.md is accepted by
    nats-server -t, with its paths pointed at real files."""
    text = DOCS.read_text()
    blocks = re.findall(r"```conf\n(.*?)```", text, re.S)
    assert blocks, "docs/share.md shows no configuration"
    for i, block in enumerate(blocks):
        conf = tmp_path / ("doc%d.conf" % i)
        conf.write_text(block.replace("/etc/orlavex-share", str(br.dir)))
        r = subprocess.run([NATS_SERVER, "-c", str(conf), "-t"],
                           capture_output=True, text=True, timeout=60)
        assert r.returncode == 0, "block %d of docs/share.md:\n%s\n%s" % (i, block, r.stderr)
