#!/usr/bin/env python3
"""Self-test of the SQL Server stand-in through the real FreeTDS ODBC driver.

Every check connects with unixODBC + FreeTDS (and some with tsql and isql),
exactly as the migration tool will, and compares what arrives with values
written down here independently of the server's code. Run:

    python3 tests/mss_standin/selftest.py [-k NAME]

It prints one line per check and ends with "N passed, M failed"; the exit
status is 0 only when every check passed.
"""
import argparse
import os
import struct
import subprocess
import sys
import time
import traceback
import uuid

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import odbc_client as odbc  # noqa: E402
from launch import StandIn  # noqa: E402

CHECKS = []


def check(fn):
    CHECKS.append(fn)
    return fn


class Failed(AssertionError):
    pass


def eq(actual, expected, what=""):
    if actual != expected:
        a, e = repr(actual), repr(expected)
        raise Failed(f"{what}: expected {e[:300]}, got {a[:300]}")


def expect_error(fn, native, sqlstates=None):
    try:
        fn()
    except odbc.OdbcError as e:
        if native not in e.natives:
            raise Failed(f"expected native error {native}, got {e.records}")
        if sqlstates and not set(sqlstates) & set(e.sqlstates):
            raise Failed(f"expected SQLSTATE in {sqlstates}, got {e.records}")
        return e
    raise Failed(f"expected native error {native}, but the call succeeded")


# -- shared servers ----------------------------------------------------------------------
class Servers:
    types = None
    bulk = None


def connect(server=None, **kw):
    s = server or Servers.types
    return odbc.Connection(s.connection_string(**kw))


def fetch_typed(conn, sql, ctypes_):
    with conn.cursor() as c:
        c.execute(sql)
        return c.fetchall(ctypes_)


# -- login and errors ----------------------------------------------------------------------
@check
def login_reports_version_and_database():
    with connect() as c:
        version = c.query("SELECT @@VERSION")[0][0]
        assert version.startswith("Microsoft SQL Server 2019 (RTM-CU22) (KB5027702) - 15.0.4322.2 (X64)"), version
        eq(c.query("select db_name()"), [["qbtypes"]], "DB_NAME()")
        eq(c.query("select @@spid")[0][0].isdigit(), True, "@@SPID")


@check
def wrong_password_is_login_failed_18456():
    e = expect_error(lambda: connect(password="wrong"), 18456, ["28000", "42000"])
    assert any("Login failed for user 'sa'." in r[2] for r in e.records), e.records


@check
def unknown_user_is_login_failed_18456():
    e = expect_error(lambda: connect(user="nobody", password="x"), 18456, ["28000", "42000"])
    assert any("Login failed for user 'nobody'." in r[2] for r in e.records), e.records


@check
def unknown_database_is_error_4060():
    e = expect_error(lambda: connect(database="nosuchdb"), 4060)
    assert any('Cannot open database "nosuchdb" requested by the login. The login failed.' in r[2]
               for r in e.records), e.records


@check
def limited_user_cannot_open_other_database():
    expect_error(lambda: connect(user="reader", password="Reader#1", database="qbother"), 4060)
    with connect(user="reader", password="Reader#1") as c:
        eq(c.query("select count(*) from t_int"), [["4"]], "reader reads t_int")
        e = expect_error(lambda: c.query("select * from t_secret"), 229)
        assert "The SELECT permission was denied on the object 't_secret', database 'qbtypes', schema 'dbo'." \
            in e.records[0][2], e.records
        expect_error(lambda: c.query("use qbother"), 916)


@check
def unknown_table_is_error_208():
    with connect() as c:
        e = expect_error(lambda: c.query("SELECT * FROM [dbo].[no_such_table]"), 208, ["42S02"])
        assert "Invalid object name 'dbo.no_such_table'." in e.records[0][2], e.records
        # the connection stays usable after an error
        eq(c.query("select count(*) from t_int"), [["4"]], "after error")


@check
def bad_syntax_and_unknown_column_are_102_and_207():
    with connect() as c:
        e = expect_error(lambda: c.query("SELECT id FROM t_int WHERE id = = 1"), 102)
        assert "Incorrect syntax near '='." in e.records[0][2], e.records
        e = expect_error(lambda: c.query("SELECT * FROM WHERE"), 156)
        assert "Incorrect syntax near the keyword 'WHERE'." in e.records[0][2], e.records
        e = expect_error(lambda: c.query("select no_such_column from t_int"), 207)
        assert "Invalid column name 'no_such_column'." in e.records[0][2], e.records


# -- statements ----------------------------------------------------------------------------
@check
def use_changes_database_and_db_name():
    with connect() as c:
        with c.cursor() as cur:
            cur.execute("USE qbother")
        eq(c.query("SELECT DB_NAME()"), [["qbother"]], "after USE")
        eq(c.query("select c_varchar from t_cyr"), [["Привет"]], "cp1251 varchar")
        expect_error(lambda: c.query("use nosuchdb"), 911)


@check
def several_result_sets_in_one_batch():
    with connect() as c, c.cursor() as cur:
        cur.execute("SET NOCOUNT ON; SELECT COUNT(*) FROM t_int; SELECT id FROM t_guid ORDER BY id")
        eq(cur.fetchall(), [["4"]], "first result")
        eq(cur.more_results(), True, "second result exists")
        eq(cur.fetchall(), [["1"], ["2"], ["3"]], "second result")
        eq(cur.more_results(), False, "no third result")


@check
def select_forms_star_columns_count_schema_and_three_part_names():
    with connect() as c:
        eq(c.query("select * from dbo.t_child order by id"),
           [["1", "1", "child of 1"], ["2", "1", "also 1"], ["3", None, "orphan"]], "dbo.t_child")
        eq(c.query("SELECT [note], id FROM [dbo].[t_child] WHERE parent_id IS NULL"), [["orphan", "3"]], "cols")
        eq(c.query("select count(*) from sales.orders"), [["2"]], "schema sales")
        eq(c.query("select amount from qbtypes.sales.orders where order_id = 2"), [["-3.25"]], "3-part")
        eq(c.query("select top 1 id from t_int order by id desc"), [["4"]], "TOP")
        eq(c.query("select * from v_children order by id"), [["1", "child of 1", "A"], ["2", "also 1", "A"]],
           "view")


@check
def prepared_statement_with_parameters():
    with connect() as c, c.cursor() as cur:
        cur.prepare("select c_nvarchar from t_char where id = ?")
        cur.run_prepared([2])
        eq(cur.fetchall(), [["Привет 世界"]], "first execution")
        cur.close_cursor()
        cur.run_prepared([4])
        eq(cur.fetchall(), [["😀𝄞"]], "second execution")
    with connect() as c, c.cursor() as cur:
        cur.execute("select id from t_char where c_varchar = ?", ["plain ASCII"])
        eq(cur.fetchall(), [["1"]], "direct execution with a parameter")


@check
def transaction_manager_request_with_autocommit_off():
    with odbc.Connection(Servers.types.connection_string(), autocommit=False) as c:
        eq(c.query("select count(*) from t_int"), [["4"]], "query in a transaction")
        c.commit()


# -- types ---------------------------------------------------------------------------------
W = odbc.SQL_C_WCHAR


@check
def integers_and_bit_as_text_and_bigint():
    with connect() as c:
        eq(c.query("select * from t_int order by id"), [
            ["1", "0", "0", "-32768", "-2147483648", "-9223372036854775808"],
            ["2", "1", "255", "32767", "2147483647", "9223372036854775807"],
            ["3", "0", "0", "0", "0", "0"],
            ["4", None, None, None, None, None]], "as text")
        typed = {i: odbc.SQL_C_SBIGINT for i in range(1, 7)}
        eq(fetch_typed(c, "select * from t_int order by id", typed)[1],
           [2, 1, 255, 32767, 2147483647, 9223372036854775807], "as SQL_C_SBIGINT")


@check
def decimals_and_money_keep_every_digit():
    with connect() as c:
        eq(c.query("select * from t_decimal order by id"), [
            ["1", "-9", "-99999.9999", "-9999999999999999.99", "-999999999999999999.9999999999",
             "-99999999999999999999999999999999999999", "-0.99999999999999999999999999999999999999",
             "-922337203685477.5808", "-214748.3648"],
            ["2", "9", "99999.9999", "9999999999999999.99", "999999999999999999.9999999999",
             "99999999999999999999999999999999999999", "0.99999999999999999999999999999999999999",
             "922337203685477.5807", "214748.3647"],
            ["3", "0", "0.0001", "0.01", "0.0000000001", "1", "0.00000000000000000000000000000000000001",
             "0.0001", "-0.0001"],
            ["4", None, None, None, None, None, None, None, None]], "as text")


@check
def floats_are_exact_as_double():
    with connect() as c:
        rows = fetch_typed(c, "select * from t_float order by id", {2: odbc.SQL_C_DOUBLE, 3: odbc.SQL_C_DOUBLE})
        eq([r[1:] for r in rows], [
            [-3.4028234663852886e+38, -1.7976931348623157e+308],
            [3.4028234663852886e+38, 1.7976931348623157e+308],
            [1.401298464324817e-45, 5e-324],
            [0.0, 0.0], [0.5, -2.5], [None, None]], "as SQL_C_DOUBLE")


@check
def dates_and_times_as_text():
    with connect() as c:
        rows = c.query("select * from t_datetime order by id")
        eq(rows[2], ["3", "2024-02-29", "12:34:56", "12:34:56.1234567", "2024-02-29 12:34:56",
                     "2024-02-29 12:34:56.1234567", "2024-02-29 12:34:56.1234567 -05:30",
                     "2024-02-29 12:34:56.123", "2024-02-29 12:35:00"], "typical row")
        eq(rows[1], ["2", "9999-12-31", "23:59:59", "23:59:59.9999999", "9999-12-31 23:59:59",
                     "9999-12-31 23:59:59.9999999", "9999-12-31 23:59:59.9999999 +14:00",
                     "9999-12-31 23:59:59.997", "2079-06-06 23:59:00"], "maximum row")
        # FreeTDS prints year 1 without padding
        eq(rows[0][1], "1-01-01", "minimum date")
        eq(rows[0][6], "1-01-01 00:00:00.0000000 -14:00", "minimum datetimeoffset")
        eq(rows[0][7:], ["1753-01-01 00:00:00.000", "1900-01-01 00:00:00"], "minimum datetime")
        eq(rows[3], ["4"] + [None] * 8, "NULL row")


@check
def dates_and_times_as_structs():
    with connect() as c:
        # unixODBC refuses the driver-specific SQL_C_SS_TIME2 and SQL_C_SS_TIMESTAMPOFFSET
        # ("Program type out of range"): time and datetimeoffset are checked as text above.
        typed = {2: odbc.SQL_C_TYPE_DATE, 6: odbc.SQL_C_TYPE_TIMESTAMP, 8: odbc.SQL_C_TYPE_TIMESTAMP,
                 9: odbc.SQL_C_TYPE_TIMESTAMP}
        rows = fetch_typed(c, "select * from t_datetime order by id", typed)
        r = rows[2]
        eq(r[1], (2024, 2, 29), "date")
        eq(r[5], (2024, 2, 29, 12, 34, 56, 123456700), "datetime2(7)")
        eq(r[7], (2024, 2, 29, 12, 34, 56, 123000000), "datetime")
        eq(r[8], (2024, 2, 29, 12, 35, 0, 0), "smalldatetime")
        eq(rows[0][5], (1, 1, 1, 0, 0, 0, 0), "datetime2 minimum")
        eq(rows[1][5], (9999, 12, 31, 23, 59, 59, 999999900), "datetime2 maximum")
        eq(rows[1][7], (9999, 12, 31, 23, 59, 59, 997000000), "datetime maximum")


@check
def character_types_in_their_code_pages():
    with connect() as c:
        rows = c.query("select * from t_char order by id")
        eq(rows[0], ["1", "abc       ", "plain ASCII", "abc       ", "plain ASCII", "text value", "ntext value"],
           "ASCII")
        eq(rows[1], ["2", "äöü       ", "Grüße € ‘x’", "äöü       ", "Привет 世界", "Ärger €", "日本語 😀"],
           "code page 1252 and UTF-16")
        eq(rows[2], ["3", " " * 10, "", " " * 10, "", "", ""], "empty strings")
        eq(rows[3], ["4", "x         ", "x", "😀        ", "😀𝄞", "x", "😀"], "surrogate pairs")
        eq(rows[4], ["5"] + [None] * 6, "NULLs")


@check
def varchar_bytes_are_code_page_1252_on_the_wire():
    with connect() as c:
        # SQL_C_BINARY of a varchar gives the server's bytes
        raw = fetch_typed(c, "select c_varchar from t_char where id = 2", {1: odbc.SQL_C_BINARY})[0][0]
        eq(raw, "Grüße € ‘x’".encode("cp1252"), "cp1252 bytes")
        raw = fetch_typed(c, "select c_nvarchar from t_char where id = 4", {1: odbc.SQL_C_BINARY})[0][0]
        eq(raw, "😀𝄞".encode("utf-16-le"), "UTF-16LE bytes")


@check
def binary_types_and_rowversion():
    with connect() as c:
        typed = {i: odbc.SQL_C_BINARY for i in range(2, 6)}
        rows = fetch_typed(c, "select * from t_binary order by id", typed)
        eq(rows[0][1:], [bytes.fromhex("0102000000000000"), bytes.fromhex("00FF10"),
                         bytes.fromhex("89504E470D0A1A0A"), bytes.fromhex("00000000000007D1")], "values")
        eq(rows[1][1:], [b"\xff" * 8, b"", b"", bytes.fromhex("00000000000007D2")], "max and empty")
        eq(rows[2][1:], [None, None, None, bytes.fromhex("00000000000007D3")], "NULLs")
        with c.cursor() as cur:
            cur.execute("select c_rowversion from t_binary")
            eq(cur.describe(1)[1:3], (-2, 8), "rowversion is binary(8)")


@check
def uniqueidentifier_mixed_endian():
    with connect() as c:
        eq(c.query("select c_guid from t_guid order by id"),
           [["6F9619FF-8B86-D011-B42D-00C04FC964FF"], ["00000000-0000-0000-0000-000000000000"], [None]], "text")
        raw = fetch_typed(c, "select c_guid from t_guid where id = 1", {1: odbc.SQL_C_GUID})[0][0]
        eq(raw, uuid.UUID("6F9619FF-8B86-D011-B42D-00C04FC964FF").bytes_le, "SQLGUID struct bytes")


@check
def xml_as_text():
    with connect() as c:
        eq(c.query("select c_xml from t_xml order by id"),
           [['<root a="1"><item>ä 😀</item></root>'], [None]], "xml")


@check
def spatial_raw_bytes_and_well_known_text():
    with connect() as c:
        rows = fetch_typed(c, "select c_geography, c_geometry from t_spatial order by id",
                           {1: odbc.SQL_C_BINARY, 2: odbc.SQL_C_BINARY})
        # SQL Server's documented serialisation of geography POINT(-122.349 47.651), SRID 4326
        eq(rows[0][0], bytes.fromhex("E6100000010C17D9CEF753D347407593180456965EC0"), "geography point")
        eq(rows[0][1], bytes.fromhex("00000000010C000000000000F03F0000000000000040"), "geometry point")
        srid, version, flags = struct.unpack_from("<iBB", rows[2][1])
        eq((srid, version, flags, struct.unpack_from("<i", rows[2][1], 6)[0]), (0, 1, 4, 9),
           "polygon header and point count")
        eq(rows[3], [None, None], "NULLs")
        eq(c.query("select c_geography.STAsText(), [c_geometry].STAsText() from t_spatial where id = 3"),
           [["POLYGON ((-122.358 47.653, -122.348 47.649, -122.348 47.658, -122.358 47.658, -122.358 47.653))",
             "POLYGON ((0 0, 10 0, 10 10, 0 10, 0 0), (2 2, 4 2, 4 4, 2 2))"]], "STAsText()")


@check
def large_plp_values_arrive_whole():
    with connect() as c, c.cursor() as cur:
        cur.execute("select c_varchar_max, c_nvarchar_max, c_varbinary_max from t_max where id = 1")
        assert cur.fetch()
        eq(cur.get(1), "0123456789" * 10000, "varchar(max), 100,000 characters")
        text = cur.get(2, W, piece=1 << 20)
        eq(len(text), 2_000_000, "nvarchar(max) length")
        eq(text == "abcé" * 500000, True, "nvarchar(max) content")
        data = cur.get(3, odbc.SQL_C_BINARY, piece=1 << 20)
        eq(len(data), 5 * 1024 * 1024, "varbinary(max) length")
        eq(data == (bytes(range(256)) * 20480), True, "varbinary(max) content")
        cur.close_cursor()
        cur.execute("select * from t_max where id > 1 order by id")
        eq(cur.fetchall({4: odbc.SQL_C_BINARY}),
           [["2", "", "", b""], ["3", "short €", "short 😀", b"\x00\xff"], ["4", None, None, None]], "small values")


@check
def set_textsize_cuts_long_values():
    with connect() as c, c.cursor() as cur:
        cur.execute("SET TEXTSIZE 100")
        cur.execute("select c_nvarchar_max, c_varbinary_max, c_text, @@TEXTSIZE from t_max, t_char "
                    "where t_max.id = 1 and t_char.id = 2")
        row = cur.fetchall({2: odbc.SQL_C_BINARY})[0]
        eq(row, ["abcé" * 12 + "ab", bytes(range(100)), "Ärger €", "100"], "cut to 100 bytes")
        cur.execute("SET TEXTSIZE 2147483647")
        cur.execute("select c_nvarchar_max from t_max where id = 1")
        assert cur.fetch()
        eq(len(cur.get(1, W, piece=1 << 20)), 2_000_000, "whole again")


# -- catalog ---------------------------------------------------------------------------------
@check
def catalog_functions_answer_from_the_fixture():
    with connect() as c:
        with c.cursor() as cur:
            cur.tables(None, None, None, "'TABLE','VIEW'")
            rows = cur.fetchall()
            assert ["qbtypes", "sales", "orders", "TABLE", None] in rows, rows
            assert ["qbtypes", "dbo", "v_children", "VIEW", None] in rows, rows
        with c.cursor() as cur:
            cur.columns(None, "dbo", "t_parent", None)
            rows = cur.fetchall()
            eq([(r[3], r[5], r[12], r[10]) for r in rows],
               [("id", "int identity", None, "0"), ("code", "varchar", "('ABCDEF')", "0"),
                ("qty", "int", "((0))", "1"), ("created", "datetime", "(getdate())", "1"),
                ("label", "nvarchar", "(N'it''s')", "1")], "SQLColumns")
        with c.cursor() as cur:
            cur.primary_keys(None, "dbo", "t_parent")
            eq(cur.fetchall(), [["qbtypes", "dbo", "t_parent", "id", "1", "PK_t_parent"]], "SQLPrimaryKeys")
        with c.cursor() as cur:
            cur.foreign_keys((None, "dbo", "t_parent"))
            eq([(r[2], r[3], r[6], r[7], r[11]) for r in cur.fetchall()],
               [("t_parent", "id", "t_child", "parent_id", "FK_t_child_parent")], "SQLForeignKeys")
        with c.cursor() as cur:
            cur.statistics(None, "dbo", "t_parent")
            eq([(r[5], r[8]) for r in cur.fetchall() if r[5]],
               [("PK_t_parent", "id"), ("UQ_t_parent_code", "code"), ("IX_t_parent_qty", "qty"),
                ("IX_t_parent_qty", "created")], "SQLStatistics")


@check
def catalog_views_answer_sql_queries():
    with connect() as c:
        eq(c.query("SELECT NAME AS COLUMNNAME,CAST(LAST_VALUE AS INT),CAST(INCREMENT_VALUE AS INT) "
                   "FROM SYS.IDENTITY_COLUMNS WHERE OBJECT_NAME(OBJECT_ID)='t_parent' "
                   "AND OBJECT_SCHEMA_NAME(OBJECT_ID)='dbo'"), [["id", "2", "1"]], "identity")
        eq(c.query("SELECT SC.name, t.name as type_name, SD.definition FROM sys.tables ST "
                   "INNER JOIN sys.columns SC ON ST.object_id = SC.object_id "
                   "INNER JOIN sys.types t ON t.user_type_id = SC.user_type_id "
                   "LEFT JOIN sys.default_constraints SD ON ST.object_id = SD.parent_object_id "
                   "AND SC.column_id = SD.parent_column_id WHERE ST.name='t_parent' "
                   "and SCHEMA_NAME(ST.schema_id)='dbo' ORDER BY SC.column_id"),
           [["id", "int", None], ["code", "varchar", "('ABCDEF')"], ["qty", "int", "((0))"],
            ["created", "datetime", "(getdate())"], ["label", "nvarchar", "(N'it''s')"]], "columns and defaults")
        eq(c.query("SELECT name from master.sys.databases ORDER BY name"),
           [["master"], ["qbother"], ["qbtypes"], ["tempdb"]], "databases")
        eq(c.query("select TABLE_SCHEMA, TABLE_NAME from INFORMATION_SCHEMA.TABLES where TABLE_TYPE = 'VIEW'"),
           [["dbo", "v_children"]], "INFORMATION_SCHEMA.TABLES")


@check
def catalog_follows_the_release():
    # SQL Server 2000 has no sys schema but its system tables; 2005 has sys.sql_modules but no
    # sequences (2012); Azure refuses names of other databases.
    with StandIn(["types.json"], "--version", "2000", database="qbtypes") as s, connect(s) as c:
        expect_error(lambda: c.query("SELECT name from master.sys.sysdatabases ORDER BY name"), 208)
        eq(c.query("SELECT name from master.dbo.sysdatabases ORDER BY name"),
           [["master"], ["qbother"], ["qbtypes"], ["tempdb"]], "sysdatabases")
        expect_error(lambda: c.query("select name from sys.tables"), 208)
        expect_error(lambda: c.query("select name from sys.sql_modules"), 208)
        eq(c.query("SELECT c.name, t.name, m.text, c.status FROM dbo.sysobjects o INNER JOIN dbo.syscolumns c "
                   "ON c.id = o.id INNER JOIN dbo.systypes t ON t.xusertype = c.xusertype LEFT JOIN "
                   "dbo.syscomments m ON m.id = c.cdefault WHERE o.xtype = 'U' AND o.name='t_parent' "
                   "AND USER_NAME(o.uid)='dbo' ORDER BY c.colid"),
           [["id", "int", None, "128"], ["code", "varchar", "('ABCDEF')", "0"], ["qty", "int", "((0))", "8"],
            ["created", "datetime", "(getdate())", "8"], ["label", "nvarchar", "(N'it''s')", "8"]], "syscolumns")
        eq(c.query("SELECT CAST(IDENT_CURRENT('[dbo].[t_parent]') AS INT), IDENT_INCR('dbo.t_parent'), "
                   "IDENT_CURRENT('dbo.t_child')"), [["2", "1", None]], "IDENT_CURRENT")
    with StandIn(["types.json"], "--version", "2008", database="qbtypes") as s, connect(s) as c:
        eq(len(c.query("select name, definition from sys.objects o join sys.sql_modules m "
                       "on m.object_id = o.object_id where o.type = 'V'")), 1, "views on 2008")
        expect_error(lambda: c.query("SELECT name FROM SYS.SEQUENCES"), 208)
    with StandIn(["types.json"], "--version", "azure", database="qbtypes") as s, connect(s) as c:
        expect_error(lambda: c.query("SELECT name from master.sys.databases ORDER BY name"), 40515)
        eq(c.query("SELECT name FROM qbtypes.sys.schemas where principal_id < 16384 and name = 'sales'"),
           [["sales"]], "three-part name of the current database")


@check
def sequences_and_case_sensitive_names():
    with StandIn(["business.json", "hostile.json"], database="qbshop") as s:
        with connect(s) as c:
            eq(c.query("SELECT CAST(name AS varchar), CAST(start_value AS int), CAST(increment AS int), "
                       "CAST(minimum_value AS bigint), CAST(maximum_value AS bigint), is_cycling FROM SYS.SEQUENCES"),
               [["invoice_numbers", "1", "5", "1", "2147483647", "1"],
                ["order_numbers", "100300", "1", "100000", "99999999999", "0"]], "SYS.SEQUENCES")
        with connect(s, database="qbhostile") as c:
            eq(c.query("SELECT * FROM [dbo].[Customer] ORDER BY id"), [["1", "mixed case"], ["2", "second"]],
               "Customer")
            eq(c.query("SELECT * FROM [dbo].[CUSTOMER]"), [["ABC", "upper case"]], "CUSTOMER")
            expect_error(lambda: c.query("SELECT * FROM customer"), 208)
            eq(c.query("SELECT SC.name FROM sys.tables ST INNER JOIN sys.columns SC ON ST.object_id = "
                       "SC.object_id WHERE ST.name='CUSTOMER'"), [["code"], ["note"]], "catalog compares exactly")
            with c.cursor() as cur:
                cur.primary_keys(None, "dbo", "customer")
                eq(cur.fetchall(), [], "sp_pkeys takes no other case in a case-sensitive database")
            with c.cursor() as cur:
                cur.primary_keys(None, "dbo", "Customer")
                eq([r[3] for r in cur.fetchall()], ["id"], "sp_pkeys")


@check
def catalog_procedures_take_names_not_patterns():
    with connect() as c:
        with c.cursor() as cur:
            cur.primary_keys(None, "dbo", "t_paren_")
            eq(cur.fetchall(), [], "sp_pkeys with '_'")
        with c.cursor() as cur:
            cur.statistics(None, "dbo", "t%")
            eq([r for r in cur.fetchall() if r[5]], [], "sp_statistics with '%'")


# -- bulk mode and cancelling ---------------------------------------------------------------
BULK_ROWS = 200_000


@check
def bulk_table_streams_every_row():
    s = Servers.bulk
    with connect(s) as c, c.cursor() as cur:
        eq(c.query("select count(*) from bulk_rows"), [[str(BULK_ROWS)]], "COUNT(*)")
        start = time.monotonic()
        cur.execute("select * from bulk_rows")
        n = 0
        last = None
        while cur.fetch():
            n += 1
            if n in (1, 66, BULK_ROWS):
                last = [cur.get(i) for i in range(1, 6)]
                if n == 66:
                    eq(last, ["66", "row-01 äöü €", "1001.01", "2024-01-01 01:00:00.1234567",
                              "note 01 " * 12], "row 66")
        elapsed = time.monotonic() - start
        eq(n, BULK_ROWS, "rows fetched")
        eq(last[0], str(BULK_ROWS), "last key")
        print(f"    (bulk: {n} rows in {elapsed:.2f} s = {n / elapsed:,.0f} rows/s through ODBC, SQLFetch only)")


@check
def cancel_stops_a_stream_and_the_connection_goes_on():
    s = Servers.bulk
    with connect(s) as c:
        with c.cursor() as cur:
            cur.execute("select * from bulk_rows")
            for _ in range(10):
                assert cur.fetch()
            cur.cancel()
        eq(c.query("select count(*) from bulk_rows"), [[str(BULK_ROWS)]], "next statement")
    assert "attention" in s.log_text(), "the stand-in saw no ATTENTION"


# -- versions and other clients ---------------------------------------------------------------
VERSION_STARTS = {
    "2000": "Microsoft SQL Server  2000 - 8.00.2039 (Intel X86)",
    "2005": "Microsoft SQL Server 2005 - 9.00.5000.00 (Intel X86)",
    "2008": "Microsoft SQL Server 2008 (SP4) - 10.0.6000.29 (X64)",
    "2008r2": "Microsoft SQL Server 2008 R2 (SP3) - 10.50.6000.34 (X64)",
    "2012": "Microsoft SQL Server 2012 (SP4) (KB4018073) - 11.0.7001.0 (X64)",
    "2014": "Microsoft SQL Server 2014 (SP3) (KB4022619) - 12.0.6024.0 (X64)",
    "2016": "Microsoft SQL Server 2016 (SP3) (KB5003279) - 13.0.6300.2 (X64)",
    "2017": "Microsoft SQL Server 2017 (RTM-CU31) (KB5016884) - 14.0.3456.2 (X64)",
    "2019": "Microsoft SQL Server 2019 (RTM-CU22) (KB5027702) - 15.0.4322.2 (X64)",
    "2022": "Microsoft SQL Server 2022 (RTM-CU10) (KB5031778) - 16.0.4095.4 (X64)",
    "azure": "Microsoft SQL Azure (RTM) - 12.0.2000.8",
}


@check
def version_text_per_release():
    for key, start in VERSION_STARTS.items():
        with StandIn(["minimal.json"], "--version", key, database="qbmini") as s, connect(s) as c:
            text = c.query("SELECT @@VERSION")[0][0]
            assert text.startswith(start), f"{key}: {text!r}"
    custom = "Microsoft SQL Server 2005 - 9.00.1399.06 (Intel X86) custom"
    with StandIn(["minimal.json"], "--version-text", custom, database="qbmini") as s, connect(s) as c:
        eq(c.query("select @@version"), [[custom]], "--version-text")


@check
def tsql_talks_to_the_stand_in():
    s = Servers.types
    out = subprocess.run(["tsql", "-H", "127.0.0.1", "-p", str(s.port), "-U", "sa", "-P", "Secret#1",
                          "-D", "qbtypes", "-v", "7.4"],
                         input="select c_nvarchar from t_char where id = 2\ngo\nselect * from nope\ngo\n",
                         capture_output=True, text=True, timeout=60, env=dict(os.environ, LANG="C.UTF-8"))
    text = out.stdout + out.stderr
    assert "Привет 世界" in text, text
    assert "Invalid object name 'nope'." in text and "Msg 208" in text, text


@check
def isql_talks_to_the_stand_in():
    s = Servers.types
    out = subprocess.run(["isql", "-b", "-v", "-k", s.connection_string()],
                         input="select code, qty from t_parent order by id\n",
                         capture_output=True, text=True, timeout=60)
    text = out.stdout + out.stderr
    assert "| A " in text and "| B " in text, text
    assert "| 5 " in text and "| 0 " in text, text


@check
def bad_fixture_is_refused_with_a_clear_message():
    import tempfile
    with tempfile.NamedTemporaryFile("w", suffix=".json", delete=False) as f:
        f.write('{"server": {"users": [{"name": "sa", "password": "x"}]}, "databases": [{"name": "d", '
                '"schemas": [{"name": "dbo", "tables": [{"name": "t", "columns": [{"name": "c", '
                '"type": "tinyint"}], "rows": [[300]]}]}]}]}')
    try:
        out = subprocess.run([sys.executable, os.path.join(os.path.dirname(os.path.abspath(__file__)), "server.py"),
                              "--fixture", f.name], capture_output=True, text=True, timeout=60)
    finally:
        os.unlink(f.name)
    eq(out.returncode, 2, "exit status")
    assert "row 1 column c" in out.stderr and "out of range for tinyint" in out.stderr, out.stderr


def main():
    p = argparse.ArgumentParser()
    p.add_argument("-k", help="run only checks whose name contains this")
    args = p.parse_args()
    checks = [c for c in CHECKS if not args.k or args.k in c.__name__]
    passed = failed = 0
    with StandIn(["types.json"], database="qbtypes") as types, \
            StandIn(["minimal.json"], "--bulk-rows", str(BULK_ROWS), "--bulk-table", "qbmini.dbo.bulk_rows",
                    database="qbmini") as bulk:
        Servers.types, Servers.bulk = types, bulk
        for fn in checks:
            try:
                fn()
                passed += 1
                print(f"ok    {fn.__name__}")
            except Exception as e:  # report and go on with the next check
                failed += 1
                print(f"FAIL  {fn.__name__}: {e}")
                if not isinstance(e, (Failed, AssertionError)):
                    traceback.print_exc()
        if failed:
            print("--- stand-in log (types) ---\n" + types.log_text()[-4000:])
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
