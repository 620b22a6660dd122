// The throwaway MariaDB servers of a test run, as their state files describe
// them.
//
// ctest starts the servers through the fixtures of tests/fixtures.cmake
// (scripts/mariadb-test-server.sh) and stops them at the end. A test reads
// here where the server listens and which accounts it has. A test program
// started by hand, with no server running, fails with a message that says
// how to start one; it never skips. QB_MARIADB_STATE names another state
// file for the main server (for a server started by hand).
//
// Thread-safety: the accessors return objects that are read once and then
// only read.
#pragma once

#include <string>

namespace qb::test {

struct mariadb_account {
  std::string user;
  std::string password;
};

class mariadb_server {
 public:
  // The server as installed. Throws std::runtime_error when no server of the
  // run is recorded or the recorded one is not running.
  static const mariadb_server& main();
  // A server of the same installation that announces version as its version
  // (one of the versions in tests/fixtures.cmake). Throws as main() does.
  static const mariadb_server& announcing(const std::string& version);
  // Reads one state file; throws std::runtime_error saying what is missing.
  static mariadb_server from_state_file(const std::string& path);

  [[nodiscard]] const std::string& host() const { return host_; }
  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] const std::string& socket() const { return socket_; }
  [[nodiscard]] int pid() const { return pid_; }
  // The version text the server reports (VERSION()).
  [[nodiscard]] const std::string& version() const { return version_; }
  // An account with a password and every object privilege, but no SUPER.
  [[nodiscard]] const mariadb_account& account() const { return account_; }
  // root; its password is empty.
  [[nodiscard]] const mariadb_account& root() const { return root_; }
  [[nodiscard]] const std::string& state_file() const { return state_file_; }

 private:
  std::string state_file_;
  std::string host_;
  int port_ = 0;
  std::string socket_;
  int pid_ = 0;
  std::string version_;
  mariadb_account account_;
  mariadb_account root_;
};

}  // namespace qb::test
