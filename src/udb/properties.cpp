#include "udb/properties.h"

namespace qb {

udb_properties::~udb_properties() = default;

udb_properties::property_map& udb_properties::get_properties() { return properties_; }

}  // namespace qb
