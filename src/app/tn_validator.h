// The table-name validator of a run: the MySQL rules for table names, by the
// destination's version, as a udb_validator.
//
// The driver asks it whether a name may be a table of the destination
// (is_acceptable) and, when not, for a name that may (get_safe_name). The
// rules are those of sql_name_rules for tables: the old family below 4.1.0
// (plain identifiers, no reserved word), the new one from it (almost any
// name, at most 64 characters, none of a few characters, no blank at either
// end). On top of them the validator keeps the names the run has given out
// (restricted) and the names that exist (existing), so that a safe name is
// also unique.
//
// Ownership: the validator owns its rules and lists.
// Thread-safety: none; it belongs to the run that made it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "sql/name_rules.h"
#include "udb/validator.h"

namespace qb {

class app_tn_validator : public udb_validator {
 public:
  explicit app_tn_validator(sql_name_family family);

  // The base tests (length, restricted names, characters), then the
  // family's own form.
  [[nodiscard]] bool is_acceptable(const std::wstring& name) const override;
  // The family's repair first, then the base's search for a free name.
  [[nodiscard]] std::wstring get_safe_name(const std::wstring& name) const override;

  [[nodiscard]] const sql_name_rules& rules() const { return rules_; }

 private:
  sql_name_rules rules_;
};

// Logs "sql_engine::create_tn_validator" and "is_old_version(%08X)" with the
// version code, and makes the validator of that version's family.
std::unique_ptr<udb_validator> app_create_tn_validator(std::uint32_t version);

}  // namespace qb
