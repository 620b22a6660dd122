#include "tk/files.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/paths.h"
#include "tk/shell.h"
#include "tk/strings.h"
#include "tk/support.h"

extern char** environ;

namespace qb {
namespace {

std::string current_dir() {
  std::string buf(PATH_MAX, '\0');
  if (::getcwd(buf.data(), buf.size()) == nullptr) return {};
  buf.resize(std::char_traits<char>::length(buf.c_str()));
  return buf;
}

// Resolves "." and ".." and doubled separators of an absolute path from its
// text alone, as _fullpath does; a trailing separator is kept.
template <class Ch>
std::basic_string<Ch> normalize_absolute(const std::basic_string<Ch>& path) {
  using str = std::basic_string<Ch>;
  std::vector<str> parts;
  std::size_t pos = 0;
  while (pos <= path.size()) {
    std::size_t next = path.find(Ch('/'), pos);
    if (next == str::npos) next = path.size();
    const str part = path.substr(pos, next - pos);
    if (part == str(1, Ch('.')) || part.empty()) {
      // nothing
    } else if (part == str(2, Ch('.'))) {
      if (!parts.empty()) parts.pop_back();
    } else {
      parts.push_back(part);
    }
    pos = next + 1;
  }
  str out;
  for (const str& p : parts) {
    out.push_back(Ch('/'));
    out += p;
  }
  if (out.empty() || path.back() == Ch('/')) out.push_back(Ch('/'));
  return out;
}

// Splits an absolute path as _splitpath does (no drive on this platform).
template <class Ch>
void split_path(const std::basic_string<Ch>& path, std::basic_string<Ch>& dir, std::basic_string<Ch>& name,
                std::basic_string<Ch>& ext) {
  using str = std::basic_string<Ch>;
  const std::size_t slash = path.rfind(Ch('/'));
  const std::size_t base = slash == str::npos ? 0 : slash + 1;
  dir = path.substr(0, base);
  const std::size_t dot = path.rfind(Ch('.'));
  if (dot != str::npos && dot >= base) {
    name = path.substr(base, dot - base);
    ext = path.substr(dot);
  } else {
    name = path.substr(base);
    ext.clear();
  }
}

template <class Ch>
std::basic_string<Ch> make_path(const std::basic_string<Ch>& drive, const std::basic_string<Ch>& dir,
                                const std::basic_string<Ch>& name, const std::basic_string<Ch>& ext) {
  std::basic_string<Ch> out = drive;
  out += dir;
  if (!dir.empty() && dir.back() != Ch('/')) out.push_back(Ch('/'));
  out += name;
  if (!ext.empty()) {
    if (ext.front() != Ch('.')) out.push_back(Ch('.'));
    out += ext;
  }
  return out;
}

std::string to_ansi_or_empty(const std::wstring& text, bool& ok) {
  std::string out;
  ok = tk_unicode_to_ansi2(text, out);
  return out;
}

// What tk_is_file_exist1/2 answer for a narrow name.
bool file_exist(const std::string& name, int mode) {
  if (mode == tk_exist_no_dir || mode == tk_exist_writable) {
    struct stat st {};
    if (::stat(name.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
    if (mode == tk_exist_no_dir) return true;
    const bool read_only = S_ISREG(st.st_mode) && (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
    return !read_only;
  }
  const int fd = ::open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw tk_exception_ex("", errno, 1);
  ::close(fd);
  return true;
}

}  // namespace

// --- tk_file_name ----------------------------------------------------------------

tk_file_name::tk_file_name(const char* text) {
  if (text == nullptr) throw tk_mail_assertion("tk_file", 57);
  LOG(1, "tk_file_name::ctor(%s)", text);
  std::string full;
  if (*text == '\0') {
    split_path(tk_get_module_path(), dir, name, ext);
    name.clear();
    ext.clear();
    return;
  }
  if (*text == '/') {
    full = text;
  } else {
    const std::string cwd = current_dir();
    if (cwd.empty()) throw tk_mail_assertion("tk_file", 61);
    full = cwd + "/" + text;
  }
  split_path(normalize_absolute(full), dir, name, ext);
}

tk_file_name::tk_file_name(const std::string& text) : tk_file_name(text.c_str()) {}

std::string tk_file_name::path() const { return make_path(drive, dir, name, ext); }

void tk_file_wname::initialize(const wchar_t* text) {
  if (text == nullptr) throw tk_mail_assertion("tk_file", 84);
  initialize(std::wstring(text));
}

void tk_file_wname::initialize(const std::wstring& text) {
  drive.clear();
  std::wstring full;
  if (text.empty()) {
    split_path(tk_get_module_wpath(), dir, name, ext);
    name.clear();
    ext.clear();
    return;
  }
  if (text.front() == L'/') {
    full = text;
  } else {
    const std::string cwd = current_dir();
    std::wstring wide_cwd;
    if (cwd.empty() || !tk_ansi_to_unicode(cwd, wide_cwd)) throw tk_mail_assertion("tk_file", 88);
    full = wide_cwd + L"/" + text;
  }
  split_path(normalize_absolute(full), dir, name, ext);
}

std::wstring tk_file_wname::path() const { return make_path(drive, dir, name, ext); }

// --- Existence ---------------------------------------------------------------------

bool tk_is_file_exist1(const std::string& name, int mode) {
  LOG(1, "tk_is_file_exist1(%s,%d)", name, mode);
  return file_exist(name, mode);
}

bool tk_is_file_exist2(const std::wstring& name, int mode) {
  LOG(1, "tk_is_file_exist2(%s,%08X)", name, mode);
  bool ok = false;
  const std::string narrow = to_ansi_or_empty(name, ok);
  if (!ok) return false;
  return file_exist(narrow, mode);
}

bool tk_is_path_exist(const std::string& path) {
  LOG(1, "tk_is_path_exist(%s)", path);
  const tk_temp_chdir change(path);
  return change.changed();
}

bool tk_is_path_exist(const std::wstring& path) {
  LOG(1, "tk_is_path_exist(%s)", path);
  bool ok = false;
  const std::string narrow = to_ansi_or_empty(path, ok);
  if (!ok) return false;
  const tk_temp_chdir change(narrow);
  return change.changed();
}

bool tk_can_create_file_in(const std::string& dir) {
  LOG(1, "tk_can_create_file_in(%s)", dir);
  static std::atomic<unsigned> counter{0};
  std::string base = dir;
  if (base.empty()) base = ".";
  if (base.back() != '/') base.push_back('/');
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string probe = base + tk_format(".qb-probe-%d-%u", static_cast<int>(::getpid()), counter.fetch_add(1));
    const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
      ::close(fd);
      ::unlink(probe.c_str());
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

// --- tk_temp_chdir -----------------------------------------------------------------

tk_temp_chdir::tk_temp_chdir() { LOG(2, "tk_temp_chdir::ctor"); }

tk_temp_chdir::tk_temp_chdir(const std::string& path) {
  LOG(2, "tk_temp_chdir::ctor");
  initialize(path);
}

tk_temp_chdir::~tk_temp_chdir() {
  LOG(2, "tk_temp_chdir::dtor");
  if (b_changed_ && ::chdir(old_dir_.c_str()) != 0) LOG(2, "_chdir failed");
  LOG(2, "tk_temp_chdir::dtor - at the END");
}

bool tk_temp_chdir::initialize(const std::string& path) {
  LOG(2, "tk_temp_chdir::initialize(%s)", path);
  if (b_changed_) throw tk_mail_assertion("tk_file", 137);
  old_dir_ = current_dir();
  if (old_dir_.empty()) {
    LOG(2, "_getcwd failed");
    return false;
  }
  b_changed_ = ::chdir(path.c_str()) == 0;
  if (!b_changed_) LOG(2, "_chdir failed");
  return b_changed_;
}

// --- Bug report ------------------------------------------------------------------

namespace {

std::string percent_encode(const std::string& text) {
  static constexpr char k_digits[] = "0123456789ABCDEF";
  std::string out;
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                            c == '.' || c == '_' || c == '~';
    if (unreserved) {
      out.push_back(ch);
    } else {
      out.push_back('%');
      out.push_back(k_digits[c >> 4]);
      out.push_back(k_digits[c & 0x0F]);
    }
  }
  return out;
}

// The full path of an executable found on the PATH, or empty.
std::string find_on_path(const std::string& program) {
  const char* path = std::getenv("PATH");
  if (path == nullptr) return {};
  const std::string all(path);
  std::size_t pos = 0;
  while (pos <= all.size()) {
    std::size_t end = all.find(':', pos);
    if (end == std::string::npos) end = all.size();
    std::string candidate = all.substr(pos, end - pos);
    if (candidate.empty()) candidate = ".";
    candidate += "/" + program;
    struct stat st {};
    if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
    pos = end + 1;
  }
  return {};
}

// Writes the report to a new file in the folder; the path, or empty.
std::string save_report(const std::string& folder, const std::tm& now, const std::string& content) {
  if (folder.empty()) return {};
  for (int n = 0; n < 100; ++n) {
    std::string path = tk_format("%s/Quillbridge bug report %04d-%02d-%02d %02d%02d%02d", folder, now.tm_year + 1900,
                                 now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    if (n > 0) path += tk_format(" (%d)", n + 1);
    path += ".txt";
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      return {};
    }
    const char* p = content.data();
    std::size_t left = content.size();
    bool ok = true;
    while (left > 0) {
      const ssize_t w = ::write(fd, p, left);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) {
        ok = false;
        break;
      }
      p += w;
      left -= static_cast<std::size_t>(w);
    }
    ok = ::close(fd) == 0 && ok;
    if (!ok) {
      ::unlink(path.c_str());
      return {};
    }
    return path;
  }
  return {};
}

// Starts the program on the URL in the background (a shell that returns at
// once leaves it to init), so that the caller does not wait for the mail
// program. The shell's exit status, or -1 when it could not be started.
int hand_off(const std::string& program, const std::string& url) {
  const char* script = "\"$0\" \"$1\" </dev/null >/dev/null 2>&1 &";
  std::vector<std::string> args = {"sh", "-c", script, program, url};
  std::vector<char*> argv;
  argv.reserve(args.size() + 1);
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (::posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

std::string tk_send_bug(const std::string& product, const std::string& text) {
  LOG(2, "tk_send_bug(%s|%s)", product, text);
  const tk_temp_chdir keep_dir(".");

  const std::time_t t = std::time(nullptr);
  std::tm now{};
  localtime_r(&t, &now);
  const std::string subject = "Bug report on " + product;
  const std::string date =
      tk_format("%d/%d/%d %d:%d", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min);
  const std::string recipient = tk_format("%s <%s>", tk_support_name, tk_support_address);

  const std::string content = "To: " + recipient + "\nSubject: " + subject + "\nDate: " + date + "\n\n" + text + "\n";
  std::string saved = save_report(tk_get_user_home_path(), now, content);
  if (saved.empty()) {
    LOG(2, "tk_send_bug: the report could not be saved");
  } else {
    LOG(2, "tk_send_bug: report saved to %s", saved);
  }

  const std::string opener = find_on_path("xdg-open");
  if (opener.empty()) {
    LOG(2, "tk_send_bug: xdg-open not found");
    return saved;
  }
  const std::string url = std::string("mailto:") + std::string(tk_support_address) +
                          "?subject=" + percent_encode(subject) + "&body=" + percent_encode(text);
  LOG(2, "tk_send_bug: xdg-open=%s", opener);
  LOG(2, "tk_send_bug: xdg-open returns %d", hand_off(opener, url));
  return saved;
}

bool tk_copy_to_clipboard2(const std::wstring& text) {
  LOG(2, "tk_copy_to_clipboard2");
  wizard_shell* shell = wizard_shell::try_instance();
  if (shell != nullptr && shell->copy_to_clipboard(text)) return true;
  LOG(2, "tk_copy_to_clipboard2 failed");
  return false;
}

}  // namespace qb
