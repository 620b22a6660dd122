"""SQL Server column types: parsing, fixture values, and TDS 7.4 encodings.

Each column type is an SqlType built from its declaration text ("int",
"decimal(12,2)", "nvarchar(max)", "datetime2(7)", "geography"). Values are
held in one canonical Python form per type, which is also what the sqlite
engine stores:

    bit, tinyint, smallint, int, bigint      int
    real, float                              float
    decimal, numeric, money, smallmoney      str  ("-12.50", exact)
    char, varchar, text, nchar, nvarchar,
    ntext, xml, sysname                      str
    binary, varbinary, image, timestamp      bytes
    uniqueidentifier                         str  ("6F9619FF-8B86-D011-B42D-00C04FC964FF")
    date, time, datetime2, datetimeoffset,
    datetime, smalldatetime                  str  (as SQL Server prints it)
    geometry, geography                      str  (WKT as STAsText() prints it)

`from_fixture` turns the readable fixture encoding into that form (checking
ranges), `type_info` is the TYPE_INFO of COLMETADATA, `encode` the value
as it travels in a ROW (None is NULL).
"""
import decimal
import re
import struct
import uuid

from . import spatial, temporal

D = decimal.Decimal
# Decimal contexts are per thread; every operation names this one so that 38
# digits never round, whichever session thread runs it.
CTX = decimal.Context(prec=80, rounding=decimal.ROUND_HALF_UP)


class TypeError_(ValueError):
    """A declaration or a value that the type cannot hold."""


# type tokens
INTN, BITN, FLTN, MONEYN, DATETIMN = 0x26, 0x68, 0x6D, 0x6E, 0x6F
DECIMALN, NUMERICN, GUIDTYPE = 0x6A, 0x6C, 0x24
DATENTYPE, TIMENTYPE, DATETIME2NTYPE, DATETIMEOFFSETNTYPE = 0x28, 0x29, 0x2A, 0x2B
BIGVARBIN, BIGVARCHR, BIGBINARY, BIGCHAR, NVARCHAR, NCHAR = 0xA5, 0xA7, 0xAD, 0xAF, 0xE7, 0xEF
TEXTTYPE, IMAGETYPE, NTEXTTYPE, XMLTYPE, UDTTYPE = 0x23, 0x22, 0x63, 0xF1, 0xF0

PLP_NULL = b"\xff" * 8
PLP_CHUNK = 8000
TEXTPTR = bytes([0x10]) + b"\x00" * 15 + b"\x01" + b"\x00" * 8  # ptr length, ptr, timestamp

# Collations by name: (LCID, flag bits, sort id, Python codec).
COLLATIONS = {
    "sql_latin1_general_cp1_ci_as": (0x0409, 0x0D, 52, "cp1252"),
    "sql_latin1_general_cp1_cs_as": (0x0409, 0x0C, 51, "cp1252"),
    "latin1_general_ci_as": (0x0409, 0x0D, 0, "cp1252"),
    "latin1_general_cs_as": (0x0409, 0x0C, 0, "cp1252"),
    "cyrillic_general_ci_as": (0x0419, 0x0D, 0, "cp1251"),
    "polish_ci_as": (0x0415, 0x0D, 0, "cp1250"),
    "greek_ci_as": (0x0408, 0x0D, 0, "cp1253"),
    "turkish_ci_as": (0x041F, 0x0D, 0, "cp1254"),
    "hebrew_ci_as": (0x040D, 0x0D, 0, "cp1255"),
    "arabic_ci_as": (0x0401, 0x0D, 0, "cp1256"),
    "japanese_ci_as": (0x0411, 0x0D, 0, "cp932"),
    "chinese_prc_ci_as": (0x0804, 0x0D, 0, "gbk"),
    "korean_wansung_ci_as": (0x0412, 0x0D, 0, "cp949"),
}
DEFAULT_COLLATION = "SQL_Latin1_General_CP1_CI_AS"


def collation_bytes(name):
    lcid, flags, sortid, _ = _collation(name)
    return struct.pack("<IB", lcid | (flags << 20), sortid)


def collation_codec(name):
    return _collation(name)[3]


def _collation(name):
    try:
        return COLLATIONS[name.lower()]
    except KeyError:
        raise TypeError_(f"unknown collation {name!r}; known: {sorted(COLLATIONS)}") from None


INT_RANGES = {"tinyint": (0, 255, 1), "smallint": (-2**15, 2**15 - 1, 2),
              "int": (-2**31, 2**31 - 1, 4), "bigint": (-2**63, 2**63 - 1, 8)}
MONEY_RANGES = {"money": (D("-922337203685477.5808"), D("922337203685477.5807"), 8),
                "smallmoney": (D("-214748.3648"), D("214748.3647"), 4)}
CHAR_TYPES = ("char", "varchar", "nchar", "nvarchar", "text", "ntext", "sysname", "xml")
BINARY_TYPES = ("binary", "varbinary", "image", "timestamp", "rowversion")
ALIASES = {"integer": "int", "dec": "decimal", "rowversion": "timestamp",
           "double precision": "float", "character": "char", "national char": "nchar"}
_DECL = re.compile(r"^\s*([a-z0-9_ ]+?)\s*(?:\(\s*([^)]*)\))?\s*$", re.I)

SPATIAL_ASSEMBLY = ("Microsoft.SqlServer.Types.Sql{0}, Microsoft.SqlServer.Types, "
                    "Version=11.0.0.0, Culture=neutral, PublicKeyToken=89845dcd8080cc91")


class SqlType:
    """One declared SQL Server type with its wire encoding."""

    def __init__(self, declaration, collation=DEFAULT_COLLATION):
        m = _DECL.match(declaration or "")
        if not m:
            raise TypeError_(f"cannot read type declaration {declaration!r}")
        name = " ".join(m.group(1).lower().split())
        name = ALIASES.get(name, name)
        args = [a.strip().lower() for a in m.group(2).split(",")] if m.group(2) else []
        self.name = name
        self.declaration = declaration
        self.collation = collation
        self.length = None      # chars for character types, bytes for binary; -1 = max
        self.precision = None
        self.scale = None
        self.user_type = 0
        self.has_table_name = name in ("text", "ntext", "image")
        self._init(name, args)

    # -- declaration -----------------------------------------------------------
    def _init(self, name, args):
        def length(default, limit):
            if not args:
                return default
            if args[0] == "max":
                return -1
            n = int(args[0])
            if not 1 <= n <= limit:
                raise TypeError_(f"length {n} out of range in {self.declaration!r}")
            return n

        if name in INT_RANGES or name in ("bit", "real", "money", "smallmoney", "date",
                                          "datetime", "smalldatetime", "uniqueidentifier",
                                          "text", "ntext", "image", "xml", "geometry",
                                          "geography", "timestamp"):
            if args and name not in ("xml",):
                raise TypeError_(f"{name} takes no arguments: {self.declaration!r}")
        elif name == "float":
            n = int(args[0]) if args else 53
            if not 1 <= n <= 53:
                raise TypeError_(f"float precision out of range: {self.declaration!r}")
            if n <= 24:
                self.name = "real"
        elif name in ("decimal", "numeric"):
            self.precision = int(args[0]) if args else 18
            self.scale = int(args[1]) if len(args) > 1 else 0
            if not (1 <= self.precision <= 38 and 0 <= self.scale <= self.precision):
                raise TypeError_(f"bad precision/scale in {self.declaration!r}")
        elif name in ("time", "datetime2", "datetimeoffset"):
            self.scale = int(args[0]) if args else 7
            if not 0 <= self.scale <= 7:
                raise TypeError_(f"scale out of range in {self.declaration!r}")
        elif name in ("char", "binary"):
            self.length = length(1, 8000)
            if self.length == -1:
                raise TypeError_(f"{name}(max) does not exist")
        elif name == "nchar":
            self.length = length(1, 4000)
            if self.length == -1:
                raise TypeError_("nchar(max) does not exist")
        elif name in ("varchar", "varbinary"):
            self.length = length(1, 8000)
        elif name == "nvarchar":
            self.length = length(1, 4000)
        elif name == "sysname":
            self.name, self.length = "nvarchar", 128
            self.user_type = 256
        else:
            raise TypeError_(f"unsupported type {self.declaration!r}")
        if self.name == "timestamp":
            self.user_type = 80
        if self.name in ("varchar", "char", "text"):
            collation_codec(self.collation)  # fail early on an unknown collation

    @property
    def is_max(self):
        return self.length == -1

    @property
    def is_long(self):
        """Types limited by SET TEXTSIZE."""
        return self.is_max or self.name in ("text", "ntext", "image")

    def __repr__(self):
        return f"SqlType({self.type_name()})"

    def type_name(self):
        """The declaration as SQL Server writes it."""
        n = self.name
        if n in ("decimal", "numeric"):
            return f"{n}({self.precision},{self.scale})"
        if n in ("time", "datetime2", "datetimeoffset"):
            return f"{n}({self.scale})"
        if self.length is not None:
            return f"{n}({'max' if self.is_max else self.length})"
        return n

    def max_bytes(self):
        """Maximum size in bytes as sys.columns.max_length reports it (-1 = max)."""
        n = self.name
        fixed = {"bit": 1, "tinyint": 1, "smallint": 2, "int": 4, "bigint": 8, "real": 4,
                 "float": 8, "money": 8, "smallmoney": 4, "datetime": 8, "smalldatetime": 4,
                 "date": 3, "uniqueidentifier": 16, "timestamp": 8, "text": 16, "ntext": 16,
                 "image": 16, "xml": -1, "geometry": -1, "geography": -1}
        if n in fixed:
            return fixed[n]
        if n in ("decimal", "numeric"):
            return self._decimal_len()
        if n == "time":
            return temporal.time_bytes(self.scale)
        if n == "datetime2":
            return temporal.time_bytes(self.scale) + 3
        if n == "datetimeoffset":
            return temporal.time_bytes(self.scale) + 5
        if self.is_max:
            return -1
        return self.length * (2 if n in ("nchar", "nvarchar") else 1)

    def _decimal_len(self):
        p = self.precision
        return 5 if p <= 9 else 9 if p <= 19 else 13 if p <= 28 else 17

    def codec(self):
        return collation_codec(self.collation)

    # -- TYPE_INFO -----------------------------------------------------------
    def type_info(self):
        n = self.name
        if n in INT_RANGES:
            return bytes([INTN, INT_RANGES[n][2]])
        if n == "bit":
            return bytes([BITN, 1])
        if n == "real":
            return bytes([FLTN, 4])
        if n == "float":
            return bytes([FLTN, 8])
        if n in MONEY_RANGES:
            return bytes([MONEYN, MONEY_RANGES[n][2]])
        if n == "datetime":
            return bytes([DATETIMN, 8])
        if n == "smalldatetime":
            return bytes([DATETIMN, 4])
        if n in ("decimal", "numeric"):
            return bytes([DECIMALN if n == "decimal" else NUMERICN, self._decimal_len(),
                          self.precision, self.scale])
        if n == "uniqueidentifier":
            return bytes([GUIDTYPE, 16])
        if n == "date":
            return bytes([DATENTYPE])
        if n == "time":
            return bytes([TIMENTYPE, self.scale])
        if n == "datetime2":
            return bytes([DATETIME2NTYPE, self.scale])
        if n == "datetimeoffset":
            return bytes([DATETIMEOFFSETNTYPE, self.scale])
        if n in ("char", "varchar"):
            size = 0xFFFF if self.is_max else self.length
            return struct.pack("<BH", BIGCHAR if n == "char" else BIGVARCHR, size) + \
                collation_bytes(self.collation)
        if n in ("nchar", "nvarchar"):
            size = 0xFFFF if self.is_max else self.length * 2
            return struct.pack("<BH", NCHAR if n == "nchar" else NVARCHAR, size) + \
                collation_bytes(self.collation)
        if n in ("binary", "varbinary"):
            size = 0xFFFF if self.is_max else self.length
            return struct.pack("<BH", BIGBINARY if n == "binary" else BIGVARBIN, size)
        if n == "timestamp":
            return struct.pack("<BH", BIGBINARY, 8)
        if n == "text":
            return struct.pack("<BI", TEXTTYPE, 0x7FFFFFFF) + collation_bytes(self.collation)
        if n == "ntext":
            return struct.pack("<BI", NTEXTTYPE, 0x7FFFFFFE) + collation_bytes(self.collation)
        if n == "image":
            return struct.pack("<BI", IMAGETYPE, 0x7FFFFFFF)
        if n == "xml":
            return bytes([XMLTYPE, 0])
        if n in ("geometry", "geography"):
            from .tokens import b_varchar, us_varchar
            return (struct.pack("<BH", UDTTYPE, 0xFFFF) + b_varchar("") + b_varchar("sys")
                    + b_varchar(n) + us_varchar(SPATIAL_ASSEMBLY.format(n.capitalize())))
        raise TypeError_(f"no TDS encoding for {n}")

    # -- values from the fixture ---------------------------------------------
    def from_fixture(self, v):
        """Canonical value of a readable fixture value (None stays None)."""
        if v is None:
            return None
        if isinstance(v, dict):
            v = generate(v, self)
        n = self.name
        try:
            if n == "bit":
                if isinstance(v, bool):
                    return int(v)
                iv = int(str(v))
                if iv not in (0, 1):
                    raise TypeError_(f"bit value {v!r} is not 0 or 1")
                return iv
            if n in INT_RANGES:
                lo, hi, _ = INT_RANGES[n]
                iv = int(str(v))
                if not lo <= iv <= hi:
                    raise TypeError_(f"{v!r} out of range for {n}")
                return iv
            if n in ("real", "float"):
                fv = float(v)
                if n == "real":
                    fv = struct.unpack("<f", struct.pack("<f", fv))[0]
                return fv
            if n in ("decimal", "numeric"):
                return self._decimal_text(D(str(v)))
            if n in MONEY_RANGES:
                dv = D(str(v)).quantize(D("0.0001"), context=CTX)
                lo, hi, _ = MONEY_RANGES[n]
                if not lo <= dv <= hi:
                    raise TypeError_(f"{v!r} out of range for {n}")
                return _plain(dv)
            if n in ("char", "varchar", "text"):
                s = str(v)
                data = s.encode(self.codec())  # raises for characters outside the code page
                if self.length and self.length > 0 and len(data) > self.length:
                    raise TypeError_(f"{len(data)} bytes do not fit {self.type_name()}")
                return s
            if n in ("nchar", "nvarchar", "ntext", "xml"):
                s = str(v)
                units = len(s.encode("utf-16-le")) // 2
                if self.length and self.length > 0 and units > self.length:
                    raise TypeError_(f"{units} UTF-16 units do not fit {self.type_name()}")
                return s
            if n in ("binary", "varbinary", "image", "timestamp"):
                b = v if isinstance(v, (bytes, bytearray)) else parse_hex(v)
                limit = 8 if n == "timestamp" else self.length
                if limit and limit > 0 and len(b) > limit:
                    raise TypeError_(f"{len(b)} bytes do not fit {self.type_name()}")
                if n == "timestamp" and len(b) != 8:
                    raise TypeError_("a timestamp value has 8 bytes")
                return bytes(b)
            if n == "uniqueidentifier":
                return str(uuid.UUID(str(v))).upper()
            if n in ("date", "time", "datetime2", "datetimeoffset", "datetime", "smalldatetime"):
                return self._temporal_text(str(v))
            if n in ("geometry", "geography"):
                return spatial.canonical_wkt(str(v))
        except (ValueError, ArithmeticError, UnicodeError) as e:
            if isinstance(e, TypeError_):
                raise
            raise TypeError_(f"value {str(v)[:60]!r} does not fit {self.type_name()}: {e}") from None
        raise TypeError_(f"no fixture values for {n}")

    def _decimal_text(self, dv):
        q = D(1).scaleb(-self.scale, CTX)
        dv = dv.quantize(q, context=CTX)
        digits = len(dv.as_tuple().digits) if dv != 0 else 1
        if digits > self.precision:
            raise TypeError_(f"{dv} has more than {self.precision} digits")
        return _plain(dv)

    def _temporal_text(self, text):
        n = self.name
        days, ticks, offset = temporal.parse(text)
        if n == "date":
            if days is None or ticks:
                raise TypeError_(f"date value must be a date: {text!r}")
            return temporal.format_date(days)
        if n == "time":
            if ticks is None or days is not None:
                raise TypeError_(f"time value must be a time: {text!r}")
            _, ticks = temporal.round_ticks(None, ticks, self.scale)
            return temporal.format_time(ticks, self.scale)
        if days is None:
            raise TypeError_(f"{n} value needs a date: {text!r}")
        ticks = ticks or 0
        if n == "datetimeoffset":
            if offset is None:
                offset = 0
            days, ticks = temporal.round_ticks(days, ticks, self.scale)
            return (temporal.format_date(days) + " " + temporal.format_time(ticks, self.scale)
                    + " " + temporal.format_offset(offset))
        if offset is not None:
            raise TypeError_(f"{n} has no time zone: {text!r}")
        if n == "datetime2":
            days, ticks = temporal.round_ticks(days, ticks, self.scale)
            return temporal.format_date(days) + " " + temporal.format_time(ticks, self.scale)
        if n == "datetime":
            d1900, t300 = temporal.datetime_parts(days, ticks)
            if not (-53690 <= d1900 <= 2958463):
                raise TypeError_(f"{text!r} out of range for datetime")
            return temporal.datetime_text(d1900, t300)
        d1900, minutes = temporal.smalldatetime_parts(days, ticks)
        if not 0 <= d1900 <= 65535 or (d1900 == 65535 and minutes > 1439):
            raise TypeError_(f"{text!r} out of range for smalldatetime")
        return temporal.format_date(d1900 + temporal.DAY_1900) + " " + \
            temporal.format_time(minutes * 60 * temporal.TICKS_PER_SECOND, 0)

    def coerce(self, v):
        """Canonical value from whatever sqlite returned for this column."""
        if v is None:
            return None
        n = self.name
        if n in INT_RANGES or n == "bit":
            return int(v)
        if n in ("real", "float"):
            return float(v)
        if n in ("binary", "varbinary", "image", "timestamp"):
            return bytes(v) if isinstance(v, (bytes, bytearray, memoryview)) else str(v).encode()
        return v if isinstance(v, str) else str(v)

    # -- ROW encoding --------------------------------------------------------
    def encode(self, v, textsize=None):
        n = self.name
        if n in INT_RANGES:
            size = INT_RANGES[n][2]
            if v is None:
                return b"\x00"
            return bytes([size]) + int(v).to_bytes(size, "little", signed=(n != "tinyint"))
        if n == "bit":
            return b"\x00" if v is None else bytes([1, 1 if v else 0])
        if n == "real":
            return b"\x00" if v is None else b"\x04" + struct.pack("<f", v)
        if n == "float":
            return b"\x00" if v is None else b"\x08" + struct.pack("<d", v)
        if n in ("decimal", "numeric"):
            if v is None:
                return b"\x00"
            dv = D(v).quantize(D(1).scaleb(-self.scale, CTX), context=CTX)
            mag = int(dv.copy_abs().scaleb(self.scale, CTX))
            size = self._decimal_len()
            return bytes([size, 0 if dv < 0 else 1]) + mag.to_bytes(size - 1, "little")
        if n == "money":
            if v is None:
                return b"\x00"
            iv = int(D(v).scaleb(4, CTX))
            return b"\x08" + struct.pack("<iI", iv >> 32, iv & 0xFFFFFFFF)
        if n == "smallmoney":
            return b"\x00" if v is None else b"\x04" + struct.pack("<i", int(D(v).scaleb(4, CTX)))
        if n == "uniqueidentifier":
            return b"\x00" if v is None else b"\x10" + uuid.UUID(v).bytes_le
        if n in ("date", "time", "datetime2", "datetimeoffset", "datetime", "smalldatetime"):
            return b"\x00" if v is None else self._encode_temporal(v)
        if n in ("char", "varchar", "nchar", "nvarchar", "binary", "varbinary", "timestamp"):
            if v is None:
                return PLP_NULL if self.is_max else b"\xff\xff"
            data = self._bytes(v)
            if self.is_max:
                return plp(_cut(data, textsize, n == "nvarchar"))
            return struct.pack("<H", len(data)) + data
        if n in ("text", "ntext", "image"):
            if v is None:
                return b"\x00"
            data = _cut(self._bytes(v), textsize, n == "ntext")
            return TEXTPTR + struct.pack("<I", len(data)) + data
        if n == "xml":
            return PLP_NULL if v is None else plp(v.encode("utf-16-le"))
        if n in ("geometry", "geography"):
            if v is None:
                return PLP_NULL
            shape = spatial.parse_wkt(v)
            srid = 4326 if n == "geography" else 0
            return plp(spatial.serialize(shape, srid, n == "geography"))
        raise TypeError_(f"no TDS encoding for {n}")

    def _bytes(self, v):
        n = self.name
        if n in ("char", "varchar", "text"):
            data = v.encode(self.codec(), errors="replace")
            if n == "char" and len(data) < self.length:
                data += b" " * (self.length - len(data))
            return data
        if n in ("nchar", "nvarchar", "ntext"):
            data = v.encode("utf-16-le", errors="surrogatepass")
            if n == "nchar" and len(data) < self.length * 2:
                data += " ".encode("utf-16-le") * (self.length - len(data) // 2)
            return data
        data = bytes(v)
        if n == "binary" and len(data) < self.length:
            data += b"\x00" * (self.length - len(data))
        return data

    def _encode_temporal(self, text):
        n = self.name
        days, ticks, offset = temporal.parse(text)
        if n == "date":
            return b"\x03" + temporal.encode_date(days)
        if n == "time":
            t = temporal.encode_time(ticks, self.scale)
            return bytes([len(t)]) + t
        if n == "datetime2":
            t = temporal.encode_time(ticks, self.scale) + temporal.encode_date(days)
            return bytes([len(t)]) + t
        if n == "datetimeoffset":
            utc = days * temporal.TICKS_PER_DAY + ticks - offset * 60 * temporal.TICKS_PER_SECOND
            udays, uticks = divmod(utc, temporal.TICKS_PER_DAY)
            t = (temporal.encode_time(uticks, self.scale) + temporal.encode_date(udays)
                 + struct.pack("<h", offset))
            return bytes([len(t)]) + t
        if n == "datetime":
            d1900, t300 = temporal.datetime_parts(days, ticks)
            return b"\x08" + struct.pack("<iI", d1900, t300)
        d1900, minutes = temporal.smalldatetime_parts(days, ticks)
        return b"\x04" + struct.pack("<HH", d1900, minutes)


def _cut(data, textsize, wide):
    """Applies SET TEXTSIZE (bytes; whole characters for wide text)."""
    if textsize is None or len(data) <= textsize:
        return data
    if wide:
        textsize -= textsize % 2
    return data[:textsize]


def plp(data, chunk=PLP_CHUNK):
    """A partially length-prefixed value: total length, chunks, terminator."""
    out = [struct.pack("<Q", len(data))]
    mv = memoryview(data)
    for pos in range(0, len(data), chunk):
        part = mv[pos:pos + chunk]
        out.append(struct.pack("<I", len(part)))
        out.append(part)
    out.append(b"\x00\x00\x00\x00")
    return b"".join(out)


def _plain(dv):
    text = format(dv, "f")
    return "0" + text[1:] if text.startswith("-0") and D(text) == 0 else text


def parse_hex(v):
    s = str(v).strip()
    if s[:2].lower() == "0x":
        s = s[2:]
    try:
        return bytes.fromhex(s)
    except ValueError:
        raise TypeError_(f"binary values are hexadecimal text like '0x01AB': {str(v)[:40]!r}") from None


def generate(rule, sqltype):
    """Expands a value rule of the fixture: {"repeat": X, "count": N} or
    {"bytes_sequence": N} (bytes 0, 1, ... 255, 0, ... of length N)."""
    if "repeat" in rule:
        count = int(rule.get("count", 1))
        unit = rule["repeat"]
        if sqltype.name in BINARY_TYPES:
            return parse_hex(unit) * count
        return str(unit) * count
    if "bytes_sequence" in rule:
        n = int(rule["bytes_sequence"])
        return (bytes(range(256)) * (n // 256 + 1))[:n]
    raise TypeError_(f"unknown value rule {rule!r}")


def infer(values):
    """A type for a computed result column, from its values."""
    kinds = {type(v) for v in values if v is not None}
    if not kinds or kinds <= {int, bool}:
        big = any(v is not None and not -2**31 <= v < 2**31 for v in values)
        return SqlType("bigint" if big else "int")
    if kinds <= {int, float}:
        return SqlType("float")
    if kinds <= {bytes}:
        longest = max(len(v) for v in values if v is not None)
        return SqlType("varbinary(max)" if longest > 8000 else "varbinary(8000)")
    longest = max((len(str(v)) for v in values if v is not None), default=1)
    return SqlType("nvarchar(max)" if longest > 4000 else "nvarchar(4000)")
