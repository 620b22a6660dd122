#include "cli_process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "support/temp_dir.h"

extern char** environ;

namespace qb::test {

namespace {

// The test's environment with the launch's changes, as "NAME=value" texts.
std::vector<std::string> child_environment(const std::map<std::string, std::optional<std::string>>& changes) {
  std::vector<std::string> env;
  for (char** e = environ; *e != nullptr; ++e) {
    const std::string entry(*e);
    const std::string name = entry.substr(0, entry.find('='));
    if (changes.count(name) == 0) env.push_back(entry);
  }
  for (const auto& [name, value] : changes) {
    if (value) env.push_back(name + "=" + *value);
  }
  return env;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> out;
  out.reserve(texts.size() + 1);
  for (std::string& t : texts) out.push_back(t.data());
  out.push_back(nullptr);
  return out;
}

void close_fd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// A pseudo-terminal: the controlling side and the path of the child's side.
int open_terminal(int columns, std::string& slave_path) {
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) {
    throw std::runtime_error("cannot open a pseudo-terminal");
  }
  slave_path = ::ptsname(master);
  winsize size{};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = 24;
  ::ioctl(master, TIOCSWINSZ, &size);
  return master;
}

}  // namespace

cli_process::cli_process(const cli_launch& launch) {
  std::vector<std::string> args{launch.program};
  args.insert(args.end(), launch.args.begin(), launch.args.end());
  std::vector<std::string> env = child_environment(launch.env);
  std::vector<char*> argv = pointers(args);
  std::vector<char*> envp = pointers(env);

  int out_pipe[2] = {-1, -1};
  int err_pipe[2] = {-1, -1};
  std::string slave_path;
  if (launch.terminal_columns > 0) {
    out_fd_ = open_terminal(launch.terminal_columns, slave_path);
  } else if (::pipe2(out_pipe, O_CLOEXEC) != 0 || ::pipe2(err_pipe, O_CLOEXEC) != 0) {
    throw std::runtime_error("cannot make pipes");
  }

  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ == 0) {
    // The child: only async-signal-safe calls until exec.
    if (launch.terminal_columns > 0) {
      ::close(out_fd_);
      ::setsid();
      const int slave = ::open(slave_path.c_str(), O_RDWR);
      if (slave < 0) ::_exit(127);
      ::ioctl(slave, TIOCSCTTY, 0);
      ::dup2(slave, STDIN_FILENO);
      ::dup2(slave, STDOUT_FILENO);
      ::dup2(slave, STDERR_FILENO);
    } else {
      const int null = ::open("/dev/null", O_RDONLY);
      ::dup2(null, STDIN_FILENO);
      ::dup2(out_pipe[1], STDOUT_FILENO);
      ::dup2(err_pipe[1], STDERR_FILENO);
    }
    // The test runner may block signals in its threads; the child starts
    // with none blocked, as from a shell.
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::execve(argv[0], argv.data(), envp.data());
    ::_exit(127);
  }
  if (launch.terminal_columns == 0) {
    out_fd_ = out_pipe[0];
    err_fd_ = err_pipe[0];
    ::close(out_pipe[1]);
    ::close(err_pipe[1]);
  }
}

cli_process::~cli_process() {
  if (!status_ && pid_ > 0) {
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
  }
  close_fd(out_fd_);
  close_fd(err_fd_);
}

bool cli_process::pump(std::chrono::milliseconds timeout) {
  std::vector<pollfd> fds;
  if (out_fd_ >= 0) fds.push_back({out_fd_, POLLIN, 0});
  if (err_fd_ >= 0) fds.push_back({err_fd_, POLLIN, 0});
  if (fds.empty()) return false;
  const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(timeout.count()));
  if (ready <= 0) return true;
  for (const pollfd& p : fds) {
    if (p.revents == 0) continue;
    char buffer[65536];
    const ssize_t n = ::read(p.fd, buffer, sizeof buffer);
    std::string& target = p.fd == out_fd_ ? out_ : err_;
    if (n > 0) {
      target.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      // The end of the stream (a terminal whose child side closed reads EIO).
      if (p.fd == out_fd_)
        close_fd(out_fd_);
      else
        close_fd(err_fd_);
    }
  }
  return true;
}

bool cli_process::wait_for(const std::string& text, const std::string& stream) {
  const auto deadline = std::chrono::steady_clock::now() + guard;
  while (stream.find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (!pump(std::chrono::milliseconds(100))) return false;
  }
  return true;
}

bool cli_process::wait_for_output(const std::string& text) { return wait_for(text, out_); }

bool cli_process::wait_for_error(const std::string& text) { return wait_for(text, err_); }

bool cli_process::wait_for_file(const std::string& path, const std::string& text) {
  const auto deadline = std::chrono::steady_clock::now() + guard;
  while (!file_exists(path) || read_file(path).find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (!pump(std::chrono::milliseconds(100))) {
      // Both streams ended: the child is ending; one last look.
      return file_exists(path) && read_file(path).find(text) != std::string::npos;
    }
  }
  return true;
}

void cli_process::send_signal(int signal) { ::kill(pid_, signal); }

cli_result cli_process::wait() {
  const auto deadline = std::chrono::steady_clock::now() + guard;
  while (pump(std::chrono::milliseconds(100))) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid_, SIGKILL);
      break;
    }
  }
  int status = 0;
  ::waitpid(pid_, &status, 0);
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  close_fd(out_fd_);
  close_fd(err_fd_);
  return {*status_, out_, err_};
}

cli_result cli_run(const cli_launch& launch) {
  cli_process process(launch);
  return process.wait();
}

}  // namespace qb::test
