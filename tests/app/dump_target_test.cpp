// The converter's default target makes dump files with the converter's dump
// options.
#include <gtest/gtest.h>

#include "app/convertor.h"
#include "sql/engine.h"
#include "tk/utf.h"

#include "app_fixtures.h"
#include "support/temp_dir.h"

namespace qb::test {
namespace {

TEST(ConvertorDump, DefaultTargetWritesTheDumpFileWithTheOptions) {
  user_folders folders;
  handler_and_shell ui;
  quillbridge_convertor converter;
  temp_dir dir;
  mysql_dump_options options;
  options.title = "Quillbridge 8.1 ";
  options.line_break = 1;  // LF
  options.new_version = 0;
  options.insert_comments = 1;
  {
    std::unique_ptr<udb_database> dump = converter.target().create_dump(tk_utf8_decode(dir.file("x.sql")), options);
    ASSERT_NE(dump, nullptr);
  }
  const std::string text = read_file(dir.file("x.sql"));
  EXPECT_NE(text.find("# Created by Quillbridge 8.1 \n"), std::string::npos) << text;
  EXPECT_EQ(text.find('\r'), std::string::npos);
  // The old dialect was chosen: the engine answers for it.
  EXPECT_EQ(converter.mysql_engine().version(), 0x31401U);
}

TEST(ConvertorDump, DefaultTargetReportsAFileThatCannotBeMade) {
  user_folders folders;
  handler_and_shell ui;
  quillbridge_convertor converter;
  temp_dir dir;
  EXPECT_THROW(static_cast<void>(converter.target().create_dump(tk_utf8_decode(dir.file("none/x.sql")), {})),
               tk_exception);
}

}  // namespace
}  // namespace qb::test
