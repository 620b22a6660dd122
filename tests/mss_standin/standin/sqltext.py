"""T-SQL text: a tokenizer, statement splitting and normalised forms.

Tokens keep their original text, so error messages can quote the statement
as written. Kinds: "word" (keywords, names, @variables, @@functions),
"qname" ([bracketed] or "quoted" names, value unquoted), "str" ('...' or
N'...', value unquoted), "num", "op" (punctuation and operators).
"""
import re


class Token:
    __slots__ = ("kind", "text", "value")

    def __init__(self, kind, text, value=None):
        self.kind, self.text = kind, text
        self.value = text if value is None else value

    @property
    def upper(self):
        return self.value.upper() if self.kind == "word" else None

    def is_word(self, *words):
        return self.kind == "word" and self.value.upper() in words

    def is_op(self, *ops):
        return self.kind == "op" and self.text in ops

    @property
    def is_name(self):
        return self.kind in ("word", "qname")

    def __repr__(self):
        return f"{self.kind}:{self.text}"


class SqlSyntaxError(ValueError):
    def __init__(self, near):
        super().__init__(near)
        self.near = near


_SPACE = re.compile(r"\s+|--[^\n]*|/\*.*?\*/", re.S)
_WORD = re.compile(r"(?:@@|@|##|#)?[A-Za-z_\u0080-\uffff][A-Za-z0-9_$#@\u0080-\uffff]*")
_NUM = re.compile(r"0x[0-9A-Fa-f]*|(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?")
_OPS = ("<>", "!=", ">=", "<=", "!<", "!>", "::", "+=", "-=", "*=", "/=", "||")


def tokenize(text):
    out, pos, n = [], 0, len(text)
    while pos < n:
        m = _SPACE.match(text, pos)
        if m:
            pos = m.end()
            continue
        c = text[pos]
        if c == "[":
            end = pos + 1
            buf = []
            while True:
                j = text.find("]", end)
                if j < 0:
                    raise SqlSyntaxError(text[pos:pos + 30])
                buf.append(text[end:j])
                if text.startswith("]]", j):
                    buf.append("]")
                    end = j + 2
                    continue
                end = j + 1
                break
            out.append(Token("qname", text[pos:end], "".join(buf)))
            pos = end
            continue
        if c in "'\"" or (c in "Nn" and text.startswith("'", pos + 1)):
            q = "'" if c in "Nn" else c
            start = pos + (2 if c in "Nn" else 1)
            end, buf = start, []
            while True:
                j = text.find(q, end)
                if j < 0:
                    raise SqlSyntaxError(text[pos:pos + 30])
                buf.append(text[end:j])
                if text.startswith(q * 2, j):
                    buf.append(q)
                    end = j + 2
                    continue
                end = j + 1
                break
            kind = "qname" if q == '"' else "str"
            out.append(Token(kind, text[pos:end], "".join(buf)))
            pos = end
            continue
        m = _NUM.match(text, pos)
        if m and (c.isdigit() or c == "."):
            out.append(Token("num", m.group()))
            pos = m.end()
            continue
        m = _WORD.match(text, pos)
        if m:
            out.append(Token("word", m.group()))
            pos = m.end()
            continue
        two = text[pos:pos + 2]
        if two in _OPS:
            out.append(Token("op", two))
            pos += 2
            continue
        out.append(Token("op", c))
        pos += 1
    return out


STATEMENT_STARTS = {"SELECT", "SET", "USE", "EXEC", "EXECUTE", "DECLARE", "PRINT", "BEGIN",
                    "COMMIT", "ROLLBACK", "IF", "INSERT", "UPDATE", "DELETE", "CREATE",
                    "DROP", "ALTER", "WITH", "SAVE", "RAISERROR", "TRUNCATE", "GRANT"}
_NO_SPLIT_BEFORE_SELECT = {"UNION", "ALL", "EXCEPT", "INTERSECT", "AS"}


def split_statements(tokens):
    """Splits a batch at semicolons and at the first keyword of a new statement."""
    stmts, cur, depth = [], [], 0
    for i, t in enumerate(tokens):
        if t.is_op("("):
            depth += 1
        elif t.is_op(")"):
            depth -= 1
        if depth == 0 and t.is_op(";"):
            if cur:
                stmts.append(cur)
            cur = []
            continue
        if depth == 0 and cur and t.upper in STATEMENT_STARTS and _starts_new(cur, t, tokens, i):
            stmts.append(cur)
            cur = []
        cur.append(t)
    if cur:
        stmts.append(cur)
    return stmts


def _starts_new(cur, t, tokens, i):
    first = cur[0].upper
    prev = cur[-1]
    word = t.upper
    if prev.is_op("(") or prev.upper in _NO_SPLIT_BEFORE_SELECT:
        return False
    if word == "SELECT":
        if first in ("INSERT", "CREATE", "ALTER", "DECLARE", "IF", "PRINT"):
            return False
        if first == "WITH" and not any(x.upper == "SELECT" for x in _top_level(cur)):
            return False
        if first == "SET" and len(cur) >= 3 and cur[1].kind == "word" and cur[1].value.startswith("@"):
            return prev.is_op("=") is False and _complete(cur)
        return True
    if word == "SET" and first == "UPDATE":
        return False
    if word in ("BEGIN", "COMMIT", "ROLLBACK", "SAVE") and first in ("BEGIN", "COMMIT", "ROLLBACK", "SAVE", "IF"):
        return False
    if first == "IF" and word in ("BEGIN", "COMMIT", "ROLLBACK", "SELECT", "SET", "EXEC", "PRINT"):
        return False
    if word in ("INSERT", "UPDATE", "DELETE") and first == "WITH":
        return False
    if word == "WITH" and (prev.upper in ("AS",) or prev.is_op(")")):
        return False  # table hints and CTE column lists
    if word in ("EXEC", "EXECUTE") and first == "INSERT":
        return False
    return True


def _complete(cur):
    return not cur[-1].is_op("=", ",", "+", "-", "*", "/")


def _top_level(tokens):
    depth = 0
    for t in tokens:
        if t.is_op("("):
            depth += 1
        elif t.is_op(")"):
            depth -= 1
        elif depth == 0:
            yield t


def normalise(tokens):
    """The form handlers match on: keywords and names upper-case, brackets kept,
    one space between tokens except around "." and "(", and before ")" and ","
    (so "select  count( * ) from dbo . t" becomes "SELECT COUNT(*) FROM DBO.T")."""
    parts = []
    prev = None
    for t in tokens:
        if t.kind == "word":
            s = t.value.upper()
        elif t.kind == "qname":
            s = "[" + t.value.upper() + "]"
        else:
            s = t.text
        if prev is not None and not (prev.is_op(".", "(") or t.is_op(".", "(", ")", ",")):
            parts.append(" ")
        parts.append(s)
        prev = t
    return "".join(parts)


def text_of(tokens):
    return " ".join(t.text for t in tokens)


def split_top(tokens, sep=","):
    """Splits a token list at top-level separators."""
    out, cur, depth = [], [], 0
    for t in tokens:
        if t.is_op("("):
            depth += 1
        elif t.is_op(")"):
            depth -= 1
        if depth == 0 and t.is_op(sep):
            out.append(cur)
            cur = []
            continue
        cur.append(t)
    out.append(cur)
    return out


def read_name(tokens, i):
    """A multi-part name starting at i: (parts, next index); parts empty if none."""
    parts = []
    while i < len(tokens):
        t = tokens[i]
        if t.is_name and not (t.kind == "word" and t.value.startswith("@")):
            parts.append(t.value)
            i += 1
            if i < len(tokens) and tokens[i].is_op(".") :
                i += 1
                # "db..table" leaves the schema part out
                while i < len(tokens) and tokens[i].is_op("."):
                    parts.append("")
                    i += 1
                continue
        break
    return parts, i
