#include "ole/date.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <initializer_list>

#include "ole/numtext.h"
#include "ole/variant.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {
namespace {

std::atomic<bool> g_timezone_switch{false};

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Spaces only, both ends, as tk_trim does (an all-space text goes through
// tk_trim for its log line).
std::string_view trim_spaces(std::string_view text) {
  const auto first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) {
    if (!text.empty()) (void)tk_trim(text);
    return {};
  }
  const auto last = text.find_last_not_of(' ');
  return text.substr(first, last - first + 1);
}

// One target of a scan: a 16-bit field for "%d"/"%hd" or a text for "%s".
struct scan_target {
  std::uint16_t* word = nullptr;
  std::string_view* text = nullptr;
};

// A scan format ("%4d%02d", "%hd:%hd:%s") compiled once into steps.
struct scan_step {
  enum kind_t : std::uint8_t { literal, space, integer, text } kind = literal;
  char c = 0;
  std::uint8_t width = 0;  // 0: unlimited
};

struct scan_format {
  std::array<scan_step, 24> steps{};
  std::size_t count = 0;
};

constexpr scan_format compile_scan(std::string_view format) {
  scan_format out;
  for (std::size_t f = 0; f < format.size(); ++f) {
    scan_step step;
    const char c = format[f];
    if (ole_is_c_space(c)) {
      step.kind = scan_step::space;
    } else if (c != '%') {
      step.kind = scan_step::literal;
      step.c = c;
    } else {
      ++f;
      int width = 0;
      while (f < format.size() && is_digit(format[f])) width = width * 10 + (format[f++] - '0');
      if (f < format.size() && format[f] == 'h') ++f;
      step.kind = f < format.size() && format[f] == 's' ? scan_step::text : scan_step::integer;
      step.width = static_cast<std::uint8_t>(width);
    }
    out.steps[out.count++] = step;
  }
  return out;
}

// A small sscanf for the date formats: "%Nd", "%hd", "%s", white space (any
// amount, also none) and literal characters. Returns the number of targets
// filled, or -1 when the input ended before the first one.
int scan(std::string_view in, const scan_format& format, std::initializer_list<scan_target> targets) {
  std::size_t i = 0;
  int filled = 0;
  const scan_target* target = targets.begin();
  const std::size_t size = in.size();
  for (std::size_t k = 0; k < format.count; ++k) {
    const scan_step& step = format.steps[k];
    if (step.kind == scan_step::space) {
      while (i < size && ole_is_c_space(in[i])) ++i;
      continue;
    }
    if (step.kind == scan_step::literal) {
      if (i >= size) return filled == 0 ? -1 : filled;
      if (in[i] != step.c) return filled;
      ++i;
      continue;
    }
    while (i < size && ole_is_c_space(in[i])) ++i;
    if (i >= size) return filled == 0 ? -1 : filled;
    const std::size_t limit = step.width > 0 && i + step.width < size ? i + step.width : size;
    if (step.kind == scan_step::text) {
      const std::size_t start = i;
      while (i < limit && !ole_is_c_space(in[i])) ++i;
      *target->text = in.substr(start, i - start);
    } else {
      bool negative = false;
      if (in[i] == '+' || in[i] == '-') {
        negative = in[i] == '-';
        ++i;
      }
      const std::size_t digits = i;
      std::int64_t v = 0;
      while (i < limit && is_digit(in[i])) {
        if (v < 100000000000LL) v = v * 10 + (in[i] - '0');
        ++i;
      }
      if (i == digits) return filled;
      *target->word = static_cast<std::uint16_t>(negative ? -v : v);
    }
    ++filled;
    ++target;
  }
  return filled;
}

constexpr scan_format timestamp_14 = compile_scan("%4d%02d%02d%02d%02d%02d");
constexpr scan_format timestamp_8 = compile_scan("%4d%02d%02d");
constexpr scan_format pure_time = compile_scan("%hd:%hd:%s");
constexpr scan_format date_time_forms[] = {compile_scan("%hd-%hd-%hd %hd:%hd:%s"),
                                           compile_scan("%hd/%hd/%hd %hd:%hd:%s"),
                                           compile_scan("%hd.%hd.%hd %hd:%hd:%s")};

bool is_leap(int year) {
  if (year < 1) ++year;  // no year 0 in the count
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

constexpr int month_days[2][12] = {{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
                                   {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31}};

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar.
std::int64_t days_from_civil(std::int64_t y, int m, int d) {
  y -= m <= 2 ? 1 : 0;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const std::int64_t yoe = y - era * 400;
  const std::int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void civil_from_days(std::int64_t z, int& year, int& month, int& day) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const std::int64_t doe = z - era * 146097;
  const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const std::int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
}

constexpr std::int64_t epoch_days = -25569;  // 1899-12-30 from 1970-01-01

// Rounds half away from zero into 32 bits; out of range gives the lowest value
// as the x86 conversion does.
std::int32_t round_away_i32(double v) {
  const double r = std::round(v);
  if (!(r >= -2147483648.0 && r < 2147483648.0)) return INT32_MIN;
  return static_cast<std::int32_t>(r);
}

std::int32_t truncate_i32(double v) {
  const double t = std::trunc(v);
  if (!(t >= -2147483648.0 && t < 2147483648.0)) return INT32_MIN;
  return static_cast<std::int32_t>(t);
}

// A trailing " +hh:mm" / " -hh:mm"; the minutes east of UTC.
bool split_offset(std::string_view& text, std::int16_t& minutes) {
  constexpr std::size_t len = 7;  // " +hh:mm"
  if (text.size() <= len) return false;
  const std::string_view tail = text.substr(text.size() - len);
  if (tail[0] != ' ' || (tail[1] != '+' && tail[1] != '-') || !is_digit(tail[2]) || !is_digit(tail[3]) ||
      tail[4] != ':' || !is_digit(tail[5]) || !is_digit(tail[6])) {
    return false;
  }
  const int value = ((tail[2] - '0') * 10 + (tail[3] - '0')) * 60 + (tail[5] - '0') * 10 + (tail[6] - '0');
  minutes = static_cast<std::int16_t>(tail[1] == '-' ? -value : value);
  text = trim_spaces(text.substr(0, text.size() - len));
  return true;
}

}  // namespace

int ole_days_in_month(int year, int month) {
  if (month < 1 || month > 12) return 0;
  return month_days[is_leap(year) ? 1 : 0][month - 1];
}

void ole_date::set_timezone_switch(bool on) { g_timezone_switch.store(on, std::memory_order_relaxed); }

bool ole_date::timezone_switch() { return g_timezone_switch.load(std::memory_order_relaxed); }

ole_date::ole_date(const ole_systemtime& time) : type(type_date_time), src(time) { refine_type(); }

ole_date::ole_date(std::string_view text) { parse(text); }

ole_date::ole_date(std::wstring_view text) {
  // Date text is ASCII in practice: narrow it on the stack without a
  // conversion call.
  char buf[96];
  if (text.size() <= sizeof buf) {
    std::size_t n = 0;
    for (; n < text.size() && static_cast<std::uint32_t>(text[n]) < 0x80; ++n) buf[n] = static_cast<char>(text[n]);
    if (n == text.size()) {
      parse(std::string_view(buf, n));
      return;
    }
  }
  std::string narrow;
  if (!tk_unicode_to_ansi2(text, narrow)) narrow.clear();
  parse(narrow);
}

ole_date::ole_date(const ole_variant& value) {
  const std::uint16_t tag = value.get_type();
  if (tag < 2) return;
  if (tag != ole_variant::vt_date) throw tk_mail_assertion("ole_date", __LINE__);
  ole_systemtime time;
  if (!ole_variant_time_to_system_time(value.get_date_double(), time)) {
    LOG(2, "Failed to convert VARIANT->SYSTEMTIME");
    return;
  }
  src = time;
  type = type_date_time;
  refine_type();
}

void ole_date::parse(std::string_view text) {
  std::string_view t = trim_spaces(text);
  if (timezone_switch()) {
    std::size_t at = t.find('+');
    if (at == std::string_view::npos) {
      at = t.find(" -");
      if (at != std::string_view::npos && t.find('-', at + 2) != std::string_view::npos) at = std::string_view::npos;
    }
    if (at != std::string_view::npos) {
      const std::string_view zone = t.substr(at);
      LOG(1, "Got timezone string: %s", zone);
      timezone = ole_atoi(zone);
      LOG(1, "Got timezone value: %d", timezone);
      t = trim_spaces(t.substr(0, at));
    }
  } else if (split_offset(t, offset_minutes)) {
    has_offset = true;
    LOG(1, "Offset set aside: %d minutes", static_cast<int>(offset_minutes));
  }
  // The first "AM", else the first "PM", else "am", else "pm" cuts the text;
  // found in one pass.
  std::size_t first[4] = {std::string_view::npos, std::string_view::npos, std::string_view::npos,
                          std::string_view::npos};
  for (std::size_t i = 0; i + 1 < t.size(); ++i) {
    const char c = t[i];
    const char m = t[i + 1];
    int which = -1;
    if (m == 'M') {
      which = c == 'A' ? 0 : c == 'P' ? 1 : -1;
    } else if (m == 'm') {
      which = c == 'a' ? 2 : c == 'p' ? 3 : -1;
    }
    if (which >= 0 && first[which] == std::string_view::npos) first[which] = i;
  }
  const bool pm = first[1] != std::string_view::npos || first[3] != std::string_view::npos;
  for (std::size_t cut : first) {
    if (cut == std::string_view::npos) continue;
    t = trim_spaces(t.substr(0, cut));
    break;
  }
  if (t.size() < 5) {
    LOG(2, "Invalid date/time format: '%s'", t);
    return;
  }
  if (!import_from_string(t)) return;
  if (pm && src.wHour < 12) src.wHour = static_cast<std::uint16_t>(src.wHour + 12);
}

bool ole_date::check_validity() const {
  if (type == type_none) return false;
  const bool pure_time = src.wYear == 0 && src.wMonth == 0 && src.wDay == 0;
  if (pure_time) {
    LOG(1, "DATETIME is a pute time");
  } else {
    if (src.wMonth < 1 || src.wMonth > 12) {
      LOG(1, "Invalid month");
      return false;
    }
    if (src.wDay > 31) {
      LOG(1, "Invalid day (1)");
      return false;
    }
    if (src.wDay > ole_days_in_month(static_cast<std::int16_t>(src.wYear), src.wMonth)) {
      LOG(1, "Invalid day (2)");
      return false;
    }
    if (src.wYear == 0 || src.wDay == 0) {
      LOG(1, "Got zero day/month/year");
      return false;
    }
  }
  if (src.wHour > 60 || src.wMinute > 60 || src.wSecond > 60) {
    LOG(1, "Invalid time");
    return false;
  }
  return true;
}

bool ole_date::is_valid() const { return check_validity(); }

bool ole_date::time_is_zero() const {
  return src.wHour == 0 && src.wMinute == 0 && src.wSecond == 0 && src.wMilliseconds == 0 && microseconds == 0;
}

void ole_date::refine_type() {
  if (src.wYear == 0 && src.wMonth == 0 && src.wDay == 0) {
    LOG(1, "Switch to 'pure' time");
    type = type_time;
    return;
  }
  if (time_is_zero() && src.wYear != 0 && src.wMonth != 0 && src.wDay != 0) {
    LOG(1, "Switch to 'pure' date");
    type = type_date;
  }
}

bool ole_date::import_from_string(std::string_view text) {
  auto swap_day_and_year = [this] {
    if (src.wDay > 31 && src.wYear < 32) {
      LOG(2, "Swap day and year: day=%d, year=%d", src.wDay, src.wYear);
      std::swap(src.wDay, src.wYear);
    }
  };
  auto accept = [this](int kind) {
    type = kind;
    if (check_validity()) return true;
    src = ole_systemtime{};
    return false;
  };

  if (text.size() == 14) {
    LOG(1, "Trying timestamp format (1)...");
    const int n = scan(text, timestamp_14,
                       {{&src.wYear}, {&src.wMonth}, {&src.wDay}, {&src.wHour}, {&src.wMinute}, {&src.wSecond}});
    swap_day_and_year();
    if (n == 6 && accept(type_date_time)) return true;
    src = ole_systemtime{};  // a digit string of another kind leaves nothing behind
  }
  if (text.size() == 8) {
    LOG(1, "Trying timestamp format (2)...");
    const int n = scan(text, timestamp_8, {{&src.wYear}, {&src.wMonth}, {&src.wDay}});
    if (n == 3 && accept(type_date)) return true;
    src = ole_systemtime{};  // "hh:mm:ss" has 8 characters too
  }

  LOG(1, "Trying pure time format...");
  std::string_view seconds;
  int n = scan(text, pure_time, {{&src.wHour}, {&src.wMinute}, {nullptr, &seconds}});
  if (n == 3 && accept(type_time)) {
    process_milliseconds(seconds);
    return true;
  }
  if (n == 2 && seconds.empty() && accept(type_time)) return true;

  src = ole_systemtime{};
  for (int f = 0; f < 3; ++f) {
    LOG(1, "Trying datetime format #%d", f + 1);
    seconds = {};
    n = scan(text, date_time_forms[f],
             {{&src.wYear}, {&src.wMonth}, {&src.wDay}, {&src.wHour}, {&src.wMinute}, {nullptr, &seconds}});
    if (n != 3 && n != 6) continue;
    swap_day_and_year();
    if (n == 3) {
      LOG(1, "Format #%d succeeded (3 items)", f + 1);
      if (accept(type_date)) return true;
      continue;
    }
    LOG(1, "Format #%d succeeded (6 items)", f + 1);
    if (accept(type_date_time)) {
      process_milliseconds(seconds);
      refine_type();
      return true;
    }
  }

  ole_systemtime parsed;
  if (ole_date_from_us_text(text, parsed)) {
    LOG(1, "Got datetime using Microsoft API");
    src = parsed;
    type = type_date_time;
    refine_type();
    return true;
  }
  type = type_none;
  LOG(2, "Invalid date/time format: '%s'", text);
  return false;
}

void ole_date::process_milliseconds(const char* seconds_text) {
  if (seconds_text == nullptr) throw tk_mail_assertion("ole_date", __LINE__);
  process_milliseconds(std::string_view(seconds_text));
}

void ole_date::process_milliseconds(std::string_view text) {
  // Plain "ss.fffffff" is read digit by digit, exactly; anything else (signs,
  // exponents, junk behind the number) as the C library's atof would.
  std::size_t int_digits = 0;
  while (int_digits < text.size() && is_digit(text[int_digits])) ++int_digits;
  std::size_t end = int_digits;
  bool exact = int_digits > 0 && int_digits <= 4;
  if (exact && end < text.size()) {
    if (text[end] != '.') {
      exact = false;
    } else {
      ++end;
      while (end < text.size() && is_digit(text[end])) ++end;
      exact = end == text.size();
    }
  }
  std::int32_t milli = 0;
  std::int32_t micro = 0;
  if (exact) {
    int whole = 0;
    for (std::size_t k = 0; k < int_digits; ++k) whole = whole * 10 + (text[k] - '0');
    const std::string_view fraction = int_digits < text.size() ? text.substr(int_digits + 1) : std::string_view{};
    auto digit = [&](std::size_t k) { return k < fraction.size() ? fraction[k] - '0' : 0; };
    for (std::size_t k = 0; k < 3; ++k) milli = milli * 10 + digit(k);
    if (digit(3) >= 5) ++milli;
    for (std::size_t k = 0; k < 6; ++k) micro = micro * 10 + digit(k);
    if (digit(6) >= 5) ++micro;
    src.wSecond = static_cast<std::uint16_t>(whole);
  } else {
    const double s = ole_atof(text);
    src.wSecond = static_cast<std::uint16_t>(truncate_i32(s));
    const double f = s - src.wSecond;
    milli = round_away_i32(f * 1000.0);
    micro = round_away_i32(f * 1000000.0);
  }
  src.wMilliseconds = static_cast<std::uint16_t>(milli);
  microseconds = micro;
  if (microseconds == 1000000 || (microseconds == 0 && src.wMilliseconds >= 1000)) {
    microseconds = 0;
    src.wMilliseconds = 0;
    if (++src.wSecond == 60) {
      src.wSecond = 0;
      if (++src.wMinute == 60) {
        src.wMinute = 0;
        if (++src.wHour == 24) src.wHour = 0;
      }
    }
  }
}

namespace {

// Digits of value, at least width of them, written at p (printf "%0<width>u").
char* put_padded(char* p, std::uint32_t value, int width) {
  static constexpr char pairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  if (width == 2 && value < 100) {
    std::memcpy(p, pairs + 2 * value, 2);
    return p + 2;
  }
  if (width == 4 && value < 10000) {
    std::memcpy(p, pairs + 2 * (value / 100), 2);
    std::memcpy(p + 2, pairs + 2 * (value % 100), 2);
    return p + 4;
  }
  char digits[12];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  for (int k = n; k < width; ++k) *p++ = '0';
  while (n > 0) *p++ = digits[--n];
  return p;
}

char* put_signed_padded(char* p, std::int32_t value, int width) {
  if (value >= 0) return put_padded(p, static_cast<std::uint32_t>(value), width);
  *p++ = '-';
  return put_padded(p, static_cast<std::uint32_t>(-static_cast<std::int64_t>(value)), width - 1);
}

}  // namespace

void ole_date::append_text(std::string& out, bool with_fraction, bool zero_date) const {
  // Built in a local buffer and appended once: dates are printed for every
  // date cell of every row.
  char buf[96];
  char* p = buf;
  auto put_date = [&] {
    p = put_padded(p, src.wYear, 4);
    *p++ = '-';
    p = put_padded(p, src.wMonth, 2);
    *p++ = '-';
    p = put_padded(p, src.wDay, 2);
  };
  auto put_time = [&] {
    p = put_padded(p, src.wHour, 2);
    *p++ = ':';
    p = put_padded(p, src.wMinute, 2);
    *p++ = ':';
    p = put_padded(p, src.wSecond, 2);
    if (with_fraction && microseconds != 0) {
      *p++ = '.';
      p = put_signed_padded(p, microseconds, 6);
    } else if (with_fraction && src.wMilliseconds != 0) {
      *p++ = '.';
      p = put_padded(p, src.wMilliseconds, 3);
    }
  };
  switch (type) {
    case type_date_time:
      put_date();
      if (trim_zero_time && time_is_zero()) break;
      *p++ = ' ';
      put_time();
      break;
    case type_date:
      put_date();
      break;
    case type_time:
      if (zero_date) {
        static constexpr std::string_view zero = "0000-00-00 ";
        p = std::copy(zero.begin(), zero.end(), p);
      }
      put_time();
      break;
    default:
      return;
  }
  if (timezone_switch()) {
    *p++ = ' ';
    if (timezone >= 0) {
      *p++ = '+';
      p = put_padded(p, static_cast<std::uint32_t>(timezone), 2);
    } else {
      p = put_signed_padded(p, timezone, 3);
    }
    *p++ = ':';
    *p++ = '0';
    *p++ = '0';
  }
  out.append(buf, p);
}

void ole_date::append_to(std::string& out, bool with_fraction) const { append_text(out, with_fraction, true); }

std::string ole_date::to_string(bool with_fraction) const {
  std::string out;
  append_text(out, with_fraction, true);
  return out;
}

std::wstring ole_date::to_wstring(bool with_fraction) const {
  std::string narrow;
  append_text(narrow, with_fraction, false);
  return std::wstring(narrow.begin(), narrow.end());
}

bool ole_system_time_has_day_number(const ole_systemtime& time) {
  return time.wYear >= 100 && time.wYear <= 9999 && time.wMonth >= 1 && time.wMonth <= 12 && time.wDay >= 1 &&
         time.wDay <= ole_days_in_month(time.wYear, time.wMonth) && time.wHour <= 23 && time.wMinute <= 59 &&
         time.wSecond <= 59;
}

bool ole_system_time_to_variant_time(const ole_systemtime& time, double& out) {
  if (!ole_system_time_has_day_number(time)) return false;
  const std::int64_t days = days_from_civil(time.wYear, time.wMonth, time.wDay) - epoch_days;
  const double fraction = (time.wHour * 3600.0 + time.wMinute * 60.0 + time.wSecond) / 86400.0;
  out = days < 0 ? static_cast<double>(days) - fraction : static_cast<double>(days) + fraction;
  return true;
}

bool ole_variant_time_to_system_time(double value, ole_systemtime& out) {
  // 0100-01-01 and 10000-01-01 as day numbers.
  if (!(value >= -657434.0 && value < 2958466.0)) return false;
  auto days = static_cast<std::int64_t>(std::trunc(value));
  const double fraction = std::fabs(value - static_cast<double>(days));
  auto seconds = static_cast<std::int64_t>(std::llround(fraction * 86400.0));
  if (seconds >= 86400) {
    seconds -= 86400;
    ++days;
  }
  int year = 0;
  int month = 0;
  int day = 0;
  const std::int64_t civil = days + epoch_days;
  civil_from_days(civil, year, month, day);
  if (year > 9999) return false;
  out = ole_systemtime{};
  out.wYear = static_cast<std::uint16_t>(year);
  out.wMonth = static_cast<std::uint16_t>(month);
  out.wDay = static_cast<std::uint16_t>(day);
  out.wDayOfWeek = static_cast<std::uint16_t>(((civil % 7) + 7 + 4) % 7);  // 1970-01-01 was a Thursday
  out.wHour = static_cast<std::uint16_t>(seconds / 3600);
  out.wMinute = static_cast<std::uint16_t>(seconds / 60 % 60);
  out.wSecond = static_cast<std::uint16_t>(seconds % 60);
  return true;
}

namespace {

struct us_token {
  enum kind_t : std::uint8_t { number, word, time } kind = number;
  int value = 0;
  int digits = 0;
  std::string_view text;
  int hour = 0;
  int minute = 0;
  int second = 0;
  char separator_before = ' ';
};

int month_of_word(std::string_view word) {
  static constexpr std::string_view names[] = {"january", "february", "march",     "april",   "may",      "june",
                                               "july",    "august",   "september", "october", "november", "december"};
  if (word.size() < 3) return 0;
  for (int m = 0; m < 12; ++m) {
    const std::string_view name = names[m];
    if (word.size() > name.size()) continue;
    bool same = true;
    for (std::size_t k = 0; k < word.size() && same; ++k) {
      const char c = word[k] >= 'A' && word[k] <= 'Z' ? static_cast<char>(word[k] - 'A' + 'a') : word[k];
      same = c == name[k];
    }
    // The full name or its first three letters.
    if (same && (word.size() == 3 || word.size() == name.size())) return m + 1;
  }
  return 0;
}

bool read_time(std::string_view text, std::size_t& i, us_token& t) {
  auto two = [&](int& field) {
    if (i + 2 > text.size() || !is_digit(text[i]) || !is_digit(text[i + 1])) return false;
    field = (text[i] - '0') * 10 + (text[i + 1] - '0');
    i += 2;
    return true;
  };
  ++i;  // the ':'
  if (!two(t.minute)) return false;
  if (i < text.size() && text[i] == ':') {
    ++i;
    if (!two(t.second)) return false;
  }
  t.kind = us_token::time;
  return i == text.size() || text[i] == ' ';
}

bool tokenize(std::string_view text, us_token* tokens, int& count) {
  count = 0;
  std::size_t i = 0;
  char separator = ' ';
  while (i < text.size()) {
    const char c = text[i];
    if (c == ' ' || c == ',' || c == '/' || c == '-') {
      if (c != ' ' && c != ',') separator = c;
      ++i;
      continue;
    }
    if (count == 5) return false;
    us_token& t = tokens[count++];
    t.separator_before = separator;
    separator = ' ';
    const std::size_t start = i;
    if (is_digit(c)) {
      while (i < text.size() && is_digit(text[i])) {
        if (t.digits < 6) t.value = t.value * 10 + (text[i] - '0');
        ++t.digits;
        ++i;
      }
      if (i < text.size() && text[i] == ':') {
        if (t.digits > 2) return false;
        t.hour = t.value;
        if (!read_time(text, i, t)) return false;
      }
    } else if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
      while (i < text.size() && ((text[i] >= 'a' && text[i] <= 'z') || (text[i] >= 'A' && text[i] <= 'Z'))) ++i;
      t.kind = us_token::word;
      t.text = text.substr(start, i - start);
    } else {
      return false;
    }
  }
  return true;
}

bool us_year(const us_token& t, int& year) {
  if (t.kind != us_token::number || t.digits > 4) return false;
  if (t.digits <= 2) {
    year = t.value < 30 ? 2000 + t.value : 1900 + t.value;
    return true;
  }
  year = t.value;
  return year >= 100;
}

}  // namespace

bool ole_date_from_us_text(std::string_view text, ole_systemtime& out) {
  us_token tokens[5];
  int count = 0;
  if (!tokenize(text, tokens, count)) return false;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (count == 4) {
    if (tokens[3].kind != us_token::time) return false;
    hour = tokens[3].hour;
    minute = tokens[3].minute;
    second = tokens[3].second;
  } else if (count != 3) {
    return false;
  }
  const us_token& a = tokens[0];
  const us_token& b = tokens[1];
  const us_token& c = tokens[2];
  int year = 0;
  int month = 0;
  int day = 0;
  bool year_known = false;
  if (a.kind == us_token::number && b.kind == us_token::number && a.digits == 4) {
    // Y-M-D or Y/M/D, one separator kind throughout.
    if (b.separator_before == ' ' || b.separator_before != c.separator_before) return false;
    if (b.digits > 2 || c.kind != us_token::number || c.digits > 2) return false;
    year = a.value;
    month = b.value;
    day = c.value;
    year_known = true;
  } else if (a.kind == us_token::number && b.kind == us_token::number) {
    // M/D/Y or M-D-Y, one separator kind throughout.
    if (b.separator_before == ' ' || b.separator_before != c.separator_before) return false;
    if (a.digits > 2 || b.digits > 2) return false;
    month = a.value;
    day = b.value;
  } else if (a.kind == us_token::word && b.kind == us_token::number) {
    month = month_of_word(a.text);
    if (b.digits > 2) return false;
    day = b.value;
  } else if (a.kind == us_token::number && b.kind == us_token::word) {
    if (a.digits > 2) return false;
    day = a.value;
    month = month_of_word(b.text);
  } else {
    return false;
  }
  if (!year_known && !us_year(c, year)) return false;
  if (year < 100 || month < 1 || month > 12 || day < 1 || day > ole_days_in_month(year, month)) return false;
  if (hour > 23 || minute > 59 || second > 59) return false;
  out = ole_systemtime{};
  out.wYear = static_cast<std::uint16_t>(year);
  out.wMonth = static_cast<std::uint16_t>(month);
  out.wDay = static_cast<std::uint16_t>(day);
  out.wHour = static_cast<std::uint16_t>(hour);
  out.wMinute = static_cast<std::uint16_t>(minute);
  out.wSecond = static_cast<std::uint16_t>(second);
  return true;
}

}  // namespace qb
