"""A small NATS client over the text protocol, for tests.

Python has no NATS client in the Debian packages, and the tests must also do
things a real client refuses to (talk plain text to a TLS-only server, skip
certificate checks), so they speak the protocol themselves: INFO, CONNECT,
PUB, SUB, UNSUB, PING/PONG, MSG, +OK and -ERR.

Every wait has a deadline and ends early as soon as the awaited line arrives;
nothing here sleeps for a fixed time.
"""

import json
import socket
import ssl
import time
from collections import deque, namedtuple

Msg = namedtuple("Msg", "subject sid reply data")

DEFAULT_TIMEOUT = 20.0


class NatsError(Exception):
    """The server answered -ERR, or closed the connection, where we needed
    something else."""


class Closed(NatsError):
    """The server closed the connection."""


def tls_context(cafile=None):
    """A client context that trusts only `cafile` (the share CA bundle); with
    no file, the system's default trust store, which does not know our CA."""
    ctx = ssl.create_default_context(cafile=cafile) if cafile else ssl.create_default_context()
    ctx.minimum_version = ssl.TLSVersion.TLSv1_2
    return ctx


class Client:
    """One connection. `connect()` reads INFO, upgrades to TLS when the server
    requires it (the upgrade follows INFO, as NATS does unless set up for
    TLS first), sends CONNECT and waits for the PONG that confirms it."""

    def __init__(self, host, port, user=None, password=None, cafile=None,
                 context=None, use_tls=True, name=None, timeout=DEFAULT_TIMEOUT,
                 server_hostname="localhost"):
        self.host, self.port = host, port
        self.user, self.password = user, password
        self.context = context if context is not None else (tls_context(cafile) if cafile else None)
        self.use_tls = use_tls
        self.name = name
        self.timeout = timeout
        self.server_hostname = server_hostname
        self.sock = None
        self.info = None
        self._buf = bytearray()
        self.msgs = deque()
        self.errors = []
        self._next_sid = 1
        self._pongs = 0

    # -- connection --------------------------------------------------------

    def open(self):
        """TCP connect and read INFO; returns the INFO dictionary."""
        self.sock = socket.create_connection((self.host, self.port), timeout=self.timeout)
        line = self._readline(time.monotonic() + self.timeout)
        if not line.startswith(b"INFO "):
            raise NatsError("expected INFO, got %r" % line[:200])
        self.info = json.loads(line[5:])
        return self.info

    def start_tls(self):
        if self.context is None:
            raise ValueError("no TLS context")
        # Anything already buffered would belong to the plain-text phase;
        # there is none, since the server waits for our handshake.
        self.sock = self.context.wrap_socket(self.sock, server_hostname=self.server_hostname)

    def connect(self):
        self.open()
        if self.info.get("tls_required") and self.use_tls:
            self.start_tls()
        self.send_connect()
        self.flush()
        return self

    def send_connect(self):
        opts = {"verbose": False, "pedantic": False, "lang": "python-test",
                "version": "0", "protocol": 1, "headers": False,
                "tls_required": bool(self.use_tls and self.context is not None)}
        if self.user is not None:
            opts["user"] = self.user
            opts["pass"] = self.password
        if self.name:
            opts["name"] = self.name
        self._send(b"CONNECT " + json.dumps(opts).encode() + b"\r\n")

    def close(self):
        if self.sock is not None:
            try:
                self.sock.close()
            finally:
                self.sock = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    # -- commands ----------------------------------------------------------

    def sub(self, subject, queue=None):
        sid = str(self._next_sid)
        self._next_sid += 1
        parts = [b"SUB", subject.encode()] + ([queue.encode()] if queue else []) + [sid.encode()]
        self._send(b" ".join(parts) + b"\r\n")
        return sid

    def unsub(self, sid):
        self._send(b"UNSUB " + sid.encode() + b"\r\n")

    def pub(self, subject, data, reply=None):
        if isinstance(data, str):
            data = data.encode()
        head = [b"PUB", subject.encode()] + ([reply.encode()] if reply else []) + [str(len(data)).encode()]
        self._send(b" ".join(head) + b"\r\n" + bytes(data) + b"\r\n")

    def flush(self, timeout=None):
        """PING and wait for its PONG: everything sent before has been
        processed by the server, and any -ERR it caused has arrived. Raises
        on a -ERR that closes the connection."""
        want = self._pongs + 1
        self._send(b"PING\r\n")
        deadline = time.monotonic() + (timeout or self.timeout)
        while self._pongs < want:
            self._read_one(deadline)

    def next_msg(self, timeout=None):
        deadline = time.monotonic() + (timeout or self.timeout)
        while not self.msgs:
            self._read_one(deadline)
        return self.msgs.popleft()

    def wait_for(self, predicate, timeout=None):
        """Reads messages until one satisfies `predicate`; returns that one
        and the messages that came before it."""
        deadline = time.monotonic() + (timeout or self.timeout)
        before = []
        while True:
            while not self.msgs:
                self._read_one(deadline)
            m = self.msgs.popleft()
            if predicate(m):
                return m, before
            before.append(m)

    def request(self, subject, data, inbox, timeout=None):
        sid = self.sub(inbox)
        self.pub(subject, data, reply=inbox)
        try:
            m, _ = self.wait_for(lambda m: m.sid == sid, timeout)
        finally:
            self.unsub(sid)
        return m

    def read_until_closed(self, timeout=None):
        """Reads (and keeps) whatever comes until the server closes the
        connection; returns True when it did within the time."""
        deadline = time.monotonic() + (timeout or self.timeout)
        try:
            while True:
                self._read_one(deadline)
        except Closed:
            return True
        except (socket.timeout, TimeoutError):
            return False

    # -- reading -----------------------------------------------------------

    def _send(self, data):
        try:
            self.sock.sendall(data)
        except (BrokenPipeError, ConnectionResetError, ssl.SSLEOFError) as e:
            raise Closed("connection closed: %s" % e)

    def _fill(self, deadline):
        remaining = deadline - time.monotonic()
        if remaining <= 0:
            raise TimeoutError("no answer from the server in time")
        self.sock.settimeout(remaining)
        try:
            chunk = self.sock.recv(1 << 16)
        except (ConnectionResetError, BrokenPipeError, ssl.SSLEOFError) as e:
            raise Closed("connection closed: %s" % e)
        except ssl.SSLError as e:
            if "timed out" in str(e):
                raise TimeoutError(str(e))
            raise Closed("connection closed: %s" % e)
        if not chunk:
            raise Closed("connection closed by the server")
        self._buf += chunk

    def _readline(self, deadline):
        while True:
            i = self._buf.find(b"\r\n")
            if i >= 0:
                line = bytes(self._buf[:i])
                del self._buf[:i + 2]
                return line
            self._fill(deadline)

    def _readexact(self, n, deadline):
        while len(self._buf) < n:
            self._fill(deadline)
        data = bytes(self._buf[:n])
        del self._buf[:n]
        return data

    def _read_one(self, deadline):
        line = self._readline(deadline)
        if line.startswith(b"MSG "):
            parts = line.split()
            if len(parts) == 5:
                _, subj, sid, reply, n = parts
            else:
                _, subj, sid, n = parts
                reply = None
            data = self._readexact(int(n) + 2, deadline)[:-2]
            self.msgs.append(Msg(subj.decode(), sid.decode(),
                                 reply.decode() if reply else None, data))
        elif line == b"PING":
            self._send(b"PONG\r\n")
        elif line == b"PONG":
            self._pongs += 1
        elif line == b"+OK":
            pass
        elif line.startswith(b"-ERR"):
            text = line[4:].strip().strip(b"'").decode(errors="replace")
            self.errors.append(text)
            # Permission violations leave the connection open; anything else
            # (authorization, parser, slow consumer) is followed by a close.
            if not text.startswith("Permissions Violation"):
                raise NatsError(text)
        elif line.startswith(b"INFO "):
            self.info = json.loads(line[5:])
        else:
            raise NatsError("unexpected line %r" % line[:200])
