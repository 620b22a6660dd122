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
# The first major product version that has a view (9 = SQL Server 2005,
# 11 = 2012); a view not listed here exists in every release.
SINCE = {}
# The system tables of SQL Server 2000, kept by later releases as compatibility
# views: reachable by bare name, as dbo.<name> and (from 2005) as sys.<name>.
COMPATIBILITY = ("sysdatabases", "sysobjects", "syscolumns", "systypes", "syscomments")


def view(name, *columns, since=None):
    """Registers a builder; columns are (name, type declaration) pairs."""
    cols = [Column(n, SqlType(t)) for n, t in columns]

    def register(fn):
        VIEWS[name] = (cols, fn)
        if since is not None:
            SINCE[name] = since
        elif name.startswith("sys."):
            SINCE[name] = 9  # the sys schema came with SQL Server 2005
        return fn
    return register


def lookup(schema, name, server=None):
    """The key of the catalog view schema.name on this server, or None."""
    s, n = schema.lower(), name.lower()
    if n in COMPATIBILITY and s in ("dbo", "sys"):
        if s == "sys" and server is not None and server.product_version[0] < 9:
            return None
        return "compat." + n if n != "sysdatabases" else "compat.sysdatabases"
    k = ALIASES.get(f"{s}.{n}", f"{s}.{n}")
    if k not in VIEWS:
        return None
    if server is not None and server.product_version[0] < SINCE.get(k, 0):
        return None
    return k


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


# SQL Server's sys.types rows of the built-in types: name -> (system_type_id, user_type_id)
TYPE_IDS = {"image": 34, "text": 35, "uniqueidentifier": 36, "date": 40, "time": 41, "datetime2": 42,
            "datetimeoffset": 43, "tinyint": 48, "smallint": 52, "int": 56, "smalldatetime": 58,
            "real": 59, "money": 60, "datetime": 61, "float": 62, "ntext": 99, "bit": 104,
            "decimal": 106, "numeric": 108, "smallmoney": 122, "bigint": 127, "varbinary": 165,
            "varchar": 167, "binary": 173, "char": 175, "timestamp": 189, "nvarchar": 231,
            "nchar": 239, "xml": 241, "geometry": 240, "geography": 240}
UDT_IDS = {"geometry": 129, "geography": 130}


def _user_type_id(ty):
    return UDT_IDS.get(ty.name, TYPE_IDS[ty.name])


@view("sys.types", ("name", "sysname"), ("system_type_id", "tinyint"), ("user_type_id", "int"),
      ("schema_id", "int"), ("max_length", "smallint"), ("precision", "tinyint"), ("scale", "tinyint"),
      ("is_user_defined", "bit"))
def _types(server, db, ctx):
    for name, sid in sorted(TYPE_IDS.items(), key=lambda x: x[1]):
        ty = SqlType(name if name not in ("varchar", "nvarchar", "varbinary", "char", "nchar", "binary")
                     else name + "(8000)" if name[0] != "n" else name + "(4000)")
        yield name, sid, UDT_IDS.get(name, sid), 4, ty.max_bytes(), ty.precision or 0, ty.scale or 0, 0
    yield "sysname", 231, 256, 4, 256, 0, 0, 0


@view("sys.objects", ("name", "sysname"), ("object_id", "int"), ("schema_id", "int"),
      ("parent_object_id", "int"), ("type", "char(2)"), ("type_desc", "nvarchar(60)"), ("is_ms_shipped", "bit"))
def _objects(server, db, ctx):
    for t in _tables(db):
        yield t.name, t.object_id, t.schema.schema_id, 0, "U", "USER_TABLE", 0
        for ix in t.indexes:
            if ix.kind != "index":
                kind = ("PK", "PRIMARY_KEY_CONSTRAINT") if ix.kind == "primary" else ("UQ", "UNIQUE_CONSTRAINT")
                yield ix.name, ix.object_id, t.schema.schema_id, t.object_id, kind[0], kind[1], 0
        for fk in t.foreign_keys:
            yield fk.name, fk.object_id, t.schema.schema_id, t.object_id, "F", "FOREIGN_KEY_CONSTRAINT", 0
    for v in db.views():
        yield v.name, v.object_id, v.schema.schema_id, 0, "V", "VIEW", 0
    if server.product_version[0] >= 11:
        for q in db.sequences():
            yield q.name, q.object_id, q.schema.schema_id, 0, "SO", "SEQUENCE_OBJECT", 0


@view("sys.views", ("name", "sysname"), ("object_id", "int"), ("schema_id", "int"), ("type", "char(2)"))
def _views(server, db, ctx):
    for v in db.views():
        yield v.name, v.object_id, v.schema.schema_id, "V"


@view("sys.sql_modules", ("object_id", "int"), ("definition", "nvarchar(max)"))
def _sql_modules(server, db, ctx):
    for v in db.views():
        yield v.object_id, v.definition


@view("sys.columns", ("object_id", "int"), ("name", "sysname"), ("column_id", "int"),
      ("system_type_id", "tinyint"), ("user_type_id", "int"), ("max_length", "smallint"),
      ("precision", "tinyint"), ("scale", "tinyint"), ("collation_name", "sysname"), ("is_nullable", "bit"),
      ("is_identity", "bit"), ("is_computed", "bit"), ("default_object_id", "int"))
def _syscolumns(server, db, ctx):
    for t in _tables(db):
        for c in t.columns:
            ty = c.type
            text = ty.name in ("char", "varchar", "text", "nchar", "nvarchar", "ntext")
            precision, scale = _precision_scale(ty)
            yield (t.object_id, c.name, c.column_id, TYPE_IDS[ty.name], _user_type_id(ty), ty.max_bytes(),
                   precision, scale, ty.collation if text else None, int(c.nullable), int(bool(c.identity)),
                   0, _default_id(t, c))


def _precision_scale(ty):
    """sys.columns' precision and scale of a type, as SQL Server reports them."""
    fixed_precision = {"tinyint": 3, "smallint": 5, "int": 10, "bigint": 19, "bit": 1, "real": 24,
                       "float": 53, "money": 19, "smallmoney": 10, "datetime": 23,
                       "smalldatetime": 16, "date": 10}
    precision = ty.precision if ty.precision is not None else fixed_precision.get(ty.name, 0)
    if ty.name in ("time", "datetime2", "datetimeoffset"):
        precision = {"time": 8, "datetime2": 19, "datetimeoffset": 26}[ty.name] + (ty.scale + 1 if ty.scale else 0)
    scale = ty.scale if ty.scale is not None else (3 if ty.name == "datetime" else 0)
    return precision, scale


def _default_id(t, c):
    return t.object_id * 1000 + c.column_id if c.default else 0


@view("sys.default_constraints", ("name", "sysname"), ("object_id", "int"), ("parent_object_id", "int"),
      ("parent_column_id", "int"), ("definition", "nvarchar(max)"), ("schema_id", "int"))
def _defaults(server, db, ctx):
    for t in _tables(db):
        for c in t.columns:
            if c.default:
                name = c.default_name or f"DF_{t.name}_{c.name}"
                yield name, _default_id(t, c), t.object_id, c.column_id, c.default, t.schema.schema_id


@view("sys.identity_columns", ("object_id", "int"), ("name", "sysname"), ("column_id", "int"),
      ("seed_value", "bigint"), ("increment_value", "bigint"), ("last_value", "bigint"))
def _identity(server, db, ctx):
    for t in _tables(db):
        c = t.identity_column()
        if c is not None:
            yield t.object_id, c.name, c.column_id, c.identity[0], c.identity[1], t.identity_last


@view("sys.indexes", ("object_id", "int"), ("name", "sysname"), ("index_id", "int"), ("type", "tinyint"),
      ("type_desc", "nvarchar(60)"), ("is_unique", "bit"), ("is_primary_key", "bit"),
      ("is_unique_constraint", "bit"))
def _indexes(server, db, ctx):
    for t in _tables(db):
        if not any(ix.clustered for ix in t.indexes):
            yield t.object_id, None, 0, 0, "HEAP", 0, 0, 0
        for ix in t.indexes:
            yield (t.object_id, ix.name, ix.index_id, 1 if ix.clustered else 2,
                   "CLUSTERED" if ix.clustered else "NONCLUSTERED", int(ix.unique),
                   int(ix.kind == "primary"), int(ix.kind == "unique"))


@view("sys.index_columns", ("object_id", "int"), ("index_id", "int"), ("index_column_id", "int"),
      ("column_id", "int"), ("key_ordinal", "tinyint"), ("is_descending_key", "bit"),
      ("is_included_column", "bit"))
def _index_columns(server, db, ctx):
    from .fixture import key
    for t in _tables(db):
        for ix in t.indexes:
            n = 0
            for ordinal, c in enumerate(ix.columns, 1):
                n += 1
                yield (t.object_id, ix.index_id, n, t.by_name[key(c)].column_id, ordinal,
                       int(c in ix.descending), 0)
            for c in ix.include:
                n += 1
                yield t.object_id, ix.index_id, n, t.by_name[key(c)].column_id, 0, 0, 1


@view("sys.foreign_keys", ("name", "sysname"), ("object_id", "int"), ("schema_id", "int"),
      ("parent_object_id", "int"), ("referenced_object_id", "int"),
      ("delete_referential_action_desc", "nvarchar(60)"), ("update_referential_action_desc", "nvarchar(60)"))
def _foreign_keys(server, db, ctx):
    for t, fk, ref in _fk_pairs(db):
        yield (fk.name, fk.object_id, t.schema.schema_id, t.object_id, ref.object_id, fk.on_delete,
               fk.on_update)


@view("sys.foreign_key_columns", ("constraint_object_id", "int"), ("constraint_column_id", "int"),
      ("parent_object_id", "int"), ("parent_column_id", "int"), ("referenced_object_id", "int"),
      ("referenced_column_id", "int"))
def _foreign_key_columns(server, db, ctx):
    from .fixture import key
    for t, fk, ref in _fk_pairs(db):
        for n, (c, rc) in enumerate(zip(fk.columns, fk.ref_columns), 1):
            yield (fk.object_id, n, t.object_id, t.by_name[key(c)].column_id, ref.object_id,
                   ref.by_name[key(rc)].column_id)


def _fk_pairs(db):
    from .fixture import key
    for t in _tables(db):
        for fk in t.foreign_keys:
            s = db.schema(fk.ref_schema)
            ref = s.tables.get(db.name_key(fk.ref_table)) if s else None
            if ref is not None:
                yield t, fk, ref


@view("sys.sequences", ("name", "sysname"), ("object_id", "int"), ("schema_id", "int"),
      ("start_value", "bigint"), ("increment", "bigint"), ("minimum_value", "bigint"),
      ("maximum_value", "bigint"), ("is_cycling", "bit"), ("current_value", "bigint"), since=11)
def _sequences(server, db, ctx):
    for q in db.sequences():
        yield (q.name, q.object_id, q.schema.schema_id, q.start, q.increment, q.minimum, q.maximum,
               int(q.cycle), q.start)


# -- the system tables of SQL Server 2000 -----------------------------------------------------
@view("compat.sysdatabases", ("name", "sysname"), ("dbid", "smallint"), ("sid", "varbinary(85)"),
      ("cmptlevel", "tinyint"))
def _sysdatabases(server, db, ctx):
    for d in sorted(server.databases.values(), key=lambda x: x.database_id):
        yield d.name, d.database_id, None, 80


@view("compat.sysobjects", ("name", "sysname"), ("id", "int"), ("xtype", "char(2)"), ("uid", "smallint"),
      ("parent_obj", "int"), ("type", "char(2)"))
def _sysobjects(server, db, ctx):
    for t in _tables(db):
        yield t.name, t.object_id, "U", t.schema.schema_id, 0, "U"
        for ix in t.indexes:
            if ix.kind != "index":
                kind = "PK" if ix.kind == "primary" else "UQ"
                yield ix.name, ix.object_id, kind, t.schema.schema_id, t.object_id, "K"
        for fk in t.foreign_keys:
            yield fk.name, fk.object_id, "F", t.schema.schema_id, t.object_id, "F"
        for c in t.columns:
            if c.default:
                yield (c.default_name or f"DF_{t.name}_{c.name}", _default_id(t, c), "D", t.schema.schema_id,
                       t.object_id, "D")
    for v in db.views():
        yield v.name, v.object_id, "V", v.schema.schema_id, 0, "V"


@view("compat.syscolumns", ("name", "sysname"), ("id", "int"), ("colid", "smallint"), ("xtype", "tinyint"),
      ("xusertype", "smallint"), ("length", "smallint"), ("xprec", "tinyint"), ("xscale", "tinyint"),
      ("cdefault", "int"), ("isnullable", "int"), ("status", "tinyint"))
def _syscolumns2000(server, db, ctx):
    for t in _tables(db):
        for c in t.columns:
            precision, scale = _precision_scale(c.type)
            # status: 0x08 allows NULL, 0x80 identity
            status = (0x08 if c.nullable else 0) | (0x80 if c.identity else 0)
            yield (c.name, t.object_id, c.column_id, TYPE_IDS[c.type.name], _user_type_id(c.type),
                   c.type.max_bytes(), precision, scale, _default_id(t, c), int(c.nullable), status)


@view("compat.systypes", ("name", "sysname"), ("xtype", "tinyint"), ("xusertype", "smallint"),
      ("length", "smallint"), ("xprec", "tinyint"), ("xscale", "tinyint"))
def _systypes(server, db, ctx):
    for row in _types(server, db, ctx):
        name, sid, uid, _schema, length, prec, scale, _udt = row
        yield name, sid, uid, length, prec, scale


@view("compat.syscomments", ("id", "int"), ("colid", "smallint"), ("text", "nvarchar(4000)"))
def _syscomments(server, db, ctx):
    for t in _tables(db):
        for c in t.columns:
            if c.default:
                yield _default_id(t, c), 1, c.default
    for v in db.views():
        yield v.object_id, 1, v.definition
