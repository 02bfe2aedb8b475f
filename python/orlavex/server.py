"""The simulation server's half of the wire protocol (docs/protocol.md)."""

import select
import socket
import time

from .errors import FrontEndClosed, OrlavexError, ProtocolError, RegistryError, Timeout
from .numbers import FLOAT, _np, encode_held, encode_record, hold_single
from .records import Record
from .registry import Registry

_ACK = b"\x01"
_UNSET = object()


class SimulationServer:
    """Listens, accepts one front-end and runs exchange cycles with it.

    A cycle::

        changes = srv.next_cycle()           # [(control index, value), ...]
        srv.add(records.readout(2, height))  # one record per registered object
        srv.finish_cycle()                   # the chalk string and the records go out

    Pipelined (the default), `finish_cycle` sends the chalk string, every
    record and the next cycle's server ack in one write, and the front-end's
    client acks (one 0x00 per string) are read by the next `next_cycle` (or by
    `close`), before the data message: one round trip per cycle instead of one
    per string. Lock-step (``pipelined=False``) sends each string and waits
    for its ack. The front-end sees the same bytes in the same order either way.

    Rule behind both: nothing may be sent after the server ack until the data
    message has arrived, because the front-end swallows up to 10 bytes of
    whatever has arrived at that moment as the ack. The cycle calls keep to
    it; `finish_cycle` refuses to run before `next_cycle` has read the data
    message. The raw calls (`send_ack`, `read_data`, `send_string`,
    `read_client_ack`, `send_raw`) do not check it, so tests can break it.

    Waits: the data message is awaited without limit by default
    (`data_timeout` None), since a paused front-end keeps the server waiting
    as long as its user likes; every other wait gives up after `timeout`
    seconds with `Timeout`. A front-end that closes or resets the connection
    raises `FrontEndClosed`; wrong bytes from it raise `ProtocolError`.

    Taking a front-end back: after one has gone (`FrontEndClosed`), call
    `wait_for_client()` again; the listener stays open and the next front-end
    (or the same one reconnecting) starts afresh with the server ack, while
    the simulation goes on. With ``take_back=True`` a front-end that connects
    while the server waits for the current one replaces it: the wait raises
    `FrontEndClosed`, since a reconnecting front-end has lost its link even
    when no close reached the server. `serve_forever` does all of this.

    With a registry (`registry=` or `use_registry`), every record is checked
    when it is queued and every cycle's record count when it is finished:
    `RegistryError`, with nothing sent.
    """

    def __init__(self, host="127.0.0.1", port=0, pipelined=True, timeout=30.0, registry=None,
                 data_timeout=None, take_back=False):
        self.take_back = take_back
        family = socket.AF_INET6 if ":" in host else socket.AF_INET
        self._listener = socket.create_server((host, port), family=family, backlog=1)
        self.pipelined = pipelined
        self.timeout = timeout
        self.data_timeout = data_timeout
        self.registry = None
        if registry is not None:
            self.use_registry(registry)
        self.last_data_message = b""
        self._sock = None
        self._cycle = 0  # the default chalk: it goes on across front-ends
        self._reset()

    def _reset(self):
        self._rx = bytearray()
        self._ack_due = True       # the next next_cycle sends the ack (pipelined: only the first)
        self._acks_outstanding = 0  # pipelined: client acks not read yet
        self._queue = []           # this cycle's record strings
        self._nums = []            # and their num fields
        self._in_cycle = False     # the data message of this cycle has been read

    # --- connection ---------------------------------------------------------

    @property
    def port(self):
        """The port listened on (the free port picked when 0 was asked for)."""
        return self._listener.getsockname()[1]

    def wait_for_client(self, timeout=None):
        """Accepts the front-end; `timeout` in seconds, None waits without limit."""
        self._listener.settimeout(timeout)
        try:
            sock, _ = self._listener.accept()
        except socket.timeout:
            raise Timeout("no front-end connected within %g s" % timeout) from None
        if self._sock is not None:
            self._sock.close()
        # The strings and acks are tiny: they must not wait for Nagle's
        # algorithm and the peer's delayed ACK.
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._sock = sock
        self._reset()

    @property
    def connected(self):
        return self._sock is not None

    def use_registry(self, registry):
        """Checks every record from now on against `registry` (a `Registry`
        or the path of a registry description)."""
        self.registry = registry if isinstance(registry, Registry) else Registry.load(registry)

    def close(self, check_acks=True):
        """Closes the connection and the listener. Pipelined, the client acks
        of the last cycle are read first (a wrong one raises ProtocolError; a
        front-end that has gone already is no error here)."""
        try:
            if check_acks and self._sock is not None and self._acks_outstanding:
                try:
                    self._read_acks()
                except (FrontEndClosed, Timeout):
                    pass
        finally:
            if self._sock is not None:
                self._sock.close()
                self._sock = None
            self._listener.close()

    def close_client(self):
        """Drops the front-end's connection at once (for fault injection)."""
        if self._sock is not None:
            self._sock.close()
            self._sock = None

    def __enter__(self):
        return self

    def __exit__(self, exc_type, exc, tb):
        self.close(check_acks=exc_type is None)

    # --- the cycle ----------------------------------------------------------

    def next_cycle(self):
        """Starts a cycle and returns the user's control changes as a list of
        (index, value) pairs, oldest first.

        Sends the server ack when it is due (lock-step: every cycle;
        pipelined: only the first, later ones went out with `finish_cycle`),
        reads the client acks of the previous cycle's strings (pipelined),
        then the data message, for as long as `data_timeout` allows.
        """
        if self._ack_due:
            self.send_ack()
            self._ack_due = False
        if self._acks_outstanding:
            self._read_acks()
        changes = self.read_data()
        self._in_cycle = True
        return changes

    def add(self, record, allow_nonfinite=False):
        """Queues a `Record` (see `orlavex.records`) for this cycle.

        With a registry its num, kind and count are checked first
        (RegistryError); then its numbers (ValueError for values that are
        not finite, unless `allow_nonfinite`, and for single-precision values
        beyond the float range). Nothing is sent until `finish_cycle`.
        """
        precision = record.precision
        if self.registry is not None:
            entry = self.registry.check(record.num, len(record), record.kind)
            if precision is None and entry.precision in ("float", "double"):
                precision = entry.precision
        if precision == FLOAT and _np is not None and not allow_nonfinite:
            # Held, and formatted with the cycle's other single-precision
            # numbers in finish_cycle.
            self._queue.append((record.num, hold_single(record.values)))
        else:
            self._queue.append(encode_record(record.num, record.values, precision,
                                             allow_nonfinite))
        self._nums.append(record.num)
        return record

    def add_record(self, num, values, precision=None, allow_nonfinite=False):
        """Queues the record ``num,v0,...#`` from a sequence or NumPy array.

        `precision` ("float", "double" or None) comes from the registry when
        None and one is in use; unknown, numbers are written so that they read
        back exactly in either precision.
        """
        return self.add(Record(num, values, None, precision), allow_nonfinite)

    def record(self, num, **fields):
        """Builds a record by the registry's field names (`Registry.build`)
        and queues it."""
        if self.registry is None:
            raise RegistryError("record(%d, ...) builds by field name, which needs a registry "
                                "(registry= or use_registry)" % num)
        return self.add(self.registry.build(num, **fields))

    def finish_cycle(self, chalk=None):
        """Sends the chalk string (`chalk`, by default a cycle counter) and the
        queued records.

        Pipelined: one write of chalk, records and the next server ack; the
        client acks are read by the next `next_cycle`. Lock-step: each string,
        then its client ack.
        """
        if not self._in_cycle:
            raise OrlavexError("finish_cycle() before next_cycle() has read the data message: "
                               "nothing may be sent after the server ack until then")
        if self.registry is not None:
            self.registry.check_cycle(self._nums)
        if chalk is None:
            chalk = self._cycle
        self._cycle += 1
        queue, self._queue, self._nums = self._queue, [], []
        self._in_cycle = False
        held = [i for i, item in enumerate(queue) if type(item) is tuple]
        if held:
            for i, parts in zip(held, encode_held([queue[i] for i in held])):
                queue[i] = parts
        chalk_string = b"%d#" % chalk
        if self.pipelined:
            self._acks_outstanding = 1 + len(queue)
            out = [chalk_string]
            for item in queue:
                if type(item) is tuple:
                    out += item
                else:
                    out.append(item)
            out.append(_ACK)
            self._send(b"".join(out))
            return
        self._ack_due = True
        self.send_string(chalk_string)
        for item in queue:
            self.send_string(b"".join(item) if type(item) is tuple else item)

    # --- single messages (also for tests and fault injection) ---------------

    def send_ack(self, ack=_ACK):
        """Sends the server ack: 1 to 10 bytes of any value, in one write."""
        self._send(ack)

    def read_data(self, timeout=_UNSET):
        """Reads one data message; returns its (index, value) pairs.

        `timeout` defaults to `data_timeout` (None: no limit). The message's
        text is kept in `last_data_message`.
        """
        deadline = self._deadline(self.data_timeout if timeout is _UNSET else timeout)
        start = 0
        while True:
            end = self._rx.find(b"#", start)
            if end >= 0:
                break
            start = len(self._rx)
            self._fill(deadline, "the data message")
        message = bytes(self._rx[:end + 1])
        del self._rx[:end + 1]
        self.last_data_message = message
        return _parse_data(message)

    def send_string(self, string):
        """Sends one server string (it must end with '#') and reads its client ack."""
        if not string.endswith(b"#"):
            raise ValueError("a server string ends with '#': %r" % string[-20:])
        self._send(string)
        self.read_client_ack()

    def read_client_ack(self, timeout=_UNSET):
        """Reads one client ack; ProtocolError unless it is 0x00."""
        self._read_acks(1, timeout)

    def send_raw(self, data):
        """Sends bytes as they are, unframed, reading nothing."""
        self._send(bytes(data))

    # --- internals ----------------------------------------------------------

    def _deadline(self, timeout):
        return None if timeout is None else time.monotonic() + timeout

    def _require(self):
        if self._sock is None:
            raise FrontEndClosed("no front-end is connected")
        return self._sock

    def _send(self, data):
        sock = self._require()
        sock.settimeout(self.timeout)
        try:
            sock.sendall(data)
        except socket.timeout:
            raise Timeout("the front-end took more than %g s to take %d bytes"
                          % (self.timeout, len(data))) from None
        except OSError as e:
            raise FrontEndClosed("the front-end has gone (%s while sending)"
                                 % (e.strerror or type(e).__name__)) from None

    def _fill(self, deadline, what):
        sock = self._require()
        if deadline is None:
            sock.settimeout(None)
        else:
            left = deadline - time.monotonic()
            if left <= 0:
                raise Timeout("waited too long for %s" % what)
            sock.settimeout(left)
        if self.take_back:
            self._wait_or_newcomer(sock, deadline, what)
        try:
            chunk = sock.recv(1 << 16)
        except socket.timeout:
            raise Timeout("waited too long for %s" % what) from None
        except OSError as e:
            raise FrontEndClosed("the front-end has gone (%s while waiting for %s)"
                                 % (e.strerror or type(e).__name__, what)) from None
        if not chunk:
            raise FrontEndClosed("the front-end closed the connection (while waiting for %s)"
                                 % what)
        self._rx += chunk

    def _wait_or_newcomer(self, sock, deadline, what):
        """Waits until the front-end sends something, or a new one connects."""
        while True:
            left = None if deadline is None else max(0.0, deadline - time.monotonic())
            readable, _, _ = select.select([sock, self._listener], [], [], left)
            if sock in readable:
                return
            if self._listener in readable:
                raise FrontEndClosed("a new front-end connected: the current one is taken as "
                                     "gone (while waiting for %s)" % what)
            if deadline is not None and time.monotonic() >= deadline:
                raise Timeout("waited too long for %s" % what)

    def serve_forever(self, cycle):
        """Serves front-end after front-end with one simulation: for each
        cycle, `cycle(changes)` queues the records (``self.add``) for the
        control changes it is given. Returns when `cycle` returns False."""
        while True:
            self.wait_for_client()
            try:
                while True:
                    changes = self.next_cycle()
                    if cycle(changes) is False:
                        return
                    self.finish_cycle()
            except FrontEndClosed:
                continue  # the next front-end, or the same one back

    def _read_acks(self, count=None, timeout=_UNSET):
        """Reads `count` client acks (default: those still outstanding)."""
        if count is None:
            count, self._acks_outstanding = self._acks_outstanding, 0
        deadline = self._deadline(self.timeout if timeout is _UNSET else timeout)
        what = "client ack" if count == 1 else "%d client acks" % count
        while len(self._rx) < count:
            self._fill(deadline, what)
        acks = self._rx[:count]
        del self._rx[:count]
        if acks.count(0) != count:
            k = next(i for i, b in enumerate(acks) if b)
            raise ProtocolError("client ack %d of %d is 0x%02x, not 0x00 (the front-end is out "
                                "of step)" % (k + 1, count, acks[k]))


def _parse_data(message):
    """The (index, value) pairs of a data message ``count,index,value,...#``."""
    fields = message[:-1].split(b",")
    try:
        if not fields[0].isdigit():
            raise ValueError
        n = int(fields[0])
        if len(fields) != 1 + 2 * n:
            raise ValueError
        it = iter(fields[1:])
        return [(int(i), float(v)) for i, v in zip(it, it)]
    except ValueError:
        raise ProtocolError("malformed data message %r" % message[:80]) from None
