// The per-user settings store: tk_reg_key and its exchange helpers.
//
// The program keeps a few per-user defaults under the key
// "Software\Varnholt\Quillbridge". Each key is a text file below the user's
// configuration folder ($XDG_CONFIG_HOME, else ~/.config): the path of the key
// without its leading "Software" names the folders and the file, so that key
// is $XDG_CONFIG_HOME/Varnholt/Quillbridge.conf. The format, one value a line
// as name=kind:value, is described in doc/settings-format.md.
//
// A key holds values of three kinds, those of the registry it stands for: a
// 32-bit number (type 4), narrow text and wide text (both type 1). Narrow
// text is kept byte for byte; reading it as wide text decodes it from the
// system code page, and wide text read as narrow is encoded to it.
//
// Values are read from the file when the key is opened and changed in memory
// by set_value. flush() and close() write the file when anything changed: the
// values this object changed are laid over the file as it is on the disk at
// that moment (so two programs that change different values both keep
// theirs), and the result replaces the file as a whole (tk_replace_file),
// with mode 0600. A folder the store creates gets mode 0700.
//
// A file that is damaged in part loads what it can: a line that cannot be
// read is skipped with a log line, and disappears when the file is written
// next.
//
// Ownership: tk_reg_key owns its in-memory copy of the values; not copyable.
// Thread-safety: one thread at a time per object.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace qb {

// The key of the product's per-user defaults.
inline constexpr char tk_product_reg_path[] = "Software\\Varnholt\\Quillbridge";

// The root a key path starts from; the current user's is the only one.
enum class tk_reg_root { current_user };

// What create() found.
inline constexpr std::uint32_t tk_reg_created_new_key = 1;
inline constexpr std::uint32_t tk_reg_opened_existing_key = 2;

// Kinds of value, as the registry numbers them.
inline constexpr int tk_reg_type_none = 0;
inline constexpr int tk_reg_type_text = 1;
inline constexpr int tk_reg_type_dword = 4;

class tk_reg_key {
 public:
  tk_reg_key() = default;
  // Writes pending changes as flush() does; a failure is logged only.
  ~tk_reg_key();
  tk_reg_key(const tk_reg_key&) = delete;
  tk_reg_key& operator=(const tk_reg_key&) = delete;

  // Opens the key `path` ("Software\Varnholt\Quillbridge") under the root,
  // creating its folder (mode 0700) and its file (mode 0600) when they do not
  // exist. A key open before is closed first (its changes written). Returns
  // 0, or the error number: EINVAL for a path with an empty part, ".", ".."
  // or "/" in a part, or the file system's error. When `disposition` is given
  // it receives tk_reg_created_new_key or tk_reg_opened_existing_key.
  int create(tk_reg_root root, const std::string& path, std::uint32_t* disposition = nullptr);

  [[nodiscard]] bool is_open() const { return open_; }
  // The file that holds the key; empty when closed.
  [[nodiscard]] const std::string& file_path() const { return file_; }

  // Reads a value into `value`. Logs "tk_reg_key::get_value(ulong, %s)",
  // "tk_reg_key::get_value(LPSTR, %s)" or "tk_reg_key::get_value(LPWSTR, %s)"
  // and then, at level 1, "type=%d, size=%d" (the registry's type and size in
  // bytes of the value; 0 and 0 for a missing one). Returns 0; or ENOENT for
  // a missing value, EINVAL for a value of the other kind (a number asked as
  // text or text asked as a number), EBADF for a closed key: then `value` is
  // left as it was. A null name is an internal error.
  int get_value(const char* name, std::uint32_t& value) const;
  int get_value(const char* name, std::string& value) const;
  int get_value(const char* name, std::wstring& value) const;

  // Sets a value in memory (flush() writes it). A closed key and a name that
  // the file cannot hold (null, or holding "=", a control character or
  // "\") are internal errors.
  void set_value(const char* name, std::uint32_t value);
  void set_value(const char* name, const std::string& value);
  void set_value(const char* name, const std::wstring& value);
  void set_value(const char* name, const char* value) { set_value(name, std::string(value)); }
  void set_value(const char* name, const wchar_t* value) { set_value(name, std::wstring(value)); }

  // Writes the changes made since the last write. Returns 0 (also when there
  // was nothing to write), or the error number; the changes then stay
  // pending and the file on the disk is unchanged.
  int flush();
  // flush(), then closes the key. Returns what flush() returned; the key is
  // closed either way.
  int close();

 private:
  enum class t_kind { dword, text, wtext };
  struct t_value {
    t_kind kind = t_kind::dword;
    std::uint32_t number = 0;
    std::string narrow;  // t_kind::text
    std::wstring wide;   // t_kind::wtext
  };
  using t_values = std::map<std::string, t_value>;

  // Logs the reading of `name` and finds it; nullptr with `error` set when
  // the key is closed or the value is missing.
  const t_value* find(const char* name, const char* log_format, int& error) const;
  void put(const char* name, t_value value);
  static t_values read_file(const std::string& file);
  static std::string render(const t_values& values);

  bool open_ = false;
  std::string file_;
  t_values values_;
  std::set<std::string> changed_;
};

// Exchange helpers: with `store` clear they read the named value into
// `value`, with it set they write `value`. They return true on success; a
// missing value leaves `value` as it was and gives false, and so does a
// closed key in either direction. A flag is kept as the number 0 or 1; any
// number other than 0 reads as true (1).
bool tk_reg_exchange(tk_reg_key& key, const char* name, bool& value, bool store);
bool tk_reg_exchange(tk_reg_key& key, const char* name, std::uint8_t& value, bool store);
bool tk_reg_exchange(tk_reg_key& key, const char* name, std::uint32_t& value, bool store);
bool tk_reg_exchange(tk_reg_key& key, const char* name, std::string& value, bool store);
bool tk_reg_exchange(tk_reg_key& key, const char* name, std::wstring& value, bool store);

// tk_serializer: the base of a converter that keeps per-user defaults, with
// its key opened on the product's path when it is constructed. A key that
// cannot be opened is logged and stays closed: reading then leaves every
// default in place and writing changes nothing.
class tk_serializer {
 public:
  tk_serializer();
  virtual ~tk_serializer() = default;
  tk_serializer(const tk_serializer&) = delete;
  tk_serializer& operator=(const tk_serializer&) = delete;

  tk_reg_key& reg_key() { return key_; }

 private:
  tk_reg_key key_;
};

}  // namespace qb
