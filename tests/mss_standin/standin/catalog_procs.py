"""Catalog procedures that ODBC catalog functions call: sp_tables, sp_columns, ...

FreeTDS turns SQLTables into sp_tables, SQLColumns into sp_columns,
SQLPrimaryKeys into sp_pkeys, SQLForeignKeys into sp_fkeys and SQLStatistics
into sp_statistics. The result sets have SQL Server's column names and types;
rows are computed from the fixture of the current database.
"""
from .fixture import key
from .results import Column, QueryError, ResultSet
from .sqltypes import SqlType


def _cols(*spec):
    return [Column(n, SqlType(t)) for n, t in spec]


def _arg(args, name, position):
    for n, v in args:
        if n and n.lower() == name:
            return v
    positional = [v for n, v in args if not n]
    return positional[position] if position < len(positional) else None


def _like(pattern, value):
    """SQL LIKE with % and _ (case-insensitive); None matches everything."""
    import re
    if pattern is None or pattern == "%":
        return True
    rx = "".join(".*" if c == "%" else "." if c == "_" else re.escape(c) for c in pattern)
    return re.fullmatch(rx, value, re.I | re.S) is not None


def _db(d, ctx, qualifier):
    name = qualifier or ctx.database
    db = d.server.database(name)
    if db is None or not ctx.user.may_open(db.name):
        if qualifier and key(qualifier) != key(ctx.database):
            raise QueryError(15250, "The database name component of the object qualifier must be "
                                    "the name of the current database.", 16, 1)
    return db


def _tables(d, ctx, args):
    name = _arg(args, "@table_name", 0)
    owner = _arg(args, "@table_owner", 1)
    qualifier = _arg(args, "@table_qualifier", 2)
    types = _arg(args, "@table_type", 3)
    db = _db(d, ctx, qualifier)
    wanted = None
    if types:
        wanted = {t.strip().strip("'\"").upper() for t in types.split(",")}
    rows = []
    for s in sorted(db.schemas.values(), key=lambda x: x.name.lower()):
        if not _like(owner, s.name):
            continue
        items = [(t.name, "TABLE") for t in s.tables.values()] + [(v.name, "VIEW") for v in s.views.values()]
        for n, kind in sorted(items, key=lambda x: (x[1], x[0].lower())):
            if _like(name, n) and (wanted is None or kind in wanted):
                rows.append([db.name, s.name, n, kind, None])
    rows.sort(key=lambda r: (r[3], r[1].lower(), r[2].lower()))
    cols = _cols(("TABLE_QUALIFIER", "sysname"), ("TABLE_OWNER", "sysname"), ("TABLE_NAME", "sysname"),
                 ("TABLE_TYPE", "varchar(32)"), ("REMARKS", "varchar(254)"))
    return [ResultSet(cols, rows)]


def register(procedure):
    procedure("sp_tables")(_tables)
