"""The fixture model: server settings, users and databases read from JSON files.

Several files may be given; they are merged in order (later server settings
override earlier ones, databases and schemas with the same name are merged,
a table defined twice is an error). The format is described in
doc/standin-fixture-format.md. Every problem is reported as FixtureError
with the file and the object at fault.
"""
import json
import itertools

from . import bulk, sqltypes, versions
from .sqltypes import SqlType


class FixtureError(ValueError):
    pass


def key(name):
    """Names compare without regard to case, like a CI collation."""
    return name.lower()


class User:
    def __init__(self, d):
        self.name = d["name"]
        self.password = d.get("password", "")
        dbs = d.get("databases", "*")
        self.databases = None if dbs == "*" else {key(x) for x in dbs}
        self.default_database = d.get("default_database")
        self.default_schema = d.get("default_schema", "dbo")
        self.deny_select = {key(x) for x in d.get("deny_select", [])}
        self.view_definition = d.get("view_definition", True)

    def may_open(self, db):
        return self.databases is None or key(db) in self.databases


class Column:
    def __init__(self, d, collation, where):
        try:
            self.name = d["name"]
            self.type = SqlType(d["type"], d.get("collation", collation))
        except KeyError as e:
            raise FixtureError(f"{where}: column needs {e}") from None
        except sqltypes.TypeError_ as e:
            raise FixtureError(f"{where}.{d.get('name')}: {e}") from None
        self.nullable = bool(d.get("nullable", True))
        ident = d.get("identity")
        self.identity = None
        if ident:
            ident = ident if isinstance(ident, dict) else {}
            self.identity = (int(ident.get("seed", 1)), int(ident.get("increment", 1)))
            self.nullable = False
        if self.type.name == "timestamp":
            self.nullable = False
        self.default = d.get("default")
        self.default_name = d.get("default_name")
        self.column_id = 0


class Index:
    def __init__(self, d, kind, where):
        self.name = d.get("name")
        self.columns = list(d.get("columns", []))
        if not self.columns:
            raise FixtureError(f"{where}: index {self.name!r} has no columns")
        self.kind = kind  # "primary", "unique" (constraint), "index"
        self.unique = kind != "index" or bool(d.get("unique", False))
        self.clustered = bool(d.get("clustered", kind == "primary"))
        self.include = list(d.get("include", []))
        self.descending = set(d.get("descending", []))
        self.object_id = 0
        self.index_id = 0


class ForeignKey:
    def __init__(self, d, where):
        try:
            self.name = d["name"]
            self.columns = list(d["columns"])
            ref = d["references"]
            self.ref_schema = ref.get("schema", "dbo")
            self.ref_table = ref["table"]
            self.ref_columns = list(ref["columns"])
        except KeyError as e:
            raise FixtureError(f"{where}: foreign key needs {e}") from None
        if len(self.columns) != len(self.ref_columns):
            raise FixtureError(f"{where}: foreign key {self.name} column counts differ")
        self.on_delete = d.get("on_delete", "NO_ACTION").upper().replace(" ", "_")
        self.on_update = d.get("on_update", "NO_ACTION").upper().replace(" ", "_")
        self.object_id = 0


class Sequence:
    def __init__(self, schema, d, where):
        self.schema = schema
        try:
            self.name = d["name"]
        except KeyError:
            raise FixtureError(f"{where}: a sequence needs a name") from None
        self.type = d.get("type", "bigint")
        if self.type not in sqltypes.INT_RANGES and not self.type.startswith(("decimal", "numeric")):
            raise FixtureError(f"{where}.{self.name}: sequence type {self.type} is not an integer type")
        lo, hi, _ = sqltypes.INT_RANGES.get(self.type, (-(10 ** 18) + 1, 10 ** 18 - 1, 0))
        self.increment = int(d.get("increment", 1))
        if self.increment == 0:
            raise FixtureError(f"{where}.{self.name}: a sequence increment cannot be 0")
        self.minimum = int(d.get("minimum", lo))
        self.maximum = int(d.get("maximum", hi))
        self.start = int(d.get("start", self.minimum if self.increment > 0 else self.maximum))
        if not (lo <= self.minimum <= self.start <= self.maximum <= hi):
            raise FixtureError(f"{where}.{self.name}: start, minimum and maximum do not fit {self.type}")
        self.cycle = bool(d.get("cycle", False))
        self.object_id = 0


class Table:
    def __init__(self, db, schema, d, where):
        self.db, self.schema, self.name = db, schema, d["name"]
        where = f"{where}.{self.name}"
        self.where = where
        coll = d.get("collation", db.collation)
        self.generated = d.get("generated")
        if self.generated and d.get("columns"):
            raise FixtureError(f"{where}: a generated table has fixed columns; give no \"columns\"")
        declared = d.get("columns") or (bulk.fixture_columns() if self.generated else [])
        self.columns = [Column(c, coll, where) for c in declared]
        for i, c in enumerate(self.columns, 1):
            c.column_id = i
        self.by_name = {key(c.name): c for c in self.columns}
        if len(self.by_name) != len(self.columns):
            raise FixtureError(f"{where}: duplicate column names")
        if not self.columns:
            raise FixtureError(f"{where}: a table needs columns")
        self.indexes = []
        if d.get("primary_key"):
            self.indexes.append(Index(d["primary_key"], "primary", where))
        self.indexes += [Index(u, "unique", where) for u in d.get("unique", [])]
        self.indexes += [Index(i, "index", where) for i in d.get("indexes", [])]
        for ix in self.indexes:
            for c in ix.columns + ix.include:
                if key(c) not in self.by_name and not self.generated:
                    raise FixtureError(f"{where}: index {ix.name} names unknown column {c}")
        self.foreign_keys = [ForeignKey(f, where) for f in d.get("foreign_keys", [])]
        self.identity_last = d.get("identity_last")
        self.object_id = 0
        self.rows = [] if self.generated else self._rows(d.get("rows", []))
        if self.identity_last is None:
            idc = self.identity_column()
            if idc is not None:
                vals = [r[idc.column_id - 1] for r in self.rows if r[idc.column_id - 1] is not None]
                # decimal identities are held as text: compare them as numbers
                self.identity_last = int(max(vals, key=sqltypes.D)) if vals else None

    def identity_column(self):
        return next((c for c in self.columns if c.identity), None)

    def _rows(self, rows):
        out = []
        for n, r in enumerate(rows, 1):
            if isinstance(r, dict):
                unknown = [k for k in r if key(k) not in self.by_name]
                if unknown:
                    raise FixtureError(f"{self.where} row {n}: unknown columns {unknown}")
                lower = {key(k): v for k, v in r.items()}
                r = [lower.get(key(c.name)) for c in self.columns]
            if len(r) != len(self.columns):
                raise FixtureError(f"{self.where} row {n}: {len(r)} values for "
                                   f"{len(self.columns)} columns")
            row = []
            for c, v in zip(self.columns, r):
                if v is None and not c.nullable:
                    raise FixtureError(f"{self.where} row {n}: NULL in NOT NULL column {c.name}")
                try:
                    row.append(c.type.from_fixture(v))
                except sqltypes.TypeError_ as e:
                    raise FixtureError(f"{self.where} row {n} column {c.name}: {e}") from None
            out.append(row)
        return out

    @property
    def full_name(self):
        return f"{self.schema.name}.{self.name}"


class View:
    def __init__(self, schema, d, where):
        self.schema = schema
        try:
            self.name = d["name"]
            self.definition = d["definition"]
        except KeyError as e:
            raise FixtureError(f"{where}: view needs {e}") from None
        self.object_id = 0


class Schema:
    def __init__(self, db, name, owner="dbo"):
        self.db, self.name, self.owner = db, name, owner
        self.tables, self.views, self.sequences = {}, {}, {}
        self.schema_id = 0


class Database:
    def __init__(self, name, collation):
        self.name, self.collation = name, collation
        self.schemas = {}
        self.database_id = 0

    @property
    def case_sensitive(self):
        """Object names compare by the database's collation: exactly in a _CS_ one."""
        return "_CS" in self.collation.upper()

    def name_key(self, name):
        """The key of a table, view or sequence name in this database."""
        return name if self.case_sensitive else key(name)

    def schema(self, name, create=False):
        s = self.schemas.get(key(name))
        if s is None and create:
            s = self.schemas[key(name)] = Schema(self, name)
        return s

    def tables(self):
        return [t for s in self.schemas.values() for t in s.tables.values()]

    def views(self):
        return [v for s in self.schemas.values() for v in s.views.values()]

    def sequences(self):
        return [q for s in self.schemas.values() for q in s.sequences.values()]


class Server:
    """Everything the stand-in serves, shared read-only by all sessions."""

    def __init__(self):
        self.name = "QBSTANDIN"
        self.version_key = versions.DEFAULT
        self.version_text, self.product_version = versions.lookup(self.version_key)
        self.collation = sqltypes.DEFAULT_COLLATION
        self.default_textsize = None  # None: unlimited for ODBC logins, 4096 otherwise
        self.users = {}
        self.databases = {}
        self.ids = itertools.count(1001)
        self.add_database("master")
        self.add_database("tempdb")

    def add_database(self, name, collation=None):
        db = self.databases.get(key(name))
        if db is None:
            db = self.databases[key(name)] = Database(name, collation or self.collation)
            db.database_id = len(self.databases)
            for s in ("dbo", "guest", "INFORMATION_SCHEMA", "sys"):
                db.schema(s, create=True).schema_id = {"dbo": 1, "guest": 2,
                                                       "INFORMATION_SCHEMA": 3, "sys": 4}[s]
        return db

    def set_version(self, key_or_text):
        try:
            self.version_key = key_or_text
            self.version_text, self.product_version = versions.lookup(key_or_text)
        except ValueError:
            if not key_or_text.startswith("Microsoft"):
                raise
            self.version_key = "custom"
            self.version_text = key_or_text
            self.product_version = versions.product_version(key_or_text)

    @property
    def is_azure(self):
        return self.version_text.startswith("Microsoft SQL Azure")

    def database(self, name):
        return self.databases.get(key(name))

    # -- loading ---------------------------------------------------------------
    def load_file(self, path):
        try:
            with open(path, encoding="utf-8") as f:
                doc = json.load(f)
        except (OSError, json.JSONDecodeError) as e:
            raise FixtureError(f"{path}: {e}") from None
        self.load(doc, path)

    def load(self, doc, where="fixture"):
        srv = doc.get("server", {})
        if "name" in srv:
            self.name = srv["name"]
        if "collation" in srv:
            sqltypes.collation_codec(srv["collation"])
            self.collation = srv["collation"]
        if "version" in srv:
            try:
                self.set_version(srv["version"])
            except ValueError as e:
                raise FixtureError(f"{where}: {e}") from None
        if "version_text" in srv:
            self.set_version(srv["version_text"])
        if "default_textsize" in srv:
            self.default_textsize = int(srv["default_textsize"])
        for u in srv.get("users", []):
            self.users[key(u["name"])] = User(u)
        for d in doc.get("databases", []):
            self._load_database(d, where)

    def _load_database(self, d, where):
        db = self.add_database(d["name"], d.get("collation"))
        where = f"{where}: database {db.name}"
        for s in d.get("schemas", []):
            schema = db.schema(s["name"], create=True)
            if not schema.schema_id:
                schema.schema_id = 4 + len(db.schemas)
            schema.owner = s.get("owner", schema.owner)
            for t in s.get("tables", []):
                if db.name_key(t.get("name", "")) in schema.tables:
                    raise FixtureError(f"{where}: table {s['name']}.{t['name']} defined twice")
                table = Table(db, schema, t, f"{where}.{s['name']}")
                table.object_id = next(self.ids)
                for ix in table.indexes:
                    ix.object_id = next(self.ids) if ix.kind != "index" else 0
                for fk in table.foreign_keys:
                    fk.object_id = next(self.ids)
                schema.tables[db.name_key(table.name)] = table
            for v in s.get("views", []):
                view = View(schema, v, f"{where}.{s['name']}")
                view.object_id = next(self.ids)
                if db.name_key(view.name) in schema.views or db.name_key(view.name) in schema.tables:
                    raise FixtureError(f"{where}: object {s['name']}.{view.name} defined twice")
                schema.views[db.name_key(view.name)] = view
            for q in s.get("sequences", []):
                seq = Sequence(schema, q, f"{where}.{s['name']}")
                if db.name_key(seq.name) in schema.sequences:
                    raise FixtureError(f"{where}: sequence {s['name']}.{seq.name} defined twice")
                seq.object_id = next(self.ids)
                schema.sequences[db.name_key(seq.name)] = seq
        for table in db.tables():
            self._check_keys(table)

    def _check_keys(self, t):
        n = 1
        for ix in t.indexes:
            ix.index_id = 1 if ix.clustered else (n := n + 1)
        for fk in t.foreign_keys:
            for c in fk.columns:
                if key(c) not in t.by_name:
                    raise FixtureError(f"{t.where}: foreign key {fk.name} names unknown column {c}")

    def check(self):
        if not self.users:
            raise FixtureError("no users: give server.users in a fixture (or --user NAME:PASSWORD)")
        for u in self.users.values():
            if u.default_database and key(u.default_database) not in self.databases:
                raise FixtureError(f"user {u.name}: default database {u.default_database} does not exist")
