#include "udb/mutator.h"

namespace qb {

udb_table_mutator::~udb_table_mutator() = default;

udb_table_mutators::~udb_table_mutators() = default;

}  // namespace qb
