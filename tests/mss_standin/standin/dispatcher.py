"""Routes each statement of a batch (or each RPC) to its handler.

A statement is matched first against the registered patterns (regular
expressions over the normalised text, see sqltext.normalise), then by its
first keyword. A handler takes (session context, match, tokens) and returns
a list of outputs from results.py, or raises QueryError. Procedures, called
by RPC or by EXEC text, are looked up in PROCEDURES by lower-case name and
take (context, args), args being a list of (name or None, value).

To teach the stand-in a new statement, add a function with @statement(regex);
for a new procedure, @procedure("sp_name").
"""
import re

from . import bulk, catalog_procs
from .engine import GeneratedTable
from .fixture import key
from .results import Column, Done, Message, QueryError, ResultSet
from .sqltext import SqlSyntaxError, normalise, read_name, split_statements, split_top, tokenize
from .sqltypes import SqlType

STATEMENTS = []
PROCEDURES = {}


def statement(pattern):
    rx = re.compile(pattern, re.S)

    def register(fn):
        STATEMENTS.append((rx, fn))
        return fn
    return register


def procedure(*names):
    def register(fn):
        for n in names:
            PROCEDURES[n.lower()] = fn
        return fn
    return register


class Dispatcher:
    def __init__(self, server, engine):
        self.server = server
        self.engine = engine
        self.bulk = {}

    def statements(self, text):
        try:
            return split_statements(tokenize(text))
        except SqlSyntaxError as e:
            raise QueryError(105, f"Unclosed quotation mark after the character string '{e.near}'.", 15, 1)

    def run(self, ctx, toks):
        norm = normalise(toks)
        for rx, fn in STATEMENTS:
            m = rx.match(norm)
            if m:
                return fn(self, ctx, m, toks)
        first = toks[0].upper if toks[0].kind == "word" else None
        if first in ("SELECT", "WITH"):
            return self.select(ctx, toks)
        if first in ("EXEC", "EXECUTE"):
            return self.exec_text(ctx, toks[1:])
        if first in ("INSERT", "UPDATE", "DELETE", "MERGE", "CREATE", "ALTER", "DROP", "TRUNCATE",
                     "GRANT", "DENY", "REVOKE"):
            raise QueryError(50000, f"The stand-in serves its fixture read-only; {first} is not supported.")
        raise QueryError(102, f"Incorrect syntax near '{toks[0].text}'.", 15, 1)

    def select(self, ctx, toks):
        try:
            return [self.engine.select(toks, ctx)]
        except GeneratedTable as g:
            return self.generated(ctx, toks, g.table)

    def generated(self, ctx, toks, table):
        bt = self.bulk.get(id(table))
        if bt is None:
            bt = self.bulk[id(table)] = bulk.BulkTable(table)
        i = next(n for n, t in enumerate(toks) if t.is_word("FROM"))
        _, j = read_name(toks, i + 1)
        rest = toks[j:]
        if rest and rest[0].is_word("AS"):
            rest = rest[1:]
        if rest and rest[0].is_name and rest[0].upper not in ("WITH", "WHERE", "ORDER", "GROUP"):
            rest = rest[1:]
        if rest and not (rest[0].is_word("WITH") or rest[0].is_op("(")):
            raise QueryError(50000, f"The generated table '{table.name}' answers only a plain SELECT "
                                    "of all its rows (no WHERE, ORDER BY or joins).")
        items = split_top(toks[1:i])
        if len(items) == 1 and [t.text for t in items[0]] in (["*"],):
            return [bt]
        if len(items) == 1 and "".join(t.text for t in items[0]).upper() in ("COUNT(*)", "COUNT(1)"):
            return [ResultSet([Column("", SqlType("int"), False)], [[bt.rows]])]
        names = [key(it[-1].value) for it in items if len(it) >= 1 and it[-1].is_name]
        if names == [c.name for c in bt.columns]:
            return [bt]
        raise QueryError(50000, f"The generated table '{table.name}' answers only SELECT *, the full "
                                "column list, or SELECT COUNT(*).")

    def exec_text(self, ctx, toks):
        parts, i = read_name(toks, 0)
        if not parts:
            raise QueryError(102, "Incorrect syntax near 'EXEC'.", 15, 1)
        args = []
        for item in split_top(toks[i:]) if i < len(toks) else []:
            name = None
            if len(item) >= 3 and item[0].kind == "word" and item[0].value.startswith("@") and item[1].is_op("="):
                name, item = item[0].value, item[2:]
            args.append((name, _arg_value(item)))
        return self.call(ctx, parts[-1], args)

    def call(self, ctx, name, args):
        fn = PROCEDURES.get(name.lower())
        if fn is None:
            raise QueryError(2812, f"Could not find stored procedure '{name}'.", 16, 62)
        return fn(self, ctx, args)


def _arg_value(item):
    if not item:
        return None
    if len(item) == 1:
        t = item[0]
        if t.kind == "str":
            return t.value
        if t.kind == "qname":
            return t.value  # "'TABLE'" as FreeTDS quotes table types
        if t.kind == "num":
            return int(t.text) if t.text.isdigit() else float(t.text)
        if t.is_word("NULL"):
            return None
        return t.value
    if len(item) == 2 and item[0].is_op("-") and item[1].kind == "num":
        return -int(item[1].text)
    return " ".join(t.text for t in item)


# -- statements -------------------------------------------------------------------
@statement(r"^SELECT @@VERSION$")
def _version(d, ctx, m, toks):
    return [ResultSet([Column("", SqlType("nvarchar(300)"))], [[d.server.version_text]])]


@statement(r"^SELECT DB_NAME\(\)$")
def _db_name(d, ctx, m, toks):
    return [ResultSet([Column("", SqlType("nvarchar(128)"))], [[ctx.database]])]


@statement(r"^USE (.+)$")
def _use(d, ctx, m, toks):
    parts, _ = read_name(toks, 1)
    name = parts[-1] if parts else toks[1].value
    return ctx.use(name)


@statement(r"^SET (TEXTSIZE) (-?\d+)$")
def _textsize(d, ctx, m, toks):
    n = int(m.group(2))
    ctx.textsize = None if n < 0 else (4096 if n == 0 else n)
    return [Done()]


@statement(r"^SET NOCOUNT (ON|OFF)$")
def _nocount(d, ctx, m, toks):
    ctx.nocount = m.group(1) == "ON"
    return [Done()]


@statement(r"^SET .*$")
def _set(d, ctx, m, toks):
    return [Done()]  # session options are acknowledged; only TEXTSIZE and NOCOUNT change answers


@statement(r"^BEGIN (TRAN|TRANSACTION)\b.*$")
def _begin(d, ctx, m, toks):
    ctx.trancount += 1
    return [Done()]


@statement(r"^(COMMIT|ROLLBACK)( (TRAN|TRANSACTION|WORK)\b.*)?$")
def _end_tran(d, ctx, m, toks):
    if ctx.trancount == 0:
        if m.group(1) == "COMMIT":
            raise QueryError(3902, "The COMMIT TRANSACTION request has no corresponding BEGIN TRANSACTION.", 16, 1)
        raise QueryError(3903, "The ROLLBACK TRANSACTION request has no corresponding BEGIN TRANSACTION.", 16, 1)
    ctx.trancount = 0 if m.group(1) == "ROLLBACK" else ctx.trancount - 1
    return [Done()]


@statement(r"^IF @@TRANCOUNT > 0 (COMMIT|ROLLBACK)\b.*$")
def _if_tran(d, ctx, m, toks):
    ctx.trancount = 0
    return [Done()]


@statement(r"^PRINT (.*)$")
def _print(d, ctx, m, toks):
    text = toks[1].value if len(toks) > 1 and toks[1].kind == "str" else m.group(1)
    return [Message(0, text, 0, 1), Done()]


# -- procedures used for statements sent as RPC -------------------------------------
def _params_from(definitions, values):
    """Binds positional and named values to the parameters declared in definitions."""
    names = []
    if definitions:
        for item in split_top(tokenize(definitions)):
            if item and item[0].kind == "word" and item[0].value.startswith("@"):
                names.append(item[0].value.lower())
    bound, pos = {}, 0
    for name, value in values:
        if name:
            bound[name.lower()] = value
        else:
            if pos < len(names):
                bound[names[pos]] = value
            pos += 1
    return bound


def substitute(text, bound):
    """The statement with each @parameter replaced by its value as a literal."""
    from .rpc import literal
    out = []
    for t in tokenize(text):
        if t.kind == "word" and t.value.startswith("@") and not t.value.startswith("@@"):
            k = t.value.lower()
            if k not in bound:
                raise QueryError(137, f'Must declare the scalar variable "{t.value}".', 15, 2)
            out.append(literal(bound[k]))
        else:
            out.append(t)
    return out


def run_text(d, ctx, toks):
    outputs = []
    for stmt in split_statements(toks):
        outputs.extend(d.run(ctx, stmt))
    return outputs


@procedure("sp_executesql")
def _executesql(d, ctx, args):
    if not args:
        raise QueryError(201, "Procedure or function 'sp_executesql' expects parameter '@statement', "
                              "which was not supplied.", 16, 4)
    stmt = args[0][1]
    definitions = args[1][1] if len(args) > 1 else ""
    bound = _params_from(definitions, args[2:])
    return run_text(d, ctx, substitute(stmt, bound))


@procedure("sp_prepare")
def _prepare(d, ctx, args):
    definitions, stmt = args[1][1] or "", args[2][1]
    handle = ctx.prepare(definitions, stmt)
    outputs = []
    try:  # the shape of the result, as SQL Server describes it on prepare
        bound = {k: None for k in _declared(definitions)}
        for o in run_text(d, ctx, substitute(stmt, bound)):
            if isinstance(o, ResultSet):
                outputs.append(ResultSet(o.columns, []))  # metadata only
    except QueryError:
        pass
    return outputs + [("handle", handle)]


@procedure("sp_prepexec")
def _prepexec(d, ctx, args):
    definitions, stmt = args[1][1] or "", args[2][1]
    handle = ctx.prepare(definitions, stmt)
    bound = _params_from(definitions, args[3:])
    return run_text(d, ctx, substitute(stmt, bound)) + [("handle", handle)]


@procedure("sp_execute")
def _execute(d, ctx, args):
    handle = args[0][1]
    prepared = ctx.prepared.get(handle)
    if prepared is None:
        raise QueryError(8179, f"Could not find prepared statement with handle {handle}.", 16, 4)
    definitions, stmt = prepared
    bound = _params_from(definitions, args[1:])
    return run_text(d, ctx, substitute(stmt, bound))


@procedure("sp_unprepare")
def _unprepare(d, ctx, args):
    ctx.prepared.pop(args[0][1] if args else None, None)
    return []


@procedure("qb_raise_error")
def _raise_error(d, ctx, args):
    """A test hook that no SQL Server has: EXEC qb_raise_error <number>, <class>, '<text>'
    answers with that server message, so that a client can be tested against any of
    SQL Server's error numbers through the real driver."""
    if len(args) < 3 or not isinstance(args[0][1], int) or not isinstance(args[1][1], int):
        raise QueryError(201, "Procedure or function 'qb_raise_error' expects a number, a class and a text.",
                         16, 4)
    raise QueryError(args[0][1], str(args[2][1]), args[1][1], 1)


def _declared(definitions):
    out = []
    for item in split_top(tokenize(definitions or "")):
        if item and item[0].kind == "word" and item[0].value.startswith("@"):
            out.append(item[0].value.lower())
    return out


catalog_procs.register(procedure)
__all__ = ["Dispatcher", "statement", "procedure"]
