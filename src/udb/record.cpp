#include "udb/record.h"

#include <stdexcept>

#include "tk/log.h"
#include "tk/strings.h"
#include "udb/names_map.h"

namespace qb {

// --- udb_field ---------------------------------------------------------------------

udb_field::udb_field() { LOG(1, "udb_field::empty ctor"); }

udb_field::udb_field(std::wstring name_, std::uint32_t size_, const ole_variant& value, bool b_auto_num_,
                     bool b_not_null_)
    : ole_variant(value), size(size_), name(std::move(name_)), b_auto_num(b_auto_num_), b_not_null(b_not_null_) {
  LOG(1, "udb_field::ctor #2");
  LOG(1, "name=%s, size=%d", name, size);
}

udb_field::udb_field(const udb_field& that)
    : ole_variant(that), size(that.size), name(that.name), b_auto_num(that.b_auto_num), b_not_null(that.b_not_null) {
  LOG(1, "udb_field::copy ctor");
}

udb_field::udb_field(udb_field&& that) noexcept = default;
udb_field& udb_field::operator=(const udb_field& that) = default;
udb_field& udb_field::operator=(udb_field&& that) noexcept = default;
udb_field::~udb_field() = default;

std::uint16_t udb_field::get_type() const {
  LOG(1, "ole_variant::get_type");
  return ole_variant::get_type();
}

std::uint32_t udb_field::get_length() const {
  const std::uint16_t vt = ole_variant::get_type();
  // Byte arrays are always one-dimensional here, so their element count is
  // the length.
  if (vt == vt_bytes || vt == vt_blob) return static_cast<std::uint32_t>(get_safe_array_size());
  if (vt == vt_bstr) return static_cast<std::uint32_t>(text_view().size());
  return size;
}

// --- udb_record --------------------------------------------------------------------

udb_record::~udb_record() {
  LOG(1, "udb_record::dtor");
  LOG(1, "udb_record::reset");
}

void udb_record::reset() {
  LOG(1, "udb_record::reset");
  fields_.clear();
}

int udb_record::index_of(std::wstring_view name, std::size_t hint) const {
  if (hint < fields_.size() && udb_equal_names(fields_[hint].name, name)) return static_cast<int>(hint);
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    if (udb_equal_names(fields_[i].name, name)) return static_cast<int>(i);
  }
  return -1;
}

const udb_field* udb_record::get_field(std::wstring_view name) const {
  LOG(1, "udb_record::get_field(%s)", name);
  const int i = index_of(name);
  if (i < 0) return nullptr;
  LOG(1, "Field found at pos=%d", i);
  return &fields_[static_cast<std::size_t>(i)];
}

udb_field* udb_record::get_field(std::wstring_view name) {
  return const_cast<udb_field*>(std::as_const(*this).get_field(name));
}

bool udb_record::has_field(std::wstring_view name) const { return index_of(name) >= 0; }

std::uint32_t udb_record::get_total_size() const {
  LOG(1, "udb_record::get_total_size");
  std::uint32_t total = 0;
  for (const udb_field& field : fields_) {
    if (field.ole_variant::get_type() != ole_variant::vt_empty) total += field.get_length();
  }
  return total;
}

udb_field& udb_record::operator[](std::size_t i) {
  if (i >= fields_.size()) throw std::out_of_range("invalid vector subscript");
  return fields_[i];
}

const udb_field& udb_record::operator[](std::size_t i) const {
  if (i >= fields_.size()) throw std::out_of_range("invalid vector subscript");
  return fields_[i];
}

}  // namespace qb
