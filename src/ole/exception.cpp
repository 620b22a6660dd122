#include "ole/exception.h"

namespace qb {

ole_cast_exception::ole_cast_exception() : tk_exception("Cannot cast from source type to destination type", 0) {
  set_code(0);
}

ole_type_exception::ole_type_exception() : tk_exception("The operating type is not supported yet", 0) { set_code(1); }

}  // namespace qb
