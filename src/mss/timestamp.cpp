#include "mss/timestamp.h"

#include <algorithm>
#include <cstring>

#include "ole/date.h"

namespace qb {

namespace {

// Writes n decimal digits of value, zero-padded.
char* put_digits(char* out, unsigned value, int n) {
  for (int i = n - 1; i >= 0; --i) {
    out[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return out + n;
}

int fraction_digits(int scale) { return std::clamp(scale, 0, odb_max_fraction_digits); }

// The fields the text form carries unchanged, and the parser reads back as
// they are: four-digit years from 1, real days of real months, a clock below
// 24 hours, a fraction of nine digits.
bool plain_fields(const SQL_TIMESTAMP_STRUCT& t) {
  if (t.year < 1 || t.year > 9999) return false;
  if (t.month < 1 || t.month > 12) return false;
  if (t.day < 1 || t.day > ole_days_in_month(t.year, t.month)) return false;
  return t.hour < 24 && t.minute < 60 && t.second < 60 && t.fraction < 1000000000;
}

}  // namespace

std::string_view odb_timestamp_text(const SQL_TIMESTAMP_STRUCT& t, bool date_only, int scale, char (&buffer)[40]) {
  char* p = buffer;
  p = put_digits(p, static_cast<unsigned>(t.year), 4);
  *p++ = '-';
  p = put_digits(p, t.month, 2);
  *p++ = '-';
  p = put_digits(p, t.day, 2);
  if (!date_only) {
    *p++ = ' ';
    p = put_digits(p, t.hour, 2);
    *p++ = ':';
    p = put_digits(p, t.minute, 2);
    *p++ = ':';
    p = put_digits(p, t.second, 2);
    if (scale > 0) {
      *p++ = '.';
      char nine[9];
      put_digits(nine, static_cast<unsigned>(t.fraction), 9);
      const int n = fraction_digits(scale);
      std::memcpy(p, nine, static_cast<std::size_t>(n));
      p += n;
    }
  }
  return {buffer, static_cast<std::size_t>(p - buffer)};
}

std::size_t odb_timestamp_text_size(bool date_only, int scale) {
  if (date_only) return 10;
  return scale > 0 ? 20 + static_cast<std::size_t>(fraction_digits(scale)) : 19;
}

ole_variant odb_date_value(const SQL_TIMESTAMP_STRUCT& t, bool date_only, int scale) {
  if (!plain_fields(t) || ole_date::timezone_switch()) {
    char buffer[40];
    return ole_variant::from_string(odb_timestamp_text(t, date_only, scale, buffer), ole_variant::vt_date);
  }
  ole_date date;
  date.src.wYear = t.year;
  date.src.wMonth = t.month;
  date.src.wDay = t.day;
  if (date_only) {
    // "YYYY-MM-DD": a pure date, the clock all zero.
    date.type = ole_date::type_date;
    return ole_variant(date);
  }
  date.src.wHour = t.hour;
  date.src.wMinute = t.minute;
  date.src.wSecond = t.second;
  // The text holds the first min(scale, 6) digits of the nine; the parser
  // keeps six of them as microseconds and rounds the milliseconds half up
  // from the fourth. Six digits never round up to a whole second.
  std::int32_t micro = 0;
  const int n = scale > 0 ? fraction_digits(scale) : 0;
  if (n > 0) {
    static constexpr std::int32_t powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000,
                                              1000000000};
    const auto nine = static_cast<std::int32_t>(t.fraction);
    micro = nine / powers[9 - n] * powers[6 - n];
  }
  date.microseconds = micro;
  date.src.wMilliseconds = static_cast<std::uint16_t>(micro / 1000 + (micro % 1000 >= 500 ? 1 : 0));
  date.type = ole_date::type_date_time;
  date.refine_type();
  return ole_variant(date);
}

}  // namespace qb
