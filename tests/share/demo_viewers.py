"""Viewers of the demo lab, as a class would follow it.

The demo lab, paced at its own 30 cycles a second, is shared through the
broker as scripts/share-setup configures it (TLS, logins); viewers
(orlavex-watch) follow it. The controller writes a journal of every state it
published (a digest per cycle), and the viewers print the digest of every
state they reach:

- bit for bit at every cycle: a viewer there from the start holds the
  controller's state at each of the first 300 cycles, and so does one that
  joins at cycle 150, from then on;
- a slow viewer costs nothing: after 10 s one viewer is stopped (SIGSTOP) for
  30 s. The live viewer's reports give the controller's rate and its own lag
  before and during the stop; the broker's resident memory is read from /proc
  all along. Resumed, the stopped viewer must come back to the latest cycle
  through a new keyframe.

Run by ctest (viewers::demo) with the paths of the programs in the
environment; exits 77 when something it needs is missing.
"""
import os
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BEFORE_S, STOPPED_S, AFTER_S = 10.0, 30.0, 10.0
CYCLE_MS = 1000.0 / 30


def skip(why):
    print("SKIP:", why)
    sys.exit(77)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(what, done, seconds=60.0):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = done()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError("timed out waiting for " + what)


def rss_mb(pid):
    for line in Path("/proc/%d/status" % pid).read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024.0
    return 0.0


SESSION = 300  # cycles checked bit for bit
LATE_JOIN = 150
DIGEST = re.compile(r"^digest (\d+) ([0-9a-f]{40})$")
REPORT = re.compile(r"^cycle (\d+) · ([\d.]+) frames/s · lag ([\d.-]+) ms · .* · "
                    r"keyframes (\d+) · gaps (\d+) · bad (\d+) · (.*)$")


class Watch:
    """An orlavex-watch whose once-a-second reports are kept with the time they came."""

    def __init__(self, exe, env, log):
        self.log = open(log, "w+")
        self.proc = subprocess.Popen([exe, env["ORLAVEX_SHARE_URL"], "demo", "--user",
                                      env["ORLAVEX_SHARE_VIEWER_USER_demo"], "--ca",
                                      env["ORLAVEX_SHARE_CA"], "--digests"],
                                     env=dict(os.environ, ORLAVEX_SHARE_PASSWORD=env["ORLAVEX_SHARE_VIEWER_demo"]),
                                     stdout=subprocess.PIPE, stderr=self.log, text=True, bufsize=1)
        self.reports = []  # (monotonic time, cycle, lag ms, keyframes, status)
        self.digests = {}  # cycle -> digest of the state reached at it
        self.conflicts = []
        os.set_blocking(self.proc.stdout.fileno(), False)
        self.pending = ""

    def poll(self):
        try:
            chunk = self.proc.stdout.read()
        except (BlockingIOError, TypeError):
            chunk = None
        if chunk:
            self.pending += chunk
            *lines, self.pending = self.pending.split("\n")
            now = time.monotonic()
            for line in lines:
                self.log.write(line + "\n")
                d = DIGEST.match(line)
                if d:
                    cycle = int(d[1])
                    if self.digests.setdefault(cycle, d[2]) != d[2]:
                        self.conflicts.append(cycle)
                m = REPORT.match(line)
                if m:
                    self.reports.append((now, int(m[1]), float(m[3]), int(m[4]), m[7]))
        return self.reports


def window(reports, start, end):
    return [r for r in reports if start <= r[0] < end]


def rate(reports):
    """Cycles a second between the first and the last report of a window."""
    if len(reports) < 2:
        return 0.0
    return (reports[-1][1] - reports[0][1]) / (reports[-1][0] - reports[0][0])


def main():
    env_paths = {k: os.environ.get(k) for k in ("ORLAVEX_DEMO_SERVER", "ORLAVEX_DEMO_CLIENT", "ORLAVEX_WATCH")}
    if not all(env_paths.values()):
        skip("run through ctest: the programs' paths are not set")
    nats = shutil.which("nats-server") or shutil.which("nats-server", path="/usr/sbin:/sbin")
    for need, found in (("nats-server", nats), ("openssl", shutil.which("openssl")),
                        ("xvfb-run", shutil.which("xvfb-run"))):
        if not found:
            skip(need + " is missing (scripts/install-deps)")

    work = Path(tempfile.mkdtemp(prefix="orlavex-slow-viewer-"))
    started = []
    client = None
    try:
        subprocess.run([str(ROOT / "scripts" / "share-setup"), str(work / "share"), "--lab", "demo",
                        "--port", str(free_port()), "--ws-port", str(free_port())],
                       check=True, stdout=subprocess.DEVNULL)
        creds = {}
        for line in (work / "share" / "credentials.env").read_text().splitlines():
            if "=" in line and not line.startswith("#"):
                k, v = line.split("=", 1)
                creds[k.removeprefix("export ").strip()] = v.strip().strip("'\"")

        broker_log = work / "nats.log"
        broker = subprocess.Popen([nats, "-c", str(work / "share" / "nats.conf")],
                                  stdout=open(broker_log, "w"), stderr=subprocess.STDOUT)
        started.append(broker)
        wait_for("the broker", lambda: "Server is ready" in broker_log.read_text())

        server_log = work / "server.log"
        server = subprocess.Popen([env_paths["ORLAVEX_DEMO_SERVER"], "--port", "0"],
                                  stdout=open(server_log, "w"), stderr=subprocess.STDOUT)
        started.append(server)
        port = wait_for("the demo server", lambda: re.search(r"listening on port (\d+)", server_log.read_text()))[1]

        live = Watch(env_paths["ORLAVEX_WATCH"], creds, work / "live.log")
        stopped = Watch(env_paths["ORLAVEX_WATCH"], creds, work / "stopped.log")
        started += [live.proc, stopped.proc]

        total = BEFORE_S + STOPPED_S + AFTER_S + 20
        client = subprocess.Popen(
            ["xvfb-run", "-a", "-s", "-screen 0 1280x1024x24 -noreset", env_paths["ORLAVEX_DEMO_CLIENT"],
             "--port", port, "--share", creds["ORLAVEX_SHARE_URL"], "demo", "--cycles", str(int(total * 30)),
             "--share-journal", str(work / "journal.txt")],
            env=dict(os.environ, ORLAVEX_SHARE_USER=creds["ORLAVEX_SHARE_PUBLISHER_USER_demo"],
                     ORLAVEX_SHARE_PASSWORD=creds["ORLAVEX_SHARE_PUBLISHER_demo"],
                     ORLAVEX_SHARE_CA=creds["ORLAVEX_SHARE_CA"], QTWEBENGINE_DISABLE_SANDBOX="1"),
            stdout=open(work / "client.log", "w"), stderr=subprocess.STDOUT, start_new_session=True)
        started.append(client)

        def both_in_step():
            ok = True
            for w in (live, stopped):
                r = w.poll()
                ok = ok and len(r) >= 2 and r[-1][4] == "in step" and r[-1][1] > 30
            return ok
        wait_for("both viewers in step", both_in_step, 120)

        # A third viewer joins at cycle 150.
        def reached_join():
            for w in (live, stopped):
                w.poll()
            return max(live.digests, default=0) >= LATE_JOIN - 1
        wait_for("cycle %d" % LATE_JOIN, reached_join, 60)
        late = Watch(env_paths["ORLAVEX_WATCH"], creds, work / "late.log")
        started.append(late.proc)
        wait_for("the late viewer in step",
                 lambda: live.poll() and stopped.poll() and late.poll() and late.reports[-1][4] == "in step", 60)

        memory = []  # (time, MB)

        def run_for(seconds):
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                for w in (live, stopped, late):
                    w.poll()
                memory.append((time.monotonic(), rss_mb(broker.pid)))
                assert client.poll() is None, "the front-end ended early: " + (work / "client.log").read_text()
                time.sleep(0.2)

        t0 = time.monotonic()
        run_for(BEFORE_S)
        t1 = time.monotonic()
        stopped.proc.send_signal(signal.SIGSTOP)
        run_for(STOPPED_S)
        t2 = time.monotonic()
        keyframes_before = stopped.poll()[-1][3]
        stopped.proc.send_signal(signal.SIGCONT)

        def resumed():
            stopped.poll()
            live.poll()
            s, l = stopped.reports[-1], live.reports[-1]
            return s[0] > t2 and s[4] == "in step" and s[3] > keyframes_before and abs(s[1] - l[1]) <= 30
        wait_for("the resumed viewer back at the latest cycle through a keyframe", resumed, AFTER_S + 10)
        t3 = time.monotonic()
        run_for(2)

        before, during = window(live.reports, t0, t1), window(live.reports, t1 + 1, t2)
        rate_before, rate_during = rate(before), rate(during)
        lag_before = statistics.median(r[2] for r in before)
        lag_during = statistics.median(r[2] for r in during)
        lag_worst = max(r[2] for r in during)
        mem_before = max(m for t, m in memory if t < t1)
        mem_during = max(m for t, m in memory if t1 <= t < t2)
        mem_after = max(m for t, m in memory if t >= t3)
        cut_off = "Slow Consumer" in broker_log.read_text()
        print("controller: %.1f cycles/s before the stop, %.1f during it (ratio %.3f)"
              % (rate_before, rate_during, rate_during / rate_before))
        print("live viewer's lag: median %.1f ms before, %.1f ms during (worst %.1f ms)"
              % (lag_before, lag_during, lag_worst))
        print("broker's resident memory: at most %.1f MB before, %.1f MB during, %.1f MB after"
              % (mem_before, mem_during, mem_after))
        print("stopped viewer: %s; back at cycle %d (the live one at %d) %.1f s after it resumed, "
              "keyframes %d -> %d" % ("cut off as a slow consumer" if cut_off else "kept",
                                      stopped.reports[-1][1], live.reports[-1][1], t3 - t2,
                                      keyframes_before, stopped.reports[-1][3]))
        # Bit for bit, cycle by cycle, against the controller's journal.
        journal = {}
        for line in (work / "journal.txt").read_text().splitlines():
            cycle, digest = line.split()
            journal[int(cycle)] = digest
        joined = min(late.digests)
        print("journal: %d states; the viewer from the start matched %d of the first %d cycles, "
              "the one that joined at cycle %d the %d from then to cycle %d"
              % (len(journal), sum(live.digests.get(c) == journal.get(c) for c in range(1, SESSION + 1)),
                 SESSION, joined, sum(late.digests.get(c) == journal.get(c) for c in range(joined, SESSION + 1)),
                 SESSION))
        assert all(c in journal for c in range(1, SESSION + 1)), "the controller skipped a state"
        assert joined <= LATE_JOIN + 60, "the late viewer joined at cycle %d" % joined
        for name, w, first in (("from the start", live, 1), ("late", late, joined)):
            missing = [c for c in range(first, SESSION + 1) if c not in w.digests]
            wrong = [c for c in range(first, SESSION + 1) if c in w.digests and w.digests[c] != journal[c]]
            assert not missing and not wrong and not w.conflicts, \
                "viewer %s: cycles missing %s, differing %s" % (name, missing[:10], wrong[:10])
        for name, w in (("from the start", live), ("late", late), ("stopped", stopped)):
            wrong = [c for c, d in w.digests.items() if c in journal and journal[c] != d]
            assert not wrong, "viewer %s differs from the controller at cycles %s" % (name, wrong[:10])

        assert rate_during >= 0.95 * rate_before, "the stopped viewer slowed the controller"
        assert lag_during <= lag_before + CYCLE_MS, "the stopped viewer delayed the live one"
        # What the broker holds for a stopped reader is bounded by max_pending
        # (32 MB in share-setup's configuration).
        assert mem_during <= mem_before + 48, "the broker's memory grew with the stopped viewer"
        print("PASS")
    finally:
        for p in reversed(started):
            if p.poll() is not None:
                continue
            try:
                p.send_signal(signal.SIGCONT)
                if p is client:  # xvfb-run, its Xvfb and the front-end
                    os.killpg(p.pid, signal.SIGTERM)
                else:
                    p.terminate()
                p.wait(10)
            except Exception:
                p.kill()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
