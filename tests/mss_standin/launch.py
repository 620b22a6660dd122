"""Starts the stand-in as a child process for Python tests and benchmarks."""
import os
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
FIXTURES = os.path.join(os.path.dirname(HERE), "fixtures", "mss")


class StandIn:
    """A running stand-in: `with StandIn([...fixtures], "--version", "2005") as s: s.port`.

    stderr goes to a log file (`log_text()`), so a test can read what the
    server saw; the server runs with -v so that logins and attentions are logged."""

    def __init__(self, fixtures, *extra, user="sa", password="Secret#1", database="master"):
        self.fixtures = [f if os.path.isabs(f) else os.path.join(FIXTURES, f) for f in fixtures]
        self.extra = list(extra)
        self.user, self.password, self.database = user, password, database
        self.proc = None

    def __enter__(self):
        self.dir = tempfile.TemporaryDirectory(prefix="qb-standin-")
        port_file = os.path.join(self.dir.name, "port")
        self.log_path = os.path.join(self.dir.name, "server.log")
        cmd = [sys.executable, os.path.join(HERE, "server.py"), "--port", "0", "--port-file", port_file, "-v"]
        for f in self.fixtures:
            cmd += ["--fixture", f]
        cmd += self.extra
        self.log = open(self.log_path, "w")
        self.proc = subprocess.Popen(cmd, stdout=self.log, stderr=subprocess.STDOUT)
        deadline = time.monotonic() + 60
        while not os.path.exists(port_file):
            if self.proc.poll() is not None:
                raise RuntimeError(f"stand-in exited with {self.proc.returncode}: {self.log_text()}")
            if time.monotonic() > deadline:
                raise RuntimeError("stand-in did not start within 60 s")
            time.sleep(0.02)
        with open(port_file) as f:
            self.port = int(f.read())
        return self

    def __exit__(self, *exc):
        self.stop()
        self.log.close()
        self.dir.cleanup()

    def stop(self):
        if self.proc and self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
            try:
                self.proc.wait(10)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        return self.proc.returncode

    def log_text(self):
        self.log.flush()
        with open(self.log_path, encoding="utf-8", errors="replace") as f:
            return f.read()

    def connection_string(self, user=None, password=None, database=None, extra=""):
        return (f"DRIVER={{FreeTDS}};SERVER=127.0.0.1;PORT={self.port};UID={user or self.user};"
                f"PWD={self.password if password is None else password};"
                f"DATABASE={database or self.database};TDS_Version=7.4;ClientCharset=UTF-8{extra}")
