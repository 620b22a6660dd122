#include "udb/profile.h"

#include <cerrno>
#include <cstdint>

#include <sys/stat.h>

#include "tk/exception.h"
#include "tk/format.h"
#include "tk/line_reader.h"
#include "tk/log.h"
#include "tk/replace_file.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {
namespace {

constexpr char k_missing_profile[] = "Profile does not exist. Please verify the correct path/name was given.";

// A line that reads as a section header: "[name]", blanks around it allowed.
bool is_header(std::wstring_view line, std::wstring& name) {
  const std::wstring trimmed = tk_trim(line);
  if (trimmed.size() < 2 || trimmed.front() != L'[' || trimmed.back() != L']') return false;
  name = trimmed.substr(1, trimmed.size() - 2);
  return true;
}

bool is_blank(std::wstring_view line) { return tk_trim(line).empty(); }

std::wstring right_trim(std::wstring_view line) {
  const std::size_t last = line.find_last_not_of(L' ');
  return std::wstring(line.substr(0, last == std::wstring_view::npos ? 0 : last + 1));
}

[[noreturn]] void fail_line(const std::string& path, int line, const char* what) {
  throw tk_exception(tk_format("The profile %s cannot be read: line %d %s.", path, line, what), 1);
}

// What a line of the file is.
enum class line_kind { header, pair, bare };

// Why the line would not read back as the entry it was written for, or
// nullptr when it would.
const wchar_t* line_problem(std::wstring_view line, line_kind kind, std::wstring_view key) {
  for (const wchar_t c : line) {
    if (c == L'\n' || c == L'\r') return L"holds a line break";
    if (static_cast<std::uint32_t>(c) > 0x10FFFF) return L"holds a character that UTF-8 cannot carry";
  }
  if (tk_utf8_encode(line).size() > udb_profile::max_line_bytes) return L"gives a line of more than 4095 bytes";
  std::wstring name;
  if (kind != line_kind::header) {
    if (is_blank(line)) return L"gives an empty line";
    if (is_header(line, name)) return L"gives a line that reads as a section header";
    if (key.find(L'=') != std::wstring_view::npos) return L"has a key that holds \"=\"";
  }
  return nullptr;
}

class profile_writer {
 public:
  explicit profile_writer(const std::string& path) : path_(path) {}

  void header(const std::wstring& section) {
    section_ = section;
    add(L"[" + section + L"]", line_kind::header, section);
  }
  void pair(const std::wstring& key, const std::wstring& value, bool bare) {
    add(bare ? key : key + L"=" + value, bare ? line_kind::bare : line_kind::pair, key);
  }
  void bare(const std::wstring& text) { add(text, line_kind::bare, text); }
  void end_section() { out_.push_back('\n'); }
  [[nodiscard]] const std::string& text() const { return out_; }

 private:
  void add(const std::wstring& line, line_kind kind, const std::wstring& entry) {
    if (const wchar_t* problem = line_problem(line, kind, kind == line_kind::pair ? entry : line)) {
      throw tk_exception(tk_wformat(L"Cannot store the profile %s: the entry \"%s\" of section [%s] %s.", path_, entry,
                                    section_, problem),
                         1);
    }
    tk_utf8_append(out_, line);
    out_.push_back('\n');
  }

  const std::string& path_;
  std::wstring section_;
  std::string out_;
};

void read_zero_false(std::wstring_view value, bool& field) {
  if (!value.empty()) field = value != L"0";
}

void read_one_true(std::wstring_view value, bool& field) {
  if (!value.empty()) field = value == L"1";
}

}  // namespace

std::wstring udb_profile::get_value(std::wstring_view section, std::wstring_view key) const {
  const auto it = sections.find(std::wstring(section));
  if (it == sections.end()) return {};
  for (const t_pair& pair : it->second) {
    if (pair.first == key) return pair.second;
  }
  return {};
}

const std::vector<std::wstring>& udb_profile::get_lines(std::wstring_view section) const {
  static const std::vector<std::wstring> k_none;
  const auto it = lists.find(std::wstring(section));
  return it == lists.end() ? k_none : it->second;
}

void udb_profile::set_value(const std::wstring& section, const std::wstring& key, const std::wstring& value) {
  sections[section].emplace_back(key, value);
}

void udb_profile::set_flag(const std::wstring& section, const std::wstring& key, bool value) {
  set_value(section, key, value ? L"1" : L"0");
}

void udb_profile::add_line(const std::wstring& section, const std::wstring& text) { lists[section].push_back(text); }

bool udb_profile::load(const std::string& path) {
  LOG(2, "udb_profile::load(%s)", path);
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
    throw tk_exception_ex::user_message(k_missing_profile);
  }
  tk_line_reader reader(path, max_line_bytes);
  if (!reader.is_open()) throw tk_exception_ex(tk_format("Cannot open the profile %s: ", path), reader.error(), 1);

  decltype(sections) new_sections;
  decltype(lists) new_lists;
  const std::wstring* current = nullptr;
  std::string bytes;
  std::wstring name_probe;
  for (;;) {
    const tk_line_reader::status status = reader.next(bytes);
    if (status == tk_line_reader::status::end) break;
    if (status == tk_line_reader::status::error) {
      throw tk_exception_ex(tk_format("Cannot read the profile %s: ", path), reader.error(), 1);
    }
    const int number = reader.line_number();
    if (reader.too_long()) fail_line(path, number, "is longer than 4095 bytes");
    if (!tk_is_valid_utf8(bytes)) fail_line(path, number, "is not UTF-8 text");

    // Lines are trimmed of blanks; the mutation text keeps its leading blanks,
    // because its indentation carries the tree.
    const std::wstring raw = tk_utf8_decode(bytes);
    if (is_blank(raw)) continue;
    const bool keep_indent = current != nullptr && *current == udb_profile_type_mappings && !is_header(raw, name_probe);
    const std::wstring line = keep_indent ? right_trim(raw) : tk_trim(raw);
    std::wstring name;
    if (is_header(line, name)) {
      current = &new_sections.try_emplace(std::move(name)).first->first;
      continue;
    }
    if (current == nullptr) {
      LOG(2, "Line %d of the profile stands before any section and is ignored", number);
      continue;
    }
    const std::size_t eq = line.find(L'=');
    if (eq == std::wstring::npos) {
      new_lists[*current].push_back(line);
      new_sections[*current].emplace_back(line, std::wstring());
    } else {
      new_sections[*current].emplace_back(line.substr(0, eq), line.substr(eq + 1));
    }
  }
  sections = std::move(new_sections);
  lists = std::move(new_lists);
  return true;
}

bool udb_profile::store(const std::string& path) const {
  LOG(2, "udb_profile::store)");
  profile_writer writer(path);
  for (const auto& [name, pairs] : sections) {
    writer.header(name);
    const bool tables = name == udb_profile_selected_tables;
    for (const t_pair& pair : pairs) writer.pair(pair.first, pair.second, tables && pair.second.empty());
    writer.end_section();
  }
  for (const auto& [name, texts] : lists) {
    if (sections.count(name) != 0) continue;
    writer.header(name);
    for (const std::wstring& text : texts) writer.bare(text);
    writer.end_section();
  }
  const int error = tk_replace_file(path, writer.text(), 0600);
  if (error != 0) throw tk_exception_ex(tk_format("Cannot write the profile %s: ", path), error, 1);
  return true;
}

// --- Reading helpers -----------------------------------------------------------------

void udb_profile::read_flag_zero_false(std::wstring_view value, std::uint8_t& field) {
  if (!value.empty()) field = value != L"0" ? 1 : 0;
}

void udb_profile::read_flag_one_true(std::wstring_view value, std::uint8_t& field) {
  if (!value.empty()) field = value == L"1" ? 1 : 0;
}

void udb_profile::read_mode(std::wstring_view value, std::uint32_t& mode) {
  if (value.size() == 1) mode = static_cast<std::uint32_t>(value[0]) - 48U;
}

void udb_profile::get_flag_zero_false(std::wstring_view section, std::wstring_view key, std::uint8_t& field) const {
  read_flag_zero_false(get_value(section, key), field);
}

void udb_profile::get_flag_zero_false(std::wstring_view section, std::wstring_view key, bool& field) const {
  read_zero_false(get_value(section, key), field);
}

void udb_profile::get_flag_one_true(std::wstring_view section, std::wstring_view key, std::uint8_t& field) const {
  read_flag_one_true(get_value(section, key), field);
}

void udb_profile::get_flag_one_true(std::wstring_view section, std::wstring_view key, bool& field) const {
  read_one_true(get_value(section, key), field);
}

void udb_profile::get_mode(std::wstring_view section, std::wstring_view key, std::uint32_t& mode) const {
  read_mode(get_value(section, key), mode);
}

std::wstring udb_profile::to_single_line(std::wstring_view text) {
  std::wstring out(text);
  tk_wstring::replace_all(out, L"\r\n", L" ");
  tk_wstring::replace_all(out, L"\n", L" ");
  tk_wstring::replace_all(out, L"\r", L" ");
  return out;
}

}  // namespace qb
