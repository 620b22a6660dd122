// The failures of value conversions.
//
// ole_cast_exception: a value cannot be converted to the asked type
// (change_type, to_decimal); code 0, continuable.
// ole_type_exception: text cannot be read as a value of the asked type
// because the type is not one that text converts to (from_string); code 1.
//
// Thread-safety: exception objects are values.
#pragma once

#include "tk/exception.h"

namespace qb {

class ole_cast_exception : public tk_exception {
 public:
  ole_cast_exception();
};

class ole_type_exception : public tk_exception {
 public:
  ole_type_exception();
};

}  // namespace qb
