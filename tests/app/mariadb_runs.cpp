#include "mariadb_runs.h"

#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "sql/exception.h"

namespace qb::test {

mariadb_session::mariadb_session(const mariadb_server& server) {
  sql_client_library_init();
  connection_.reset(mysql_init(nullptr));
  mysql_options(connection_.get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
  const mariadb_account& account = server.account();
  if (mysql_real_connect(connection_.get(), server.host().c_str(), account.user.c_str(), account.password.c_str(),
                         nullptr, static_cast<unsigned>(server.port()), nullptr, 0) == nullptr) {
    throw sql_exception(connection_.get());
  }
}

void mariadb_session::run(const std::string& statement) { sql_run(connection_.get(), statement); }

unsigned mariadb_session::error_of(const std::string& statement) {
  try {
    run(statement);
  } catch (const sql_exception& e) {
    return e.error_number();
  }
  return 0;
}

text_rows mariadb_session::rows(const std::string& statement) {
  text_rows out;
  sql_stream stream(connection_.get(), statement);
  while (stream.next()) {
    text_row row;
    for (unsigned i = 0; i < stream.field_count(); ++i) {
      if (stream.is_null(i)) {
        row.emplace_back(std::nullopt);
      } else {
        row.emplace_back(std::string(stream.field(i)));
      }
    }
    out.push_back(std::move(row));
  }
  return out;
}

scratch_databases::scratch_databases(const mariadb_server& server, std::string prefix)
    : session_(server), prefix_(std::move(prefix)) {}

scratch_databases::~scratch_databases() {
  for (const std::string& name : names_) {
    try {
      session_.run("DROP DATABASE IF EXISTS " + sql_quoted_name(name));
    } catch (...) {  // NOLINT(bugprone-empty-catch): a clean-up failure must not hide the test's own
    }
  }
}

std::string scratch_databases::next() {
  names_.push_back(prefix_ + "_" + std::to_string(::getpid()) + "_" + std::to_string(names_.size()));
  return names_.back();
}

replay_outcome replay_dump(const mariadb_server& server, const std::string& database, const std::string& file,
                           bool force) {
  std::vector<std::string> args = {"mariadb", "--no-defaults", "--protocol=TCP", "-h" + server.host(),
                                   "-P" + std::to_string(server.port()), "-u" + server.account().user,
                                   "-p" + server.account().password, "--show-warnings"};
  if (force) args.emplace_back("--force");
  args.push_back(database);
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int out[2];
  if (::pipe(out) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int in = ::open(file.c_str(), O_RDONLY);
    if (in < 0) ::_exit(126);
    ::dup2(in, 0);
    ::dup2(out[1], 1);
    ::dup2(out[1], 2);
    ::execvp("mariadb", argv.data());
    ::_exit(127);
  }
  ::close(out[1]);
  replay_outcome r;
  char buf[4096];
  for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) > 0;) r.output.append(buf, static_cast<std::size_t>(n));
  ::close(out[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

std::vector<std::string> replay_problems(const std::string& output) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start < output.size()) {
    std::size_t end = output.find('\n', start);
    if (end == std::string::npos) end = output.size();
    const std::string line = output.substr(start, end - start);
    if (!line.empty() && line.find("(Code 1305)") == std::string::npos) out.push_back(line);
    start = end + 1;
  }
  return out;
}

std::string sql_quoted_name(const std::string& name) {
  std::string out = "`";
  for (char c : name) {
    out += c;
    if (c == '`') out += '`';
  }
  return out + "`";
}

std::string sql_text_literal(const std::string& text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  return out + "'";
}

}  // namespace qb::test
