// Result codes of the value conversions.
//
// The conversions between value types report the way the automation layer of
// the source platform does: a 32-bit code that is 0 on success and negative on
// failure. The codes are kept because they appear in log lines ("%08X").
//
// Thread-safety: constants only.
#pragma once

#include <cstdint>

namespace qb {

using ole_hresult = std::int32_t;

inline constexpr ole_hresult ole_s_ok = 0;
// The value does not fit the target type.
inline constexpr ole_hresult ole_e_overflow = static_cast<ole_hresult>(0x8002000AU);
// The text is not a value of the target type.
inline constexpr ole_hresult ole_e_type_mismatch = static_cast<ole_hresult>(0x80020005U);
// The source or target tag is not a value type the conversion knows.
inline constexpr ole_hresult ole_e_bad_var_type = static_cast<ole_hresult>(0x80020008U);

inline constexpr bool ole_failed(ole_hresult hr) { return hr < 0; }

}  // namespace qb
