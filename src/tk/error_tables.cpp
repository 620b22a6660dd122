#include "tk/error_tables.h"

#include <string_view>

#include "tk/support.h"

// The texts are string literals joined at compile time; the address must be
// the one of tk/support.h.
#define QB_SUPPORT "support@varnholt.com"
static_assert(std::string_view(QB_SUPPORT) == std::string_view(qb::tk_support_address));

namespace qb {

const std::array<tk_error_row, 27> tk_source_errors = {{
    {0x80E03, "Given values violate the database schema."},
    {0x80E07, "Literal value could not be converted to the correct type.Contact to " QB_SUPPORT " for the solution."},
    {0x80E09,
     "You are not allowed to access MS SQL database. Ask your\nsystem administrator to grant you necessary "
     "privileges."},
    {0x80E11, "Invalid column ID. Contact to " QB_SUPPORT " for the solution."},
    {0x80E13, "Invalid value. Contact to " QB_SUPPORT " for the solution."},
    {0x80E17, "Data source with the specified name already exists."},
    {0x80E1D, "Requested conversion is not supported."},
    {0x80E21, "Errors occurred. Contact to " QB_SUPPORT " for the solution."},
    {0x80E2F,
     "The specified record violates the integrity constraints.\nSee 'Troubleshooting' article of the product "
     "documentation\nfor solution."},
    {0x80E30, "The given type name is unrecognized."},
    {0x80E34, "The specified index already exists."},
    {0x80E35, "The specified index does not exist."},
    {0x80E37, "The specified table does not exist."},
    {0x80E3A, "The specified precision is invalid."},
    {0x80E3B, "The specified scale is invalid."},
    {0x80E3C, "Invalid table ID. Contact to " QB_SUPPORT " for the solution."},
    {0x80E3D, "The specified type is invalid."},
    {0x80E3E, "The column ID is occurred more than once in the specification."},
    {0x80E3F,
     "The specified table already exists. Try to connect as database owner\nusing the appropriate checkbox on "
     "'Connect to MS SQL server' wizard page."},
    {0x80E42, "The specified record number is invalid."},
    {0x80E4D, "Invalid user name or password."},
    {0x80E55, "The specified column did not exist."},
    {0x80E57, "Literal value overflowed the range of the type of the associated column.\nContact to " QB_SUPPORT
              " for the solution."},
    {0x80E65, "The supplied columnID is invalid."},
    {0x80E72, "The index ID is invalid. Contact to " QB_SUPPORT "\nfor the solution."},
    {0x80EC1, "One or more column types are incompatible; conversion errors will\noccur during copying."},
    {0x80EDA, "Errors occurred. Contact to " QB_SUPPORT " for the solution."},
}};

namespace {
constexpr const char* k_cannot_connect =
    "Cannot connect to the MySQL server. Check to verify that MySQL server\nis launched and the correct host/port "
    "values were given.";
constexpr const char* k_auth_protocol =
    "The program does not support authentication protocol requested by server.\nSee 'Troubleshooting' article of "
    "the product documentation.";
}  // namespace

const std::array<tk_error_row, 12> tk_destination_errors = {{
    {0x400414,
     "Access denied. Ask your system administrator to grant you\nthe necessary privileges to write into the "
     "database."},
    {0x400415,
     "Access denied. Verify the user name and password are correct, and you have\nthe necessary privileges to "
     "connect to the target MySQL server."},
    {0x400426,
     "Duplicate field values being used for an unique index were found.\nSee 'Troubleshooting' article of the "
     "product documentation\nfor solution."},
    {0x40042F,
     "Primary key in the original database is too long.\nRestart the program with \"Skip converting "
     "indexes\"\ncheckbox selected in order to resolve the conflict.\n"},
    {0x40046A,
     "You are not allowed to connect to the destination MySQL server.\nAsk your system administrator to grant you "
     "necessary privileges\nto create new databases on target MySQL server."},
    {0x40041B,
     "Failed to overwrite MySQL database. It is being used by\nanother application. Specify a different "
     "destination name."},
    {0x4007D3, k_cannot_connect},
    {0x4007D5, k_cannot_connect},
    {0x4007D6,
     "Transferred value is too big. Increase MySQL max packet size and try\nagain. See 'Troubleshooting' article "
     "of the product documentation."},
    {0x4004E1, k_auth_protocol},
    {0x4004E2, k_auth_protocol},
    {0x4004E3, k_auth_protocol},
}};

}  // namespace qb

#undef QB_SUPPORT
