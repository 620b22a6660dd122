// The forms of a SQL Server table name, and the functions that take one apart.
//
// A source table is named in one of three forms: bare ("orders"), composed
// ("dbo.orders": owner, dot, table) and bracketed ("[dbo].[orders]": owner
// and table each in square brackets, a dot between). The catalog gives the
// bracketed form; a profile stores the composed one.
//
// mss_split_tab_name gives table and owner of any form:
//   - a name of fewer than 3 characters is a table with no owner, whatever
//     it holds ("[]" stays "[]");
//   - a name that begins with '[' and ends with ']' loses those two, and is
//     split at the first "].[": owner before, table behind; with no "].[" the
//     inner text is the table. A dot inside brackets is part of the name;
//   - any other name is split at its first '.', so "a.b.c" has the owner "a"
//     and the table "b.c"; with no dot it is a table with no owner.
// mss_simplify_tab_name joins the two again with a separator ("dbo.orders"),
// or gives the table alone when there is no owner.
//
// The split logs what the SQL Server engine reports about itself: whether it
// is initialized (the mss_engine exists and is connected), and whether object
// names carry no owner ("view owned", which its holder keeps current here).
//
// Thread-safety: reentrant; the flag is atomic.
#pragma once

#include <string>

namespace qb {

// Splits name into table and owner as described above; the owner is empty
// when the name has none. Always succeeds and returns true. Logs
// "mss_split_tab_name(%s)", the branch taken, and "tab_name=%s, owner=%s".
bool mss_split_tab_name(const std::wstring& name, std::wstring& table, std::wstring& owner);

// The name in its plain form: owner, separator, table; or the table alone.
// Logs "mss_simplify_tab_name(%s)" and "Processing simple table name %s" or
// "Processing compound table name %s.%s".
std::wstring mss_simplify_tab_name(const std::wstring& name, wchar_t separator);

// "view owned" (object names carry no owner) as the split logs it; true
// until set. The engine reads the same flag (mss_engine::is_view_owned).
void mss_set_view_owned(bool view_owned);
[[nodiscard]] bool mss_is_view_owned();

}  // namespace qb
