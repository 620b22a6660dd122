#include <gtest/gtest.h>

#include <clocale>

#include "tk/strings.h"

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  qb::tk_refresh_ansi_codeset();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
