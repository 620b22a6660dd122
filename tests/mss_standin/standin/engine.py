"""Runs simple SELECT statements over the fixture with sqlite.

Fixture tables are copied once into a shared in-memory sqlite database, one
table per fixture table, named "db.schema.table" in lower case. A statement
is translated token by token: table names in FROM and JOIN are resolved the
way SQL Server resolves them (default schema, three-part names, catalog
views) and replaced by their sqlite names; [brackets] become quotes; TOP n
becomes LIMIT n; @@VERSION and friends become literals; CAST targets become
sqlite affinities. SQL Server functions are sqlite functions registered in
FUNCTIONS. Result columns get their declared types back: a plain column
reference, * or a CAST keeps the column's type, anything else is typed from
its values.

Catalog views (sys.*, INFORMATION_SCHEMA.*) are built on first use from the
fixture by the builders in catalog.py and then behave like tables.
"""
import datetime
import sqlite3
import threading
import uuid

from . import catalog, sqltypes
from .fixture import key
from .results import Column, QueryError, ResultSet, invalid_object
from .sqltext import SqlSyntaxError, read_name, split_top, tokenize
from .sqltypes import SqlType

END_OF_FROM = {"WHERE", "GROUP", "ORDER", "HAVING", "UNION", "EXCEPT", "INTERSECT", "ON",
               "OPTION", "FOR", "INNER", "LEFT", "RIGHT", "FULL", "CROSS", "OUTER", "JOIN",
               "WITH", "SELECT", "INTO", "AS", "APPLY", "PIVOT", "UNPIVOT", "USING"}
RESERVED = {"SELECT", "FROM", "WHERE", "GROUP", "ORDER", "HAVING", "UNION", "JOIN", "ON", "INNER", "LEFT",
            "RIGHT", "FULL", "CROSS", "OUTER", "AND", "OR", "NOT", "AS", "BY", "INTO", "SET", "VALUES"}
TEXT_METHODS = ("STASTEXT", "TOSTRING", "ASTEXTZM")
NOT_ALIAS = END_OF_FROM | {"FROM", "SET", "AND", "OR", "NOT"}


class TableInfo:
    """What the translator knows of a table-like source: sqlite name and columns."""

    def __init__(self, sqlite_name, columns, fixture_table=None, display=""):
        self.sqlite_name = sqlite_name
        self.columns = columns          # list of results.Column
        self.by_name = {key(c.name): c for c in columns}
        self.fixture_table = fixture_table
        self.display = display


class GeneratedTable(Exception):
    """The statement names a generated (bulk) table; the bulk path serves it."""

    def __init__(self, table, star, count):
        super().__init__(table.name)
        self.table, self.star, self.count = table, star, count


def sqlite_type(sqltype):
    n = sqltype.name
    if n in sqltypes.INT_RANGES or n == "bit":
        return "INTEGER"
    if n in ("real", "float"):
        return "REAL"
    if n in sqltypes.BINARY_TYPES:
        return "BLOB"
    return "TEXT"


class Engine:
    def __init__(self, server):
        self.server = server
        self.db = sqlite3.connect(":memory:", check_same_thread=False)
        self.lock = threading.Lock()
        self.ctx = None
        self.known = {}          # sqlite name -> TableInfo
        for name, fn, nargs in FUNCTIONS:
            self.db.create_function(name, nargs, _bind(fn, self))
        for db in server.databases.values():
            for t in db.tables():
                if not t.generated:
                    self._load(t)

    # -- loading -------------------------------------------------------------------
    @staticmethod
    def table_key(t):
        """The sqlite name of a fixture table or view (unique also where names differ only by case)."""
        name = f"{t.schema.db.name}.{t.schema.name}.{t.name}".lower()
        return name + f"#{t.object_id}" if t.schema.db.case_sensitive else name

    def _load(self, t):
        name = self.table_key(t)
        cols = []
        for c in t.columns:
            coll = " COLLATE NOCASE" if sqlite_type(c.type) == "TEXT" and "_ci" in c.type.collation.lower() \
                and c.type.name not in ("uniqueidentifier",) else ""
            cols.append(f"{_q(c.name)} {sqlite_type(c.type)}{coll}")
        self.db.execute(f"CREATE TABLE {_q(name)} ({', '.join(cols)})")
        if t.rows:
            marks = ", ".join("?" * len(t.columns))
            self.db.executemany(f"INSERT INTO {_q(name)} VALUES ({marks})", t.rows)
        parts = [t.schema.name, t.name]
        self.known[name] = TableInfo(name, [
            Column(c.name, c.type, c.nullable, parts, bool(c.identity)) for c in t.columns], t,
            f"{t.schema.name}.{t.name}")

    def _catalog(self, db, view_key):
        name = f"{db.name}.{view_key}".lower()
        if name not in self.known:
            columns, rows = catalog.build(view_key, self.server, db, self.ctx)
            # names in the catalog compare by the database's collation
            collate = "" if db.case_sensitive else " COLLATE NOCASE"
            decl = ", ".join(f"{_q(c.name)} {sqlite_type(c.type)}{collate}" for c in columns)
            self.db.execute(f"CREATE TABLE {_q(name)} ({decl})")
            if rows:
                marks = ", ".join("?" * len(columns))
                self.db.executemany(f"INSERT INTO {_q(name)} VALUES ({marks})", rows)
            self.known[name] = TableInfo(name, columns, None, view_key)
        return self.known[name]

    def _view(self, view):
        db = view.schema.db
        name = self.table_key(view)
        if name not in self.known:
            toks = tokenize(view.definition)
            i = next((n for n, t in enumerate(toks) if t.is_word("AS")), None)
            if i is None:
                raise QueryError(4413, f"Could not use view or function '{view.schema.name}.{view.name}' "
                                       "because of binding errors.")
            saved = self.ctx.database
            self.ctx.database = db.name
            try:
                sql, info = self._translate(toks[i + 1:])
                self.db.execute(f"CREATE VIEW {_q(name)} AS {sql}")
                cur = self.db.execute(f"SELECT * FROM {_q(name)} LIMIT 0")
                names = [d[0] for d in cur.description]
                cols = self._result_columns(info, names, [])
                for c in cols:
                    c.table_parts = None
            except (sqlite3.Error, QueryError, SqlSyntaxError):
                raise QueryError(4413, f"Could not use view or function '{view.schema.name}.{view.name}' "
                                       "because of binding errors.") from None
            finally:
                self.ctx.database = saved
            self.known[name] = TableInfo(name, cols, None, f"{view.schema.name}.{view.name}")
        return self.known[name]

    # -- name resolution -------------------------------------------------------------
    def resolve(self, parts):
        """TableInfo of a one- to four-part name in the current context."""
        shown = ".".join(p for p in parts if p)
        parts = list(parts[-3:])
        while len(parts) < 3:
            parts.insert(0, "")
        dbname, schema_name, name = parts
        db = self.server.database(dbname or self.ctx.database)
        if db is None:
            raise invalid_object(shown)
        if dbname and self.server.is_azure and key(db.name) != key(self.ctx.database):
            raise QueryError(40515, f"Reference to database and/or server name in '{shown}' is not "
                                    "supported in this version of SQL Server.", 15, 1)
        if dbname and not self.ctx.user.may_open(db.name):
            raise QueryError(916, f'The server principal "{self.ctx.user.name}" is not able to access '
                                  f'the database "{db.name}" under the current security context.', 14, 2)
        candidates = [schema_name] if schema_name else [self.ctx.user.default_schema, "dbo"]
        for s in candidates:
            view_key = catalog.lookup(s, name, self.server)
            if view_key:
                self._check_catalog(db, s, name)
                return self._catalog(db, view_key)
            schema = db.schema(s)
            if schema is None:
                continue
            t = schema.tables.get(db.name_key(name))
            if t is not None:
                self._check_select(db, schema, t.name)
                if t.generated:
                    return t
                return self.known[self.table_key(t)]
            v = schema.views.get(db.name_key(name))
            if v is not None:
                self._check_select(db, schema, v.name)
                return self._view(v)
        if not schema_name:
            view_key = catalog.lookup("sys", name, self.server)  # sysobjects, sysdatabases, ...
            if view_key:
                return self._catalog(db, view_key)
        raise invalid_object(shown)

    def _check_catalog(self, db, schema_name, name):
        """A catalog view can be denied like a table ("db.sys.identity_columns" in deny_select)."""
        if f"{db.name}.{schema_name}.{name}".lower() in self.ctx.user.deny_select:
            raise QueryError(229, f"The SELECT permission was denied on the object '{name}', "
                                  f"database 'mssqlsystemresource', schema '{schema_name}'.", 14, 5)

    def _check_select(self, db, schema, name):
        if f"{db.name}.{schema.name}.{name}".lower() in self.ctx.user.deny_select:
            raise QueryError(229, f"The SELECT permission was denied on the object '{name}', "
                                  f"database '{db.name}', schema '{schema.name}'.", 14, 5)

    # -- translation -------------------------------------------------------------------
    def _translate(self, toks):
        """sqlite text and the select analysis of the outermost SELECT."""
        out = []
        sources = []             # (alias key, TableInfo) of the outermost query level
        stack = [{"from": False, "expect": False, "cast": False, "top": None, "select": False}]
        top_select = None        # token range of the outermost select list
        i, n = 0, len(toks)
        while i < n:
            t = toks[i]
            st = stack[-1]
            depth = len(stack) - 1
            if t.is_name and i + 4 <= n and toks[i + 1].is_op(".") and toks[i + 2].is_word(*TEXT_METHODS) \
                    and toks[i + 3].is_op("(") and i + 4 < n and toks[i + 4].is_op(")"):
                # spatial columns are stored as their well-known text already
                out.append(_q(t.value) if t.kind == "qname" else t.value)
                i += 5
                continue
            if t.is_op("("):
                out.append("(")
                st["expect"] = False  # a derived table: its alias follows the ")"
                cast = i > 0 and toks[i - 1].is_word("CAST", "TRY_CAST")
                stack.append({"from": False, "expect": False, "cast": cast, "top": None, "select": False})
                i += 1
                continue
            if t.is_op(")"):
                if st["top"] is not None:
                    out.append(f"LIMIT {st['top']}")
                if len(stack) > 1:
                    stack.pop()
                out.append(")")
                i += 1
                continue
            if st["expect"] and t.kind == "word" and t.upper in RESERVED:
                raise QueryError(156, f"Incorrect syntax near the keyword '{t.value.upper()}'.", 15, 1)
            if st["expect"] and t.is_name:
                parts, j = read_name(toks, i)
                if j < n and toks[j].is_op("("):   # a table-valued function
                    raise QueryError(50000, f"The stand-in cannot call table-valued function "
                                            f"'{'.'.join(parts)}'.")
                info = self.resolve(parts)
                alias = parts[-1]
                k = j
                if k < n and toks[k].is_word("AS"):
                    k += 1
                if k < n and toks[k].is_name and toks[k].upper not in NOT_ALIAS:
                    alias = toks[k].value
                    k += 1
                if not isinstance(info, TableInfo):   # a generated table
                    raise GeneratedTable(info, None, None)
                out.append(f"{_q(info.sqlite_name)} AS {_q(alias)}")
                if depth == 0:
                    sources.append((key(alias), info))
                k = _skip_hints(toks, k)
                st["expect"] = False
                i = k
                continue
            if t.kind == "word":
                w = t.upper
                if w == "SELECT":
                    st["select"] = True
                    out.append("SELECT")
                    i += 1
                    if i < n and toks[i].is_word("DISTINCT", "ALL"):
                        out.append(toks[i].upper)
                        i += 1
                    if i < n and toks[i].is_word("TOP"):
                        i, st["top"] = _read_top(toks, i + 1)
                    if depth == 0 and top_select is None:
                        top_select = [i, n]
                    continue
                if w in ("FROM", "JOIN", "APPLY"):
                    if w == "FROM" and depth == 0 and top_select is not None and top_select[1] == n:
                        top_select[1] = i
                    st["from"] = True
                    st["expect"] = True
                    out.append(w)
                    i += 1
                    continue
                if w in END_OF_FROM:
                    st["from"] = w in ("INNER", "LEFT", "RIGHT", "FULL", "CROSS", "OUTER") and st["from"]
                if w == "AS" and st["cast"]:
                    j = i + 1
                    tname = toks[j].value if j < n else ""
                    j += 1
                    if j < n and toks[j].is_op("("):
                        while j < n and not toks[j].is_op(")"):
                            j += 1
                        j += 1
                    out.append("AS " + _cast_affinity(tname))
                    i = j
                    continue
                if w.startswith("@@"):
                    out.append(self._global(w))
                    i += 1
                    continue
                if w.startswith("@"):
                    raise QueryError(137, f'Must declare the scalar variable "{t.value}".', 15, 2)
                out.append(t.value if w not in ("ISNULL",) else "IFNULL")
                i += 1
                continue
            if t.is_op(",") and st["from"]:
                st["expect"] = True
            if t.kind == "qname":
                out.append(_q(t.value))
            elif t.kind == "str":
                out.append("'" + t.value.replace("'", "''") + "'")
            elif t.kind == "num" and t.text.lower().startswith("0x"):
                out.append(f"X'{t.text[2:]}'")
            elif t.is_op("+") and _string_context(toks, i):
                out.append("||")
            else:
                out.append(t.text)
            i += 1
        if stack[0]["top"] is not None:
            out.append(f"LIMIT {stack[0]['top']}")
        items = split_top(toks[top_select[0]:top_select[1]]) if top_select else []
        return " ".join(out), (items, sources)

    def _global(self, w):
        c = self.ctx
        values = {"@@VERSION": self.server.version_text, "@@SPID": c.spid,
                  "@@SERVERNAME": self.server.name, "@@TEXTSIZE": c.textsize_value(),
                  "@@TRANCOUNT": c.trancount, "@@LANGUAGE": "us_english", "@@MAX_PRECISION": 38,
                  "@@ROWCOUNT": c.rowcount, "@@ERROR": 0, "@@IDENTITY": None, "@@DATEFIRST": 7,
                  "@@LANGID": 0, "@@MICROSOFTVERSION": _microsoft_version(self.server),
                  "@@SERVICENAME": "MSSQLSERVER", "@@LOCK_TIMEOUT": -1, "@@OPTIONS": 5496}
        if w not in values:
            raise QueryError(137, f'Must declare the scalar variable "{w}".', 15, 2)
        v = values[w]
        if v is None:
            return "NULL"
        if isinstance(v, int):
            return str(v)
        return "'" + str(v).replace("'", "''") + "'"

    # -- result typing -----------------------------------------------------------------
    def _result_columns(self, info, names, rows):
        items, sources = info
        cols = []
        for item in items:
            cols.extend(self._item_columns(item, sources))
        if len(cols) != len(names):
            cols = [None] * len(names)
        out = []
        for i, name in enumerate(names):
            c = cols[i]
            if c is None or c.type is None:
                values = [r[i] for r in rows]
                shown = c.name if c is not None else ""
                out.append(Column(shown, sqltypes.infer(values), True))
            else:
                out.append(c)
        return out

    def _item_columns(self, item, sources):
        if not item:
            return [None]
        # t.* and *
        if item[-1].is_op("*") and (len(item) == 1 or item[-2].is_op(".")):
            if len(item) == 1:
                return [c for _, s in sources for c in s.columns]
            alias = key(item[-3].value)
            return [c for a, s in sources if a == alias for c in s.columns]
        body, alias = _split_alias(item)
        parts, j = read_name(body, 0)
        if parts and j == len(body):
            col = self._find_column(parts, sources)
            if col is None:
                return [Column(alias or parts[-1], None)]
            return [Column(alias or parts[-1], col.type, col.nullable, col.table_parts, col.identity)]
        if parts and j == len(body) - 2 and body[j].is_op("(") and body[j + 1].is_op(")") \
                and key(parts[-1]) in ("stastext", "tostring"):
            return [Column(alias or "", SqlType("nvarchar(max)"))]
        if body and body[0].is_word("CAST", "TRY_CAST") and len(body) > 3 and body[-1].is_op(")"):
            k = max(x for x in range(len(body)) if body[x].is_word("AS"))
            decl = "".join(t.text for t in body[k + 1:-1])
            if decl.lower() in ("varchar", "nvarchar", "char", "nchar", "varbinary", "binary"):
                decl += "(30)"  # CAST without a length means 30
            try:
                return [Column(alias or "", SqlType(decl))]
            except sqltypes.TypeError_:
                return [Column(alias or "", None)]
        if body and body[0].is_word("COUNT") and len(body) > 1 and body[1].is_op("("):
            return [Column(alias or "", SqlType("int"), False)]
        if body and body[0].is_word("COUNT_BIG"):
            return [Column(alias or "", SqlType("bigint"), False)]
        if len(body) == 1 and body[0].is_word("@@VERSION"):
            return [Column(alias or "", SqlType("nvarchar(300)"))]
        if len(body) >= 3 and body[0].is_word("DB_NAME", "SCHEMA_NAME", "OBJECT_NAME", "USER_NAME",
                                               "SUSER_SNAME", "OBJECT_SCHEMA_NAME"):
            return [Column(alias or "", SqlType("nvarchar(128)"))]
        return [Column(alias or "", None)]

    @staticmethod
    def _find_column(parts, sources):
        colname = key(parts[-1])
        if len(parts) >= 2:
            alias = key(parts[-2])
            for a, s in sources:
                if a == alias and colname in s.by_name:
                    return s.by_name[colname]
            return None
        for _, s in sources:
            if colname in s.by_name:
                return s.by_name[colname]
        return None

    # -- running -------------------------------------------------------------------------
    def select(self, toks, ctx):
        """Runs one SELECT (a token list) and returns a ResultSet."""
        with self.lock:
            self.ctx = ctx
            try:
                sql, info = self._translate(toks)
                try:
                    cur = self.db.execute(sql)
                except sqlite3.Error as e:
                    raise _sqlite_error(e, sql) from None
                names = [d[0] for d in cur.description] if cur.description else []
                rows = cur.fetchall()
            finally:
                self.ctx = None
        cols = self._result_columns(info, names, rows)
        out_rows = []
        for r in rows:
            out_rows.append([c.type.coerce(v) if c.type else v for c, v in zip(cols, r)])
        return ResultSet(cols, out_rows)


def _bind(fn, engine):
    return lambda *args: fn(engine, *args)


def _q(name):
    return '"' + name.replace('"', '""') + '"'


def _skip_hints(toks, k):
    n = len(toks)
    if k + 1 < n and toks[k].is_word("WITH") and toks[k + 1].is_op("("):
        k += 1
    if k < n and toks[k].is_op("(") and k + 1 < n and toks[k + 1].is_word(
            "NOLOCK", "READUNCOMMITTED", "HOLDLOCK", "UPDLOCK", "TABLOCK", "READPAST", "ROWLOCK",
            "NOWAIT", "INDEX", "READCOMMITTED", "SERIALIZABLE", "REPEATABLEREAD", "PAGLOCK"):
        depth = 0
        while k < n:
            if toks[k].is_op("("):
                depth += 1
            elif toks[k].is_op(")"):
                depth -= 1
                if depth == 0:
                    return k + 1
            k += 1
    return k


def _read_top(toks, i):
    paren = i < len(toks) and toks[i].is_op("(")
    if paren:
        i += 1
    if i >= len(toks) or toks[i].kind != "num":
        raise QueryError(102, f"Incorrect syntax near '{toks[i - 1].text}'.", 15, 1)
    value = int(float(toks[i].text))
    i += 1
    if paren:
        i += 1
    if i < len(toks) and toks[i].is_word("PERCENT"):
        raise QueryError(50000, "The stand-in does not run TOP ... PERCENT.")
    return i, value


def _split_alias(item):
    if len(item) >= 3 and item[-2].is_word("AS") and item[-1].is_name:
        return item[:-2], item[-1].value
    if len(item) >= 2 and item[-1].is_name and item[-1].upper not in NOT_ALIAS \
            and not item[-2].is_op(".") and not item[-2].is_word("CAST") \
            and (item[-2].is_op(")") or item[-2].is_name or item[-2].kind in ("num", "str")):
        return item[:-1], item[-1].value
    if len(item) >= 3 and item[0].is_name and item[1].is_op("=") and not item[0].value.startswith("@"):
        return item[2:], item[0].value
    return item, None


def _string_context(toks, i):
    return (i > 0 and toks[i - 1].kind == "str") or (i + 1 < len(toks) and toks[i + 1].kind == "str")


def _cast_affinity(tname):
    t = tname.lower()
    if t in ("int", "bigint", "smallint", "tinyint", "bit", "integer"):
        return "INTEGER"
    if t in ("float", "real"):
        return "REAL"
    if t in ("binary", "varbinary", "image"):
        return "BLOB"
    return "TEXT"


def _sqlite_error(e, sql):
    msg = str(e)
    if msg.startswith("no such column: "):
        col = msg[len("no such column: "):].split(".")[-1]
        return QueryError(207, f"Invalid column name '{col}'.", 16, 1)
    if msg.startswith("near \"") and msg.endswith("syntax error"):
        near = msg.split('"')[1]
        return QueryError(102, f"Incorrect syntax near '{near}'.", 15, 1)
    if msg.startswith("no such function: "):
        return QueryError(195, f"'{msg.split(': ')[1]}' is not a recognized built-in function name.", 15, 10)
    if msg.startswith("ambiguous column name: "):
        return QueryError(209, f"Ambiguous column name '{msg.split(': ')[1].split('.')[-1]}'.", 16, 1)
    return QueryError(50000, f"The stand-in cannot run this statement ({msg}).", 16, 1)


def _microsoft_version(server):
    major, minor, build = server.product_version
    return (major << 24) | (minor << 16) | build


# -- SQL Server functions, run inside sqlite -----------------------------------------
def _db_name(eng, dbid=None):
    if dbid is None:
        return eng.ctx.database
    for db in eng.server.databases.values():
        if db.database_id == dbid:
            return db.name
    return None


def _db_id(eng, name=None):
    db = eng.server.database(name or eng.ctx.database)
    return db.database_id if db else None


def _current_db(eng):
    return eng.server.database(eng.ctx.database)


def _schema_name(eng, sid=None):
    db = _current_db(eng)
    if sid is None:
        return eng.ctx.user.default_schema
    return next((s.name for s in db.schemas.values() if s.schema_id == sid), None)


def _schema_id(eng, name=None):
    s = _current_db(eng).schema(name or eng.ctx.user.default_schema)
    return s.schema_id if s else None


def _objects(db):
    for s in db.schemas.values():
        for t in s.tables.values():
            yield t.object_id, s, t.name
        for v in s.views.values():
            yield v.object_id, s, v.name


def _object_name(eng, oid, dbid=None):
    db = eng.server.database(_db_name(eng, dbid)) if dbid else _current_db(eng)
    return next((name for i, s, name in _objects(db) if i == oid), None) if db else None


def _object_schema_name(eng, oid, dbid=None):
    db = eng.server.database(_db_name(eng, dbid)) if dbid else _current_db(eng)
    return next((s.name for i, s, name in _objects(db) if i == oid), None) if db else None


def _object_id(eng, name, _type=None):
    try:
        parts, _ = read_name(tokenize(name), 0)
        info = eng.resolve(parts)
    except (QueryError, SqlSyntaxError):
        return None
    t = info.fixture_table if isinstance(info, TableInfo) else info
    return t.object_id if t is not None else None


def _user_name(eng, uid=None):
    """USER_NAME(): the current user ("dbo" for sa); USER_NAME(id): the owner of that id. Owners are
    the schemas here (on SQL Server 2000 an object's owner is a user of the same name)."""
    if uid is None:
        return eng.ctx.user.name if eng.ctx.user.name.lower() != "sa" else "dbo"
    db = _current_db(eng)
    return next((s.name for s in db.schemas.values() if s.schema_id == uid), None)


def _identity_of(eng, name):
    oid = _object_id(eng, name)
    if oid is None:
        return None, None
    db = _current_db(eng)
    t = next((t for t in db.tables() if t.object_id == oid), None)
    return (t, t.identity_column()) if t is not None else (None, None)


def _ident_current(eng, name):
    t, c = _identity_of(eng, name)
    if c is None:
        return None
    # a table whose identity has never been used answers its seed
    return t.identity_last if t.identity_last is not None else c.identity[0]


def _ident_incr(eng, name):
    c = _identity_of(eng, name)[1]
    return None if c is None else c.identity[1]


def _ident_seed(eng, name):
    c = _identity_of(eng, name)[1]
    return None if c is None else c.identity[0]


def _len(_eng, s):
    return None if s is None else len(str(s).rstrip(" "))


def _datalength(_eng, v):
    if v is None:
        return None
    return len(v) if isinstance(v, bytes) else len(str(v).encode("utf-16-le"))


def _serverproperty(eng, name):
    major, minor, build = eng.server.product_version
    props = {"productversion": f"{major}.{minor}.{build}.0", "edition": "Developer Edition (64-bit)",
             "engineedition": 5 if eng.server.is_azure else 3, "servername": eng.server.name,
             "machinename": eng.server.name, "collation": eng.server.collation,
             "productlevel": "RTM", "instancename": None}
    return props.get(str(name).lower())


FUNCTIONS = [
    ("DB_NAME", _db_name, -1), ("DB_ID", _db_id, -1), ("SCHEMA_NAME", _schema_name, -1),
    ("SCHEMA_ID", _schema_id, -1), ("OBJECT_NAME", _object_name, -1),
    ("OBJECT_SCHEMA_NAME", _object_schema_name, -1), ("OBJECT_ID", _object_id, -1),
    ("USER_NAME", _user_name, -1),
    ("IDENT_CURRENT", _ident_current, 1), ("IDENT_INCR", _ident_incr, 1), ("IDENT_SEED", _ident_seed, 1),
    ("SUSER_SNAME", lambda eng, *a: eng.ctx.user.name, -1),
    ("SUSER_NAME", lambda eng, *a: eng.ctx.user.name, -1),
    ("LEN", _len, 1), ("DATALENGTH", _datalength, 1), ("ISNULL", lambda eng, a, b: b if a is None else a, 2),
    ("GETDATE", lambda eng: datetime.datetime.now().isoformat(" ", "milliseconds"), 0),
    ("GETUTCDATE", lambda eng: datetime.datetime.utcnow().isoformat(" ", "milliseconds"), 0),
    ("SYSDATETIME", lambda eng: datetime.datetime.now().isoformat(" ", "microseconds") + "0", 0),
    ("NEWID", lambda eng: str(uuid.uuid4()).upper(), 0),
    ("CHARINDEX", lambda eng, a, b: None if a is None or b is None else str(b).lower().find(str(a).lower()) + 1, 2),
    ("SERVERPROPERTY", _serverproperty, 1),
]
