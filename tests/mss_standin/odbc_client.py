"""A small ODBC client over ctypes (unixODBC's libodbc.so.2), standard library only.

It is what the self-test uses to talk to the stand-in through the real FreeTDS
driver: connect with a connection string, run statements (direct, prepared,
with parameters, catalog functions), and fetch columns with SQLGetData in a
chosen C type, long values in pieces.
"""
import ctypes
import ctypes.util

SQL_HANDLE_ENV, SQL_HANDLE_DBC, SQL_HANDLE_STMT = 1, 2, 3
SQL_SUCCESS, SQL_SUCCESS_WITH_INFO, SQL_NO_DATA, SQL_ERROR = 0, 1, 100, -1
SQL_NTS, SQL_NULL_DATA, SQL_NO_TOTAL = -3, -1, -4
SQL_ATTR_ODBC_VERSION, SQL_ATTR_AUTOCOMMIT = 200, 102
SQL_C_CHAR, SQL_C_WCHAR, SQL_C_BINARY = 1, -8, -2
SQL_C_SLONG, SQL_C_SBIGINT, SQL_C_DOUBLE, SQL_C_FLOAT, SQL_C_BIT = -16, -25, 8, 7, -7
SQL_C_TYPE_DATE, SQL_C_TYPE_TIME, SQL_C_TYPE_TIMESTAMP, SQL_C_GUID, SQL_C_NUMERIC = 91, 92, 93, -11, 2
SQL_C_SS_TIME2, SQL_C_SS_TIMESTAMPOFFSET = 0x4000, 0x4001
SQL_INTEGER, SQL_WVARCHAR, SQL_VARCHAR, SQL_WLONGVARCHAR = 4, -9, 12, -10
SQL_PARAM_INPUT = 1
SQL_CLOSE = 0

SQLLEN = ctypes.c_int64
SQLHANDLE = ctypes.c_void_p

_lib = ctypes.CDLL(ctypes.util.find_library("odbc") or "libodbc.so.2")
for _name in ("SQLAllocHandle", "SQLSetEnvAttr", "SQLDriverConnectW", "SQLGetDiagRecW", "SQLExecDirectW",
              "SQLNumResultCols", "SQLDescribeColW", "SQLFetch", "SQLGetData", "SQLMoreResults",
              "SQLFreeStmt", "SQLPrepareW", "SQLExecute", "SQLBindParameter", "SQLTablesW",
              "SQLColumnsW", "SQLPrimaryKeysW", "SQLForeignKeysW", "SQLStatisticsW", "SQLDisconnect",
              "SQLFreeHandle", "SQLSetConnectAttrW", "SQLRowCount", "SQLCancel", "SQLCloseCursor",
              "SQLEndTran"):
    getattr(_lib, _name).restype = ctypes.c_short


class TIMESTAMP(ctypes.Structure):
    _fields_ = [("year", ctypes.c_short), ("month", ctypes.c_ushort), ("day", ctypes.c_ushort),
                ("hour", ctypes.c_ushort), ("minute", ctypes.c_ushort), ("second", ctypes.c_ushort),
                ("fraction", ctypes.c_uint)]


class TIMESTAMPOFFSET(ctypes.Structure):
    _fields_ = TIMESTAMP._fields_ + [("tz_hour", ctypes.c_short), ("tz_minute", ctypes.c_short)]


class DATE(ctypes.Structure):
    _fields_ = [("year", ctypes.c_short), ("month", ctypes.c_ushort), ("day", ctypes.c_ushort)]


class TIME2(ctypes.Structure):
    _fields_ = [("hour", ctypes.c_ushort), ("minute", ctypes.c_ushort), ("second", ctypes.c_ushort),
                ("fraction", ctypes.c_uint)]


class OdbcError(Exception):
    def __init__(self, what, records):
        self.records = records  # [(sqlstate, native, message)]
        super().__init__(f"{what}: " + "; ".join(f"[{s}] ({n}) {m}" for s, n, m in records))

    @property
    def sqlstates(self):
        return [r[0] for r in self.records]

    @property
    def natives(self):
        return [r[1] for r in self.records]


def _w(text):
    return ctypes.create_string_buffer(text.encode("utf-16-le") + b"\x00\x00")


def diagnostics(handle_type, handle):
    out = []
    for rec in range(1, 20):
        state = ctypes.create_string_buffer(16)
        native = ctypes.c_int()
        msg = ctypes.create_string_buffer(4096)
        n = ctypes.c_short()
        rc = _lib.SQLGetDiagRecW(handle_type, handle, rec, state, ctypes.byref(native), msg, 2000,
                                 ctypes.byref(n))
        if rc not in (SQL_SUCCESS, SQL_SUCCESS_WITH_INFO):
            break
        out.append((state.raw[:10].decode("utf-16-le"), native.value,
                    msg.raw[:n.value * 2].decode("utf-16-le", errors="replace")))
    return out


def _check(rc, what, handle_type, handle):
    if rc in (SQL_SUCCESS, SQL_SUCCESS_WITH_INFO, SQL_NO_DATA):
        return rc
    raise OdbcError(what, diagnostics(handle_type, handle))


class Connection:
    def __init__(self, connection_string, autocommit=True):
        self.env = SQLHANDLE()
        self.dbc = SQLHANDLE()
        _lib.SQLAllocHandle(SQL_HANDLE_ENV, None, ctypes.byref(self.env))
        _lib.SQLSetEnvAttr(self.env, SQL_ATTR_ODBC_VERSION, ctypes.c_void_p(3), 0)
        _lib.SQLAllocHandle(SQL_HANDLE_DBC, self.env, ctypes.byref(self.dbc))
        if not autocommit:
            _lib.SQLSetConnectAttrW(self.dbc, SQL_ATTR_AUTOCOMMIT, ctypes.c_void_p(0), 0)
        out = ctypes.create_string_buffer(4096)
        outlen = ctypes.c_short()
        rc = _lib.SQLDriverConnectW(self.dbc, None, _w(connection_string), SQL_NTS, out, 1024,
                                    ctypes.byref(outlen), 0)
        if rc not in (SQL_SUCCESS, SQL_SUCCESS_WITH_INFO):
            err = OdbcError("SQLDriverConnect", diagnostics(SQL_HANDLE_DBC, self.dbc))
            self._free()
            raise err
        self.connected = True

    def _free(self):
        _lib.SQLFreeHandle(SQL_HANDLE_DBC, self.dbc)
        _lib.SQLFreeHandle(SQL_HANDLE_ENV, self.env)

    def close(self):
        if getattr(self, "connected", False):
            _lib.SQLDisconnect(self.dbc)
            self._free()
            self.connected = False

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def cursor(self):
        return Cursor(self)

    def commit(self):
        _check(_lib.SQLEndTran(SQL_HANDLE_DBC, self.dbc, 0), "SQLEndTran", SQL_HANDLE_DBC, self.dbc)

    def query(self, sql, ctypes_=None):
        """All rows of the first result set, every column as text (or bytes)."""
        with self.cursor() as c:
            c.execute(sql)
            return c.fetchall(ctypes_)


class Cursor:
    def __init__(self, conn):
        self.conn = conn
        self.h = SQLHANDLE()
        _lib.SQLAllocHandle(SQL_HANDLE_STMT, conn.dbc, ctypes.byref(self.h))
        self._params = []

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def close(self):
        if self.h:
            _lib.SQLFreeHandle(SQL_HANDLE_STMT, self.h)
            self.h = None

    def _ok(self, rc, what):
        return _check(rc, what, SQL_HANDLE_STMT, self.h)

    def execute(self, sql, params=()):
        self._bind(params)
        return self._ok(_lib.SQLExecDirectW(self.h, _w(sql), SQL_NTS), "SQLExecDirect")

    def prepare(self, sql):
        self._ok(_lib.SQLPrepareW(self.h, _w(sql), SQL_NTS), "SQLPrepare")

    def run_prepared(self, params=()):
        self._bind(params)
        return self._ok(_lib.SQLExecute(self.h), "SQLExecute")

    def _bind(self, params):
        self._params = []
        for i, p in enumerate(params, 1):
            ind = SQLLEN(0)
            if p is None:
                buf, ctype, stype, size = ctypes.c_int(0), SQL_C_SLONG, SQL_INTEGER, 0
                ind.value = SQL_NULL_DATA
            elif isinstance(p, int):
                buf, ctype, stype, size = ctypes.c_int(p), SQL_C_SLONG, SQL_INTEGER, 0
            else:
                data = str(p).encode("utf-16-le")
                buf = ctypes.create_string_buffer(data + b"\x00\x00")
                ctype, stype, size = SQL_C_WCHAR, SQL_WVARCHAR, max(1, len(data) // 2)
                ind.value = len(data)
            self._params.append((buf, ind))
            self._ok(_lib.SQLBindParameter(self.h, i, SQL_PARAM_INPUT, ctype, stype, size, 0,
                                           ctypes.byref(buf), ctypes.sizeof(buf), ctypes.byref(ind)),
                     "SQLBindParameter")

    def tables(self, catalog=None, schema=None, table=None, types=None):
        args = []
        for v in (catalog, schema, table, types):
            args += [_w(v) if v is not None else None, SQL_NTS if v is not None else 0]
        return self._ok(_lib.SQLTablesW(self.h, *args), "SQLTables")

    def columns(self, catalog=None, schema=None, table=None, column=None):
        args = []
        for v in (catalog, schema, table, column):
            args += [_w(v) if v is not None else None, SQL_NTS if v is not None else 0]
        return self._ok(_lib.SQLColumnsW(self.h, *args), "SQLColumns")

    def primary_keys(self, catalog, schema, table):
        args = []
        for v in (catalog, schema, table):
            args += [_w(v) if v is not None else None, SQL_NTS if v is not None else 0]
        return self._ok(_lib.SQLPrimaryKeysW(self.h, *args), "SQLPrimaryKeys")

    def statistics(self, catalog, schema, table):
        args = []
        for v in (catalog, schema, table):
            args += [_w(v) if v is not None else None, SQL_NTS if v is not None else 0]
        return self._ok(_lib.SQLStatisticsW(self.h, *args, 1, 0), "SQLStatistics")  # SQL_INDEX_ALL

    def foreign_keys(self, pk=(None, None, None), fk=(None, None, None)):
        args = []
        for v in pk + fk:
            args += [_w(v) if v is not None else None, SQL_NTS if v is not None else 0]
        return self._ok(_lib.SQLForeignKeysW(self.h, *args), "SQLForeignKeys")

    def ncols(self):
        n = ctypes.c_short()
        self._ok(_lib.SQLNumResultCols(self.h, ctypes.byref(n)), "SQLNumResultCols")
        return n.value

    def describe(self, col):
        name = ctypes.create_string_buffer(1024)
        nlen, dtype, digits, nullable = ctypes.c_short(), ctypes.c_short(), ctypes.c_short(), ctypes.c_short()
        size = ctypes.c_uint64()
        self._ok(_lib.SQLDescribeColW(self.h, col, name, 500, ctypes.byref(nlen), ctypes.byref(dtype),
                                      ctypes.byref(size), ctypes.byref(digits), ctypes.byref(nullable)),
                 "SQLDescribeCol")
        return (name.raw[:nlen.value * 2].decode("utf-16-le"), dtype.value, size.value, digits.value,
                nullable.value)

    def fetch(self):
        return self._ok(_lib.SQLFetch(self.h), "SQLFetch") != SQL_NO_DATA

    def more_results(self):
        return self._ok(_lib.SQLMoreResults(self.h), "SQLMoreResults") != SQL_NO_DATA

    def rowcount(self):
        n = SQLLEN()
        self._ok(_lib.SQLRowCount(self.h, ctypes.byref(n)), "SQLRowCount")
        return n.value

    def cancel(self):
        self._ok(_lib.SQLCancel(self.h), "SQLCancel")

    def close_cursor(self):
        self._ok(_lib.SQLFreeStmt(self.h, SQL_CLOSE), "SQLFreeStmt")

    def get(self, col, ctype=SQL_C_WCHAR, piece=65536):
        """One column of the current row in the given C type; None for NULL.

        Character and binary data are read in pieces of `piece` bytes until
        the driver has no more."""
        ind = SQLLEN()
        if ctype in (SQL_C_WCHAR, SQL_C_BINARY, SQL_C_CHAR):
            parts = []
            term = {SQL_C_WCHAR: 2, SQL_C_CHAR: 1, SQL_C_BINARY: 0}[ctype]
            buf = ctypes.create_string_buffer(piece)
            while True:
                rc = self._ok(_lib.SQLGetData(self.h, col, ctype, buf, piece, ctypes.byref(ind)), "SQLGetData")
                if rc == SQL_NO_DATA:
                    break
                if ind.value == SQL_NULL_DATA:
                    return None
                if rc == SQL_SUCCESS_WITH_INFO and (ind.value == SQL_NO_TOTAL or ind.value > piece - term):
                    parts.append(buf.raw[:piece - term])
                    continue
                parts.append(buf.raw[:ind.value])
                break
            data = b"".join(parts)
            if ctype == SQL_C_WCHAR:
                return data.decode("utf-16-le", errors="surrogatepass")
            if ctype == SQL_C_CHAR:
                return data.decode("utf-8", errors="replace")
            return data
        holder = {SQL_C_SLONG: ctypes.c_int, SQL_C_SBIGINT: ctypes.c_int64, SQL_C_DOUBLE: ctypes.c_double,
                  SQL_C_FLOAT: ctypes.c_float, SQL_C_BIT: ctypes.c_ubyte, SQL_C_TYPE_TIMESTAMP: TIMESTAMP,
                  SQL_C_TYPE_DATE: DATE, SQL_C_SS_TIME2: TIME2, SQL_C_SS_TIMESTAMPOFFSET: TIMESTAMPOFFSET,
                  SQL_C_GUID: lambda: ctypes.create_string_buffer(16)}[ctype]()
        self._ok(_lib.SQLGetData(self.h, col, ctype, ctypes.byref(holder), ctypes.sizeof(holder),
                                 ctypes.byref(ind)), "SQLGetData")
        if ind.value == SQL_NULL_DATA:
            return None
        if isinstance(holder, ctypes.Structure):
            return tuple(getattr(holder, f[0]) for f in holder._fields_)
        if ctype == SQL_C_GUID:
            return holder.raw
        return holder.value

    def fetchall(self, ctypes_=None):
        n = self.ncols()
        rows = []
        while self.fetch():
            rows.append([self.get(i, (ctypes_ or {}).get(i, SQL_C_WCHAR)) for i in range(1, n + 1)])
        return rows
