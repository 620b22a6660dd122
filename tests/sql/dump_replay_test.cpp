// A dump written through the destination's interfaces, replayed by the stock
// mariadb client into a real server, read back and compared by value.
//
// The source is an in-memory database with one table per value family. The
// replay must give no error, no warning and no note (but the one note of
// each "DROP FUNCTION IF EXISTS" for a function that a new database does not
// have yet), and every value must come back as it went in, except where the
// program changes a value on purpose; same_value spells those out:
//  - DATETIME, TIME and TIMESTAMP columns carry no fraction of a second (the
//    column types are written without a precision), so the server keeps
//    whole seconds;
//  - a date of no stated kind becomes the text "yyyy-mm-dd hh:mm:ss" of a
//    CHAR(19) column, without the fraction;
//  - a FLOAT value is written with seven significant digits;
//  - a value made from a vector of no bytes is no value at all: it arrives
//    as NULL; a zero-length byte array (what a source makes of a stored
//    empty binary) arrives as a zero-length binary;
//  - a pair of single quotes in a text stands for one quote (the way source
//    defaults write a quote), and a text that is exactly that pair is the
//    empty text;
//  - a NULL in a NOT NULL column takes the column's default.
// Characters beyond U+FFFF need the character set utf8mb4; with utf8 (three
// bytes a character at most) the server stores "????" for each, with a
// warning, which the last test shows.
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sql/dump.h"
#include "sql/engine.h"
#include "tk/format.h"
#include "tk/utf.h"

#include "replay_support.h"
#include "support/mariadb_server.h"
#include "support/memory_database.h"
#include "support/temp_dir.h"
#include "test_session.h"

namespace qb {
namespace {

using vt = ole_variant;
using test::mariadb_server;
using test::memory_store;

// --- The source ---------------------------------------------------------------------------------------

t_ftd col(const std::wstring& name, std::uint16_t type, std::uint32_t size = 0, std::uint32_t dw = 0) {
  t_ftd f = test::memory_column(name, type, size);
  f.dw_reserved = dw;
  return f;
}

t_ftd decimal_col(const std::wstring& name, std::uint32_t prec, std::uint32_t scale) {
  t_ftd f = col(name, vt::vt_decimal);
  f.prec = prec;
  f.scale = scale;
  return f;
}

udb_indexes primary(const std::wstring& column) {
  udb_indexes idx;
  idx.push_back(udb_index(L"PK_" + column, false, true, {column}));
  return idx;
}

ole_variant typed(const char* text, std::uint16_t type) { return ole_variant::from_string(text, type); }
ole_variant dec(const char* text) { return typed(text, vt::vt_decimal); }
ole_variant date(const char* text) { return typed(text, vt::vt_date); }
ole_variant text(const std::wstring& t) { return ole_variant(t); }
ole_variant null() { return ole_variant::make_null(); }

std::vector<std::uint8_t> pattern_bytes(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>((i * 31 + i / 256) & 0xFF);
  return bytes;
}

// A long text with every character the escaping cares about; no character
// beyond U+FFFF, so that it fits "utf8".
std::wstring long_text(std::size_t size) {
  const std::wstring parts[] = {L"O'Neil \\ ", std::wstring(L"\0", 1), L"\r\n", L"\"", L"\u00e9\u4e2d", L"\t", L"x"};
  std::wstring out;
  for (std::size_t i = 0; out.size() < size; ++i) out += parts[i % 7];
  out.resize(size);
  return out;
}

void add_ints(memory_store& s) {
  udb_schema schema;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  schema.push_back(id);
  for (auto [name, type] : std::initializer_list<std::pair<const wchar_t*, std::uint16_t>>{{L"i1", vt::vt_i1},
                                                                                           {L"ui1", vt::vt_ui1},
                                                                                           {L"i2", vt::vt_i2},
                                                                                           {L"ui2", vt::vt_ui2},
                                                                                           {L"i4", vt::vt_i4},
                                                                                           {L"ui4", vt::vt_ui4},
                                                                                           {L"i8", vt::vt_i8},
                                                                                           {L"ui8", vt::vt_ui8},
                                                                                           {L"vint", vt::vt_int},
                                                                                           {L"vuint", vt::vt_uint},
                                                                                           {L"flag", vt::vt_bool}}) {
    schema.push_back(col(name, type));
  }
  t_ftd dflt = col(L"dflt", vt::vt_i4);
  dflt.b_not_null = true;
  dflt.def_value = ole_variant(L"7");
  schema.push_back(dflt);
  s.add_table(L"ints", schema, primary(L"id"));
  // Row 0 keeps its 0 in the AUTO_INCREMENT column (NO_AUTO_VALUE_ON_ZERO).
  s.add_row(L"ints", {ole_variant(0), ole_variant(static_cast<signed char>(-128)),
                      ole_variant(static_cast<unsigned char>(0)), ole_variant(static_cast<short>(-32768)),
                      ole_variant(static_cast<unsigned short>(0)), ole_variant(std::numeric_limits<int>::min()),
                      ole_variant(0U), ole_variant(std::numeric_limits<long long>::min()), ole_variant(0ULL),
                      typed("-2147483648", vt::vt_int), typed("0", vt::vt_uint), ole_variant(false), ole_variant(1)});
  s.add_row(L"ints",
            {ole_variant(1), ole_variant(static_cast<signed char>(127)), ole_variant(static_cast<unsigned char>(255)),
             ole_variant(static_cast<short>(32767)), ole_variant(static_cast<unsigned short>(65535)),
             ole_variant(std::numeric_limits<int>::max()), ole_variant(4294967295U),
             ole_variant(std::numeric_limits<long long>::max()), ole_variant(18446744073709551615ULL),
             typed("2147483647", vt::vt_int), typed("4294967295", vt::vt_uint), ole_variant(true), ole_variant(2)});
  s.add_row(L"ints", {ole_variant(2), null(), null(), null(), null(), null(), null(), null(), null(), null(), null(),
                      null(), null()});
  s.add_row(L"ints",
            {ole_variant(3), ole_variant(static_cast<signed char>(-1)), ole_variant(static_cast<unsigned char>(1)),
             ole_variant(static_cast<short>(-1)), ole_variant(static_cast<unsigned short>(1)), ole_variant(-1),
             ole_variant(1U), ole_variant(-1LL), ole_variant(1ULL), typed("-1", vt::vt_int), typed("1", vt::vt_uint),
             ole_variant(true), ole_variant(-5)});
}

void add_numbers(memory_store& s) {
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(decimal_col(L"d38_0", 38, 0));
  schema.push_back(decimal_col(L"d38_10", 38, 10));
  schema.push_back(col(L"money", vt::vt_cy));
  schema.push_back(col(L"r4", vt::vt_r4));
  schema.push_back(col(L"r8", vt::vt_r8));
  schema.push_back(decimal_col(L"dbl", 0, 0));
  s.add_table(L"numbers", schema, primary(L"id"));
  s.add_row(L"numbers", {ole_variant(1), dec("99999999999999999999999999999999999999"),
                         dec("9999999999999999999999999999.9999999999"), typed("922337203685477.5807", vt::vt_cy),
                         ole_variant(0.1F), ole_variant(0.1), dec("1.5")});
  s.add_row(L"numbers",
            {ole_variant(2), dec("-99999999999999999999999999999999999999"), dec("-0.0000000001"),
             typed("-922337203685477.5808", vt::vt_cy), ole_variant(-1.5F), ole_variant(DBL_MAX), dec("-2.25")});
  s.add_row(L"numbers", {ole_variant(3), dec("0"), dec("0"), typed("0", vt::vt_cy), ole_variant(FLT_MAX),
                         ole_variant(4.9406564584124654e-324), dec("0")});
  s.add_row(L"numbers", {ole_variant(4), null(), null(), null(), null(), null(), null()});
  s.add_row(L"numbers", {ole_variant(5), dec("12345678901234567890123456789012345678"), dec("0.0000000001"),
                         typed("0.0001", vt::vt_cy), ole_variant(std::nextafter(1.0F, 2.0F)), ole_variant(1.0 / 3.0),
                         dec("-1e-10")});
}

void add_dates(memory_store& s) {
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"dt", vt::vt_date, 0, 1));
  schema.push_back(col(L"d", vt::vt_date, 0, 2));
  schema.push_back(col(L"t", vt::vt_date, 0, 3));
  schema.push_back(col(L"ts", vt::vt_date, 0, 9));
  schema.push_back(col(L"nokind", vt::vt_date, 0, 0));
  schema.push_back(col(L"dd", vt::vt_date, 0, 10));
  schema.push_back(col(L"tt", vt::vt_date, 0, 11));
  s.add_table(L"dates", schema, primary(L"id"));
  s.add_row(L"dates", {ole_variant(1), date("2024-02-29 23:59:59.999999"), date("2024-02-29"), date("23:59:59.5"),
                       date("2001-02-03 04:05:06.789"), date("2005-01-05 10:00:00.25"), date("1999-12-31"),
                       date("12:00:00.000001")});
  s.add_row(L"dates", {ole_variant(2), date("1000-01-01 00:00:00.000001"), date("1000-01-01"), date("00:00:00"),
                       date("2037-12-31 23:59:59"), date("1753-01-01 00:00:00"), date("2000-01-01"), date("00:00:01")});
  s.add_row(L"dates",
            {ole_variant(3), date("9999-12-31 23:59:59.999999"), date("9999-12-31"), date("13:14:15"),
             date("1970-01-02 00:00:00.5"), date("9999-12-31 23:59:59.999"), date("2010-10-10"), date("01:02:03")});
  s.add_row(L"dates", {ole_variant(4), date("2005-01-05"), null(), null(), null(), null(), null(), null()});
}

void add_texts(memory_store& s) {
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"v", vt::vt_bstr, 200));
  schema.push_back(col(L"lt", vt::vt_bstr, 0));
  schema.push_back(col(L"fixed", vt::vt_bstr, 10, 16));
  schema.push_back(col(L"guid", vt::vt_bstr, 50, 1));
  s.add_table(L"texts", schema, primary(L"id"));
  const std::wstring guid = L"01234567-89ab-cdef-0123-456789abcdef";
  s.add_row(L"texts", {ole_variant(1), text(L"O'Neil"), text(L"C:\\path\\to\\"), text(L"ab"), text(guid)});
  s.add_row(L"texts", {ole_variant(2), text(L"line1\nline2\r\nline3\rend\r\n"), text(L"tab\tquote\"x"), text(L""),
                       text(L"{" + guid + L"}")});
  s.add_row(L"texts",
            {ole_variant(3), text(std::wstring(L"a\0b", 3)), text(std::wstring(L"\0", 1)), text(L"x"), text(L"")});
  s.add_row(L"texts", {ole_variant(4), text(L"it''s"), text(L"''"), text(L"y"), text(L"'''")});
  s.add_row(L"texts", {ole_variant(5), text(L"\u00e9 \u00fc \u4e2d\u6587 \u2211 \u03a9"), text(L"\u0416"),
                       text(L"z\u00df"), null()});
  s.add_row(L"texts", {ole_variant(6), text(L"DELIMITER ;;\n# not a comment\n-- nor this\n\\g\\G;\nUSE mysql;"),
                       text(L"end with backslash \\"), text(L"\\'"), text(L"\\")});
  s.add_row(L"texts", {ole_variant(7), text(L""), null(), null(), text(L"guid{" + guid + L"} x")});
}

void add_geometry(memory_store& s) {
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"g", vt::vt_bstr, 0, 2));
  s.add_table(L"geo", schema, primary(L"id"));
  s.add_row(L"geo", {ole_variant(1), text(L"POINT(1 2)")});
  s.add_row(L"geo", {ole_variant(2), text(L"LINESTRING(0 0,1 1,2 1)")});
  s.add_row(L"geo", {ole_variant(3), text(L"POLYGON((0 0,10 0,10 10,0 10,0 0))")});
  s.add_row(L"geo", {ole_variant(4), null()});
}

void add_keys(memory_store& s) {
  udb_schema parents;
  t_ftd id = col(L"id", vt::vt_i4);
  id.b_auto_num = true;
  parents.push_back(id);
  parents.push_back(col(L"name", vt::vt_bstr, 50));
  parents.push_back(col(L"code", vt::vt_i4));
  parents.push_back(col(L"a;b", vt::vt_i2));
  udb_indexes pidx = primary(L"id");
  pidx.push_back(udb_index(L"UX_name", true, false, {L"name"}));
  pidx.push_back(udb_index(L"IX_code", false, false, {L"code"}));
  s.add_table(L"parents", parents, pidx);
  s.add_row(L"parents", {ole_variant(1), text(L"alpha"), ole_variant(10), ole_variant(static_cast<short>(1))});
  s.add_row(L"parents", {ole_variant(2), text(L"beta"), ole_variant(10), ole_variant(static_cast<short>(2))});
  s.add_row(L"parents", {ole_variant(3), text(L"gamma"), null(), null()});

  udb_schema kids;
  kids.push_back(col(L"id", vt::vt_i4));
  kids.push_back(col(L"parent;id", vt::vt_i4));
  kids.push_back(col(L"boss_id", vt::vt_i4));
  t_ftd note = col(L"note", vt::vt_bstr, 20);
  note.b_not_null = true;
  note.def_value = ole_variant(L"none");
  kids.push_back(note);
  udb_indexes kidx = primary(L"id");
  kidx.push_back(udb_index(L"IX_parent", false, false, {L"parent;id"}));
  s.add_table(L"child/rows", kids, kidx);
  s.add_row(L"child/rows", {ole_variant(1), ole_variant(1), null(), text(L"root")});
  s.add_row(L"child/rows", {ole_variant(2), ole_variant(1), ole_variant(1), text(L"")});
  s.add_row(L"child/rows", {ole_variant(3), ole_variant(2), ole_variant(2), text(L"leaf")});

  s.relationships.push_back(udb_rel(L"FK_child_parent", L"dbo", L"child/rows", L"parents", {L"parent;id"}, {L"id"},
                                    L" ON UPDATE NO ACTION ON DELETE CASCADE"));
  s.relationships.push_back(
      udb_rel(L"FK_child_boss", L"dbo", L"child/rows", L"child/rows", {L"boss_id"}, {L"id"}, L""));
  s.views.emplace_back(L"parent_names", L"select id, name from parents");
  s.views.emplace_back(L"not_a_view", L"exec sp_who");
}

void add_binary(memory_store& s) {
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"small", vt::vt_bytes, 255));
  schema.push_back(col(L"big", vt::vt_bytes, 0));
  schema.push_back(col(L"bigtext", vt::vt_bstr, 0));
  s.add_table(L"bins", schema, primary(L"id"));
  std::vector<std::uint8_t> every(256);
  for (int i = 0; i < 256; ++i) every[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(i);
  s.add_row(L"bins", {ole_variant(1), ole_variant(std::vector<std::uint8_t>(every.begin(), every.end() - 1)),
                      ole_variant(every), text(L"small")});
  s.add_row(L"bins", {ole_variant(2), ole_variant(std::vector<std::uint8_t>()), ole_variant(pattern_bytes(1048576 - 1)),
                      text(long_text(1048576 - 1))});
  s.add_row(L"bins", {ole_variant(3), null(), ole_variant(pattern_bytes(1048576 + 1)), text(long_text(1048576 + 1))});
  s.add_row(L"bins", {ole_variant(4), null(), ole_variant(pattern_bytes(5 * 1048576)), null()});
  s.add_row(L"bins", {ole_variant(5), null(), null(), text(long_text(5 * 1048576))});
  s.add_row(L"bins", {ole_variant(6), ole_variant::make_empty_bytes(), ole_variant::make_empty_bytes(), text(L"")});
}

// --- What comes back ------------------------------------------------------------------------------

std::string describe(const ole_variant& v) {
  if (v.get_type() == vt::vt_bstr) return "text '" + tk_utf8_encode(v.text_view().substr(0, 80)) + "'";
  if (v.get_type() == vt::vt_bytes) return "bytes(" + std::to_string(v.bytes_view().size()) + ")";
  return "tag " + std::to_string(v.get_type()) + " '" + tk_utf8_encode(v.to_wstring()) + "'";
}

std::string integer_text(const ole_variant& v) {
  if (v.get_type() != vt::vt_int) return v.to_string();
  ole_variant copy(v);
  copy.change_type(vt::vt_bstr);
  return tk_utf8_encode(copy.text_view());
}

// True when actual (read back from a column of source type column) is what
// expected becomes.
testing::AssertionResult same_value(const ole_variant& expected_in, const t_ftd& column, const ole_variant& actual) {
  ole_variant expected = expected_in;
  if (expected.is_empty() && column.b_not_null && !column.def_value.is_empty()) {
    expected = ole_variant::from_wstring(column.def_value.to_wstring(), column.vartype);
  }
  const auto fail = [&] {
    return testing::AssertionFailure() << "column " << tk_utf8_encode(column.name) << ": expected "
                                       << describe(expected) << ", got " << describe(actual);
  };
  if (expected.is_empty()) return actual.get_type() == vt::vt_null ? testing::AssertionSuccess() : fail();
  if (actual.is_empty()) return fail();
  switch (column.vartype) {
    case vt::vt_bool:
      return expected.to_bool() == actual.to_bool() ? testing::AssertionSuccess() : fail();
    case vt::vt_r4:
      // The shortest text of the float reads back to the same float.
      return expected.to_float() == static_cast<float>(actual.to_double()) ? testing::AssertionSuccess() : fail();
    case vt::vt_r8:
      return expected.to_double() == actual.to_double() ? testing::AssertionSuccess() : fail();
    case vt::vt_cy:
      return ole_decimal::from_currency(expected.get_currency().value) == actual.get_decimal()
                 ? testing::AssertionSuccess()
                 : fail();
    case vt::vt_decimal:
      if (column.prec == 0) return expected.to_double() == actual.to_double() ? testing::AssertionSuccess() : fail();
      return expected.get_decimal() == actual.get_decimal() ? testing::AssertionSuccess() : fail();
    case vt::vt_date: {
      const ole_date* want = expected.get_date();
      if ((column.dw_reserved & 3) == 0 && column.dw_reserved != 9 && column.dw_reserved != 10) {
        return actual.text_view() == tk_utf8_decode(want->to_string(false)) ? testing::AssertionSuccess() : fail();
      }
      const ole_date* got = actual.get_date();
      if (got == nullptr) return fail();
      const bool same = got->src.wYear == want->src.wYear && got->src.wMonth == want->src.wMonth &&
                        got->src.wDay == want->src.wDay && got->src.wHour == want->src.wHour &&
                        got->src.wMinute == want->src.wMinute && got->src.wSecond == want->src.wSecond &&
                        got->microseconds == 0 && got->src.wMilliseconds == 0;
      return same ? testing::AssertionSuccess() : fail();
    }
    case vt::vt_bstr:
      // A value arrives as it is, doubled quotes included.
      return actual.text_view() == expected.text_view() ? testing::AssertionSuccess() : fail();
    case vt::vt_bytes: {
      const auto a = actual.bytes_view();
      const auto e = expected.bytes_view();
      return std::equal(a.begin(), a.end(), e.begin(), e.end()) ? testing::AssertionSuccess() : fail();
    }
    default:
      return integer_text(expected) == integer_text(actual) ? testing::AssertionSuccess() : fail();
  }
}

// --- The runs ----------------------------------------------------------------------------------------

struct scratch_db {
  explicit scratch_db(const mariadb_server& server) : root(server), name(test::unique_name("qb_dump")) {}
  ~scratch_db() {
    try {
      root.run("DROP DATABASE IF EXISTS `" + name + "`");
    } catch (...) {
    }
  }
  scratch_db(const scratch_db&) = delete;
  scratch_db& operator=(const scratch_db&) = delete;
  test::test_session root;
  std::string name;
};

class DumpReplay : public testing::Test {
 protected:
  void SetUp() override {
    engine.set_fast_mode(true);
    engine.set_lock_active(false);
  }

  // Writes the dump of tables and replays it into db; expects a clean
  // replay and gives the target names.
  std::vector<std::wstring> dump_and_replay(memory_store& store, const std::vector<std::wstring>& tables,
                                            const dump_options& options, scratch_db& db) {
    file = dir.file("replay.sql");
    std::vector<std::wstring> targets;
    {
      auto dump = engine.create_dump(tk_utf8_decode(file), options);
      targets = test::run_like_driver(engine, store, tables, *dump);
      names = dump->names_map();
    }
    const auto& server = mariadb_server::main();
    const test::client_result replay =
        test::run_mariadb_client(server, server.account(), file, options.create_database ? "" : db.name);
    EXPECT_EQ(replay.exit_code, 0) << replay.output.substr(0, 2000);
    // Nothing but the notes of "DROP FUNCTION IF EXISTS", one for each of the
    // 17 compatibility functions, which a new database does not have yet.
    std::size_t absent_functions = 0;
    EXPECT_TRUE(test::unexpected_diagnostics(replay.output, &absent_functions).empty())
        << replay.output.substr(0, 2000);
    EXPECT_EQ(absent_functions, 17U);
    return targets;
  }

  // Reads every table back and compares it with the source, row by row.
  void compare_tables(memory_store& store, const std::vector<std::wstring>& tables,
                      const std::vector<std::wstring>& targets, scratch_db& db) {
    for (std::size_t t = 0; t < tables.size(); ++t) {
      const test::memory_table& source = *store.find_table(tables[t]);
      std::string select = "SELECT ";
      for (std::size_t i = 0; i < source.schema.size(); ++i) {
        const t_ftd& c = source.schema[i];
        const std::string name = "`" + tk_utf8_encode(names.get_fn_mapped_name(targets[t], c.name, false)) + "`";
        if (i > 0) select += ", ";
        if (c.vartype == vt::vt_r4) {
          select += name + " + 0E0";  // the float's exact value, not its six-digit print
        } else if (c.vartype == vt::vt_bstr && c.dw_reserved == 2) {
          select += "ST_AsText(" + name + ")";
        } else {
          select += name;
        }
      }
      select += " FROM `" + db.name + "`.`" + tk_utf8_encode(targets[t]) + "` ORDER BY 1";
      const auto rows = test::read_rows(db.root.handle(), select);
      ASSERT_EQ(rows.size(), source.rows.size()) << tk_utf8_encode(tables[t]);
      for (std::size_t r = 0; r < rows.size(); ++r) {
        for (std::size_t i = 0; i < source.schema.size(); ++i) {
          EXPECT_TRUE(same_value(source.rows[r][i], source.schema[i], rows[r][i]))
              << "table " << tk_utf8_encode(tables[t]) << ", row " << r;
        }
      }
    }
  }

  void check_structure(scratch_db& db) {
    auto& s = db.root;
    const std::string in = " WHERE TABLE_SCHEMA='" + db.name + "'";
    EXPECT_EQ(
        s.scalar("SELECT EXTRA FROM information_schema.COLUMNS" + in + " AND TABLE_NAME='ints' AND COLUMN_NAME='id'"),
        "auto_increment");
    EXPECT_EQ(s.scalar("SELECT COLUMN_DEFAULT FROM information_schema.COLUMNS" + in +
                       " AND TABLE_NAME='ints' AND COLUMN_NAME='dflt'"),
              "7");
    EXPECT_EQ(s.scalar("SELECT COLUMN_DEFAULT FROM information_schema.COLUMNS" + in +
                       " AND TABLE_NAME='child_rows' AND COLUMN_NAME='note'"),
              "'none'");
    EXPECT_EQ(s.scalar("SELECT CHARACTER_SET_NAME FROM information_schema.COLUMNS" + in +
                       " AND TABLE_NAME='texts' AND COLUMN_NAME='v'"),
              charset == "utf8mb4" ? "utf8mb4" : "utf8mb3");
    EXPECT_EQ(s.scalar("SELECT COLUMN_TYPE FROM information_schema.COLUMNS" + in +
                       " AND TABLE_NAME='dates' AND COLUMN_NAME='nokind'"),
              "char(19)");
    EXPECT_EQ(
        s.column("SELECT CONCAT(INDEX_NAME, ':', NON_UNIQUE, ':', COLUMN_NAME) FROM information_schema.STATISTICS" +
                 in + " AND TABLE_NAME='parents' ORDER BY INDEX_NAME"),
        (std::vector<std::string>{"IX_code:1:code", "PRIMARY:0:id", "UX_name:0:name"}));
    EXPECT_EQ(
        s.column("SELECT CONCAT(CONSTRAINT_NAME, ':', COLUMN_NAME, '->', REFERENCED_TABLE_NAME, '.', "
                 "REFERENCED_COLUMN_NAME) FROM information_schema.KEY_COLUMN_USAGE" +
                 in + " AND REFERENCED_TABLE_NAME IS NOT NULL ORDER BY CONSTRAINT_NAME"),
        (std::vector<std::string>{"FK_child_boss:boss_id->child_rows.id", "FK_child_parent:parent_id->parents.id"}));
    EXPECT_EQ(s.scalar("SELECT DELETE_RULE FROM information_schema.REFERENTIAL_CONSTRAINTS WHERE CONSTRAINT_SCHEMA='" +
                       db.name + "' AND CONSTRAINT_NAME='FK_child_parent'"),
              "CASCADE");
    EXPECT_EQ(s.column("SELECT name FROM `" + db.name + "`.parent_names ORDER BY id"),
              (std::vector<std::string>{"alpha", "beta", "gamma"}));
    EXPECT_EQ(s.scalar("SELECT COUNT(*) FROM information_schema.VIEWS" + in), "1");
    // The compatibility functions came through their DELIMITER wrapping.
    EXPECT_EQ(s.scalar("SELECT COUNT(*) FROM information_schema.ROUTINES WHERE ROUTINE_SCHEMA='" + db.name +
                       "' AND ROUTINE_TYPE='FUNCTION'"),
              "17");
    EXPECT_EQ(s.scalar("SELECT `" + db.name + "`.SQUARE(3)"), "9");
    EXPECT_EQ(s.scalar("SELECT `" + db.name + "`.DATEDIFF_HOUR('2024-01-02 00:00:00', '2024-01-01 00:00:00')"), "24");
    // The session's sql_mode came back at the end of the file: a fresh
    // session sees the server's own, which the dump never changed.
    EXPECT_EQ(s.scalar("SELECT @@GLOBAL.sql_mode"), s.scalar("SELECT @@SESSION.sql_mode"));
  }

  sql_engine engine;
  test::temp_dir dir;
  std::string file;
  udb_names_map names;
  std::string charset = "utf8";
};

std::vector<std::wstring> all_tables(bool binary_first) {
  std::vector<std::wstring> tables = {L"ints", L"numbers", L"dates", L"texts", L"geo", L"parents", L"child/rows"};
  if (binary_first) {
    tables.insert(tables.begin(), L"bins");
  } else {
    tables.push_back(L"bins");
  }
  return tables;
}

void fill(memory_store& store) {
  add_ints(store);
  add_numbers(store);
  add_dates(store);
  add_texts(store);
  add_geometry(store);
  add_keys(store);
  add_binary(store);
}

TEST_F(DumpReplay, EveryValueComesBackWithCrLfCommentsLocksAndDatabaseBlock) {
  memory_store store;
  fill(store);
  scratch_db db(mariadb_server::main());
  // The dump drops the database first: one that exists gives no note.
  db.root.run("CREATE DATABASE `" + db.name + "`");
  dump_options options;
  options.create_database = true;
  options.database_name = tk_utf8_decode(db.name);
  options.created_by = L"dump replay test";
  const auto tables = all_tables(false);
  const auto targets = dump_and_replay(store, tables, options, db);
  EXPECT_EQ(targets[6], L"child_rows");
  const std::string t = test::read_file(file);
  EXPECT_NE(t.find("\r\nLOCK TABLES `ints` WRITE;\r\nINSERT IGNORE INTO `ints`"), std::string::npos);
  EXPECT_EQ(t.find("INSERT INTO `ints`"), std::string::npos);  // fast until the first big row
  EXPECT_NE(t.find("INSERT INTO `bins`"), std::string::npos);
  EXPECT_FALSE(engine.fast_mode());
  compare_tables(store, tables, targets, db);
  check_structure(db);
}

TEST_F(DumpReplay, EveryValueComesBackWithLineFeedsOnTheSlowPath) {
  memory_store store;
  fill(store);
  scratch_db db(mariadb_server::main());
  db.root.run("CREATE DATABASE `" + db.name + "` CHARACTER SET latin1");
  dump_options options;
  options.line_break = 1;
  options.insert_comments = false;
  options.add_lock = false;
  // The big rows come first: every later row of every table goes alone.
  const auto tables = all_tables(true);
  const auto targets = dump_and_replay(store, tables, options, db);
  const std::string t = test::read_file(file);
  EXPECT_EQ(t.find('\r'), std::string::npos);
  EXPECT_EQ(t.find("LOCK TABLES"), std::string::npos);
  // Only the first, small row of the first table went the fast way.
  EXPECT_NE(t.find("INSERT IGNORE INTO `bins`"), std::string::npos);
  EXPECT_EQ(t.find("INSERT IGNORE", t.find("INSERT IGNORE INTO `bins`") + 1), std::string::npos);
  EXPECT_NE(t.find("\nINSERT INTO `texts`(`id`, `v`, `lt`, `fixed`, `guid`) VALUES (1, 'O\\'Neil', "),
            std::string::npos);
  compare_tables(store, tables, targets, db);
  check_structure(db);
}

TEST_F(DumpReplay, CharactersBeyondTheBmpComeBackWithUtf8mb4) {
  engine.set_charset(L"utf8mb4");
  charset = "utf8mb4";
  memory_store store;
  add_texts(store);
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"v", vt::vt_bstr, 20));
  schema.push_back(col(L"lt", vt::vt_bstr, 0));
  store.add_table(L"texts4", schema, primary(L"id"));
  store.add_row(L"texts4", {ole_variant(1), text(L"\U0001F600"), text(L"a\U0001F600b'c\U0001D11E")});
  store.add_row(L"texts4", {ole_variant(2), text(L"\U0010FFFF\U00010000"), text(std::wstring(70000, L'\U0001F600'))});
  scratch_db db(mariadb_server::main());
  db.root.run("CREATE DATABASE `" + db.name + "`");
  dump_options options;
  options.create_database = true;
  options.database_name = tk_utf8_decode(db.name);
  const std::vector<std::wstring> tables = {L"texts", L"texts4"};
  const auto targets = dump_and_replay(store, tables, options, db);
  EXPECT_NE(test::read_file(file).find("SET NAMES utf8mb4;"), std::string::npos);
  compare_tables(store, tables, targets, db);
  engine.set_charset(L"utf8");
}

TEST_F(DumpReplay, CharactersBeyondTheBmpWithUtf8AreReportedTwice) {
  // What happens with the default character set: the dump's log names the
  // column, and the server, taking three bytes a character at most, stores
  // "????" for the character with a warning (the batch is INSERT IGNORE).
  test::log_capture log(3);
  memory_store store;
  udb_schema schema;
  schema.push_back(col(L"id", vt::vt_i4));
  schema.push_back(col(L"v", vt::vt_bstr, 20));
  store.add_table(L"smiles", schema, primary(L"id"));
  store.add_row(L"smiles", {ole_variant(1), text(L"a\U0001F600b")});
  scratch_db db(mariadb_server::main());
  db.root.run("CREATE DATABASE `" + db.name + "`");
  file = dir.file("utf8.sql");
  {
    dump_options options;
    options.create_database = true;
    options.database_name = tk_utf8_decode(db.name);
    auto dump = engine.create_dump(tk_utf8_decode(file), options);
    test::run_like_driver(engine, store, {L"smiles"}, *dump);
  }
  EXPECT_TRUE(
      log.has_line("Column 'v' of table 'smiles' holds characters beyond U+FFFF, which the character set "
                   "'utf8' cannot store; utf8mb4 can"));
  const auto& server = mariadb_server::main();
  const auto replay = test::run_mariadb_client(server, server.account(), file);
  EXPECT_EQ(replay.exit_code, 0) << replay.output;
  const auto lines = test::unexpected_diagnostics(replay.output);
  ASSERT_EQ(lines.size(), 1U) << replay.output;
  EXPECT_NE(lines[0].find("Warning (Code 1366): Incorrect string value"), std::string::npos) << lines[0];
  // Each of the character's four bytes became a "?".
  EXPECT_EQ(db.root.scalar("SELECT v FROM `" + db.name + "`.smiles"), "a????b");
}

TEST_F(DumpReplay, OldDialectFileHasNoBackQuotes) {
  memory_store store;
  fill(store);
  file = dir.file("old.sql");
  dump_options options;
  options.new_version = false;
  options.create_database = true;
  {
    auto dump = engine.create_dump(tk_utf8_decode(file), options);
    test::run_like_driver(engine, store, all_tables(false), *dump);
  }
  const std::string t = test::read_file(file);
  EXPECT_EQ(t.find('`'), std::string::npos);
  EXPECT_EQ(t.find("FOREIGN"), std::string::npos);
  EXPECT_EQ(t.find("ENGINE="), std::string::npos);
  EXPECT_EQ(t.find("CHARACTER SET"), std::string::npos);
  EXPECT_EQ(test::read_file(file).find(") TYPE=MyISAM;\r\n"), t.find(") TYPE=MyISAM;\r\n"));
  EXPECT_NE(t.find("CREATE TABLE child_rows (\r\n"), std::string::npos);
  EXPECT_NE(t.find("INSERT IGNORE INTO ints(id, i1, ui1, "), std::string::npos);
}

}  // namespace
}  // namespace qb
