// The SQL Server stand-in for tests: a child process running
// tests/mss_standin/server.py (Python 3, TDS 7.4) on a free port of 127.0.0.1
// with the given fixture files.
//
// The constructor starts the server and returns once it listens (the server
// writes its port to a file in a scratch directory); a server that exits or
// does not listen within the start timeout throws std::runtime_error with its
// log. The destructor stops it: SIGTERM, then SIGKILL when it has not exited
// after the stop timeout. The object owns the child process and the scratch
// directory (port file and server log). Not copyable; one thread at a time.
//
// Clients reach it through unixODBC and the FreeTDS driver with
// connection_string(), exactly as they would reach a real server.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "support/temp_dir.h"

namespace qb::test {

struct mss_standin_options {
  // Fixture files: a bare file name is looked up in tests/fixtures/mss/.
  std::vector<std::string> fixtures{"minimal.json"};
  // Release whose @@VERSION and product version the server reports: "2000",
  // "2005", "2008", "2008r2", "2012", "2014", "2016", "2017", "2019", "2022",
  // "azure" or "7.0". Empty: the fixture's choice (2019 when it has none).
  std::string version;
  // A literal @@VERSION text; when given it wins over version.
  std::string version_text;
  // Login used by connection_string(); must exist in a fixture.
  std::string user = "sa";
  std::string password = "Secret#1";
  std::string database = "qbmini";
  // A generated table of this many rows ("bulk mode"); negative: none.
  long long bulk_rows = -1;
  std::string bulk_table = "qbmini.dbo.bulk_rows";
  // Further command-line arguments for server.py.
  std::vector<std::string> extra_args;
  int start_timeout_ms = 60000;
  int stop_timeout_ms = 10000;
};

class mss_standin {
 public:
  explicit mss_standin(mss_standin_options options = {});
  ~mss_standin();
  mss_standin(const mss_standin&) = delete;
  mss_standin& operator=(const mss_standin&) = delete;

  [[nodiscard]] const std::string& host() const { return host_; }
  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] const std::string& user() const { return options_.user; }
  [[nodiscard]] const std::string& password() const { return options_.password; }
  [[nodiscard]] const std::string& database() const { return options_.database; }

  // "DRIVER={FreeTDS};SERVER=127.0.0.1;PORT=<port>;UID=<user>;PWD=<password>;
  //  DATABASE=<database>;TDS_Version=7.4;ClientCharset=UTF-8"
  [[nodiscard]] std::string connection_string() const;
  [[nodiscard]] std::string connection_string(const std::string& user, const std::string& password,
                                              const std::string& database) const;

  // What the server wrote to stdout and stderr so far (logins, attentions, faults).
  [[nodiscard]] std::string log() const;

  // Stops the server now (as the destructor does); returns its exit status,
  // 0 after a clean SIGTERM shutdown. Further calls return the same status.
  int stop();

 private:
  void start();
  void wait_until_listening();

  mss_standin_options options_;
  temp_dir dir_;
  std::string host_ = "127.0.0.1";
  int port_ = 0;
  pid_t pid_ = -1;
  int exit_status_ = -1;
};

// The options of a stand-in serving the shop fixture (business.json), with
// its database qbshop as the login's database.
mss_standin_options shop_standin_options();

// The path of a fixture file in tests/fixtures/mss/.
std::string mss_fixture_path(const std::string& name);

// The path of the stand-in's server.py.
std::string mss_standin_script();

}  // namespace qb::test
