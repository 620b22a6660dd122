// ole_guid_extractor: recognises a GUID inside a text value.
//
// Text values that are GUIDs are written to MySQL as plain GUID strings. The
// extractor accepts three shapes: the bare 36 characters
// ("01234567-89ab-cdef-0123-456789abcdef", only the alphabet is checked, not
// the places of the dashes), the same in braces (38 characters), and a text of
// 37 to 45 characters that holds "guid" or "GUID" followed by a braced GUID.
//
// Readers keep the old behaviour exactly: after the braced form `pos` stands
// on the closing brace, so the canonical readers give "}" until
// get_guid_wstr() has run (which moves `pos` to 0 for a 38-character text).
//
// A plain value; one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

class ole_guid_extractor {
 public:
  explicit ole_guid_extractor(std::wstring_view text);
  // Narrow text in the system code page.
  explicit ole_guid_extractor(std::string_view text);

  [[nodiscard]] bool is_valid() const { return valid_; }
  // The 32 hexadecimal digits without dashes or braces; empty when invalid.
  // Changes `pos` for the braced form (see above).
  std::wstring get_guid_wstr();
  // The 16 bytes in GUID memory order (first three groups byte-reversed).
  // An internal error when the digits are not 32 hexadecimal pairs, as for a
  // text made only of dashes.
  void get_bytes(std::array<std::uint8_t, 16>& out);
  // The canonical text: the trimmed text when it has 36 characters or fewer,
  // else at most 36 characters from `pos`; empty when invalid.
  [[nodiscard]] std::string to_string() const;
  [[nodiscard]] std::wstring to_wstring() const;

  [[nodiscard]] int pos() const { return pos_; }

 private:
  void check(std::wstring_view text);

  int pos_ = -1;
  std::wstring src_;
  bool valid_ = false;
};

}  // namespace qb
