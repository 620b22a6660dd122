// Cleaning of SQL Server view definitions as they are read from the source.
//
// SQL Server keeps a view as the whole text of its CREATE VIEW statement.
// mss_database::init_views reads (name, definition) pairs with
// mss_views_query and passes each one through mss_clean_view, which keeps
// the text from its first "select" on and takes out what MySQL will not
// take: TOP 100 PERCENT, NOLOCK hints, WITH SCHEMABINDING / VIEW_METADATA,
// the brackets around names, and (when views are owned by dbo) the owner
// prefix "dbo.". The result is what the destination later rewrites
// (sql/view_converter.h).
//
// The cleaning is textual. The first "select" is searched without regard to
// case, so a comment or a view name in the head that holds those six letters
// decides where the text starts. The words are deleted only in the two
// spellings listed in the .cpp (upper case and lower case); mixed case and
// any other TOP stay. Deleting brackets leaves a name with a blank in it as
// two bare words.
//
// Thread-safety: reentrant; only logs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "udb/database.h"

namespace qb {

// The catalog query of the views: name and definition of every view.
inline constexpr std::wstring_view mss_views_query =
    L"select name, definition from sys.objects o join sys.sql_modules m on m.object_id = o.object_id "
    L"where o.type = 'V'";

// The cleaned text of one view, beginning at "select"; empty when the
// definition holds no "select" at all (logged as "'select' not found in the
// view"), in which case the view is dropped. is_view_owned is the engine's
// flag of the same name: when set, every "dbo." (exact case) goes. Logs
// "Got view #1: ('%s', '%s')", "#2", "#3" between the steps and
// "Got view: ('%s', '%s')" at the end, all at level 2.
std::optional<std::wstring> mss_clean_view(const std::wstring& name, const std::wstring& definition,
                                           bool is_view_owned);

// Cleans the view and appends (name, cleaned text) to views; false, and
// nothing appended, when the view is dropped.
bool mss_add_clean_view(udb_view_list& views, const std::wstring& name, const std::wstring& definition,
                        bool is_view_owned);

}  // namespace qb
