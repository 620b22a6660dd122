// The tree of the user's changes to tables: one database mutator, one table
// mutator per edited table, one field mutator per edited column.
//
// The user can rename a table, rename or drop columns, and give a column
// another target type, default, character set, length, precision or scale.
// None of this touches the source. The table dialog and the profile's
// section "Type Mappings" fill the tree; the conversion driver applies a
// table's mutator at two moments: to the schema and indexes of the source
// recordset before the destination table is created (modify3, modify1), and
// to every row before it is appended (modify2).
//
// The three levels are templates over what a target calls a type:
//   udb_field_mutator<F, N>     F: the field class of a record, N: the
//                               target's type record (name, default,
//                               character set, size, scale, precision);
//   udb_table_mutator<FM>       FM: the field mutator;
//   udb_db_mutator<TM, MAP, TYP> TM: the table mutator; MAP and TYP: the
//                               file names of the target's type-map lists.
// A target instantiates them once (sql/mutator.h) and specialises
// udb_native_type_rules<N>, which tells the templates how its type record
// becomes a column type text, which value tag a type name stands for, and how
// a column is described as a type record.
//
// Every level is a udb_properties: slot 1 (get_properties) gives its
// property map; slots 2 and 3 find a child by source and by target name (a
// table of the database, a field of a table; a field has no children).
// Map keys order by wide-character value, so every lookup is case-sensitive.
//
// Ownership: the database mutator owns its table mutators, a table mutator
// its field mutators; lookups return pointers valid while the tree lives (a
// mutator, once made, is never removed). A schema or record handed to a
// mutator stays the caller's; a record that modify2 returns belongs to the
// table mutator and is valid until its next modify2.
// Thread-safety: none. The wizard's thread fills the tree; during a run only
// the worker reads it, and the wizard cannot edit meanwhile.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/yaml_config.h"
#include "udb/indexes.h"
#include "udb/mutation_text.h"
#include "udb/profile.h"
#include "udb/properties.h"
#include "udb/record.h"
#include "udb/schema.h"

namespace qb {

// status of a field mutator.
inline constexpr std::uint32_t udb_field_changed = 1;
inline constexpr std::uint32_t udb_field_deleted = 2;
// vartype of a field mutator that keeps the column's own value tag.
inline constexpr std::uint16_t udb_keep_vartype = 1;

// The failure of a value that cannot take the type the user chose.
inline constexpr char udb_mapping_conversion_failed[] = "Data conversion is not supported for given type mapping";

// What a target tells the mutators about its type record N. A target
// specialises it with:
//   static std::wstring text(const N& type);
//       the column type text the record stands for ("VARCHAR(50)");
//   static std::uint16_t vartype_of(const std::wstring& name);
//       the value tag of a type name; udb_keep_vartype for a name the target
//       does not know;
//   static void describe(t_ftd& column, N& out);
//       the column as the target would create it, as a type record; the
//       column's native_type becomes that record's text.
template <class N>
struct udb_native_type_rules;

// Which attribute fields a target type takes, from its words in the list of
// attributes ("sql.typ"): a word that holds "LENGTH", "SCALE" or
// "PRECISION" anywhere.
struct udb_type_attributes {
  bool length = false;
  bool scale = false;
  bool precision = false;

  friend bool operator==(const udb_type_attributes&, const udb_type_attributes&) = default;
};
udb_type_attributes udb_attributes_of(const std::vector<std::wstring>& words);

// The process-wide list file of that name, read into a map from a type name
// to its list on first need (when the map is empty) from the current
// directory. Logs "Gonna load typesmap.cfg" before reading the file of type
// names (`logged_as_types_map`) and "types_map.size=%d" after. A file that
// cannot be opened throws tk_exception_ex, shown as it stands: "Cannot find
// <file>. Custom type mapping is not available."; a line too long or not
// UTF-8 throws tk_exception naming the file and the line. The maps stay until
// the end of the program or udb_forget_type_maps.
tk_yaml_config::t_map& udb_type_map(const char* file, bool logged_as_types_map, const std::set<std::wstring>& filter);
// Empties every process-wide list, so that the next use reads the files
// again.
void udb_forget_type_maps();
// The filter of the type names: a process-wide empty set.
const std::set<std::wstring>& udb_type_filter();

// --- Field level ----------------------------------------------------------------------

template <class F, class N>
class udb_field_mutator : public udb_properties {
 public:
  using field_type = F;
  using native_type_t = N;
  using rules = udb_native_type_rules<N>;

  udb_field_mutator() = default;

  std::wstring new_name;                     // target column name
  std::uint16_t vartype = udb_keep_vartype;  // target value tag; 1 keeps the column's own
  std::uint32_t dw_reserved = 0;             // value for t_ftd::dw_reserved
  N native_type;                             // target type
  std::uint32_t status = udb_field_changed;

  [[nodiscard]] bool is_deleted() const { return status == udb_field_deleted; }

  // Rebuilds the map from the fields and returns it: "new_name", "type",
  // "default_value", "character_set", and when not 0 "length", "scale",
  // "precision".
  property_map& get_properties() override {
    properties_.clear();
    properties_[L"new_name"] = new_name;
    properties_[L"type"] = native_type.name;
    properties_[L"default_value"] = native_type.default_value;
    properties_[L"character_set"] = native_type.character_set;
    if (native_type.size != 0) properties_[L"length"] = std::to_wstring(native_type.size);
    if (native_type.scale != 0) properties_[L"scale"] = std::to_wstring(native_type.scale);
    if (native_type.precision != 0) properties_[L"precision"] = std::to_wstring(native_type.precision);
    return properties_;
  }
  // A field has no children.
  udb_properties* find_by_source_name(const std::wstring& /*name*/) override { return nullptr; }
  udb_properties* find_by_target_name(const std::wstring& /*name*/) override { return nullptr; }

  // A copy of the column whose native_type is the text of this mutator's
  // type; null for a null column.
  [[nodiscard]] virtual std::unique_ptr<t_ftd> create_modified_copy(const t_ftd* column) const {
    if (column == nullptr) return nullptr;
    auto copy = std::make_unique<t_ftd>(*column);
    copy->native_type = rules::text(native_type);
    return copy;
  }

  // Applies the change to a column descriptor: name, value tag, type text,
  // size, sub-type word, default, and precision and scale when either is set.
  void modify1(t_ftd& column) const {
    LOG(1, "udb_field_mutator::modify1");
    if (!new_name.empty()) column.name = new_name;
    if (vartype != udb_keep_vartype) column.vartype = vartype;
    column.native_type = rules::text(native_type);
    LOG(1, "\tf.native_type=%s", column.native_type);
    column.size = narrow_size(native_type.size);
    LOG(1, "\tf.size=%d", column.size);
    LOG(1, "\told dw_reserved=%d, new dw_reserved=%d", column.dw_reserved, dw_reserved);
    column.dw_reserved = dw_reserved;
    column.def_value = native_type.default_value.empty() ? ole_variant() : ole_variant(native_type.default_value);
    if (native_type.precision != 0 || native_type.scale != 0) {
      LOG(1, "Setting new prec/scale: (%d,%d)", native_type.precision, native_type.scale);
      column.prec = native_type.precision;
      column.scale = native_type.scale;
    }
  }

  // Applies the change to a value: the new name, the value converted to the
  // new tag (unless the tag is kept), the new size. A value that cannot be
  // converted throws tk_exception_ex "Data conversion is not supported for
  // given type mapping".
  void modify2(F& field) const {
    LOG(1, "udb_field_mutator::modify2");
    if (!new_name.empty()) field.name = new_name;
    if (vartype != udb_keep_vartype) {
      try {
        field.change_type(vartype);
      } catch (const tk_exception& e) {
        LOG(2, "Value of '%s' cannot become type %d: %s", field.name, vartype, e.what());
        throw tk_exception_ex::user_message(udb_mapping_conversion_failed);
      }
    }
    field.size = narrow_size(native_type.size);
  }

 private:
  static std::uint32_t narrow_size(std::uint64_t size) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(size, std::numeric_limits<std::uint32_t>::max()));
  }
};

// --- Table level ----------------------------------------------------------------------

template <class FM>
class udb_table_mutator : public udb_properties {
 public:
  using field_mutator = FM;
  using native_type_t = typename FM::native_type_t;
  using field_map = std::map<std::wstring, std::unique_ptr<FM>>;
  using field_index = std::map<std::wstring, FM*>;

  // Logs "udb_table_mutator::ctor(%s)" with the target name.
  explicit udb_table_mutator(std::wstring new_name) : new_name_(std::move(new_name)) {
    LOG(1, "udb_table_mutator::ctor(%s)", new_name_);
  }

  // The field mutator of that source column name, or null.
  udb_properties* find_by_source_name(const std::wstring& name) override { return get_field_mutator(name); }
  // The field mutator of that target column name, or null.
  udb_properties* find_by_target_name(const std::wstring& name) override {
    const auto it = fields_by_new_.find(name);
    return it == fields_by_new_.end() ? nullptr : it->second;
  }

  [[nodiscard]] FM* get_field_mutator(const std::wstring& source_name) const {
    const auto it = fields_by_old_.find(source_name);
    return it == fields_by_old_.end() ? nullptr : it->second.get();
  }

  // The row as the destination must receive it. Logs
  // "udb_table_mutator::modify2()". Without field mutators, the record
  // itself; otherwise a copy owned here (valid until the next call) without
  // the dropped columns and with the changed ones renamed and converted. A
  // value that cannot take its new type throws.
  virtual udb_record* modify2(udb_record& record) {
    LOG(1, "udb_table_mutator::modify2()");
    if (fields_by_old_.empty()) return &record;
    udb_record* copy = create_modified_copy1(record);
    LOG(1, "udb_table_mutator::modify2 - END");
    return copy;
  }

  // Applies the column changes to the schema in place and gives the target
  // table name in name. Logs "udb_table_mutator::modify1()" and "returning
  // new_name=%s".
  virtual void modify1(std::wstring& name, udb_schema& schema) {
    LOG(2, "udb_table_mutator::modify1()");
    if (!fields_by_old_.empty()) {
      warn_unknown_columns(schema);
      create_modified_copy2(schema);
      schema.assign_fields(schema_copy_);
      // The lookup uses each name as it stands now: still the source name.
      for (t_ftd& column : schema) {
        const FM* field = get_field_mutator(column.name);
        if (field != nullptr && field->status == udb_field_changed) field->modify1(column);
      }
    }
    LOG(2, "returning new_name=%s", new_name_);
    name = new_name_;
  }

  // Takes the dropped columns out of every index and gives the changed ones
  // their new name. An index may end with no column; it stays in the list.
  // Logs "udb_table_mutator::modify3()".
  void modify3(udb_indexes& indexes) const {
    LOG(2, "udb_table_mutator::modify3()");
    for (udb_index& index : indexes) {
      std::vector<std::wstring> kept;
      kept.reserve(index.fields.size());
      for (const std::wstring& column : index.fields) {
        const FM* field = get_field_mutator(column);
        if (field == nullptr || !field->is_deleted()) kept.push_back(column);
      }
      for (std::wstring& column : kept) {
        const FM* field = get_field_mutator(column);
        if (field != nullptr && !field->new_name.empty()) column = field->new_name;
      }
      index.fields = std::move(kept);
    }
  }

  // Finds or makes the field mutator of the source column old_name, enters it
  // under new_name if that target name is new, and gives it the new name,
  // the type and the value tag of the type's name. Logs
  // "udb_table_mutator::update_field(old_name=%s,new_name=%s,native_type=%s,length=%d)".
  FM* update_field(const std::wstring& old_name, const std::wstring& new_name, const native_type_t& native_type) {
    LOG(1, "udb_table_mutator::update_field(old_name=%s,new_name=%s,native_type=%s,length=%d)", old_name, new_name,
        native_type.name, static_cast<std::uint32_t>(native_type.size));
    std::unique_ptr<FM>& slot = fields_by_old_[old_name];
    if (slot == nullptr) {
      slot = std::make_unique<FM>();
      slot->status = udb_field_changed;
    }
    FM* field = slot.get();
    fields_by_new_.try_emplace(new_name, field);
    field->vartype = FM::rules::vartype_of(native_type.name);
    if (field->vartype == udb_keep_vartype && !native_type.name.empty()) {
      LOG(3, "Column '%s': '%s' is not a type name the target knows; the column keeps its value type", old_name,
          native_type.name);
    }
    field->new_name = new_name;
    field->native_type = native_type;
    return field;
  }

  // True when at least one column has a change.
  [[nodiscard]] bool has_field_mutators() const { return !fields_by_old_.empty(); }

  [[nodiscard]] const std::wstring& new_name() const { return new_name_; }
  // Logs "udb_table_mutator::set_new_name(%s)".
  void set_new_name(std::wstring name) {
    LOG(1, "udb_table_mutator::set_new_name(%s)", name);
    new_name_ = std::move(name);
  }

  [[nodiscard]] const field_map& fields_by_old() const { return fields_by_old_; }
  [[nodiscard]] const field_index& fields_by_new() const { return fields_by_new_; }
  [[nodiscard]] const udb_properties::property_map& properties() const { return properties_; }
  udb_properties::property_map& mutable_properties() { return properties_; }

 private:
  // schema_copy: the source schema without the dropped columns, each changed
  // column with the type text of its mutator.
  void create_modified_copy2(const udb_schema& schema) {
    LOG(1, "create_modified_copy2");
    schema_copy_.reset();
    schema_copy_.set_owner(schema.b_owner());
    schema_copy_.set_words(schema.word1(), schema.word2());
    for (const t_ftd& column : schema) {
      const FM* field = get_field_mutator(column.name);
      if (field == nullptr) {
        schema_copy_.push_back(column);
      } else if (!field->is_deleted()) {
        schema_copy_.push_back(*field->create_modified_copy(&column));
      }
    }
    LOG(1, "create_modified_copy2 - END");
  }

  // fields_copy: the record without the dropped columns, each changed field
  // renamed and converted. The fields of the last row are overwritten in
  // place, so a row costs one map lookup per field and no new list.
  udb_record* create_modified_copy1(const udb_record& record) {
    LOG(1, "create_modified_copy1");
    std::size_t n = 0;
    LOG(1, "create_modified_copy1 - 1");
    for (const udb_field& source : record) {
      const FM* field = get_field_mutator(source.name);
      if (field != nullptr && field->is_deleted()) continue;
      if (n < fields_copy_.size()) {
        fields_copy_[n] = source;
      } else {
        fields_copy_.push_back(source);
      }
      if (field != nullptr) field->modify2(fields_copy_[n]);
      ++n;
    }
    LOG(1, "create_modified_copy1 - 2");
    if (fields_copy_.size() > n) fields_copy_.resize(n);
    LOG(1, "create_modified_copy1 - END");
    return &fields_copy_;
  }

  // A column the mutator names but the table does not have is left alone;
  // the user is told, since a name in another letter case matches nothing.
  void warn_unknown_columns(const udb_schema& schema) const {
    for (const auto& [name, field] : fields_by_old_) {
      const bool present = std::any_of(schema.begin(), schema.end(), [&](const t_ftd& c) { return c.name == name; });
      if (!present) LOG(3, "Table '%s': the column '%s' of the type mappings is not in the table", new_name_, name);
    }
  }

  field_map fields_by_old_;
  field_index fields_by_new_;
  udb_record fields_copy_;
  udb_schema schema_copy_{false};
  std::wstring new_name_;
};

// --- Database level -------------------------------------------------------------------

template <class TM, const char* MAP, const char* TYP>
class udb_db_mutator : public udb_properties {
 public:
  using table_mutator = TM;
  using field_mutator = typename TM::field_mutator;
  using native_type_t = typename field_mutator::native_type_t;
  using rules = udb_native_type_rules<native_type_t>;
  using table_map = std::map<std::wstring, std::unique_ptr<TM>>;
  using table_index = std::map<std::wstring, TM*>;

  udb_db_mutator() = default;

  // Slot 2: get_table_mutator3.
  udb_properties* find_by_source_name(const std::wstring& name) override { return get_table_mutator3(name); }
  // Slot 3: the table mutator of that target name, or null.
  udb_properties* find_by_target_name(const std::wstring& name) override {
    const auto it = tables_by_new_.find(name);
    return it == tables_by_new_.end() ? nullptr : it->second;
  }

  // The table mutator of the source table of exactly that name, or null.
  // Logs "get_table_mutator3(%s)".
  TM* get_table_mutator3(const std::wstring& name) const {
    LOG(1, "get_table_mutator3(%s)", name);
    const auto it = tables_by_old_.find(name);
    return it == tables_by_old_.end() ? nullptr : it->second.get();
  }

  // Finds the table mutator of the source table name and gives it the new
  // name, or makes one under both names. A renamed table stays findable
  // under its earlier target name too. Logs "get_table_mutator2(%s,%s)".
  TM* get_table_mutator2(const std::wstring& name, const std::wstring& new_name) {
    LOG(1, "get_table_mutator2(%s,%s)", name, new_name);
    std::unique_ptr<TM>& slot = tables_by_old_[name];
    if (slot != nullptr) {
      slot->set_new_name(new_name);
    } else {
      slot = std::make_unique<TM>(new_name);
    }
    tables_by_new_.try_emplace(new_name, slot.get());
    return slot.get();
  }

  // Slot 4: the column as the target would create it, as a type record, for
  // the table dialog; the column's native_type becomes its text.
  virtual void get_native_type(t_ftd& column, native_type_t& out) const { rules::describe(column, out); }
  // Slot 5: the filter of the type-map lists, which is empty.
  [[nodiscard]] virtual const std::set<std::wstring>& get_filter() const { return udb_type_filter(); }

  // Adds the changes of the profile's section "Type Mappings" (see
  // udb/mutation_text.h) to the tree: each table through
  // get_table_mutator2, each column through update_field, an empty new name
  // standing for the old one; then its status and the properties. Logs
  // "udb_db_mutator::load". Returns true; a malformed text is skipped line
  // by line and never fails.
  bool load(const udb_profile& profile) {
    LOG(2, "udb_db_mutator::load");
    const udb_mutation_text text = udb_mutation_text::parse(udb_mutation_text::section_lines(profile));
    for (const auto& [key, value] : text.properties) properties_[key] = value;
    for (const auto& [name, table] : text.tables) {
      TM* mutator = get_table_mutator2(name, table.new_name.empty() ? name : table.new_name);
      for (const auto& [field_name, field] : table.fields) {
        native_type_t type{};
        type.name = field.type;
        type.default_value = field.default_value;
        type.character_set = field.character_set;
        type.size = field.length;
        type.scale = field.scale;
        type.precision = field.precision;
        field_mutator* change =
            mutator->update_field(field_name, field.new_name.empty() ? field_name : field.new_name, type);
        change->status = field.deleted ? udb_field_deleted : udb_field_changed;
      }
      for (const auto& [key, value] : table.properties) mutator->mutable_properties()[key] = value;
    }
    return true;
  }

  // Writes the tree as bare lines of section "Type Mappings". Logs its first
  // line, "database:".
  void serialize(udb_profile& profile) const {
    LOG(2, "database:");
    for (const std::wstring& line : to_text().lines()) profile.add_line(udb_profile_type_mappings, line);
  }

  // The tree as a mutation text.
  [[nodiscard]] udb_mutation_text to_text() const {
    udb_mutation_text text;
    text.properties = properties_;
    for (const auto& [name, table] : tables_by_old_) {
      udb_table_mutation& out = text.tables[name];
      out.new_name = table->new_name();
      out.properties = table->properties();
      for (const auto& [field_name, field] : table->fields_by_old()) {
        udb_field_mutation& f = out.fields[field_name];
        f.new_name = field->new_name;
        f.deleted = field->is_deleted();
        f.type = field->native_type.name;
        f.default_value = field->native_type.default_value;
        f.character_set = field->native_type.character_set;
        f.length = field->native_type.size;
        f.scale = field->native_type.scale;
        f.precision = field->native_type.precision;
      }
    }
    return text;
  }

  // --- The type-map lists ------------------------------------------------------------

  static const char* get_map_file() { return MAP; }
  static const char* get_typ_file() { return TYP; }

  // The types a column of that target type may become, from the list file
  // MAP, read on first need. Logs "udb_db_mutator<F>::get_mapped_types(%s)".
  // An unknown type gives an empty list, which is entered in the map. The
  // lists returned here and by get_type_words stay valid until
  // udb_forget_type_maps.
  static const std::vector<std::wstring>& get_mapped_types(const std::wstring& type) {
    LOG(1, "udb_db_mutator<F>::get_mapped_types(%s)", type);
    return udb_type_map(MAP, true, udb_type_filter())[type];
  }
  // The attribute words of that target type, from the list file TYP, read on
  // first need with no filter.
  static const std::vector<std::wstring>& get_type_words(const std::wstring& type) {
    static const std::set<std::wstring> no_filter;
    return udb_type_map(TYP, false, no_filter)[type];
  }
  // Which of length, scale and precision that target type takes.
  static udb_type_attributes get_type_attributes(const std::wstring& type) {
    return udb_attributes_of(get_type_words(type));
  }

  [[nodiscard]] const table_map& tables_by_old() const { return tables_by_old_; }
  [[nodiscard]] const table_index& tables_by_new() const { return tables_by_new_; }
  // Kept empty: no rule of the program fills it.
  [[nodiscard]] const std::map<std::wstring, std::wstring>& column_maps() const { return column_maps_; }
  udb_properties::property_map& mutable_properties() { return properties_; }

 private:
  table_map tables_by_old_;
  table_index tables_by_new_;
  std::map<std::wstring, std::wstring> column_maps_;
};

}  // namespace qb
