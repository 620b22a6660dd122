"""Generated tables: many rows streamed from pre-encoded packets.

A fixture table with "generated": {"rows": N} has N rows made by a rule
instead of stored rows. Its columns are fixed:

    id      int NOT NULL          i + 1 (i = 0 .. N-1)
    name    nvarchar(100)         "row-VV äöü €"              (VV = i % 64, two digits)
    amount  decimal(12,2)         VV * 1000 + VV, with VV as the cents
    stamp   datetime2(7)          2024-01-01 00:00:00 + VV * (1 hour + 1234567 * 100 ns)
    note    nvarchar(max)         "note VV " repeated 12 times (96 characters)

Rows are encoded once per variant; a block of BLOCK_ROWS rows is laid out
once, and for each block only the key bytes are patched before the block is
framed into packets. So the server costs little per row and a benchmark
measures its client.
"""
import struct

from . import temporal, tokens
from .results import Column
from .sqltypes import SqlType

VARIANTS = 64
BASE_DAY = temporal.parse("2024-01-01")[0]
BLOCK_ROWS = 1024

COLUMNS = [("id", "int", False), ("name", "nvarchar(100)", True), ("amount", "decimal(12,2)", True),
           ("stamp", "datetime2(7)", True), ("note", "nvarchar(max)", True)]


def fixture_columns():
    return [{"name": n, "type": t, "nullable": nl} for n, t, nl in COLUMNS]


def row_values(i):
    """The values of row i (0-based) in canonical form."""
    v = i % VARIANTS
    days, ticks = divmod(v * (3600 * temporal.TICKS_PER_SECOND + 1234567), temporal.TICKS_PER_DAY)
    stamp = temporal.format_date(BASE_DAY + days) + " " + temporal.format_time(ticks, 7)
    return [i + 1, f"row-{v:02d} äöü €", f"{v * 1000 + v}.{v:02d}", stamp, f"note {v:02d} " * 12]


class BulkTable:
    def __init__(self, table):
        self.table = table
        self.rows = int(table.generated.get("rows", 0))
        self.columns = [Column(n, SqlType(t), nl, [table.schema.name, table.name]) for n, t, nl in COLUMNS]
        self._block = None

    def _prepare(self):
        types = [c.type for c in self.columns]
        variants = []
        for v in range(VARIANTS):
            vals = row_values(v)
            body = b"".join(t.encode(x) for t, x in zip(types, vals))
            variants.append(bytes([tokens.ROW]) + body)
        block, offsets = bytearray(), []
        for i in range(BLOCK_ROWS):
            offsets.append(len(block) + 2)  # token byte, INTN length byte, then the key
            block += variants[i % VARIANTS]
        ends = []
        pos = 0
        for i in range(BLOCK_ROWS):
            pos += len(variants[i % VARIANTS])
            ends.append(pos)
        self._block = (bytes(block), offsets, ends)

    def stream(self, session, writer):
        """Writes COLMETADATA and all rows; returns the number of rows sent."""
        if self._block is None:
            self._prepare()
        template, offsets, ends = self._block
        writer.write(tokens.colmetadata([(c.name, c.type, c.flags, c.table_parts) for c in self.columns]))
        writer.flush()
        pack_into = struct.Struct("<i").pack_into
        header = struct.Struct(">BBHHBB").pack
        body = writer.packet_size - 8
        full = header(4, 0, writer.packet_size, session.spid, 0, 0)
        sent = 0
        while sent < self.rows and not writer.cancelled:
            n = min(BLOCK_ROWS, self.rows - sent)
            block = bytearray(template[:ends[n - 1]])
            key = sent + 1
            for off in offsets[:n]:
                pack_into(block, off, key)
                key += 1
            mv = memoryview(block)
            parts = []
            size = len(block)
            count = 0
            for pos in range(0, size, body):
                chunk = mv[pos:pos + body]
                parts.append(full if len(chunk) == body else header(4, 0, len(chunk) + 8, session.spid, 0, 0))
                parts.append(chunk)
                count += 1
            writer.send_packets(b"".join(parts), count)
            mv.release()
            sent += n
        return sent
