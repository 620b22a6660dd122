#!/usr/bin/env python3
"""How fast the SQL Server stand-in streams its generated table, and how much
of that a client keeps.

Starts the stand-in with a generated table of N rows (default 1,000,000) and
reads all rows three ways, in one run:

  raw      a bare TDS client on a socket that only counts bytes (the baseline:
           what the stand-in itself can send);
  fetch    unixODBC + FreeTDS through ctypes, SQLFetch only;
  getdata  the same with SQLGetData of every column as SQL_C_WCHAR (here the
           Python ctypes calls cost more than the driver).

(FreeTDS's bsqldb cannot print datetime2 columns, so it is not among them.)

Prints rows/s for each and its ratio to the raw baseline. Usage:
    python3 bench/standin_bulk.py [ROWS]
"""
import os
import socket
import struct
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "tests", "mss_standin"))

import odbc_client as odbc  # noqa: E402
from launch import StandIn  # noqa: E402
from standin import packets  # noqa: E402

QUERY = "select * from bulk_rows"


def _login7(user, password, database):
    def scramble(text):
        out = bytearray()
        for b in text.encode("utf-16-le"):
            b = ((b << 4) & 0xF0) | (b >> 4)
            out.append(b ^ 0xA5)
        return bytes(out)
    fields = [("bench", False), (user, False), (password, True), ("standin_bulk", False),
              ("127.0.0.1", False), ("", False), ("bench", False), ("", False), (database, False)]
    fixed = 94
    data = bytearray()
    offsets = []
    for text, secret in fields:
        raw = scramble(text) if secret else text.encode("utf-16-le")
        offsets.append((fixed + len(data), len(text)))
        data += raw
    body = bytearray(struct.pack("<IIIIIIBBBBiI", 0, 0x74000004, 4096, 7, os.getpid(), 0,
                                 0xE0, 0x03, 0, 0, 0, 0x0409))
    for off, n in offsets:
        body += struct.pack("<HH", off, n)
    body += b"\x00" * 6 + struct.pack("<HHHHHHI", fixed + len(data), 0, fixed + len(data), 0,
                                      fixed + len(data), 0, 0)
    body += data
    struct.pack_into("<I", body, 0, len(body))
    return bytes(body)


def raw_read(port, user, password, database):
    sock = socket.create_connection(("127.0.0.1", port))
    prelogin = bytes([0, 0, 11, 0, 6, 1, 0, 17, 0, 1, 0xFF, 1, 3, 0, 0, 0, 0, 0])
    sock.sendall(packets.frame(prelogin, 4096, 0, ptype=packets.PRELOGIN)[0])
    packets.read_message(sock)
    sock.sendall(packets.frame(_login7(user, password, database), 4096, 0, ptype=packets.LOGIN7)[0])
    packets.read_message(sock)
    text = QUERY.encode("utf-16-le")
    headers = struct.pack("<IIHQI", 22, 18, 2, 0, 1)
    start = time.monotonic()
    sock.sendall(packets.frame(headers + text, 4096, 0, ptype=packets.SQL_BATCH)[0])
    total = 0
    buf = bytearray(4 << 20)
    view = memoryview(buf)
    have = pos = 0  # bytes in buf, start of the next packet header
    while True:
        if pos + 8 <= have:
            length = (buf[pos + 2] << 8) | buf[pos + 3]
            if pos + length <= have:
                last = buf[pos + 1] & 1
                pos += length
                total += length
                if last:
                    break
                continue
        if pos:  # keep the unread tail at the front
            buf[:have - pos] = buf[pos:have]
            have -= pos
            pos = 0
        n = sock.recv_into(view[have:])
        if not n:
            raise ConnectionError("stand-in closed the connection")
        have += n
    elapsed = time.monotonic() - start
    sock.close()
    return elapsed, total


def odbc_read(conn_str, getdata):
    with odbc.Connection(conn_str) as c, c.cursor() as cur:
        start = time.monotonic()
        cur.execute(QUERY)
        n = 0
        while cur.fetch():
            if getdata:
                for i in range(1, 6):
                    cur.get(i)
            n += 1
        return time.monotonic() - start, n


def main():
    rows = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
    with StandIn(["minimal.json"], "--bulk-rows", str(rows), "--bulk-table", "qbmini.dbo.bulk_rows",
                 database="qbmini") as s:
        raw_read(s.port, "sa", "Secret#1", "qbmini")  # warm-up: pre-encodes the block
        base, size = raw_read(s.port, "sa", "Secret#1", "qbmini")
        results = [("raw", base)]
        t, n = odbc_read(s.connection_string(), False)
        assert n == rows, n
        results.append(("fetch", t))
        t, n = odbc_read(s.connection_string(), True)
        assert n == rows, n
        results.append(("getdata", t))
    print(f"{rows:,} rows, {size / 1e6:.1f} MB of TDS")
    for name, t in results:
        print(f"{name:8s} {rows / t:>12,.0f} rows/s   {t:7.2f} s   ratio to raw {base / t:5.2f}")


if __name__ == "__main__":
    main()
