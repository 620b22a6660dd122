#include "tk/settings.h"

#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "tk/exception.h"
#include "tk/format.h"
#include "tk/line_reader.h"
#include "tk/log.h"
#include "tk/paths.h"
#include "tk/replace_file.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {
namespace {

// A line longer than this is damage, not a value of ours; it is skipped.
constexpr std::size_t k_max_line_bytes = 1 << 20;

constexpr char k_file_header[] =
    "# Per-user settings of Quillbridge (Software\\Varnholt\\Quillbridge).\n"
    "# One value a line: name=kind:value, kind is dword, text or wtext.\n";

// --- Names and paths -------------------------------------------------------------------

bool is_valid_name(const char* name) {
  for (const char* p = name; *p != '\0'; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    if (c < 0x20 || c == 0x7F || c == '=' || c == '\\') return false;
  }
  return true;
}

// The folders and the file name of a key path; false for a path the file
// system cannot hold.
bool split_key_path(const std::string& path, std::vector<std::string>& parts) {
  parts = tk_string::split(path, '\\');
  if (!parts.empty() && tk_string::compare_no_case(parts.front(), "Software")) parts.erase(parts.begin());
  if (parts.empty()) return false;
  for (const std::string& part : parts) {
    if (part.empty() || part == "." || part == ".." || part.find('/') != std::string::npos ||
        part.find('\0') != std::string::npos) {
      return false;
    }
  }
  return true;
}

bool is_directory(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Creates the folder and those above it that are missing, each with mode
// 0700. Returns 0 or the error number.
int make_folders(const std::string& dir) {
  for (std::size_t pos = 1; pos <= dir.size(); ++pos) {
    if (pos != dir.size() && dir[pos] != '/') continue;
    const std::string prefix = dir.substr(0, pos);
    if (is_directory(prefix)) continue;
    if (::mkdir(prefix.c_str(), 0700) != 0) {
      if (errno == EEXIST) continue;  // a file in the way; found below
      return errno;
    }
    ::chmod(prefix.c_str(), 0700);  // whatever the umask took away
  }
  return is_directory(dir) ? 0 : ENOTDIR;
}

// --- Value texts -----------------------------------------------------------------------

void append_hex_escape(std::string& out, unsigned value, int digits) {
  out += digits == 2 ? tk_format("\\x%02X", value) : tk_format("\\U%08X", value);
}

// True for the characters written as they are: printable ASCII but "\".
bool is_plain_ascii(unsigned c) { return c >= 0x20 && c < 0x7F && c != '\\'; }

void append_ascii_escaped(std::string& out, unsigned c) {
  if (is_plain_ascii(c)) {
    out.push_back(static_cast<char>(c));
  } else if (c == '\\') {
    out += "\\\\";
  } else if (c == '\n') {
    out += "\\n";
  } else if (c == '\r') {
    out += "\\r";
  } else if (c == '\t') {
    out += "\\t";
  } else {
    append_hex_escape(out, c, 2);
  }
}

// The length of the well-formed UTF-8 sequence (of a Unicode scalar value) at
// text[pos], or 0.
std::size_t utf8_sequence_at(const std::string& text, std::size_t pos) {
  const auto lead = static_cast<unsigned char>(text[pos]);
  std::size_t len = 0;
  if (lead >= 0xC2 && lead < 0xE0) len = 2;
  if (lead >= 0xE0 && lead < 0xF0) len = 3;
  if (lead >= 0xF0 && lead < 0xF5) len = 4;
  if (len == 0 || pos + len > text.size()) return 0;
  const std::string_view seq(text.data() + pos, len);
  if (!tk_is_valid_utf8(seq)) return 0;
  const std::wstring decoded = tk_utf8_decode(seq);
  if (decoded.size() != 1 || (decoded[0] >= 0xD800 && decoded[0] <= 0xDFFF)) return 0;
  return len;
}

std::string escape_narrow(const std::string& text) {
  std::string out;
  std::size_t pos = 0;
  while (pos < text.size()) {
    const auto c = static_cast<unsigned char>(text[pos]);
    if (c < 0x80) {
      append_ascii_escaped(out, c);
      ++pos;
    } else if (const std::size_t len = utf8_sequence_at(text, pos); len != 0) {
      out.append(text, pos, len);
      pos += len;
    } else {
      append_hex_escape(out, c, 2);
      ++pos;
    }
  }
  return out;
}

std::string escape_wide(const std::wstring& text) {
  std::string out;
  for (const wchar_t ch : text) {
    const auto c = static_cast<std::uint32_t>(ch);
    if (c < 0x80) {
      append_ascii_escaped(out, c);
    } else if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
      append_hex_escape(out, c, 8);
    } else {
      tk_utf8_append(out, ch);
    }
  }
  return out;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool read_hex(std::string_view text, std::size_t pos, std::size_t digits, std::uint32_t& value) {
  if (pos + digits > text.size()) return false;
  value = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const int d = hex_digit(text[pos + i]);
    if (d < 0) return false;
    value = (value << 4) | static_cast<std::uint32_t>(d);
  }
  return true;
}

// Undoes the escapes of a value. Raw text stays in `raw` runs, each escape
// goes to `put` as a number; `wide` allows "\U". False for a bad escape.
template <class Raw, class Put>
bool unescape(std::string_view text, bool wide, Raw raw, Put put) {
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t slash = text.find('\\', pos);
    if (slash == std::string_view::npos) {
      raw(text.substr(pos));
      break;
    }
    raw(text.substr(pos, slash - pos));
    if (slash + 1 >= text.size()) return false;
    const char what = text[slash + 1];
    std::uint32_t value = 0;
    pos = slash + 2;
    if (what == '\\' || what == 'n' || what == 'r' || what == 't') {
      value = static_cast<unsigned char>(what == 'n' ? '\n' : what == 'r' ? '\r' : what == 't' ? '\t' : '\\');
    } else if (what == 'x' && read_hex(text, pos, 2, value)) {
      pos += 2;
    } else if (what == 'U' && wide && read_hex(text, pos, 8, value)) {
      pos += 8;
    } else {
      return false;
    }
    put(value);
  }
  return true;
}

bool parse_dword(std::string_view text, std::uint32_t& value) {
  if (text.empty() || text.size() > 10) return false;
  std::uint64_t n = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<std::uint64_t>(c - '0');
  }
  if (n > 0xFFFFFFFFULL) return false;
  value = static_cast<std::uint32_t>(n);
  return true;
}

}  // namespace

// --- The file ------------------------------------------------------------------------------

namespace {

// One line of the file; false when it cannot be read as a value.
template <class Value, class Kind>
bool parse_line(std::string_view line, std::string& name, Value& value) {
  const std::size_t eq = line.find('=');
  if (eq == std::string_view::npos) return false;
  name = std::string(line.substr(0, eq));
  if (!is_valid_name(name.c_str())) return false;
  const std::string_view rest = line.substr(eq + 1);
  const std::size_t colon = rest.find(':');
  if (colon == std::string_view::npos) return false;
  const std::string_view kind = rest.substr(0, colon);
  const std::string_view text = rest.substr(colon + 1);
  if (kind == "dword") {
    value.kind = Kind::dword;
    return parse_dword(text, value.number);
  }
  if (kind == "text") {
    value.kind = Kind::text;
    return unescape(
        text, false, [&](std::string_view raw) { value.narrow.append(raw); },
        [&](std::uint32_t c) { value.narrow.push_back(static_cast<char>(c)); });
  }
  if (kind == "wtext") {
    value.kind = Kind::wtext;
    return unescape(
        text, true, [&](std::string_view raw) { tk_utf8_decode_append(value.wide, raw); },
        [&](std::uint32_t c) { value.wide.push_back(static_cast<wchar_t>(c)); });
  }
  return false;
}

}  // namespace

tk_reg_key::t_values tk_reg_key::read_file(const std::string& file) {
  t_values values;
  tk_line_reader reader(file, k_max_line_bytes);
  if (!reader.is_open()) {
    if (reader.error() != ENOENT) LOG(2, "Cannot read the settings file %s (error %d)", file, reader.error());
    return values;
  }
  std::string line;
  for (;;) {
    const tk_line_reader::status status = reader.next(line);
    if (status == tk_line_reader::status::end) break;
    if (status == tk_line_reader::status::error) {
      LOG(2, "Cannot read the settings file %s (error %d)", file, reader.error());
      break;
    }
    if (line.empty() || line.front() == '#') continue;
    std::string name;
    t_value value;
    if (reader.too_long() || !tk_is_valid_utf8(line) || !parse_line<t_value, t_kind>(line, name, value)) {
      LOG(2, "Line %d of the settings file %s cannot be read and is skipped", reader.line_number(), file);
      continue;
    }
    values[name] = std::move(value);  // the last of the same name wins
  }
  return values;
}

std::string tk_reg_key::render(const t_values& values) {
  std::string out = k_file_header;
  for (const auto& [name, value] : values) {
    out += name;
    switch (value.kind) {
      case t_kind::dword:
        out += tk_format("=dword:%u", value.number);
        break;
      case t_kind::text:
        out += "=text:" + escape_narrow(value.narrow);
        break;
      case t_kind::wtext:
        out += "=wtext:" + escape_wide(value.wide);
        break;
    }
    out.push_back('\n');
  }
  return out;
}

// --- tk_reg_key ------------------------------------------------------------------------

tk_reg_key::~tk_reg_key() {
  if (!open_) return;
  const std::string file = file_;
  const int error = close();
  if (error != 0) LOG(2, "Cannot write the settings file %s (error %d)", file, error);
}

int tk_reg_key::create(tk_reg_root /*root*/, const std::string& path, std::uint32_t* disposition) {
  if (open_) {
    const std::string old_file = file_;
    if (const int error = close(); error != 0) LOG(2, "Cannot write the settings file %s (error %d)", old_file, error);
  }
  std::vector<std::string> parts;
  if (!split_key_path(path, parts)) return EINVAL;
  std::string dir = tk_get_user_config_path();
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) dir += "/" + parts[i];
  if (const int error = make_folders(dir); error != 0) return error;
  const std::string file = dir + "/" + parts.back() + ".conf";

  struct stat st {};
  const bool exists = ::stat(file.c_str(), &st) == 0;
  if (exists) {
    values_ = read_file(file);
  } else if (const int error = tk_replace_file(file, render({}), 0600); error != 0) {
    return error;
  }
  if (disposition != nullptr) *disposition = exists ? tk_reg_opened_existing_key : tk_reg_created_new_key;
  file_ = file;
  open_ = true;
  return 0;
}

const tk_reg_key::t_value* tk_reg_key::find(const char* name, const char* log_format, int& error) const {
  if (name == nullptr) throw tk_mail_assertion("tk_regk", 40);
  LOG(1, log_format, name);
  error = 0;
  if (!open_) {
    error = EBADF;
    return nullptr;
  }
  const auto it = values_.find(name);
  if (it == values_.end()) {
    error = ENOENT;
    return nullptr;
  }
  return &it->second;
}

int tk_reg_key::get_value(const char* name, std::uint32_t& value) const {
  int error = 0;
  const t_value* found = find(name, "tk_reg_key::get_value(ulong, %s)", error);
  if (found == nullptr) {
    LOG(1, "type=%d, size=%d", tk_reg_type_none, 0);
    return error;
  }
  if (found->kind != t_kind::dword) {
    LOG(1, "type=%d, size=%d", tk_reg_type_text, 0);
    return EINVAL;
  }
  LOG(1, "type=%d, size=%d", tk_reg_type_dword, 4);
  value = found->number;
  return 0;
}

int tk_reg_key::get_value(const char* name, std::string& value) const {
  int error = 0;
  const t_value* found = find(name, "tk_reg_key::get_value(LPSTR, %s)", error);
  if (found == nullptr || found->kind == t_kind::dword) {
    LOG(1, "type=%d, size=%d", found == nullptr ? tk_reg_type_none : tk_reg_type_dword, found == nullptr ? 0 : 4);
    return found == nullptr ? error : EINVAL;
  }
  std::string text = found->kind == t_kind::text ? found->narrow : tk_to_ansi(found->wide);
  LOG(1, "type=%d, size=%d", tk_reg_type_text, static_cast<int>(text.size() + 1));
  value = std::move(text);
  return 0;
}

int tk_reg_key::get_value(const char* name, std::wstring& value) const {
  int error = 0;
  const t_value* found = find(name, "tk_reg_key::get_value(LPWSTR, %s)", error);
  if (found == nullptr || found->kind == t_kind::dword) {
    LOG(1, "type=%d, size=%d", found == nullptr ? tk_reg_type_none : tk_reg_type_dword, found == nullptr ? 0 : 4);
    return found == nullptr ? error : EINVAL;
  }
  std::wstring text = found->kind == t_kind::wtext ? found->wide : tk_ansi_to_wide(found->narrow);
  // The registry counts wide text in UTF-16 units of two bytes.
  std::size_t units = 1;
  for (const wchar_t c : text) units += static_cast<std::uint32_t>(c) > 0xFFFF ? 2 : 1;
  LOG(1, "type=%d, size=%d", tk_reg_type_text, static_cast<int>(units * 2));
  value = std::move(text);
  return 0;
}

void tk_reg_key::put(const char* name, t_value value) {
  if (!open_) throw tk_mail_assertion("tk_regk", 60);
  if (name == nullptr || !is_valid_name(name)) throw tk_mail_assertion("tk_regk", 61);
  values_[name] = std::move(value);
  changed_.insert(name);
}

void tk_reg_key::set_value(const char* name, std::uint32_t value) {
  t_value v;
  v.kind = t_kind::dword;
  v.number = value;
  put(name, std::move(v));
}

void tk_reg_key::set_value(const char* name, const std::string& value) {
  t_value v;
  v.kind = t_kind::text;
  v.narrow = value;
  put(name, std::move(v));
}

void tk_reg_key::set_value(const char* name, const std::wstring& value) {
  t_value v;
  v.kind = t_kind::wtext;
  v.wide = value;
  put(name, std::move(v));
}

int tk_reg_key::flush() {
  if (!open_ || changed_.empty()) return 0;
  t_values merged = read_file(file_);
  for (const std::string& name : changed_) merged[name] = values_[name];
  if (const int error = tk_replace_file(file_, render(merged), 0600); error != 0) return error;
  values_ = std::move(merged);
  changed_.clear();
  return 0;
}

int tk_reg_key::close() {
  const int error = flush();
  open_ = false;
  file_.clear();
  values_.clear();
  changed_.clear();
  return error;
}

// --- Exchange helpers ------------------------------------------------------------------

bool tk_reg_exchange(tk_reg_key& key, const char* name, bool& value, bool store) {
  std::uint8_t byte = value ? 1 : 0;
  if (!tk_reg_exchange(key, name, byte, store)) return false;
  value = byte != 0;
  return true;
}

bool tk_reg_exchange(tk_reg_key& key, const char* name, std::uint8_t& value, bool store) {
  std::uint32_t number = value != 0 ? 1 : 0;
  if (!tk_reg_exchange(key, name, number, store)) return false;
  value = number != 0 ? 1 : 0;
  return true;
}

bool tk_reg_exchange(tk_reg_key& key, const char* name, std::uint32_t& value, bool store) {
  if (!store) return key.get_value(name, value) == 0;
  if (!key.is_open()) return false;
  key.set_value(name, value);
  return true;
}

bool tk_reg_exchange(tk_reg_key& key, const char* name, std::string& value, bool store) {
  if (!store) return key.get_value(name, value) == 0;
  if (!key.is_open()) return false;
  key.set_value(name, value);
  return true;
}

bool tk_reg_exchange(tk_reg_key& key, const char* name, std::wstring& value, bool store) {
  if (!store) return key.get_value(name, value) == 0;
  if (!key.is_open()) return false;
  key.set_value(name, value);
  return true;
}

// --- tk_serializer -------------------------------------------------------------------

tk_serializer::tk_serializer() {
  if (const int error = key_.create(tk_reg_root::current_user, tk_product_reg_path); error != 0) {
    LOG(2, "Cannot open the settings key %s (error %d)", tk_product_reg_path, error);
  }
}

}  // namespace qb
