#include "support/mariadb_server.h"

#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace qb::test {

namespace {

#ifndef QB_MARIADB_STATE_ROOT
#define QB_MARIADB_STATE_ROOT QB_TEST_BINARY_DIR "/tests"
#endif

std::string how_to_start() {
  return "Run the tests through ctest, whose fixtures start and stop the server "
         "(ctest --test-dir <build> -R sql), or start one by hand with "
         "scripts/mariadb-test-server.sh start <dir> and set QB_MARIADB_STATE=<dir>/server.state.";
}

std::map<std::string, std::string> read_state(const std::string& path) {
  std::ifstream in(path);
  if (!in) {
    throw std::runtime_error("No MariaDB test server: the state file " + path + " does not exist. " +
                             how_to_start());
  }
  std::map<std::string, std::string> values;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    const auto eq = line.find('=');
    if (eq == std::string::npos) continue;
    values[line.substr(0, eq)] = line.substr(eq + 1);
  }
  return values;
}

const std::string& required(const std::map<std::string, std::string>& values, const std::string& key,
                            const std::string& path) {
  const auto it = values.find(key);
  if (it == values.end()) throw std::runtime_error("The state file " + path + " has no '" + key + "' line.");
  return it->second;
}

int to_int(const std::string& text, const std::string& key, const std::string& path) {
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value <= 0 || value > 4194304) {
    throw std::runtime_error("The state file " + path + " has a bad '" + key + "' value: " + text);
  }
  return static_cast<int>(value);
}

bool process_exists(int pid) { return ::kill(pid, 0) == 0 || errno == EPERM; }

const mariadb_server& cached(const std::string& path) {
  static std::mutex mutex;
  static std::map<std::string, std::unique_ptr<mariadb_server>> servers;
  const std::lock_guard<std::mutex> lock(mutex);
  auto& slot = servers[path];
  if (!slot) slot = std::make_unique<mariadb_server>(mariadb_server::from_state_file(path));
  return *slot;
}

}  // namespace

mariadb_server mariadb_server::from_state_file(const std::string& path) {
  const auto values = read_state(path);
  mariadb_server s;
  s.state_file_ = path;
  s.host_ = required(values, "host", path);
  s.port_ = to_int(required(values, "port", path), "port", path);
  s.socket_ = required(values, "socket", path);
  s.pid_ = to_int(required(values, "pid", path), "pid", path);
  s.version_ = required(values, "version", path);
  s.account_ = {required(values, "user", path), required(values, "password", path)};
  s.root_ = {required(values, "root_user", path), required(values, "root_password", path)};
  if (!process_exists(s.pid_)) {
    throw std::runtime_error("The MariaDB test server recorded in " + path + " (pid " + std::to_string(s.pid_) +
                             ") is not running. " + how_to_start());
  }
  return s;
}

const mariadb_server& mariadb_server::main() {
  const char* override_path = std::getenv("QB_MARIADB_STATE");
  if (override_path != nullptr && *override_path != '\0') return cached(override_path);
  return cached(std::string(QB_MARIADB_STATE_ROOT) + "/mariadb/server.state");
}

const mariadb_server& mariadb_server::announcing(const std::string& version) {
  return cached(std::string(QB_MARIADB_STATE_ROOT) + "/mariadb-versions/" + version + "/server.state");
}

}  // namespace qb::test
