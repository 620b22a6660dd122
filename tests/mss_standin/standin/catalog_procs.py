"""Catalog procedures that ODBC catalog functions call: sp_tables, sp_columns, ...

FreeTDS turns SQLTables into sp_tables, SQLColumns into sp_columns,
SQLPrimaryKeys into sp_pkeys, SQLForeignKeys into sp_fkeys and SQLStatistics
into sp_statistics. The result sets have SQL Server's column names and types;
rows are computed from the fixture of the current database.
"""
from .fixture import key
from .results import Column, QueryError, ResultSet
from .sqltypes import SqlType


def _cols(*pairs):
    return [Column(n, SqlType(t)) for n, t in pairs]


def _arg(args, name, position):
    for n, v in args:
        if n and n.lower() == name:
            return v
    positional = [v for n, v in args if not n]
    return positional[position] if position < len(positional) else None


def _like(pattern, value, exact_case=False):
    """SQL LIKE with % and _ (without regard to case unless exact_case); None matches everything."""
    import re
    if pattern is None or pattern == "%":
        return True
    rx = "".join(".*" if c == "%" else "." if c == "_" else re.escape(c) for c in pattern)
    return re.fullmatch(rx, value, (0 if exact_case else re.I) | re.S) is not None


def _same(name, value, exact_case=False):
    """A name argument of sp_pkeys, sp_fkeys and sp_statistics: no patterns, compared by the
    database's collation; None matches everything."""
    if name is None:
        return True
    return name == value if exact_case else key(name) == key(value)


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
            if _like(name, n, db.case_sensitive) and (wanted is None or kind in wanted):
                rows.append([db.name, s.name, n, kind, None])
    rows.sort(key=lambda r: (r[3], r[1].lower(), r[2].lower()))
    cols = _cols(("TABLE_QUALIFIER", "sysname"), ("TABLE_OWNER", "sysname"), ("TABLE_NAME", "sysname"),
                 ("TABLE_TYPE", "varchar(32)"), ("REMARKS", "varchar(254)"))
    return [ResultSet(cols, rows)]


# ODBC type code, SQL_DATETIME_SUB and SS_DATA_TYPE per SQL Server type name
ODBC_TYPES = {
    "bit": -7, "tinyint": -6, "smallint": 5, "int": 4, "bigint": -5, "decimal": 3, "numeric": 2,
    "money": 3, "smallmoney": 3, "real": 7, "float": 6, "date": 91, "time": -154, "datetime2": 93,
    "datetimeoffset": -155, "datetime": 93, "smalldatetime": 93, "char": 1, "varchar": 12, "text": -1,
    "nchar": -8, "nvarchar": -9, "ntext": -10, "binary": -2, "varbinary": -3, "image": -4,
    "timestamp": -2, "uniqueidentifier": -11, "xml": -152, "geography": -151, "geometry": -151,
}


def _odbc_type(ty):
    code = ODBC_TYPES[ty.name]
    if ty.is_max:
        code = {12: -1, -9: -10, -3: -4}.get(code, code)
    return code


def _precision(ty):
    n = ty.name
    if ty.precision is not None:
        return ty.precision
    fixed = {"bit": 1, "tinyint": 3, "smallint": 5, "int": 10, "bigint": 19, "money": 19,
             "smallmoney": 10, "real": 24, "float": 53, "date": 10, "datetime": 23, "smalldatetime": 16,
             "uniqueidentifier": 36, "timestamp": 8, "text": 2147483647, "ntext": 1073741823,
             "image": 2147483647, "xml": 0, "geography": 2147483647, "geometry": 2147483647}
    if n in fixed:
        return fixed[n]
    if n == "time":
        return 8 + (ty.scale + 1 if ty.scale else 0)
    if n == "datetime2":
        return 19 + (ty.scale + 1 if ty.scale else 0)
    if n == "datetimeoffset":
        return 26 + (ty.scale + 1 if ty.scale else 0)
    if ty.is_max:
        return 1073741823 if n == "nvarchar" else 2147483647
    return ty.length


def _table_matches(db, owner, name, patterns=True):
    match = _like if patterns else _same
    for s in sorted(db.schemas.values(), key=lambda x: x.name.lower()):
        if not match(owner, s.name):
            continue
        for t in sorted(s.tables.values(), key=lambda x: x.name.lower()):
            if match(name, t.name, db.case_sensitive):
                yield s, t


def _columns(d, ctx, args):
    name = _arg(args, "@table_name", 0)
    owner = _arg(args, "@table_owner", 1)
    db = _db(d, ctx, _arg(args, "@table_qualifier", 2))
    column = _arg(args, "@column_name", 3)
    rows = []
    for s, t in _table_matches(db, owner, name):
        for c in t.columns:
            if not _like(column, c.name):
                continue
            ty = c.type
            code = _odbc_type(ty)
            tname = ty.name + (" identity" if c.identity else "")
            size = ty.max_bytes()
            octets = None
            if ty.name in ("char", "varchar", "nchar", "nvarchar", "binary", "varbinary", "text", "ntext",
                           "image") or ty.is_max:
                octets = 2147483647 if size < 0 else size
            sub = {91: 1, 93: 3, -154: 0, -155: 0}.get(code)
            sql_type = 9 if code in (91, 93) else code
            rows.append([db.name, s.name, t.name, c.name, code, tname, _precision(ty),
                         2147483647 if size < 0 else size, ty.scale, 10 if ty.precision or code in (4, 5, -6, -5, 6, 7) else None,
                         1 if c.nullable else 0, None, c.default, sql_type, sub, octets, c.column_id,
                         "YES" if c.nullable else "NO", 0])
    cols = _cols(("TABLE_QUALIFIER", "sysname"), ("TABLE_OWNER", "sysname"), ("TABLE_NAME", "sysname"),
                 ("COLUMN_NAME", "sysname"), ("DATA_TYPE", "smallint"), ("TYPE_NAME", "sysname"),
                 ("PRECISION", "int"), ("LENGTH", "int"), ("SCALE", "smallint"), ("RADIX", "smallint"),
                 ("NULLABLE", "smallint"), ("REMARKS", "varchar(254)"), ("COLUMN_DEF", "nvarchar(4000)"),
                 ("SQL_DATA_TYPE", "smallint"), ("SQL_DATETIME_SUB", "smallint"),
                 ("CHAR_OCTET_LENGTH", "int"), ("ORDINAL_POSITION", "int"), ("IS_NULLABLE", "varchar(254)"),
                 ("SS_DATA_TYPE", "tinyint"))
    return [ResultSet(cols, rows)]


def _pkeys(d, ctx, args):
    name = _arg(args, "@table_name", 0)
    owner = _arg(args, "@table_owner", 1)
    db = _db(d, ctx, _arg(args, "@table_qualifier", 2))
    rows = []
    for s, t in _table_matches(db, owner, name, patterns=False):
        for ix in t.indexes:
            if ix.kind == "primary":
                for seq, c in enumerate(ix.columns, 1):
                    rows.append([db.name, s.name, t.name, t.by_name[key(c)].name, seq, ix.name])
    cols = _cols(("TABLE_QUALIFIER", "sysname"), ("TABLE_OWNER", "sysname"), ("TABLE_NAME", "sysname"),
                 ("COLUMN_NAME", "sysname"), ("KEY_SEQ", "smallint"), ("PK_NAME", "sysname"))
    return [ResultSet(cols, rows)]


RULES = {"CASCADE": 0, "NO_ACTION": 1, "SET_NULL": 2, "SET_DEFAULT": 3}


def _fkeys(d, ctx, args):
    pk_name = _arg(args, "@pktable_name", 0)
    pk_owner = _arg(args, "@pktable_owner", 1)
    db = _db(d, ctx, _arg(args, "@pktable_qualifier", 2) or _arg(args, "@fktable_qualifier", 5))
    fk_name = _arg(args, "@fktable_name", 3)
    fk_owner = _arg(args, "@fktable_owner", 4)
    rows = []
    for s, t in _table_matches(db, fk_owner, fk_name, patterns=False):
        for fk in t.foreign_keys:
            if not (_same(pk_name, fk.ref_table, db.case_sensitive) and _same(pk_owner, fk.ref_schema)):
                continue
            ref_schema = db.schema(fk.ref_schema)
            ref = ref_schema.tables.get(db.name_key(fk.ref_table)) if ref_schema else None
            pk = next((ix.name for ix in (ref.indexes if ref else [])
                       if ix.unique and [key(c) for c in ix.columns] == [key(c) for c in fk.ref_columns]), None)
            for seq, (fc, pc) in enumerate(zip(fk.columns, fk.ref_columns), 1):
                rows.append([db.name, fk.ref_schema, fk.ref_table, pc, db.name, s.name, t.name, fc, seq,
                             RULES.get(fk.on_update, 1), RULES.get(fk.on_delete, 1), fk.name, pk, 7])
    rows.sort(key=lambda r: (r[5].lower(), r[6].lower(), r[8]))
    cols = _cols(("PKTABLE_QUALIFIER", "sysname"), ("PKTABLE_OWNER", "sysname"), ("PKTABLE_NAME", "sysname"),
                 ("PKCOLUMN_NAME", "sysname"), ("FKTABLE_QUALIFIER", "sysname"), ("FKTABLE_OWNER", "sysname"),
                 ("FKTABLE_NAME", "sysname"), ("FKCOLUMN_NAME", "sysname"), ("KEY_SEQ", "smallint"),
                 ("UPDATE_RULE", "smallint"), ("DELETE_RULE", "smallint"), ("FK_NAME", "sysname"),
                 ("PK_NAME", "sysname"), ("DEFERRABILITY", "smallint"))
    return [ResultSet(cols, rows)]


def _statistics(d, ctx, args):
    name = _arg(args, "@table_name", 0)
    owner = _arg(args, "@table_owner", 1)
    db = _db(d, ctx, _arg(args, "@table_qualifier", 2))
    index_name = _arg(args, "@index_name", 3)
    unique_only = str(_arg(args, "@is_unique", 4) or "N").upper() == "Y"
    rows = []
    for s, t in _table_matches(db, owner, name, patterns=False):
        rows.append([db.name, s.name, t.name, None, None, None, 0, None, None, None, len(t.rows), None, None])
        for ix in sorted(t.indexes, key=lambda x: (not x.unique, x.name.lower())):
            if (unique_only and not ix.unique) or not _like(index_name, ix.name):
                continue
            for seq, c in enumerate(ix.columns, 1):
                rows.append([db.name, s.name, t.name, 0 if ix.unique else 1, t.name, ix.name,
                             1 if ix.clustered else 3, seq, t.by_name[key(c)].name,
                             "D" if c in ix.descending else "A", None, None, None])
    cols = _cols(("TABLE_QUALIFIER", "sysname"), ("TABLE_OWNER", "sysname"), ("TABLE_NAME", "sysname"),
                 ("NON_UNIQUE", "smallint"), ("INDEX_QUALIFIER", "sysname"), ("INDEX_NAME", "sysname"),
                 ("TYPE", "smallint"), ("SEQ_IN_INDEX", "smallint"), ("COLUMN_NAME", "sysname"),
                 ("COLLATION", "char(1)"), ("CARDINALITY", "int"), ("PAGES", "int"),
                 ("FILTER_CONDITION", "varchar(128)"))
    return [ResultSet(cols, rows)]


def register(procedure):
    procedure("sp_tables")(_tables)
    procedure("sp_columns", "sp_columns_100")(_columns)
    procedure("sp_pkeys")(_pkeys)
    procedure("sp_fkeys")(_fkeys)
    procedure("sp_statistics", "sp_statistics_100")(_statistics)
