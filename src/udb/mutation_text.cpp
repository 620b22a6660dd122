#include "udb/mutation_text.h"

#include <array>
#include <charconv>
#include <string_view>

#include "tk/log.h"
#include "tk/strings.h"
#include "udb/profile.h"

namespace qb {
namespace {

constexpr std::wstring_view k_database = L"database:";
constexpr std::wstring_view k_tables = L"tables:";
constexpr std::wstring_view k_table = L"  - name:";
constexpr std::wstring_view k_table_new_name = L"    new_name:";
constexpr std::wstring_view k_fields = L"    fields:";
constexpr std::wstring_view k_properties = L"    properties:";
constexpr std::wstring_view k_field = L"      - name:";
constexpr std::wstring_view k_database_indent = L"  ";
constexpr std::wstring_view k_attribute_indent = L"        ";
constexpr std::wstring_view k_deleted = L"deleted";
constexpr std::wstring_view k_changed = L"changed";

// The attributes of a column, in the order they are written and read.
enum class attribute : std::size_t {
  new_name,
  status,
  type,
  default_value,
  character_set,
  length,
  scale,
  precision,
};
constexpr std::array<std::wstring_view, 8> k_attributes = {
    L"        new_name:",      L"        status:", L"        type:",  L"        default_value:",
    L"        character_set:", L"        length:", L"        scale:", L"        precision:",
};

bool starts_with(std::wstring_view line, std::wstring_view prefix) { return line.substr(0, prefix.size()) == prefix; }

// The text behind "key:", without the one blank that the writer puts there.
std::wstring value_after(std::wstring_view line, std::wstring_view prefix) {
  std::wstring_view rest = line.substr(prefix.size());
  if (!rest.empty() && rest.front() == L' ') rest.remove_prefix(1);
  return std::wstring(rest);
}

void skip(std::wstring_view line) { LOG(3, "Skipping %s", line); }

// A "key: value" line split at ":" into exactly two trimmed parts.
bool split_property(std::wstring_view line, std::map<std::wstring, std::wstring>& properties) {
  std::vector<std::wstring> parts;
  tk_wstring::split(line, L':', parts);
  if (parts.size() != 2) return false;
  properties[tk_trim(parts[0])] = tk_trim(parts[1]);
  return true;
}

// A decimal number that fits T; an empty text is 0.
template <class T>
bool read_number(std::wstring_view text, T& out) {
  if (text.empty()) {
    out = 0;
    return true;
  }
  std::string digits;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') return false;
    digits.push_back(static_cast<char>(c));
  }
  T value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size()) return false;
  out = value;
  return true;
}

// Reads the lines after "tables:".
class table_reader {
 public:
  explicit table_reader(udb_mutation_text& tree) : tree_(tree) {}

  void read(std::wstring_view line) {
    if (starts_with(line, k_table)) return open_table(line);
    if (table_ == nullptr) return skip(line);
    if (starts_with(line, k_table_new_name)) {
      table_->new_name = value_after(line, k_table_new_name);
      LOG(2, "tm_new_table_name=%s", table_->new_name);
      block_ = block::none;
      return;
    }
    if (line == k_fields) {
      block_ = block::fields;
      return;
    }
    if (line == k_properties) {
      block_ = block::properties;
      return;
    }
    if (block_ != block::properties && block_ != block::none && starts_with(line, k_field)) return open_field(line);
    if (block_ == block::field && starts_with(line, k_attribute_indent)) return read_attribute(line);
    if (block_ == block::properties && starts_with(line, k_attribute_indent)) {
      if (!split_property(line, table_->properties)) skip(line);
      return;
    }
    skip(line);
  }

 private:
  enum class block { none, fields, field, properties };

  void open_table(std::wstring_view line) {
    const std::wstring name = value_after(line, k_table);
    LOG(2, "Processing '%s'", name);
    table_ = &tree_.tables[name];
    block_ = block::none;
    field_ = nullptr;
  }

  void open_field(std::wstring_view line) {
    // The column name follows the colon with no blank between them.
    field_ = &table_->fields[std::wstring(line.substr(k_field.size()))];
    field_name_ = std::wstring(line.substr(k_field.size()));
    block_ = block::field;
    next_ = 0;
    field_closed_ = false;
  }

  void read_attribute(std::wstring_view line) {
    // After "status: deleted" nothing more of the block belongs to the column.
    if (field_closed_) return skip(line);
    for (std::size_t i = next_; i < k_attributes.size(); ++i) {
      if (!starts_with(line, k_attributes[i])) continue;
      next_ = i + 1;
      set_attribute(static_cast<attribute>(i), value_after(line, k_attributes[i]), line);
      return;
    }
    skip(line);
  }

  void set_attribute(attribute which, std::wstring value, std::wstring_view line) {
    switch (which) {
      case attribute::new_name:
        field_->new_name = std::move(value);
        break;
      case attribute::status:
        field_->deleted = value == k_deleted;
        field_closed_ = field_->deleted;
        if (!field_->deleted && value != k_changed) {
          LOG(3, "Column '%s': the status '%s' is read as \"changed\"", field_name_, value);
        }
        break;
      case attribute::type:
        field_->type = std::move(value);
        break;
      case attribute::default_value:
        field_->default_value = std::move(value);
        break;
      case attribute::character_set:
        field_->character_set = std::move(value);
        break;
      case attribute::length:
        if (!read_number(value, field_->length)) skip(line);
        break;
      case attribute::scale:
        if (!read_number(value, field_->scale)) skip(line);
        break;
      case attribute::precision:
        if (!read_number(value, field_->precision)) skip(line);
        break;
    }
  }

  udb_mutation_text& tree_;
  udb_table_mutation* table_ = nullptr;
  udb_field_mutation* field_ = nullptr;
  std::wstring field_name_;
  block block_ = block::none;
  std::size_t next_ = 0;  // the first attribute a line of the column may still give
  bool field_closed_ = false;
};

}  // namespace

std::vector<std::wstring> udb_mutation_text::section_lines(const udb_profile& profile) {
  const auto section = profile.sections.find(udb_profile_type_mappings);
  if (section == profile.sections.end()) return profile.get_lines(udb_profile_type_mappings);
  // The pairs hold every line in file order: a bare line as (text, ""), a
  // line with "=" split at it. The bare lines, in the same order, tell the
  // two apart where the value is empty.
  const std::vector<std::wstring>& bare = profile.get_lines(udb_profile_type_mappings);
  std::vector<std::wstring> lines;
  std::size_t next_bare = 0;
  for (const auto& [key, value] : section->second) {
    if (value.empty() && next_bare < bare.size() && bare[next_bare] == key) {
      lines.push_back(key);
      ++next_bare;
    } else {
      lines.push_back(key + L"=" + value);
    }
  }
  return lines;
}

udb_mutation_text udb_mutation_text::parse(const std::vector<std::wstring>& lines) {
  udb_mutation_text tree;
  if (lines.empty() || lines.front() != k_database) return tree;
  std::size_t i = 1;
  for (; i < lines.size() && lines[i] != k_tables; ++i) {
    if (!starts_with(lines[i], k_database_indent) || !split_property(lines[i], tree.properties)) skip(lines[i]);
  }
  table_reader reader(tree);
  for (++i; i < lines.size(); ++i) reader.read(lines[i]);
  return tree;
}

std::vector<std::wstring> udb_mutation_text::lines() const {
  std::vector<std::wstring> out;
  out.emplace_back(k_database);
  for (const auto& [key, value] : properties) out.push_back(L"  " + key + L": " + value);
  out.emplace_back(k_tables);
  for (const auto& [name, table] : tables) {
    out.push_back(L"  - name: " + name);
    out.push_back(L"    new_name: " + table.new_name);
    out.emplace_back(k_fields);
    for (const auto& [field_name, field] : table.fields) {
      out.push_back(L"      - name:" + field_name);
      out.push_back(L"        new_name: " + field.new_name);
      out.push_back(std::wstring(L"        status: ") + (field.deleted ? L"deleted" : L"changed"));
      out.push_back(L"        type: " + field.type);
      out.push_back(L"        default_value: " + field.default_value);
      out.push_back(L"        character_set: " + field.character_set);
      out.push_back(L"        length: " + std::to_wstring(field.length));
      out.push_back(L"        scale: " + std::to_wstring(field.scale));
      out.push_back(L"        precision: " + std::to_wstring(field.precision));
    }
    if (table.properties.empty()) continue;
    out.emplace_back(k_properties);
    for (const auto& [key, value] : table.properties) out.push_back(L"        " + key + L": " + value);
  }
  return out;
}

}  // namespace qb
