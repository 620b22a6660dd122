"""geometry and geography values: well-known text and SQL Server's serialisation.

A value is a shape: (kind, content). kind is one of POINT, LINESTRING,
POLYGON, MULTIPOINT, MULTILINESTRING, MULTIPOLYGON, GEOMETRYCOLLECTION;
content is a point (x, y), a list of points, a list of rings, or a list of
shapes, and None for EMPTY. `format_wkt` prints the text the way STAsText()
does, `serialize` writes the CLR type's binary form (version 1): SRID,
version, flags, then either one point or one segment in short form, or the
point, figure and shape lists. geography stores latitude before longitude,
while its text puts longitude first.
"""
import re
import struct

KINDS = {"POINT": 1, "LINESTRING": 2, "POLYGON": 3, "MULTIPOINT": 4,
         "MULTILINESTRING": 5, "MULTIPOLYGON": 6, "GEOMETRYCOLLECTION": 7}
MULTI_CHILD = {"MULTIPOINT": "POINT", "MULTILINESTRING": "LINESTRING", "MULTIPOLYGON": "POLYGON"}

FLAG_VALID = 0x04
FLAG_SINGLE_POINT = 0x08
FLAG_SINGLE_SEGMENT = 0x10
FIG_INTERIOR, FIG_STROKE, FIG_EXTERIOR = 0, 1, 2

_TOKEN = re.compile(r"\s*([A-Za-z]+|[-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?|[(),])")


class WktError(ValueError):
    pass


def _tokens(text):
    pos, out = 0, []
    text = text.strip()
    while pos < len(text):
        m = _TOKEN.match(text, pos)
        if not m:
            raise WktError(f"unexpected text in WKT at {pos}: {text[pos:pos + 20]!r}")
        out.append(m.group(1))
        pos = m.end()
    return out


class _Parser:
    def __init__(self, text):
        self.toks = _tokens(text)
        self.i = 0

    def peek(self):
        return self.toks[self.i] if self.i < len(self.toks) else None

    def take(self, expected=None):
        tok = self.peek()
        if tok is None or (expected and tok.upper() != expected):
            raise WktError(f"expected {expected or 'more'} in WKT, got {tok!r}")
        self.i += 1
        return tok

    def shape(self):
        kind = self.take().upper()
        if kind not in KINDS:
            raise WktError(f"unknown WKT type {kind}")
        if (self.peek() or "").upper() == "EMPTY":
            self.take()
            return (kind, None)
        return (kind, self.body(kind))

    def body(self, kind):
        if kind == "POINT":
            self.take("(")
            pt = self.point()
            self.take(")")
            return pt
        if kind == "LINESTRING":
            return self.points()
        if kind == "POLYGON":
            return self.list_of(self.points)
        if kind == "MULTIPOINT":
            return self.list_of(self.multipoint_member)
        if kind == "MULTILINESTRING":
            return self.list_of(lambda: ("LINESTRING", self.points()))
        if kind == "MULTIPOLYGON":
            return self.list_of(lambda: ("POLYGON", self.list_of(self.points)))
        return self.list_of(self.shape)

    def multipoint_member(self):
        if self.peek() == "(":
            self.take("(")
            pt = self.point()
            self.take(")")
            return ("POINT", pt)
        return ("POINT", self.point())

    def list_of(self, item):
        self.take("(")
        items = [item()]
        while self.peek() == ",":
            self.take(",")
            items.append(item())
        self.take(")")
        return items

    def points(self):
        return self.list_of(self.point)

    def point(self):
        try:
            x = float(self.take())
            y = float(self.take())
        except ValueError:
            raise WktError("expected a coordinate pair in WKT") from None
        return (x, y)


def parse_wkt(text):
    p = _Parser(text)
    shape = p.shape()
    if p.peek() is not None:
        raise WktError(f"trailing text in WKT: {p.peek()!r}")
    return shape


def _num(v):
    if v == int(v) and abs(v) < 1e15:
        return str(int(v))
    return repr(v)


def _pts(points):
    return "(" + ", ".join(f"{_num(x)} {_num(y)}" for x, y in points) + ")"


def format_wkt(shape):
    kind, content = shape
    if content is None:
        return kind + " EMPTY"
    if kind == "POINT":
        return f"POINT ({_num(content[0])} {_num(content[1])})"
    if kind == "LINESTRING":
        return "LINESTRING " + _pts(content)
    if kind == "POLYGON":
        return "POLYGON (" + ", ".join(_pts(r) for r in content) + ")"
    if kind == "MULTIPOINT":
        return "MULTIPOINT (" + ", ".join(f"({_num(c[0])} {_num(c[1])})" for _, c in content) + ")"
    if kind == "MULTILINESTRING":
        return "MULTILINESTRING (" + ", ".join(_pts(c) for _, c in content) + ")"
    if kind == "MULTIPOLYGON":
        return "MULTIPOLYGON (" + ", ".join(
            "(" + ", ".join(_pts(r) for r in c) + ")" for _, c in content) + ")"
    return "GEOMETRYCOLLECTION (" + ", ".join(format_wkt(s) for s in content) + ")"


def canonical_wkt(text):
    return format_wkt(parse_wkt(text))


class _Builder:
    def __init__(self):
        self.points, self.figures, self.shapes = [], [], []

    def add(self, shape, parent):
        kind, content = shape
        index = len(self.shapes)
        if content is None:
            self.shapes.append((parent, -1, KINDS[kind]))
            return
        self.shapes.append((parent, len(self.figures), KINDS[kind]))
        if kind == "POINT":
            self.figure(FIG_STROKE, [content])
        elif kind == "LINESTRING":
            self.figure(FIG_STROKE, content)
        elif kind == "POLYGON":
            for n, ring in enumerate(content):
                self.figure(FIG_EXTERIOR if n == 0 else FIG_INTERIOR, ring)
        else:
            for child in content:
                self.add(child, index)

    def figure(self, attr, pts):
        self.figures.append((attr, len(self.points)))
        self.points.extend(pts)


def serialize(shape, srid, geography):
    """The CLR serialisation of a geometry (geography=False) or geography."""
    def pt(p):
        x, y = p
        return struct.pack("<dd", y, x) if geography else struct.pack("<dd", x, y)

    kind, content = shape
    head = struct.pack("<iB", srid, 1)
    if kind == "POINT" and content is not None:
        return head + bytes([FLAG_VALID | FLAG_SINGLE_POINT]) + pt(content)
    if kind == "LINESTRING" and content is not None and len(content) == 2:
        return head + bytes([FLAG_VALID | FLAG_SINGLE_SEGMENT]) + pt(content[0]) + pt(content[1])
    b = _Builder()
    b.add(shape, -1)
    out = [head, bytes([FLAG_VALID]), struct.pack("<i", len(b.points))]
    out.extend(pt(p) for p in b.points)
    out.append(struct.pack("<i", len(b.figures)))
    out.extend(struct.pack("<Bi", a, off) for a, off in b.figures)
    out.append(struct.pack("<i", len(b.shapes)))
    out.extend(struct.pack("<iiB", par, fig, t) for par, fig, t in b.shapes)
    return b"".join(out)
