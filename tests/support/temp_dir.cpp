#include "support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace qb::test {

temp_dir::temp_dir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qb-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

temp_dir::~temp_dir() {
  std::error_code ec;
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
  std::filesystem::remove_all(path_, ec);
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

bool file_exists(const std::string& path) { return std::filesystem::exists(path); }

log_capture::log_capture(int level)
    : path_(dir_.file("test.log")), logger_(std::make_unique<tk_logger>(path_, true, level, false)) {}

bool log_capture::has_line(const std::string& line) const {
  const std::string all = text();
  std::size_t start = 0;
  while (start < all.size()) {
    std::size_t end = all.find("\r\n", start);
    if (end == std::string::npos) end = all.size();
    if (all.compare(start, end - start, line) == 0 && end - start == line.size()) return true;
    start = end + 2;
  }
  return false;
}

}  // namespace qb::test
