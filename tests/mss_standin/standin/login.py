"""PRELOGIN and LOGIN7: parsing the client's packets and building the replies."""
import struct

from . import tokens
from .sqltypes import collation_bytes

TDS74 = bytes([0x74, 0x00, 0x00, 0x04])
ENCRYPT_NOT_SUP = 0x02
OPTION_FLAGS2_ODBC = 0x02


def parse_prelogin(payload):
    """Options of a PRELOGIN message: {token: bytes}."""
    opts, pos = {}, 0
    while pos < len(payload) and payload[pos] != 0xFF:
        token, offset, length = struct.unpack_from(">BHH", payload, pos)
        opts[token] = payload[offset:offset + length]
        pos += 5
    return opts


def prelogin_reply(product_version):
    """VERSION, ENCRYPTION (not supported), INSTOPT, THREADID, MARS."""
    major, minor, build = product_version
    options = [
        (0x00, struct.pack(">BBHH", major, minor, build, 0)),
        (0x01, bytes([ENCRYPT_NOT_SUP])),
        (0x02, b"\x00"),
        (0x03, b""),
        (0x04, b"\x00"),
    ]
    head = len(options) * 5 + 1
    out, data = [], []
    offset = head
    for token, value in options:
        out.append(struct.pack(">BHH", token, offset, len(value)))
        data.append(value)
        offset += len(value)
    return b"".join(out) + b"\xff" + b"".join(data)


class Login7:
    def __init__(self, payload):
        (self.length, self.tds_version, self.packet_size, _prog, _pid, _conn,
         self.flags1, self.flags2, self.type_flags, self.flags3,
         _tz, _lcid) = struct.unpack_from("<IIIIIIBBBBiI", payload, 0)
        self.tds_version = struct.unpack_from("<I", payload, 4)[0]

        def field(pos):
            off, cch = struct.unpack_from("<HH", payload, pos)
            return payload[off:off + cch * 2]
        self.host = field(36).decode("utf-16-le")
        self.user = field(40).decode("utf-16-le")
        self.password = decode_password(field(44))
        self.app = field(48).decode("utf-16-le")
        self.server = field(52).decode("utf-16-le")
        self.library = field(60).decode("utf-16-le")
        self.language = field(64).decode("utf-16-le")
        self.database = field(68).decode("utf-16-le")

    @property
    def odbc(self):
        return bool(self.flags2 & OPTION_FLAGS2_ODBC)


def decode_password(data):
    """LOGIN7 scrambles each byte: swap nibbles, then XOR 0xA5. Undo both."""
    out = bytearray()
    for b in data:
        b ^= 0xA5
        out.append(((b << 4) & 0xF0) | (b >> 4))
    return out.decode("utf-16-le", errors="replace")


def login_failed(server_name, user):
    return (tokens.error(18456, 1, 14, f"Login failed for user '{user}'.", server_name)
            + tokens.done(tokens.DONE_ERROR))


def cannot_open_database(server_name, user, database):
    return (tokens.error(4060, 1, 11, f'Cannot open database "{database}" requested by the login. '
                                      "The login failed.", server_name)
            + tokens.error(18456, 1, 14, f"Login failed for user '{user}'.", server_name)
            + tokens.done(tokens.DONE_ERROR))


def login_reply(server, database, packet_size):
    major, minor, build = server.product_version
    return b"".join([
        tokens.envchange(tokens.ENV_DATABASE, database, "master"),
        tokens.info(5701, 2, 0, f"Changed database context to '{database}'.", server.name),
        tokens.envchange(tokens.ENV_COLLATION, collation_bytes(server.collation), b""),
        tokens.envchange(tokens.ENV_LANGUAGE, "us_english", ""),
        tokens.info(5703, 1, 0, "Changed language setting to us_english.", server.name),
        tokens.loginack(TDS74, "Microsoft SQL Server", major, minor, build),
        tokens.envchange(tokens.ENV_PACKETSIZE, str(packet_size), str(packet_size)),
        tokens.done(),
    ])
