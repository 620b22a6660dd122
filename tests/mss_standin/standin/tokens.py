"""Builders for the response tokens of the tabular result stream."""
import struct

COLMETADATA = 0x81
ERROR = 0xAA
INFO = 0xAB
LOGINACK = 0xAD
ENVCHANGE = 0xE3
ROW = 0xD1
NBCROW = 0xD2
RETURNSTATUS = 0x79
RETURNVALUE = 0xAC
DONE = 0xFD
DONEPROC = 0xFE
DONEINPROC = 0xFF
ORDER = 0xA9

DONE_FINAL = 0x0000
DONE_MORE = 0x0001
DONE_ERROR = 0x0002
DONE_INXACT = 0x0004
DONE_COUNT = 0x0010
DONE_ATTN = 0x0020
DONE_SRVERROR = 0x0100

ENV_DATABASE = 1
ENV_LANGUAGE = 2
ENV_PACKETSIZE = 4
ENV_COLLATION = 7
ENV_BEGIN_TRAN = 8
ENV_COMMIT_TRAN = 9
ENV_ROLLBACK_TRAN = 10


def b_varchar(text):
    """One-byte character count, then UTF-16LE."""
    data = text.encode("utf-16-le")
    return bytes([len(data) // 2]) + data


def us_varchar(text):
    """Two-byte character count, then UTF-16LE."""
    data = text.encode("utf-16-le")
    return struct.pack("<H", len(data) // 2) + data


def envchange(kind, new, old):
    if isinstance(new, str):
        body = bytes([kind]) + b_varchar(new) + b_varchar(old)
    else:  # binary values (collation, transaction descriptors)
        body = bytes([kind, len(new)]) + new + bytes([len(old)]) + old
    return struct.pack("<BH", ENVCHANGE, len(body)) + body


def message(token, number, state, klass, text, server, proc="", line=1):
    body = (struct.pack("<iBB", number, state, klass) + us_varchar(text)
            + b_varchar(server) + b_varchar(proc) + struct.pack("<i", line))
    return struct.pack("<BH", token, len(body)) + body


def error(number, state, klass, text, server, proc="", line=1):
    return message(ERROR, number, state, klass, text, server, proc, line)


def info(number, state, klass, text, server, proc="", line=1):
    return message(INFO, number, state, klass, text, server, proc, line)


def loginack(tds_version, prog_name, major, minor, build):
    body = (bytes([1]) + tds_version + b_varchar(prog_name)
            + bytes([major, minor, (build >> 8) & 0xFF, build & 0xFF]))
    return struct.pack("<BH", LOGINACK, len(body)) + body


_DONE = struct.Struct("<BHHQ")


def done(status=DONE_FINAL, curcmd=0, rowcount=0, token=DONE):
    return _DONE.pack(token, status, curcmd, rowcount)


def returnstatus(value):
    return struct.pack("<Bi", RETURNSTATUS, value)


def colmetadata(columns):
    """columns: list of (name, SqlType, flags, table_parts)."""
    out = [struct.pack("<BH", COLMETADATA, len(columns))]
    for name, sqltype, flags, table_parts in columns:
        out.append(struct.pack("<IH", sqltype.user_type, flags))
        out.append(sqltype.type_info())
        if sqltype.has_table_name:
            parts = table_parts or []
            out.append(bytes([len(parts)]))
            for part in parts:
                out.append(us_varchar(part))
        out.append(b_varchar(name))
    return b"".join(out)


def returnvalue(ordinal, name, sqltype, value, output=True):
    return (struct.pack("<BH", RETURNVALUE, ordinal) + b_varchar(name)
            + bytes([0x01 if output else 0x02]) + struct.pack("<IH", sqltype.user_type, 0x0009)
            + sqltype.type_info() + sqltype.encode(value))
