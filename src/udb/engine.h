// udb_engine: a server or file store that makes, opens and deletes databases.
//
// The MySQL server and the dump file are engines; the driver opens its
// destination through one. The base class treats a database as a file of that
// name: db_delete removes the file and is_db_exist tests for it.
//
// Ownership: create_db and open_db hand the new database to the caller. The
// properties given to set_properties (the user's customisations) are not
// owned and must outlive the engine's use of them.
// Thread-safety: none; one thread at a time (the wizard's, or the worker's
// during a run).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace qb {

class udb_database;
class udb_properties;

class udb_engine {
 public:
  udb_engine() = default;
  virtual ~udb_engine();
  udb_engine(const udb_engine&) = delete;
  udb_engine& operator=(const udb_engine&) = delete;

  // A new, empty database of that name.
  virtual std::unique_ptr<udb_database> create_db(const std::wstring& name) = 0;
  // An existing database; mode holds the open-mode bits.
  virtual std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode) = 0;
  // Deletes the file of that name; a failure throws tk_exception_ex with the
  // system's error.
  virtual void db_delete(const std::wstring& name);
  // True when a file of that name exists (the name is narrowed through the
  // thread's code page).
  virtual bool is_db_exist(const std::wstring& name);
  // Remembers the customisations that create_table consults.
  virtual void set_properties(udb_properties* properties);

  [[nodiscard]] udb_properties* properties() const { return properties_; }

 private:
  udb_properties* properties_ = nullptr;
};

}  // namespace qb
