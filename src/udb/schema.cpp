#include "udb/schema.h"

#include <stdexcept>
#include <utility>

#include "tk/log.h"
#include "tk/strings.h"
#include "udb/names_map.h"

namespace qb {

namespace {

// Value tags as the column descriptors carry them.
constexpr std::uint16_t vt_i2 = ole_variant::vt_i2;
constexpr std::uint16_t vt_i4 = ole_variant::vt_i4;
constexpr std::uint16_t vt_r4 = ole_variant::vt_r4;
constexpr std::uint16_t vt_r8 = ole_variant::vt_r8;
constexpr std::uint16_t vt_cy = ole_variant::vt_cy;
constexpr std::uint16_t vt_date = ole_variant::vt_date;
constexpr std::uint16_t vt_bstr = ole_variant::vt_bstr;
constexpr std::uint16_t vt_bool = ole_variant::vt_bool;
constexpr std::uint16_t vt_decimal = ole_variant::vt_decimal;
constexpr std::uint16_t vt_i1 = ole_variant::vt_i1;
constexpr std::uint16_t vt_ui1 = ole_variant::vt_ui1;
constexpr std::uint16_t vt_ui2 = ole_variant::vt_ui2;
constexpr std::uint16_t vt_ui4 = ole_variant::vt_ui4;
constexpr std::uint16_t vt_i8 = ole_variant::vt_i8;
constexpr std::uint16_t vt_ui8 = ole_variant::vt_ui8;
constexpr std::uint16_t vt_int = ole_variant::vt_int;
constexpr std::uint16_t vt_uint = ole_variant::vt_uint;
constexpr std::uint16_t vt_lpstr = ole_variant::vt_lpstr;
constexpr std::uint16_t vt_lpwstr = ole_variant::vt_lpwstr;

// The length of a date and time in text form, "yyyy-mm-dd hh:mm:ss".
constexpr std::uint32_t date_text_length = 19;
// A text destination at least this long takes text of any length.
constexpr std::uint32_t long_text_size = 65535;

bool is_number_destination(std::uint16_t vt) {
  switch (vt) {
    case vt_i2:
    case vt_i4:
    case vt_r4:
    case vt_r8:
    case vt_cy:
    case vt_bool:
    case vt_decimal:
    case vt_i1:
    case vt_ui1:
    case vt_ui2:
    case vt_ui4:
    case vt_i8:
    case vt_ui8:
    case vt_int:
    case vt_uint:
      return true;
    default:
      return false;
  }
}

// The numbers a number destination accepts. VT_INT and VT_UINT are not among
// them as sources, though they are accepted as destinations.
bool is_number_source(std::uint16_t vt) { return is_number_destination(vt) && vt != vt_int && vt != vt_uint; }

bool is_text(std::uint16_t vt) { return vt == vt_bstr || vt == vt_lpstr || vt == vt_lpwstr; }

bool is_binary(std::uint16_t vt) { return ole_variant::is_binary_type(vt); }

}  // namespace

// --- t_ftd -------------------------------------------------------------------------

t_ftd::t_ftd(std::uint32_t size_, std::wstring name_, std::uint16_t vartype_, bool b_not_null_, bool b_auto_num_,
             ole_variant def_value_, std::uint32_t dw_reserved_, std::wstring native_type_)
    : size(size_),
      name(std::move(name_)),
      vartype(vartype_),
      native_type(std::move(native_type_)),
      b_auto_num(b_auto_num_),
      b_not_null(b_not_null_),
      def_value(std::move(def_value_)),
      dw_reserved(dw_reserved_) {
  LOG(1, "t_ftd::ctor2");
  LOG(1, "\tfield name='%s', vartype=%d, size=%d, b_not_null=%d, reserved=%d", name, vartype, size, b_not_null,
      dw_reserved);
}

bool t_ftd::operator==(const t_ftd& that) const {
  if ((vartype == vt_decimal && that.vartype == vt_cy) || (vartype == vt_cy && that.vartype == vt_decimal)) {
    return true;
  }
  if (vartype != that.vartype) return false;
  return vartype != vt_bstr || size == that.size;
}

bool t_ftd::conform_to(const t_ftd& that) const {
  LOG(1, "t_ftd::conform_to");
  if (*this == that) {
    LOG(1, "Src and dest columns are identical");
    return true;
  }
  LOG(1, "that.type=%d", that.vartype);
  const std::uint16_t dest = that.vartype;
  if (is_number_destination(dest)) return is_number_source(vartype);
  if (dest == vt_date) {
    LOG(1, "Processing VT_DATE, size=%d", size);
    return vartype == vt_date || (vartype == vt_bstr && size == date_text_length);
  }
  if (is_text(dest)) {
    if (is_text(vartype)) {
      LOG(1, "Src and dest columns are both text");
      return that.size == 0 || that.size >= size || that.size >= long_text_size;
    }
    return !is_binary(vartype);
  }
  if (is_binary(dest)) {
    if (!is_text(vartype) && !is_binary(vartype)) return true;
    LOG(1, "Src is BLOB and dest is TEXT");
    return that.size == 0 || that.size >= size;
  }
  return false;
}

// --- udb_schema --------------------------------------------------------------------

int udb_schema::index_of(std::wstring_view name, std::size_t hint) const {
  if (hint < fields_.size() && udb_equal_names(fields_[hint].name, name)) return static_cast<int>(hint);
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    if (udb_equal_names(fields_[i].name, name)) return static_cast<int>(i);
  }
  return -1;
}

bool udb_schema::find_field(std::wstring_view name) const {
  LOG(1, "udb_schema::find_field(%s)", name);
  LOG(1, "Schema size=%d", static_cast<int>(fields_.size()));
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    LOG(1, "Iterating field #%d", static_cast<int>(i));
    LOG(1, "Compare with field: '%s'", fields_[i].name);
    if (tk_equal_no_case(fields_[i].name, name)) {
      LOG(1, "Field found!!!");
      return true;
    }
  }
  LOG(1, "Field NOT found!!!");
  return false;
}

const t_ftd& udb_schema::lookup(const char* label, std::wstring_view name) const {
  LOG(1, label, name);
  const int i = index_of(name);
  if (i >= 0) return fields_[static_cast<std::size_t>(i)];
  LOG(2, "Field '%s' not found", name);
  absent_ = t_ftd(0, std::wstring(), 0, false, false, ole_variant(), 0, std::wstring());
  return absent_;
}

t_ftd& udb_schema::get_field1(std::wstring_view name) {
  return const_cast<t_ftd&>(lookup("udb_schema::get_field1(%s)", name));
}

const t_ftd& udb_schema::get_field1(std::wstring_view name) const { return lookup("udb_schema::get_field1(%s)", name); }

t_ftd& udb_schema::get_field2(std::wstring_view name) {
  return const_cast<t_ftd&>(lookup("udb_schema::get_field2(%s)", name));
}

const t_ftd& udb_schema::get_field2(std::wstring_view name) const { return lookup("udb_schema::get_field2(%s)", name); }

int udb_schema::get_field_idx(std::wstring_view name) const {
  LOG(1, "udb_schema::get_field_idx(%s)", name);
  return index_of(name);
}

std::uint32_t udb_schema::get_field_size(std::wstring_view name) const {
  const int i = index_of(name);
  return i < 0 ? 0 : fields_[static_cast<std::size_t>(i)].size;
}

std::uint16_t udb_schema::get_field_type(std::wstring_view name) const {
  const int i = index_of(name);
  return i < 0 ? std::uint16_t{0} : fields_[static_cast<std::size_t>(i)].vartype;
}

bool udb_schema::conform_to(const udb_schema& that, bool by_name) const {
  LOG(2, "udb_schema::conform_to");
  if (fields_.size() != that.fields_.size()) {
    LOG(2, "Tables are not conformed: src_size=%d, dest_size=%d", static_cast<int>(fields_.size()),
        static_cast<int>(that.fields_.size()));
    return false;
  }
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    const t_ftd& src = fields_[i];
    const t_ftd* dest = &that.fields_[i];
    if (by_name) {
      if (!that.find_field(src.name)) {
        LOG(2, "Field '%s' is not found in record", src.name);
        return false;
      }
      dest = &that.get_field2(src.name);
    }
    if (!src.conform_to(*dest)) {
      LOG(2, "Column #%d doesn't conform (src_vt=%d, src_size=%d, dest_vt=%d, dest_size=%d)", static_cast<int>(i + 1),
          src.vartype, src.size, dest->vartype, dest->size);
      return false;
    }
  }
  return true;
}

void udb_schema::reset() {
  LOG(1, "udb_schema::reset");
  fields_.clear();
  LOG(1, "udb_schema::reset - END");
}

void udb_schema::assign_fields(const udb_schema& from) {
  fields_ = from.fields_;
  b_owner_ = from.b_owner_;
  word1_ = from.word1_;
  word2_ = from.word2_;
}

t_ftd& udb_schema::operator[](std::size_t i) {
  if (i >= fields_.size()) throw std::out_of_range("invalid vector subscript");
  return fields_[i];
}

const t_ftd& udb_schema::operator[](std::size_t i) const {
  if (i >= fields_.size()) throw std::out_of_range("invalid vector subscript");
  return fields_[i];
}

}  // namespace qb
