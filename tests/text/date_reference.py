"""Dates once more, in the plainest way: what the library must answer.

Where the local clock shows a time twice or never, mktime may answer one of several moments, so a
reader answers a set. A text that it refuses raises Refused.
"""
import re
from datetime import datetime, timedelta, timezone
from functools import lru_cache
from zoneinfo import ZoneInfo

FIRST, LAST = -(2**31), 2**31 - 1
DAY = 86400
EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)
MONTHS = ("JANUARY FEBRUARY MARCH APRIL MAY JUNE JULY AUGUST SEPTEMBER OCTOBER NOVEMBER "
          "DECEMBER").split()
LONGEST = (31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31)
WEEKDAYS = "SUNDAY MONDAY TUESDAY WEDNESDAY THURSDAY FRIDAY SATURDAY".split()
SPACES = " \t\n\v\f\r"


class Refused(Exception):
    pass


def need(condition):
    if not condition:
        raise Refused


class Zone:
    """A zone's clock. A local time is seconds, too: those of UTC's clock when it shows the same."""

    def __init__(self, name):
        self.info = ZoneInfo(name)

    @lru_cache(maxsize=None)
    def at(self, moment):
        """Offset in seconds, and whether it is summer time."""
        there = (EPOCH + timedelta(seconds=moment)).astimezone(self.info)
        return round(there.utcoffset().total_seconds()), bool(there.dst())

    def local(self, moment):
        return moment + self.at(moment)[0]

    def moments(self, local):
        """All that mktime may answer when it is not told about summer time."""
        need(abs(local) < 2**33)
        offsets = {self.at(local - DAY)[0], self.at(local + DAY)[0]}
        exact = {local - offset for offset in offsets if self.at(local - offset)[0] == offset}
        return self.fitting(exact or {local - offset for offset in offsets})

    def moment_of_standard_time(self, local):
        """What mktime answers when it is told that there is no summer time."""
        need(abs(local) < 2**33)
        for weeks in range(60):
            for side in (-1, 1):
                offset, summer = self.at(local + side * (weeks * 7 * DAY + DAY))
                if not summer:
                    return min(self.fitting({local - offset}))
        raise Refused

    @staticmethod
    def fitting(moments):
        need(all(FIRST <= moment <= LAST for moment in moments))
        return moments


def seconds_of(year, month, day, hour=0, minute=0, second=0):
    """A local time from fields, of which all but the year may lie out of range."""
    year, month = year + (month - 1) // 12, (month - 1) % 12 + 1
    need(1 <= year <= 9999)
    days = (datetime(year, month, 1) - datetime(1970, 1, 1)).days + day - 1
    return days * DAY + hour * 3600 + minute * 60 + second


def fields_of(seconds):
    return datetime(1970, 1, 1) + timedelta(seconds=seconds)


def weekday_of(there):
    return (there.weekday() + 1) % 7  # from Sunday


# The older grammar


def number(text):
    need(re.fullmatch(r"[+-]?[0-9]+", text))
    value = int(text)
    need(abs(value) < 2**31)
    return value


def number_within(text, first, last):
    value = number(text)
    need(first <= value <= last)
    return value


def word_in(word, names, short=3):
    for at, name in enumerate(names):
        if word in (name, name[:short]):
            return at
    raise Refused


def split_fields(text):
    """Date and time, each None where there is none."""
    if "." in text:
        parts = text.split(".")
        if len(parts) == 2:
            return parts[0], parts[1]
        return ".".join(parts[:2]), ".".join(parts[2:])
    return (None, text) if ":" in text else (text, None)


def older_clock(text):
    """Seconds of the day, and the zone's text or None."""
    need(":" in text)
    hour, rest = text.split(":", 1)
    second, zone = None, None
    if "UTC" in rest and ":" not in rest.split("UTC", 1)[0]:
        minute, zone = rest.split("UTC", 1)
    elif ":" in rest:
        minute, second = rest.split(":", 1)
        if "UTC" in second:
            second, zone = second.split("UTC", 1)
    else:
        minute = rest
    clock = number_within(hour, 0, 23) * 3600 + number_within(minute, 0, 59) * 60
    return clock + (number_within(second, 0, 59) if second is not None else 0), zone


def older_offset(zone):
    if zone == "":
        return 0
    hours, colon, minutes = zone.partition(":")
    offset = 60 * number(minutes) if colon else 0
    return (-offset if zone[0] == "-" else offset) + 3600 * number(hours)


def older_year(text):
    year = number(text)
    need(year >= 0 and not 100 <= year <= 1968)
    return year + 2000 if year <= 68 else year + 1900 if year <= 99 else year


def older_day(text, today, direction):
    """Year or None, month, day, whether the day counts from today."""
    if "-" in text:
        day, month, *year = text.split("-", 2)
        month = 0 if month == "" else word_in(month, MONTHS)
        day = number_within(day, 1, LONGEST[month])
        return older_year(year[0]) if year else None, month + 1, day, False
    if text in ("TODAY", "YESTERDAY"):
        return None, today.month, today.day - (text == "YESTERDAY"), True
    ahead = word_in(text, WEEKDAYS) - weekday_of(today)
    if direction == 1 and ahead < 0:
        ahead += 7
    if direction != 1 and ahead > 0:
        ahead -= 7
    return None, today.month, today.day + ahead, True


def older(zone, now, direction, text):
    need(text != "" and len(text) < 1024)
    text = text.upper().lstrip(SPACES)
    word = text.rstrip(SPACES)
    need(not any(space in word for space in SPACES))
    if word == "NONE":
        return {0}
    if word == "NOW":
        return {now}
    date, time = split_fields(word)
    clock, mark = older_clock(time) if time else (0, None)
    if mark is not None:
        away = zone.moment_of_standard_time(now) - now + older_offset(mark)
    today = fields_of(zone.local(now))
    this_day = fields_of(now) if mark is not None else today
    year, month, day, relative = None, today.month, today.day, False
    if date:
        year, month, day, relative = older_day(date, today, direction)
    if year is None:
        year = today.year
        if not relative:
            there, here = (month, day), (this_day.month, this_day.day)
            year += (direction == 1 and there < here) - (direction == 0 and there > here)
    if not relative and (month, day) == (2, 29):
        need(year % 4 == 0)
    local = seconds_of(year, month, day) + clock
    if mark is None:
        moments = zone.moments(local)
        need(min(moments) >= 0)
        return moments
    moment = zone.moment_of_standard_time(local)
    need(moment >= 0)
    return zone.fitting({moment - away})


# ISO 8601

TWO, THREE = "([0-9]{2})", "([0-9]{3})"
TIME = "(?:[Tt](?P<time>.*))?"
DATES = [(re.compile(form), fields.split()) for form, fields in (
    (TWO, "century"),
    (TWO + TWO, "century year"),
    ("-" + TWO, "year"),
    ("-?" + TWO + "-" + TWO, "year month"),
    (TWO + TWO + "-" + TWO, "century year month"),
    ("-?" + TWO + "-" + TWO + "-" + TWO + TIME, "year month mday"),
    (TWO + TWO + "-" + TWO + "-" + TWO + TIME, "century year month mday"),
    ("-?" + TWO + "-" + THREE + TIME, "year yday"),
    (TWO + TWO + "-" + THREE + TIME, "century year yday"),
    ("--" + TWO, "month"),
    ("--" + TWO + "-" + TWO + TIME, "month mday"),
    ("---" + TWO + TIME, "mday"),
    ("-" + THREE + TIME, "yday"),
    ("-" + TWO + TWO, "year month"),
    ("--" + TWO + TWO + TIME, "month mday"),
    (TWO + THREE + TIME, "year yday"),
    (TWO + TWO + TWO + TIME, "year month mday"),
    (TWO + TWO + THREE + TIME, "century year yday"),
    (TWO + TWO + TWO + TWO + TIME, "century year month mday"),
    ("-[Ww]-([0-9])" + TIME, "wday"),
)]
OFFSET = "(?:(?P<mark>[Zz])|(?P<sign>[+-])(?P<tz_hour>[0-9]{2})(?::?(?P<tz_minute>[0-9]{2}))?)?"
TIMES = [(re.compile(form + OFFSET), fields.split()) for form, fields in (
    (TWO, "hour"),
    (TWO + ":" + TWO, "hour minute"),
    (TWO + ":" + TWO + ":" + TWO, "hour minute second"),
    (TWO + TWO, "hour minute"),
    (TWO + TWO + TWO, "hour minute second"),
    ("-" + TWO, "minute"),
    ("-" + TWO + ":" + TWO, "minute second"),
    ("-" + TWO + TWO, "minute second"),
    ("--" + TWO, "second"),
)]
RANGES = {"century": (19, 20), "year": (0, 99), "month": (1, 12), "mday": (1, 31),
          "wday": (1, 7), "yday": (1, 366), "hour": (0, 24), "minute": (0, 59),
          "second": (0, 60)}


def iso_match(forms, text):
    for form, names in forms:
        match = form.fullmatch(text)
        if match:
            return match, {name: int(match[at + 1]) for at, name in enumerate(names)}
    raise Refused


def iso_fields(text):
    """The fields that are given, and the offset in seconds or None."""
    need("\n" not in text)
    record, time, behind_date = {}, None, False
    if text[:1] in ("T", "t"):
        time = text[1:]
    elif re.match("-*[0-9]*[Zz:]", text):
        time = text
    else:
        match, record = iso_match(DATES, text)
        time, behind_date = match.groupdict().get("time"), True
    offset = None
    if time is not None:
        need(not (behind_date and time.startswith("-")))
        match, fields = iso_match(TIMES, time)
        record.update(fields)
        if match["mark"]:
            offset = 0
        elif match["sign"]:
            hours, minutes = int(match["tz_hour"]), int(match["tz_minute"] or 0)
            need(hours <= 23 and minutes <= 59)
            offset = (hours * 3600 + minutes * 60) * (-1 if match["sign"] == "-" else 1)
    for name, value in record.items():
        need(RANGES[name][0] <= value <= RANGES[name][1])
    return record, offset


def iso_defaults(record, there, direction):
    """Fills in what is not given, as it is on the clock `there`."""
    weekday = weekday_of(there)
    yday = there.timetuple().tm_yday
    this_week = (yday - 1 - (yday - 1 - weekday + 9) % 7 + 11) // 7
    today = (weekday + 6) % 7 + 1
    if "second" in record:
        record.setdefault("minute", there.minute)
    if "minute" in record:
        record.setdefault("hour", there.hour)
    if "hour" in record and not record.keys() & {"wday", "mday", "yday"}:
        record["yday"] = yday
    if "mday" in record and "month" not in record:
        record["month"] = there.month + correction(record["mday"], there.day, direction)
    if "wday" in record:
        record["week"] = this_week + correction(record["wday"], today, direction)
    if "year" not in record and record.keys() & {"yday", "month", "week"}:
        if "yday" in record:
            years = correction(record["yday"], yday, direction)
        elif "week" in record:
            years = correction((record["week"], record["wday"]), (this_week, today), direction)
        else:
            years = correction((record["month"], record.get("mday", -1)),
                               (there.month, there.day), direction)
        record["century"], record["year"] = divmod(there.year + years, 100)
    if "year" in record:
        record.setdefault("century", 20 if record["year"] < 51 else 19)
    record.setdefault("year", 0)
    if not record.keys() & {"yday", "month", "week"}:
        record["yday"] = 1
    if "month" in record:
        record.setdefault("mday", 1)
    for name in ("hour", "minute", "second"):
        record.setdefault(name, 0)


def correction(given, present, direction):
    if direction == 0 and given > present:
        return -1
    return int(direction == 1 and given < present)


def iso(zone, now, direction, text):
    record, offset = iso_fields(text)
    here = now + offset if offset is not None else zone.local(now)
    if offset is not None and not record.keys() & {"century", "year"}:
        zone.fitting({here})
    iso_defaults(record, fields_of(here), direction)
    year = record["century"] * 100 + record["year"]
    if "mday" in record:
        local = seconds_of(year, record["month"], record["mday"])
    elif "wday" in record:
        third = weekday_of(datetime(year, 1, 3))
        local = seconds_of(year, 1, record["week"] * 7 + record["wday"] - third - 4)
    else:
        local = seconds_of(year, 1, record["yday"])
    local += record["hour"] * 3600 + record["minute"] * 60 + record["second"]
    if offset is None:
        moments = zone.moments(local)
    else:
        aside = DAY if year <= 1970 else -DAY if year > 2037 else 0
        moments = zone.moments(local + aside)
        need(min(moments) >= 0)
        moments = zone.fitting({zone.local(moment) - offset - aside for moment in moments})
    need(min(moments) >= 0)
    return moments


# Numeric texts

NUMERIC = {0: "yymmdd.HHMMSS", 1: "YYYYmmdd.HHMMSS", 2: "yymmdd.HHMM", 3: "YYYYmmdd.HHMM",
           4: "yymmdd", 5: "YYYYmmdd", 8: "yymmdd.HH:MM"}


def numeric(zone, style, text):
    if style in (6, 7):
        match = re.match("[ \t]*([+-]?[0-9]+)" if style == 6 else "[ \t]*([+-]?(?:0x)?[0-9a-fA-F]+)",
                         text)
        need(match)
        value = int(match[1], 10 if style == 6 else 16)
        return {(value + 2**31) % 2**32 - 2**31}
    form, slots = NUMERIC[style], {}
    need(len(text) >= len(form))
    for key, byte in zip(form, text):
        if key in ".:":
            need(byte == key)
        else:
            slots[key] = slots.get(key, "") + byte
    value = {}
    for key, slot in slots.items():
        match = re.match(r"[ \t\n\v\f\r]*([+-]?[0-9]+)", slot)
        need(match)
        value[key] = int(match[1])
    year = value.get("Y", value.get("y"))
    year += 2000 if year <= 69 else 1900 if year <= 99 else 0
    moments = zone.moments(seconds_of(year, value["m"], value["d"], value.get("H", 0),
                                      value.get("M", 0), value.get("S", 0)))
    need(-1 not in moments)
    return moments


# What the formatters write


def year_ago(zone, moment):
    there = fields_of(zone.local(moment))
    month = there.month - 1
    turn = (there.year - 1900) % 4
    leap = turn == 0 and month > 2 or turn == 1 and month <= 2
    return (moment - (366 if leap else 365) * DAY + 2**31) % 2**32 - 2**31


def is_recent(zone, now, moment):
    return year_ago(zone, now) < moment <= now


def token(zone, now, moment, kind, style, utc):
    if moment < 0:
        return "x"
    offset = 0 if utc else zone.at(moment)[0]
    there = fields_of(moment + offset)
    recent = is_recent(zone, now, moment)
    if style == 1:
        mark = "UTC" if utc else ""
        short = "%d-%b.%H:%M" + mark if recent else "%d-%b-%Y"
        return there.strftime(("%d-%b-%y.%H:%M:%S" + mark, "%d-%b-%y", short)[kind])
    sign = "-" if offset < 0 else "+"
    mark = f"{sign}{abs(offset) // 3600:02}:{abs(offset) // 60 % 60:02}" if offset else "Z"
    short = "--%m-%dT%H:%M" if recent else "%Y-%m-%d"
    return there.strftime(("%Y-%m-%dT%H:%M:%S" + mark, "%Y-%m-%d", short)[kind])


def digits(zone, moment, style):
    if style == 6:
        return str(moment % 2**32)
    if style == 7:
        return f"{moment % 2**32:x}"
    form = NUMERIC[style].replace("YYYY", "%Y")
    return fields_of(zone.local(moment)).strftime(re.sub("(.)\\1", "%\\1", form))


def plain(zone, now, moment):
    there = fields_of(zone.local(moment))
    listed = "%b %d %H:%M" if is_recent(zone, now, moment) else "%b %d  %Y"
    return [there.strftime(form) for form in (
        "%a %b %e %H:%M:%S %Y", "%m/%d/%y %H:%M:%S", "%m/%d/%y", "%H:%M:%S", listed)]
