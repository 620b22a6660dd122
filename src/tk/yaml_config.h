// tk_yaml_config: a map from a key to a list of texts, read from a small file
// of "key:" lines, each followed by "- value" lines (the type-map lists
// "sql.map" and "sql.typ").
//
//   VARCHAR:
//   - CHAR
//   - TEXT
//
// It is not YAML: each line is read on its own, after the blanks at both
// ends are trimmed. The format is described in doc/profile-format.md, beside
// the profile, whose line rules it shares.
//
// Ownership: a value type; the map belongs to the object.
// Thread-safety: one thread at a time.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace qb {

class tk_yaml_config {
 public:
  using t_map = std::map<std::wstring, std::vector<std::wstring>>;

  // Adds the file's lists to `values`. Logs "tk_yaml_config::load(%s)".
  // Returns false when the file cannot be opened. Per line (UTF-8, trimmed
  // of blanks at both ends, logged at level 1 as "Got text line: %s"):
  //   1. an empty line logs "Skip empty line";
  //   2. a line ending in ":" makes the text before it, trimmed, the current
  //      key (a value before any key goes under the empty key);
  //   3. a line beginning with "-" gives the rest, trimmed, as a value: when
  //      `filter` holds it, it is dropped with the log line "String '%s' has
  //      not passed the filter"; otherwise it is appended to the list of the
  //      current key, which is created when needed, with the log line
  //      "String '%s' has been stored under key='%s'";
  //   4. any other line is ignored.
  // A line of more than 4095 bytes, a line that is not UTF-8 and a failure
  // to read throw tk_exception naming the file and the line; the values
  // stored before it stay.
  bool load(const std::string& file, const std::set<std::wstring>& filter);

  t_map values;
};

}  // namespace qb
