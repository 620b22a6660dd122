#include "tk/format.h"

#include <cstdio>
#include <string>
#include <utility>

#include "tk/utf.h"

namespace qb {

std::int64_t fmt_arg::as_sint() const {
  switch (kind_) {
    case kind::sint:
      return i_;
    case kind::uint:
      return static_cast<std::int64_t>(u_);
    case kind::real:
      return static_cast<std::int64_t>(d_);
    case kind::pointer:
      return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(p_));
    default:
      return 0;
  }
}

std::uint64_t fmt_arg::as_uint() const { return static_cast<std::uint64_t>(as_sint()); }

double fmt_arg::as_real() const {
  switch (kind_) {
    case kind::real:
      return d_;
    case kind::sint:
      return static_cast<double>(i_);
    case kind::uint:
      return static_cast<double>(u_);
    default:
      return 0.0;
  }
}

namespace {

// One parsed conversion directive.
struct directive {
  std::string flags;
  int width = -1;
  int precision = -1;
  int bits = 32;  // integer width selected by the length modifier
  char conv = 0;
};

// Reads a conversion directive starting behind '%'. Works on both
// character widths through the accessor at(i), which yields a char32_t.
template <class At>
std::size_t parse_directive(At at, std::size_t pos, std::size_t end, directive& dir, const fmt_arg*& next_arg,
                            const fmt_arg* args_end) {
  auto take_int_arg = [&]() -> int {
    if (next_arg == args_end) return 0;
    return static_cast<int>((next_arg++)->as_sint());
  };
  while (pos < end) {
    const char32_t c = at(pos);
    if (c == '-' || c == '+' || c == ' ' || c == '#' || c == '0') {
      dir.flags.push_back(static_cast<char>(c));
      ++pos;
    } else {
      break;
    }
  }
  if (pos < end && at(pos) == '*') {
    dir.width = take_int_arg();
    if (dir.width < 0) {
      dir.flags.push_back('-');
      dir.width = -dir.width;
    }
    ++pos;
  } else {
    while (pos < end && at(pos) >= '0' && at(pos) <= '9') {
      dir.width = (dir.width < 0 ? 0 : dir.width) * 10 + static_cast<int>(at(pos) - '0');
      ++pos;
    }
  }
  if (pos < end && at(pos) == '.') {
    ++pos;
    dir.precision = 0;
    if (pos < end && at(pos) == '*') {
      dir.precision = take_int_arg();
      ++pos;
    } else {
      while (pos < end && at(pos) >= '0' && at(pos) <= '9') {
        dir.precision = dir.precision * 10 + static_cast<int>(at(pos) - '0');
        ++pos;
      }
    }
  }
  // Length modifiers.
  while (pos < end) {
    const char32_t c = at(pos);
    if (c == 'h') {
      dir.bits = (dir.bits == 16) ? 8 : 16;
      ++pos;
    } else if (c == 'l') {
      dir.bits = (pos + 1 < end && at(pos + 1) == 'l') ? 64 : 32;
      pos += (dir.bits == 64) ? 2 : 1;
    } else if (c == 'j' || c == 'z' || c == 't' || c == 'q' || c == 'L') {
      dir.bits = 64;
      ++pos;
    } else if (c == 'I') {
      if (pos + 2 < end && at(pos + 1) == '6' && at(pos + 2) == '4') {
        dir.bits = 64;
        pos += 3;
      } else if (pos + 2 < end && at(pos + 1) == '3' && at(pos + 2) == '2') {
        dir.bits = 32;
        pos += 3;
      } else {
        dir.bits = 64;
        ++pos;
      }
    } else if (c == 'w') {
      ++pos;
    } else {
      break;
    }
  }
  if (pos < end) {
    const char32_t c = at(pos);
    dir.conv = c < 0x80 ? static_cast<char>(c) : '?';
    ++pos;
  }
  return pos;
}

std::int64_t narrow_signed(std::int64_t v, int bits) {
  switch (bits) {
    case 8:
      return static_cast<std::int8_t>(v);
    case 16:
      return static_cast<std::int16_t>(v);
    case 32:
      return static_cast<std::int32_t>(v);
    default:
      return v;
  }
}

std::uint64_t narrow_unsigned(std::uint64_t v, int bits) {
  switch (bits) {
    case 8:
      return static_cast<std::uint8_t>(v);
    case 16:
      return static_cast<std::uint16_t>(v);
    case 32:
      return static_cast<std::uint32_t>(v);
    default:
      return v;
  }
}

// Pads text (already in UTF-8) to the width counted in code points.
void append_padded(std::string& out, std::string_view text, const directive& dir, std::size_t code_points) {
  const bool left = dir.flags.find('-') != std::string::npos;
  const std::size_t width = dir.width > 0 ? static_cast<std::size_t>(dir.width) : 0;
  const std::size_t pad = width > code_points ? width - code_points : 0;
  if (!left) out.append(pad, ' ');
  out.append(text);
  if (left) out.append(pad, ' ');
}

// The conversion is delegated to snprintf with a format built from the parsed
// directive; the argument type always matches the length we put in.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void append_number(std::string& out, const directive& dir, const fmt_arg& arg) {
  std::string fmt_text;
  char buf[512];
  const char* length = "ll";
  char conv = dir.conv;
  if (conv == 'i') conv = 'd';
  int n = 0;
  auto build = [&](const char* len, char c) {
    std::string f = "%" + dir.flags;
    if (dir.width >= 0) f += std::to_string(dir.width);
    if (dir.precision >= 0) f += "." + std::to_string(dir.precision);
    f += len;
    f.push_back(c);
    fmt_text = std::move(f);
  };
  const auto fmt = [&] { return fmt_text.c_str(); };
  switch (conv) {
    case 'd':
      build(length, 'd');
      n = std::snprintf(buf, sizeof buf, fmt(), static_cast<long long>(narrow_signed(arg.as_sint(), dir.bits)));
      break;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      build(length, conv);
      n = std::snprintf(buf, sizeof buf, fmt(),
                        static_cast<unsigned long long>(narrow_unsigned(arg.as_uint(), dir.bits)));
      break;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      build("", conv);
      n = std::snprintf(buf, sizeof buf, fmt(), arg.as_real());
      break;
    case 'p':
      n = std::snprintf(buf, sizeof buf, "%p", arg.pointer());
      break;
    default:
      return;
  }
  if (n > 0) out.append(buf, static_cast<std::size_t>(n) < sizeof buf ? static_cast<std::size_t>(n) : sizeof buf - 1);
}
#pragma GCC diagnostic pop

std::size_t count_code_points(std::string_view utf8) {
  std::size_t n = 0;
  for (char c : utf8) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  }
  return n;
}

// Cuts UTF-8 text to at most max code points.
std::string_view cut_code_points(std::string_view utf8, std::size_t max) {
  std::size_t n = 0;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    if ((static_cast<unsigned char>(utf8[i]) & 0xC0) != 0x80) {
      if (n == max) return utf8.substr(0, i);
      ++n;
    }
  }
  return utf8;
}

void append_text(std::string& out, const directive& dir, const fmt_arg& arg) {
  std::string converted;
  std::string_view text;
  switch (arg.get_kind()) {
    case fmt_arg::kind::text:
      text = arg.text();
      break;
    case fmt_arg::kind::wtext:
      tk_utf8_append(converted, arg.wtext());
      text = converted;
      break;
    default: {
      directive as_number = dir;
      as_number.conv = arg.get_kind() == fmt_arg::kind::real ? 'g' : 'd';
      as_number.bits = 64;
      append_number(out, as_number, arg);
      return;
    }
  }
  if (dir.precision >= 0) text = cut_code_points(text, static_cast<std::size_t>(dir.precision));
  if (dir.width <= 0) {
    out.append(text);
    return;
  }
  append_padded(out, text, dir, count_code_points(text));
}

void append_char(std::string& out, const directive& dir, const fmt_arg& arg) {
  std::string one;
  if (arg.get_kind() == fmt_arg::kind::text || arg.get_kind() == fmt_arg::kind::wtext) {
    append_text(out, dir, arg);
    return;
  }
  tk_utf8_append(one, static_cast<wchar_t>(arg.as_sint()));
  append_padded(out, one, dir, 1);
}

// The formatting engine, over a format whose characters are read by at(i).
template <class At>
void format_into(std::string& out, At at, std::size_t end, fmt_args args,
                 void (*append_literal)(std::string&, At, std::size_t, std::size_t)) {
  const fmt_arg* next = args.begin();
  std::size_t pos = 0;
  while (pos < end) {
    std::size_t lit = pos;
    while (lit < end && at(lit) != '%') ++lit;
    if (lit > pos) append_literal(out, at, pos, lit);
    if (lit >= end) break;
    pos = lit + 1;
    if (pos < end && at(pos) == '%') {
      out.push_back('%');
      ++pos;
      continue;
    }
    directive dir;
    pos = parse_directive(at, pos, end, dir, next, args.end());
    if (dir.conv == 0) break;
    const bool is_conversion = std::string_view("diuoxXeEfFgGaAcCsSpn").find(dir.conv) != std::string_view::npos;
    if (!is_conversion) continue;
    if (dir.conv == 'n') continue;
    if (next == args.end()) continue;  // a missing argument prints nothing
    const fmt_arg& arg = *next++;
    switch (dir.conv) {
      case 's':
      case 'S':
        append_text(out, dir, arg);
        break;
      case 'c':
      case 'C':
        append_char(out, dir, arg);
        break;
      default:
        if (arg.get_kind() == fmt_arg::kind::text || arg.get_kind() == fmt_arg::kind::wtext) {
          append_text(out, dir, arg);
        } else {
          append_number(out, dir, arg);
        }
    }
  }
}

}  // namespace

void tk_vformat_append(std::string& out, std::string_view format, fmt_args args) {
  auto at = [format](std::size_t i) -> char32_t { return static_cast<unsigned char>(format[i]); };
  using At = decltype(at);
  format_into<At>(out, at, format.size(), args, [](std::string& o, At a, std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) o.push_back(static_cast<char>(a(i)));
  });
}

std::string tk_vformat(std::string_view format, fmt_args args) {
  std::string out;
  out.reserve(format.size() + 16);
  tk_vformat_append(out, format, args);
  return out;
}

std::wstring tk_vwformat(std::wstring_view format, fmt_args args) {
  auto at = [format](std::size_t i) -> char32_t { return static_cast<char32_t>(format[i]); };
  using At = decltype(at);
  std::string utf8;
  utf8.reserve(format.size() + 16);
  format_into<At>(utf8, at, format.size(), args, [](std::string& o, At a, std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) tk_utf8_append(o, static_cast<wchar_t>(a(i)));
  });
  return tk_utf8_decode(utf8);
}

}  // namespace qb
