#!/usr/bin/env python3
"""A SQL Server stand-in for tests: speaks TDS 7.4 and serves fixture databases.

    python3 tests/mss_standin/server.py --port 0 --fixture FILE [--fixture FILE ...]
        [--port-file PATH] [--version 2019|2000|...|azure] [--version-text TEXT]
        [--user NAME:PASSWORD] [--bulk-rows N [--bulk-table DB.SCHEMA.TABLE]] [--verbose]

With --port 0 the system picks a free port; it is written to --port-file
(atomically, once the server listens). SIGTERM and SIGINT stop the server.
The fixture format is described in doc/standin-fixture-format.md.
"""
import argparse
import logging
import os
import signal
import socket
import socketserver
import sys
import threading

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from standin import dispatcher as dispatch_mod, versions  # noqa: E402
from standin.engine import Engine  # noqa: E402
from standin.fixture import FixtureError, Server  # noqa: E402
from standin.session import Session  # noqa: E402

log = logging.getLogger("standin")


def build_server(args):
    server = Server()
    for path in args.fixture:
        server.load_file(path)
    if args.version:
        server.set_version(args.version)
    if args.version_text:
        server.set_version(args.version_text)
    for login in args.user:
        name, _, password = login.partition(":")
        server.load({"server": {"users": [{"name": name, "password": password}]}}, "--user")
    if args.bulk_rows is not None:
        db, schema, table = (args.bulk_table.split(".") + ["", "", ""])[:3]
        server.load({"databases": [{"name": db, "schemas": [{"name": schema, "tables": [
            {"name": table, "generated": {"rows": args.bulk_rows}}]}]}]}, "--bulk-rows")
    server.check()
    return server


class _Handler(socketserver.BaseRequestHandler):
    def handle(self):
        self.request.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        try:
            Session(self.request, self.server.model, self.server.dispatcher).run()
        except Exception:  # a broken session must not take the server down
            log.exception("session failed")


class _TcpServer(socketserver.ThreadingTCPServer):
    daemon_threads = True
    allow_reuse_address = True


def main(argv=None):
    p = argparse.ArgumentParser(description="TDS 7.4 stand-in for SQL Server, for tests.")
    p.add_argument("--host", default="127.0.0.1")
    p.add_argument("--port", type=int, default=0)
    p.add_argument("--port-file")
    p.add_argument("--fixture", action="append", default=[])
    p.add_argument("--version", help=f"release: {', '.join(versions.VERSIONS)}")
    p.add_argument("--version-text", help="a literal @@VERSION text")
    p.add_argument("--user", action="append", default=[], help="NAME:PASSWORD (repeatable)")
    p.add_argument("--bulk-rows", type=int, help="add a generated table of N rows")
    p.add_argument("--bulk-table", default="qbbench.dbo.bulk_rows")
    p.add_argument("--verbose", "-v", action="count", default=0)
    args = p.parse_args(argv)
    logging.basicConfig(level=logging.WARNING - 10 * args.verbose,
                        format="standin %(levelname)s %(message)s", stream=sys.stderr)
    try:
        model = build_server(args)
    except (FixtureError, ValueError) as e:
        print(f"standin: {e}", file=sys.stderr)
        return 2
    srv = _TcpServer((args.host, args.port), _Handler)
    srv.model = model
    srv.dispatcher = dispatch_mod.Dispatcher(model, Engine(model))
    port = srv.server_address[1]

    # Handlers go in before the port is announced: a launcher may stop the
    # server the moment it learns the port.
    def stop(_sig, _frame):
        threading.Thread(target=srv.shutdown, daemon=True).start()
    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    if args.port_file:
        tmp = args.port_file + ".tmp"
        with open(tmp, "w") as f:
            f.write(f"{port}\n")
        os.replace(tmp, args.port_file)
    log.info("listening on %s:%d", args.host, port)

    try:
        srv.serve_forever(poll_interval=0.2)
    finally:
        srv.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
