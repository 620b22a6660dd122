"""TDS packet framing: reading whole messages and writing split responses.

A message is one or more packets; each packet starts with an eight-byte
header (type, status, big-endian length, big-endian session id, packet id,
window). Status bit 0x01 marks the last packet of a message.
"""
import select
import struct

SQL_BATCH = 0x01
RPC = 0x03
TABULAR_RESULT = 0x04
ATTENTION = 0x06
BULK_LOAD = 0x07
TRANSACTION_MANAGER = 0x0E
LOGIN7 = 0x10
SSPI = 0x11
PRELOGIN = 0x12

STATUS_EOM = 0x01
HEADER = struct.Struct(">BBHHBB")


class ConnectionClosed(Exception):
    """The client closed the socket (possibly in the middle of a message)."""


def _recv_exact(sock, n):
    chunks = []
    while n:
        data = sock.recv(n)
        if not data:
            raise ConnectionClosed()
        chunks.append(data)
        n -= len(data)
    return b"".join(chunks)


def read_message(sock):
    """Reads packets until end of message; returns (type, payload)."""
    payload = []
    while True:
        ptype, status, length, _spid, _pid, _win = HEADER.unpack(_recv_exact(sock, 8))
        if length < 8:
            raise ConnectionClosed()
        payload.append(_recv_exact(sock, length - 8))
        if status & STATUS_EOM:
            return ptype, b"".join(payload)


class ResponseWriter:
    """Buffers a token stream and sends it as packets of the negotiated size.

    Full packets go out as soon as they are complete, so a large result is
    streamed rather than built in memory. Between sends the socket is polled
    for an ATTENTION packet; when one arrives `cancelled` turns true, the
    producer stops after the token it is writing (the stream stays whole at
    token boundaries), and the session ends the response with DONE(attention).
    """

    def __init__(self, sock, packet_size, spid, ptype=TABULAR_RESULT):
        self.sock = sock
        self.packet_size = packet_size
        self.spid = spid
        self.ptype = ptype
        self.buf = bytearray()
        self.packet_id = 1
        self.cancelled = False
        self._since_poll = 0

    def write(self, data):
        self.buf += data
        body = self.packet_size - 8
        if len(self.buf) > body * 16:
            self._flush_full()

    def _flush_full(self):
        body = self.packet_size - 8
        n = (len(self.buf) - 1) // body  # always keep at least one byte back
        if n <= 0:
            return
        parts = []
        with memoryview(self.buf) as view:
            for i in range(n):
                parts.append(HEADER.pack(self.ptype, 0, self.packet_size, self.spid,
                                         self.packet_id & 0xFF, 0))
                parts.append(view[i * body:(i + 1) * body])
                self.packet_id += 1
            data = b"".join(parts)
            for p in parts[1::2]:
                p.release()
            del parts
        del self.buf[:n * body]
        self.sock.sendall(data)
        self._poll_attention(n * self.packet_size)

    def flush(self):
        """Sends everything buffered as packets without the end-of-message bit."""
        if self.buf:
            data, self.packet_id = frame(bytes(self.buf), self.packet_size, self.spid,
                                         self.packet_id, last=False, ptype=self.ptype)
            self.buf.clear()
            self.sock.sendall(data)

    def send_packets(self, data, count):
        """Sends already framed packets (bulk mode) holding whole tokens."""
        self.sock.sendall(data)
        self.packet_id += count
        self._poll_attention(len(data))

    def _poll_attention(self, sent):
        self._since_poll += sent
        if self._since_poll < 65536:
            return
        self._since_poll = 0
        readable, _, _ = select.select([self.sock], [], [], 0)
        if readable:
            ptype, _ = read_message(self.sock)
            if ptype == ATTENTION:
                self.cancelled = True

    def finish(self):
        """Sends what is buffered, the last packet with the end-of-message bit."""
        body = self.packet_size - 8
        if len(self.buf) > body:
            self._flush_full()
        data = bytes(self.buf)
        self.buf.clear()
        self.sock.sendall(HEADER.pack(self.ptype, STATUS_EOM, len(data) + 8, self.spid,
                                      self.packet_id & 0xFF, 0) + data)
        self.packet_id += 1


def frame(payload, packet_size, spid, packet_id=1, last=True, ptype=TABULAR_RESULT):
    """Frames a payload into packets; the final one carries EOM when last."""
    body = packet_size - 8
    out = []
    pos = 0
    while True:
        chunk = payload[pos:pos + body]
        pos += len(chunk)
        end = pos >= len(payload)
        status = STATUS_EOM if (end and last) else 0
        out.append(HEADER.pack(ptype, status, len(chunk) + 8, spid, packet_id & 0xFF, 0))
        out.append(chunk)
        packet_id += 1
        if end:
            return b"".join(out), packet_id
