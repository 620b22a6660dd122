// ole_date: a broken-down date and time parsed from text, the value behind
// the VT_DATE tag.
//
// It reads dates in the forms that SQL Server (also through FreeTDS, which
// prints the year unpadded and seven fraction digits), MySQL and people write,
// keeps apart a date and time (type 1), a pure date (2) and a pure time (3),
// keeps fractions of a second to the microsecond, and prints MySQL-style
// text. Bad text never throws: the date ends with type 0 and is_valid() says
// false.
//
// Text forms read, first match wins (import_from_string):
//   "YYYYMMDDhhmmss", "YYYYMMDD", "h:m[:s[.f]]",
//   "Y-M-D[ h:m:s[.f]]", "Y/M/D[ h:m:s[.f]]", "Y.M.D[ h:m:s[.f]]"
//   (a day above 31 with a year below 32 is taken as D-M-Y and swapped), and
//   last the US-English forms of ole_date_from_us_text ("12/25/2005",
//   "Jan 5 2005 10:00"). "AM"/"PM" behind the text select the half day.
//
// Time zones. A process-wide switch, off in this program, makes the parser
// read a trailing zone ("+05", " -08") into `timezone` as whole hours and the
// printers append it. With the switch off, a trailing offset of the form
// " +hh:mm" or " -hh:mm" (as SQL Server's datetimeoffset prints) is set aside
// before parsing: the date keeps the wall-clock time as written (what SQL
// Server itself gives when it casts a datetimeoffset to datetime2), and the
// offset is kept in has_offset/offset_minutes for callers that want it. It is
// not printed.
//
// A plain value; one thread at a time. The switch may be read from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

class ole_variant;

// The broken-down time of the platform (its SYSTEMTIME), all fields 16 bits.
struct ole_systemtime {
  // NOLINTBEGIN(readability-identifier-naming): the platform's field names
  std::uint16_t wYear = 0;
  std::uint16_t wMonth = 0;
  std::uint16_t wDayOfWeek = 0;
  std::uint16_t wDay = 0;
  std::uint16_t wHour = 0;
  std::uint16_t wMinute = 0;
  std::uint16_t wSecond = 0;
  std::uint16_t wMilliseconds = 0;
  // NOLINTEND(readability-identifier-naming)

  friend bool operator==(const ole_systemtime&, const ole_systemtime&) = default;
};

class ole_date {
 public:
  static constexpr int type_none = 0;
  static constexpr int type_date_time = 1;
  static constexpr int type_date = 2;
  static constexpr int type_time = 3;

  int type = type_none;
  int timezone = 0;  // whole hours, only while the time-zone switch is on
  bool trim_zero_time = true;
  bool has_offset = false;          // a " +hh:mm" offset was set aside
  std::int16_t offset_minutes = 0;  // that offset, east of UTC positive
  std::int32_t microseconds = 0;    // 0 .. 999,999, only from parsed text
  ole_systemtime src{};

  ole_date() = default;
  // type 1, then refine_type.
  explicit ole_date(const ole_systemtime& time);
  // The parser.
  explicit ole_date(std::string_view text);
  // Converted to narrow text in the thread's code page, then parsed.
  explicit ole_date(std::wstring_view text);
  // A VT_DATE value, through its day-number double (whole seconds; see
  // ole_variant_time_to_system_time). An empty value gives type 0; any other
  // tag is an internal error.
  explicit ole_date(const ole_variant& value);

  [[nodiscard]] bool is_valid() const;
  // A pure time when year, month and day are all 0; a pure date when they are
  // all set and the time (to the microsecond) is all zero.
  void refine_type();
  // Tries the fixed forms, then the US-English form; false when none fits.
  bool import_from_string(std::string_view text);
  // Reads the seconds text: the whole seconds and the milliseconds and
  // microseconds rounded half away from zero, carrying into the minute and
  // hour; the hour wraps at 24 without a carry into the day. A null text is
  // an internal error.
  void process_milliseconds(const char* seconds_text);
  void process_milliseconds(std::string_view seconds_text);

  // MySQL-style text: "2005-01-05 10:00:00.250000", "2005-01-05",
  // "0000-00-00 10:15:30.500000"; empty for type 0.
  [[nodiscard]] std::string to_string(bool with_fraction) const;
  // The same, wide, but a pure time without the zero date ("10:15:30.500000").
  [[nodiscard]] std::wstring to_wstring(bool with_fraction) const;
  void append_to(std::string& out, bool with_fraction) const;

  static void set_timezone_switch(bool on);
  static bool timezone_switch();

 private:
  void parse(std::string_view text);
  [[nodiscard]] bool check_validity() const;
  [[nodiscard]] bool time_is_zero() const;
  void append_text(std::string& out, bool with_fraction, bool zero_date) const;
};

// The platform's day-number time: days since 1899-12-30, the time of day as
// the fraction (behind the sign for days before the epoch). Years 100..9999;
// milliseconds are not carried. False for anything outside that or for an
// impossible date or time.
bool ole_system_time_to_variant_time(const ole_systemtime& time, double& out);
// True when ole_system_time_to_variant_time succeeds for time.
bool ole_system_time_has_day_number(const ole_systemtime& time);
// The inverse, rounded to the second; sets wDayOfWeek (0 is Sunday).
bool ole_variant_time_to_system_time(double value, ole_systemtime& out);

// The last-resort parser for US-English date text, standing in for the
// platform's locale parser. Accepts a date as "M/D/Y" or "M-D-Y", "YYYY-M-D"
// or "YYYY/M/D", "Mon D Y", "Mon D, Y", "D Mon Y" or "D-Mon-Y" (month names or
// their first three letters, any case), optionally followed by "h:mm" or
// "h:mm:ss". A year of one or two digits is 2000-2029 for 0-29 and 1930-1999
// for 30-99; other years must be 100..9999. The result has whole seconds.
// False for anything else, including impossible dates.
bool ole_date_from_us_text(std::string_view text, ole_systemtime& out);

// Days in a month (1..12) of a year, by the Gregorian rule; 0 for month 0
// or above 12.
int ole_days_in_month(int year, int month);

}  // namespace qb
