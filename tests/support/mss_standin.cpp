#include "support/mss_standin.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace qb::test {

namespace {

using clock_type = std::chrono::steady_clock;

std::string exit_text(int status) {
  if (WIFEXITED(status)) return "exited with status " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return "was killed by signal " + std::to_string(WTERMSIG(status));
  return "stopped";
}

// Owns posix_spawn's file actions for the duration of one spawn.
class spawn_actions {
 public:
  spawn_actions() { posix_spawn_file_actions_init(&actions_); }
  ~spawn_actions() { posix_spawn_file_actions_destroy(&actions_); }
  spawn_actions(const spawn_actions&) = delete;
  spawn_actions& operator=(const spawn_actions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

}  // namespace

std::string mss_fixture_path(const std::string& name) {
  if (!name.empty() && name.front() == '/') return name;
  return std::string(QB_TEST_SOURCE_DIR) + "/tests/fixtures/mss/" + name;
}

std::string mss_standin_script() { return std::string(QB_TEST_SOURCE_DIR) + "/tests/mss_standin/server.py"; }

mss_standin::mss_standin(mss_standin_options options) : options_(std::move(options)) {
  start();
  try {
    wait_until_listening();
  } catch (...) {
    stop();
    throw;
  }
}

mss_standin::~mss_standin() {
  try {
    stop();
  } catch (...) {  // a destructor stays quiet
  }
}

void mss_standin::start() {
  std::vector<std::string> args{"python3", mss_standin_script(), "--host", host_, "--port", "0",
                                "--port-file", dir_.file("port"), "-v"};
  for (const auto& f : options_.fixtures) {
    args.emplace_back("--fixture");
    args.push_back(mss_fixture_path(f));
  }
  if (!options_.version.empty()) {
    args.emplace_back("--version");
    args.push_back(options_.version);
  }
  if (!options_.version_text.empty()) {
    args.emplace_back("--version-text");
    args.push_back(options_.version_text);
  }
  if (options_.bulk_rows >= 0) {
    args.emplace_back("--bulk-rows");
    args.push_back(std::to_string(options_.bulk_rows));
    args.emplace_back("--bulk-table");
    args.push_back(options_.bulk_table);
  }
  args.insert(args.end(), options_.extra_args.begin(), options_.extra_args.end());

  std::vector<char*> argv;
  argv.reserve(args.size() + 1);
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  spawn_actions actions;
  const std::string log_path = dir_.file("server.log");
  posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(actions.get(), STDOUT_FILENO, log_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0600);
  posix_spawn_file_actions_adddup2(actions.get(), STDOUT_FILENO, STDERR_FILENO);
  pid_t pid = -1;
  const int rc = posix_spawnp(&pid, "python3", actions.get(), nullptr, argv.data(), environ);
  if (rc != 0) throw std::runtime_error("mss_standin: cannot start python3: error " + std::to_string(rc));
  pid_ = pid;
}

void mss_standin::wait_until_listening() {
  const auto deadline = clock_type::now() + std::chrono::milliseconds(options_.start_timeout_ms);
  const std::string port_file = dir_.file("port");
  while (!file_exists(port_file)) {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      exit_status_ = status;
      throw std::runtime_error("mss_standin: the server " + exit_text(status) + ":\n" + log());
    }
    if (clock_type::now() > deadline) {
      throw std::runtime_error("mss_standin: the server did not listen within " +
                               std::to_string(options_.start_timeout_ms) + " ms:\n" + log());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  port_ = std::atoi(read_file(port_file).c_str());
  if (port_ <= 0) throw std::runtime_error("mss_standin: unreadable port file:\n" + log());
}

int mss_standin::stop() {
  if (pid_ <= 0) return exit_status_;
  ::kill(pid_, SIGTERM);
  const auto deadline = clock_type::now() + std::chrono::milliseconds(options_.stop_timeout_ms);
  int status = 0;
  for (;;) {
    const pid_t r = ::waitpid(pid_, &status, WNOHANG);
    if (r == pid_ || (r < 0 && errno != EINTR)) break;
    if (clock_type::now() > deadline) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  pid_ = -1;
  exit_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  return exit_status_;
}

std::string mss_standin::connection_string() const {
  return connection_string(options_.user, options_.password, options_.database);
}

std::string mss_standin::connection_string(const std::string& user, const std::string& password,
                                           const std::string& database) const {
  return "DRIVER={FreeTDS};SERVER=" + host_ + ";PORT=" + std::to_string(port_) + ";UID=" + user + ";PWD=" + password +
         ";DATABASE=" + database + ";TDS_Version=7.4;ClientCharset=UTF-8";
}

std::string mss_standin::log() const { return read_file(dir_.file("server.log")); }

mss_standin_options shop_standin_options() {
  mss_standin_options o;
  o.fixtures = {"business.json"};
  o.database = "qbshop";
  return o;
}

}  // namespace qb::test
