"""Dates and times with 100-nanosecond precision, as SQL Server holds them.

Python's datetime stops at microseconds, so values are kept as a day number
(days since 0001-01-01) and ticks of 100 ns since midnight, plus an offset in
minutes for datetimeoffset. Texts use the forms SQL Server prints:
"2024-05-06", "12:34:56.1234567", "2024-05-06 12:34:56.1234567 -05:00".
"""
import datetime
import re

TICKS_PER_SECOND = 10_000_000
TICKS_PER_DAY = 86_400 * TICKS_PER_SECOND
DAY_1900 = datetime.date(1900, 1, 1).toordinal() - 1

_RE = re.compile(
    r"^\s*(?:(?P<y>\d{1,4})-(?P<mo>\d{1,2})-(?P<d>\d{1,2}))?"
    r"(?:(?(y)[ T])(?P<h>\d{1,2}):(?P<mi>\d{2})(?::(?P<s>\d{2})(?:\.(?P<f>\d{1,7}))?)?)?"
    r"\s*(?P<tz>Z|[+-]\d{2}:\d{2})?\s*$")


class TemporalError(ValueError):
    pass


def parse(text):
    """Returns (days or None, ticks or None, offset minutes or None)."""
    m = _RE.match(text)
    if not m or (m.group("y") is None and m.group("h") is None):
        raise TemporalError(f"not a date/time text: {text!r}")
    days = ticks = offset = None
    if m.group("y") is not None:
        try:
            days = datetime.date(int(m.group("y")), int(m.group("mo")), int(m.group("d"))).toordinal() - 1
        except ValueError as e:
            raise TemporalError(f"invalid date {text!r}: {e}") from None
    if m.group("h") is not None:
        h, mi, s = int(m.group("h")), int(m.group("mi")), int(m.group("s") or 0)
        if h > 23 or mi > 59 or s > 59:
            raise TemporalError(f"invalid time {text!r}")
        frac = (m.group("f") or "").ljust(7, "0")
        ticks = ((h * 60 + mi) * 60 + s) * TICKS_PER_SECOND + int(frac)
    tz = m.group("tz")
    if tz:
        if tz == "Z":
            offset = 0
        else:
            sign = -1 if tz[0] == "-" else 1
            offset = sign * (int(tz[1:3]) * 60 + int(tz[4:6]))
            if abs(offset) > 14 * 60:
                raise TemporalError(f"offset out of range in {text!r}")
    return days, ticks, offset


def round_ticks(days, ticks, scale):
    """Rounds ticks to 10^-scale seconds (half up), carrying into the day."""
    unit = 10 ** (7 - scale)
    ticks = (ticks + unit // 2) // unit * unit
    if ticks >= TICKS_PER_DAY:
        ticks -= TICKS_PER_DAY
        if days is not None:
            days += 1
    return days, ticks


def format_date(days):
    d = datetime.date.fromordinal(days + 1)
    return f"{d.year:04d}-{d.month:02d}-{d.day:02d}"


def format_time(ticks, scale):
    secs, frac = divmod(ticks, TICKS_PER_SECOND)
    h, rest = divmod(secs, 3600)
    mi, s = divmod(rest, 60)
    text = f"{h:02d}:{mi:02d}:{s:02d}"
    if scale > 0:
        text += "." + f"{frac:07d}"[:scale]
    return text


def format_offset(minutes):
    sign = "-" if minutes < 0 else "+"
    minutes = abs(minutes)
    return f"{sign}{minutes // 60:02d}:{minutes % 60:02d}"


def time_bytes(scale):
    return 3 if scale <= 2 else 4 if scale <= 4 else 5


def encode_time(ticks, scale):
    value = ticks // 10 ** (7 - scale)
    return value.to_bytes(time_bytes(scale), "little")


def encode_date(days):
    return days.to_bytes(3, "little")


# datetime: days since 1900-01-01 and 1/300 seconds since midnight.
def datetime_parts(days, ticks):
    t300 = (ticks * 300 + TICKS_PER_SECOND // 2) // TICKS_PER_SECOND
    if t300 >= 300 * 86400:
        t300 -= 300 * 86400
        days += 1
    return days - DAY_1900, t300


def datetime_text(days1900, t300):
    ms_total = (t300 * 10 + 1) // 3  # 1/300 s to milliseconds, as SQL Server prints
    secs, ms = divmod(ms_total, 1000)
    ticks = secs * TICKS_PER_SECOND + ms * 10_000
    return format_date(days1900 + DAY_1900) + " " + format_time(ticks, 3)


def smalldatetime_parts(days, ticks):
    minutes = (ticks + 30 * TICKS_PER_SECOND) // (60 * TICKS_PER_SECOND)  # 29.998 s rounds down
    if minutes >= 1440:
        minutes -= 1440
        days += 1
    return days - DAY_1900, minutes
