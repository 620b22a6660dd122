#include "replay_support.h"

#include <cerrno>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sql/client.h"
#include "sql/compat_functions.h"
#include "sql/exception.h"
#include "sql/literal.h"

namespace qb::test {

client_result run_mariadb_client(const mariadb_server& server, const mariadb_account& account, const std::string& file,
                                 const std::string& database) {
  std::vector<std::string> args = {"mariadb",
                                   "--no-defaults",
                                   "--protocol=TCP",
                                   "-h" + server.host(),
                                   "-P" + std::to_string(server.port()),
                                   "-u" + account.user,
                                   "--show-warnings"};
  if (!account.password.empty()) args.push_back("-p" + account.password);
  if (!database.empty()) args.push_back(database);
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  const int input = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (input < 0) throw std::runtime_error("cannot open " + file);
  int pipe_fds[2];
  if (::pipe2(pipe_fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    ::dup2(input, 0);
    ::dup2(pipe_fds[1], 1);
    ::dup2(pipe_fds[1], 2);
    ::execvp("mariadb", argv.data());
    ::_exit(127);
  }
  ::close(input);
  ::close(pipe_fds[1]);
  client_result result;
  char buf[4096];
  for (;;) {
    const ssize_t n = ::read(pipe_fds[0], buf, sizeof buf);
    if (n > 0) {
      result.output.append(buf, static_cast<std::size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    break;
  }
  ::close(pipe_fds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::vector<std::string> diagnostic_lines(const std::string& output) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < output.size()) {
    std::size_t end = output.find('\n', start);
    if (end == std::string::npos) end = output.size();
    const std::string line = output.substr(start, end - start);
    for (const char* marker : {"Warning", "Note", "Error", "ERROR"}) {
      if (line.find(marker) != std::string::npos) {
        lines.push_back(line);
        break;
      }
    }
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> unexpected_diagnostics(const std::string& output, std::size_t* dropped) {
  std::vector<std::string> lines;
  std::size_t absent = 0;
  for (std::string& line : diagnostic_lines(output)) {
    if (line.rfind("Note (Code 1305): FUNCTION ", 0) == 0 && line.find(" does not exist") != std::string::npos) {
      ++absent;
      continue;
    }
    lines.push_back(std::move(line));
  }
  if (dropped != nullptr) *dropped = absent;
  return lines;
}

std::vector<std::wstring> run_like_driver(sql_engine& engine, memory_store& source,
                                          const std::vector<std::wstring>& tables, dmp_database& dump) {
  memory_database src(source, L"source", 1);
  const std::unique_ptr<udb_validator> validator = engine.create_tn_validator(tables, dump.get_table_names());
  std::vector<std::wstring> targets;
  for (const std::wstring& table : tables) {
    std::unique_ptr<udb_recordset> from = src.get_table(table, 1);
    std::wstring name = table;
    if (!validator->is_acceptable(name)) name = validator->get_safe_name(name);
    udb_indexes indexes = from->indexes();
    std::unique_ptr<udb_recordset> to = dump.create_table(name, from->schema(), indexes);
    if (name != table) {
      validator->add_existing_name(name);
      dump.add_tn_mapping(table, name);
    }
    validator->add_restricted_name(name);
    for (from->reset(); !from->is_eof(); from->next()) {
      udb_record* record = from->get_item();
      to->append_record(*record);
    }
    to->finish();
    targets.push_back(name);
  }
  dump.create_relationships(src.relationships());
  // The helper functions a view may call go ahead of the views.
  sql_create_compat_functions([&dump](const std::wstring& statement) { dump.query(statement); });
  dump.create_views(src.views());
  dump.finish();
  return targets;
}

std::vector<std::vector<ole_variant>> read_rows(MYSQL* connection, const std::string& statement) {
  sql_run(connection, statement);
  sql_result_ptr result(mysql_use_result(connection));
  if (result == nullptr) throw sql_exception(connection, statement);
  const unsigned n = mysql_num_fields(result.get());
  const MYSQL_FIELD* fields = mysql_fetch_fields(result.get());
  std::vector<std::vector<ole_variant>> rows;
  while (MYSQL_ROW row = mysql_fetch_row(result.get())) {
    const unsigned long* lengths = mysql_fetch_lengths(result.get());
    std::vector<ole_variant> values;
    for (unsigned i = 0; i < n; ++i) {
      values.push_back(get_variant(row[i], lengths[i], fields[i].type, fields[i].flags));
    }
    rows.push_back(std::move(values));
  }
  if (mysql_errno(connection) != 0) throw sql_exception(connection, statement);
  return rows;
}

}  // namespace qb::test
