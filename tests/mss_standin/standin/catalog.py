"""Catalog views computed from the fixture.

A catalog view is a function (server, db, ctx) -> (columns, rows) registered
in VIEWS under "schema.name" in lower case. The engine materialises it as a
sqlite table the first time a statement names it in that database, so joins,
WHERE clauses and SQL Server functions (OBJECT_NAME, SCHEMA_NAME, ...) work
on it like on any fixture table. To answer a new catalog query, add the view
it reads here; the columns should carry SQL Server's names and types.
"""
from .results import Column
from .sqltypes import SqlType

VIEWS = {}
ALIASES = {"sys.sysdatabases": "sys.databases"}


def view(name, *columns):
    """Registers a builder; columns are (name, type declaration) pairs."""
    cols = [Column(n, SqlType(t)) for n, t in columns]

    def register(fn):
        VIEWS[name] = (cols, fn)
        return fn
    return register


def lookup(schema, name):
    k = f"{schema}.{name}".lower()
    k = ALIASES.get(k, k)
    return k if k in VIEWS else None


def build(view_key, server, db, ctx):
    cols, fn = VIEWS[view_key]
    return cols, [list(r) for r in fn(server, db, ctx)]


def _tables(db):
    return [t for t in db.tables()]


@view("sys.databases", ("name", "sysname"), ("database_id", "int"), ("collation_name", "sysname"),
      ("compatibility_level", "tinyint"), ("state_desc", "nvarchar(60)"))
def _databases(server, db, ctx):
    level = {8: 80, 9: 90, 10: 100, 11: 110, 12: 120, 13: 130, 14: 140, 15: 150, 16: 160}
    compat = level.get(server.product_version[0], 150)
    for d in sorted(server.databases.values(), key=lambda x: x.database_id):
        yield d.name, d.database_id, d.collation, compat, "ONLINE"


@view("sys.schemas", ("name", "sysname"), ("schema_id", "int"), ("principal_id", "int"))
def _schemas(server, db, ctx):
    for s in sorted(db.schemas.values(), key=lambda x: x.schema_id):
        yield s.name, s.schema_id, 1 if s.schema_id <= 4 else s.schema_id


@view("sys.tables", ("name", "sysname"), ("object_id", "int"), ("schema_id", "int"),
      ("type", "char(2)"), ("type_desc", "nvarchar(60)"), ("is_ms_shipped", "bit"))
def _systables(server, db, ctx):
    for t in _tables(db):
        yield t.name, t.object_id, t.schema.schema_id, "U", "USER_TABLE", 0


@view("information_schema.tables", ("TABLE_CATALOG", "nvarchar(128)"), ("TABLE_SCHEMA", "nvarchar(128)"),
      ("TABLE_NAME", "sysname"), ("TABLE_TYPE", "varchar(10)"))
def _is_tables(server, db, ctx):
    for t in _tables(db):
        yield db.name, t.schema.name, t.name, "BASE TABLE"
    for v in db.views():
        yield db.name, v.schema.name, v.name, "VIEW"


@view("information_schema.columns", ("TABLE_CATALOG", "nvarchar(128)"), ("TABLE_SCHEMA", "nvarchar(128)"),
      ("TABLE_NAME", "sysname"), ("COLUMN_NAME", "sysname"), ("ORDINAL_POSITION", "int"),
      ("COLUMN_DEFAULT", "nvarchar(4000)"), ("IS_NULLABLE", "varchar(3)"), ("DATA_TYPE", "nvarchar(128)"),
      ("CHARACTER_MAXIMUM_LENGTH", "int"), ("CHARACTER_OCTET_LENGTH", "int"),
      ("NUMERIC_PRECISION", "tinyint"), ("NUMERIC_SCALE", "int"), ("DATETIME_PRECISION", "smallint"))
def _is_columns(server, db, ctx):
    for t in _tables(db):
        for c in t.columns:
            ty = c.type
            size = ty.max_bytes()
            chars = None
            if ty.length is not None:
                chars = -1 if ty.is_max else ty.length
            octets = None if chars is None else (-1 if ty.is_max else size)
            yield (db.name, t.schema.name, t.name, c.name, c.column_id, c.default,
                   "YES" if c.nullable else "NO", ty.name, chars, octets, ty.precision, ty.scale,
                   ty.scale if ty.name in ("time", "datetime2", "datetimeoffset") else None)
