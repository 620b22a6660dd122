// The maker's support contact, named in error messages and bug reports.
//
// Thread-safety: constants.
#pragma once

namespace qb {

inline constexpr char tk_support_address[] = "support@varnholt.com";
inline constexpr char tk_support_name[] = "Varnholt Support";

}  // namespace qb
