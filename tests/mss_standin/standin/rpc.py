"""RPC requests: procedure name or id, and typed parameters.

Parameters are decoded into the canonical value forms of sqltypes, so that
a value can be put back into a statement as a literal (see `literal`).
"""
import decimal
import struct
import uuid

from . import sqltypes as st
from . import temporal
from .sqltext import Token

PROC_IDS = {1: "sp_cursor", 2: "sp_cursoropen", 3: "sp_cursorprepare", 4: "sp_cursorexecute",
            5: "sp_cursorprepexec", 6: "sp_cursorunprepare", 7: "sp_cursorfetch",
            8: "sp_cursoroption", 9: "sp_cursorclose", 10: "sp_executesql", 11: "sp_prepare",
            12: "sp_execute", 13: "sp_prepexec", 14: "sp_prepexecrpc", 15: "sp_unprepare"}


class RpcError(ValueError):
    pass


class Param:
    def __init__(self, name, status, type_token, info, value):
        self.name, self.status, self.type_token, self.info, self.value = name, status, type_token, info, value

    @property
    def output(self):
        return bool(self.status & 0x01)

    def __repr__(self):
        return f"Param({self.name!r}, {self.value!r})"


class Request:
    def __init__(self, name, options, params):
        self.name, self.options, self.params = name, options, params


class _Reader:
    def __init__(self, data, pos=0):
        self.data, self.pos = data, pos

    def take(self, n):
        if self.pos + n > len(self.data):
            raise RpcError("RPC request ends early")
        b = self.data[self.pos:self.pos + n]
        self.pos += n
        return b

    def u8(self):
        return self.take(1)[0]

    def u16(self):
        return struct.unpack("<H", self.take(2))[0]

    def u32(self):
        return struct.unpack("<I", self.take(4))[0]

    def u64(self):
        return struct.unpack("<Q", self.take(8))[0]

    def b_varchar(self):
        return self.take(self.u8() * 2).decode("utf-16-le")

    def us_varchar(self):
        return self.take(self.u16() * 2).decode("utf-16-le")

    @property
    def more(self):
        return self.pos < len(self.data)


def skip_all_headers(data):
    total = struct.unpack_from("<I", data, 0)[0]
    return total


def parse(payload):
    """One or more RPC calls of a request (separated by batch flags)."""
    r = _Reader(payload, skip_all_headers(payload))
    calls = []
    while r.more:
        n = r.u16()
        name = PROC_IDS.get(r.u16(), "?") if n == 0xFFFF else r.take(n * 2).decode("utf-16-le")
        options = r.u16()
        params = []
        while r.more and r.data[r.pos] not in (0x80, 0xFF, 0xFE):
            pname = r.b_varchar()
            status = r.u8()
            tok, info = _type_info(r)
            params.append(Param(pname, status, tok, info, _value(r, tok, info)))
        calls.append(Request(name, options, params))
        if r.more:
            r.u8()  # batch separator
    return calls


def _type_info(r):
    tok = r.u8()
    info = {}
    if tok in (0x30, 0x32, 0x34, 0x38, 0x3A, 0x3B, 0x3C, 0x3D, 0x3E, 0x7A, 0x7F, 0x1F):
        info["fixed"] = {0x30: 1, 0x32: 1, 0x34: 2, 0x38: 4, 0x3A: 4, 0x3B: 4, 0x3C: 8, 0x3D: 8,
                         0x3E: 8, 0x7A: 4, 0x7F: 8, 0x1F: 0}[tok]
    elif tok in (st.INTN, st.BITN, st.FLTN, st.MONEYN, st.DATETIMN, st.GUIDTYPE):
        info["size"] = r.u8()
    elif tok in (st.DECIMALN, st.NUMERICN, 0x37, 0x3F):
        info["size"], info["precision"], info["scale"] = r.u8(), r.u8(), r.u8()
    elif tok == st.DATENTYPE:
        pass
    elif tok in (st.TIMENTYPE, st.DATETIME2NTYPE, st.DATETIMEOFFSETNTYPE):
        info["scale"] = r.u8()
    elif tok in (st.BIGVARCHR, st.BIGCHAR, st.NVARCHAR, st.NCHAR):
        info["size"] = r.u16()
        info["collation"] = r.take(5)
    elif tok in (st.BIGVARBIN, st.BIGBINARY):
        info["size"] = r.u16()
    elif tok in (st.TEXTTYPE, st.NTEXTTYPE, st.IMAGETYPE):
        info["size"] = r.u32()
        if tok != st.IMAGETYPE:
            info["collation"] = r.take(5)
    elif tok == st.XMLTYPE:
        if r.u8():
            r.b_varchar(), r.b_varchar(), r.us_varchar()
    else:
        raise RpcError(f"parameter type 0x{tok:02X} is not supported by the stand-in")
    return tok, info


def _plp(r):
    total = r.u64()
    if total == 0xFFFFFFFFFFFFFFFF:
        return None
    parts = []
    while True:
        n = r.u32()
        if n == 0:
            return b"".join(parts)
        parts.append(r.take(n))


def _value(r, tok, info):
    if "fixed" in info:
        size = info["fixed"]
        data = r.take(size)
        return _decode(tok, info, data) if size else None
    if tok in (st.INTN, st.BITN, st.FLTN, st.MONEYN, st.DATETIMN, st.GUIDTYPE,
               st.DECIMALN, st.NUMERICN, 0x37, 0x3F, st.DATENTYPE, st.TIMENTYPE,
               st.DATETIME2NTYPE, st.DATETIMEOFFSETNTYPE):
        n = r.u8()
        return _decode(tok, info, r.take(n)) if n else None
    if tok in (st.BIGVARCHR, st.BIGCHAR, st.NVARCHAR, st.NCHAR, st.BIGVARBIN, st.BIGBINARY):
        if info["size"] == 0xFFFF:
            data = _plp(r)
        else:
            n = r.u16()
            data = None if n == 0xFFFF else r.take(n)
        return None if data is None else _decode(tok, info, data)
    if tok in (st.TEXTTYPE, st.NTEXTTYPE, st.IMAGETYPE):
        n = r.u32()  # parameters carry a plain 4-byte length
        if n == 0xFFFFFFFF:
            return None
        return _decode(tok, info, r.take(n))
    if tok == st.XMLTYPE:
        data = _plp(r)
        return None if data is None else data.decode("utf-16-le")
    raise RpcError(f"parameter type 0x{tok:02X} is not supported by the stand-in")


def _decode(tok, info, data):
    n = len(data)
    if tok in (0x30,) or (tok == st.INTN and n == 1):
        return data[0]
    if tok in (0x34, 0x38, 0x7F, st.INTN):
        return int.from_bytes(data, "little", signed=True)
    if tok in (0x32, st.BITN):
        return int(data[0] != 0)
    if tok in (0x3B, 0x3E, st.FLTN):
        return struct.unpack("<f" if n == 4 else "<d", data)[0]
    if tok in (0x3C, 0x7A, st.MONEYN):
        if n == 4:
            v = struct.unpack("<i", data)[0]
        else:
            hi, lo = struct.unpack("<iI", data)
            v = (hi << 32) | lo
        return format(decimal.Decimal(v).scaleb(-4, st.CTX), "f")
    if tok in (st.DECIMALN, st.NUMERICN, 0x37, 0x3F):
        mag = int.from_bytes(data[1:], "little")
        v = decimal.Decimal(mag if data[0] else -mag).scaleb(-info["scale"], st.CTX)
        return format(v, "f")
    if tok == st.GUIDTYPE:
        return str(uuid.UUID(bytes_le=bytes(data))).upper()
    if tok in (0x3A, 0x3D, st.DATETIMN):
        if n == 4:
            days, minutes = struct.unpack("<HH", data)
            return temporal.format_date(days + temporal.DAY_1900) + " " + \
                temporal.format_time(minutes * 60 * temporal.TICKS_PER_SECOND, 0)
        days, t300 = struct.unpack("<iI", data)
        return temporal.datetime_text(days, t300)
    if tok == st.DATENTYPE:
        return temporal.format_date(int.from_bytes(data, "little"))
    if tok in (st.TIMENTYPE, st.DATETIME2NTYPE, st.DATETIMEOFFSETNTYPE):
        scale = info["scale"]
        tb = temporal.time_bytes(scale)
        ticks = int.from_bytes(data[:tb], "little") * 10 ** (7 - scale)
        if tok == st.TIMENTYPE:
            return temporal.format_time(ticks, scale)
        days = int.from_bytes(data[tb:tb + 3], "little")
        if tok == st.DATETIME2NTYPE:
            return temporal.format_date(days) + " " + temporal.format_time(ticks, scale)
        offset = struct.unpack("<h", data[tb + 3:tb + 5])[0]
        local = days * temporal.TICKS_PER_DAY + ticks + offset * 60 * temporal.TICKS_PER_SECOND
        d, t = divmod(local, temporal.TICKS_PER_DAY)
        return (temporal.format_date(d) + " " + temporal.format_time(t, scale) + " "
                + temporal.format_offset(offset))
    if tok in (st.NVARCHAR, st.NCHAR, st.NTEXTTYPE):
        return bytes(data).decode("utf-16-le", errors="surrogatepass")
    if tok in (st.BIGVARCHR, st.BIGCHAR, st.TEXTTYPE):
        codec = _codec_of(info.get("collation"))
        return bytes(data).decode(codec, errors="replace")
    return bytes(data)


def _codec_of(coll):
    if not coll:
        return "cp1252"
    lcid = struct.unpack("<I", coll[:4])[0] & 0xFFFFF
    for l_, _f, _s, codec in st.COLLATIONS.values():
        if l_ == lcid:
            return codec
    return "cp1252"


def literal(value):
    """A token that stands for a parameter value inside a statement."""
    if value is None:
        return Token("word", "NULL")
    if isinstance(value, bool):
        return Token("num", str(int(value)))
    if isinstance(value, int):
        return Token("num", str(value))
    if isinstance(value, float):
        return Token("num", repr(value))
    if isinstance(value, (bytes, bytearray)):
        return Token("num", "0x" + bytes(value).hex())
    return Token("str", "N'" + value.replace("'", "''") + "'", value)
