// Files and desktop services: path names split into their parts, existence
// tests, a scoped change of the working directory, the bug report and the
// clipboard.
//
// Narrow path names are in the system code page (see tk/strings.h); wide
// ones are converted to it before they reach the file system.
//
// Thread-safety: the functions are reentrant, with one exception that callers
// must know: tk_temp_chdir, and tk_is_path_exist, which is built on it, change
// the working directory of the whole process while they are in scope. Relative
// file names used meanwhile by another thread resolve against that directory.
#pragma once

#include <string>

namespace qb {

// A path split as the C runtime's _splitpath splits it: the drive (always
// empty on this platform), the directory with its trailing '/', the name, and
// the extension with its leading '.' (the part of the last component from its
// last '.'). The parts are plain values that the caller may change and join
// again with path().
class tk_file_name {
 public:
  // Logs "tk_file_name::ctor(%s)". A null text is an internal error. An empty
  // text stands for the running program: its drive and directory, with the
  // name and the extension left empty. Any other text is first made absolute
  // against the working directory, with "." and ".." resolved from the text
  // alone; the file need not exist.
  explicit tk_file_name(const char* text);
  explicit tk_file_name(const std::string& text);

  // The parts joined in the manner of _makepath: a '/' is added behind a
  // directory that lacks one, a '.' before an extension that lacks one.
  [[nodiscard]] std::string path() const;

  std::string ext;
  std::string drive;
  std::string name;
  std::string dir;
};

// The wide twin of tk_file_name.
class tk_file_wname {
 public:
  tk_file_wname() = default;
  explicit tk_file_wname(const std::wstring& text) { initialize(text); }

  // As tk_file_name's constructor; a null text is an internal error.
  void initialize(const wchar_t* text);
  void initialize(const std::wstring& text);
  [[nodiscard]] std::wstring path() const;

  std::wstring ext;
  std::wstring drive;
  std::wstring name;
  std::wstring dir;
};

// Modes of tk_is_file_exist1/2. Any other mode creates the file.
inline constexpr int tk_exist_no_dir = 16384;  // an existing path that is no directory
inline constexpr int tk_exist_writable = 1;    // ... that is also not read-only

// Logs "tk_is_file_exist1(%s,%d)". Mode 16384: true for an existing path
// that is no directory. Mode 1: true for an existing path that is neither a
// directory nor read-only (a regular file without any write permission bit;
// the bits are read with stat, so the answer is the same for root). Any other
// mode creates the file for reading and writing, emptying a file of that name,
// and answers true; a failure to create it throws tk_exception_ex with the
// system's text for the error.
bool tk_is_file_exist1(const std::string& name, int mode);
// The same for a wide name. Logs "tk_is_file_exist2(%s,%08X)".
bool tk_is_file_exist2(const std::wstring& name, int mode);

// Logs "tk_is_path_exist(%s)". True when a tk_temp_chdir to the path
// succeeds, that is when it is a directory the process may enter.
bool tk_is_path_exist(const std::string& path);
// The wide form goes through the system code page; a text that does not
// convert gives false.
bool tk_is_path_exist(const std::wstring& path);

// True when a new file can be created in the directory: a probe file is
// created exclusively and removed again. Unlike a test of permission bits,
// this gives the true answer for root and for special file systems (nobody
// creates files in /proc). Logs "tk_can_create_file_in(%s)".
bool tk_can_create_file_in(const std::string& dir);

// A change of the working directory for the lifetime of the object.
// Owned by the scope that makes it; not copyable.
class tk_temp_chdir {
 public:
  // Logs "tk_temp_chdir::ctor" and changes nothing.
  tk_temp_chdir();
  // Logs "tk_temp_chdir::ctor" and calls initialize(path).
  explicit tk_temp_chdir(const std::string& path);
  // Logs "tk_temp_chdir::dtor", goes back to the old directory when the
  // change was made, and logs "tk_temp_chdir::dtor - at the END".
  ~tk_temp_chdir();
  tk_temp_chdir(const tk_temp_chdir&) = delete;
  tk_temp_chdir& operator=(const tk_temp_chdir&) = delete;

  // Logs "tk_temp_chdir::initialize(%s)", remembers the working directory
  // (a failure logs "_getcwd failed" and changes nothing) and changes to the
  // path (a failure logs "_chdir failed"). Returns whether the change was
  // made. A second call on an object that has changed the directory is an
  // internal error.
  bool initialize(const std::string& path);

  [[nodiscard]] bool changed() const { return b_changed_; }
  [[nodiscard]] const std::string& old_dir() const { return old_dir_; }

 private:
  bool b_changed_ = false;
  std::string old_dir_;
};

// Prepares a bug report to the maker's support address. Logs
// "tk_send_bug(%s|%s)". The report (recipient, subject "Bug report on " +
// product, the local date as "%d/%d/%d %d:%d", and the text) is saved as a
// new file in the user's documents folder, and a mailto: URL with the same
// subject and text is handed to xdg-open when it is on the PATH, without
// waiting for the mail program. Runs with the working directory held by a
// tk_temp_chdir to ".", so that a program that changes it does no harm.
// Reports no failure: each step that fails is logged and skipped. Returns the
// path of the saved report, or an empty text when none could be saved.
std::string tk_send_bug(const std::string& product, const std::string& text);

// Puts the text on the desktop's clipboard through the registered
// wizard_shell (the core has no clipboard of its own). Logs
// "tk_copy_to_clipboard2" at level 2, and "tk_copy_to_clipboard2 failed" when
// there is no shell or the shell could not do it. Returns whether it did.
bool tk_copy_to_clipboard2(const std::wstring& text);

}  // namespace qb
