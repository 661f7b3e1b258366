#!/usr/bin/env python3
"""Cases for date_reference_test.cc, with the answers of date_reference.

date_cases.py ZONE SEED ROUNDS prints them for a process in that zone, one a line:
  now SECONDS                          the clock for what follows
  parse DIRECTION OLDER ISO TEXT       the answers of the older grammar and of ISO 8601
  number STYLE ANSWER TEXT             a numeric text
  token SECONDS KIND STYLE UTC TEXT    a token, or "x" for none
  digits SECONDS STYLE TEXT            a numeric token
  plain SECONDS LONG SHORT DATE TIME LS
  ago SECONDS ANSWER                   a year before
Fields are parted by tabs. An answer is "x" for a refusal or seconds, several as "1|2"; TEXT has
bytes as %XX where they are not plain.
"""
import random
import sys

from date_reference import (DAY, FIRST, LAST, MONTHS, WEEKDAYS, Refused, Zone, digits, iso, numeric,
                            older, plain, seconds_of, token, year_ago)

NOWS = (
    FIRST, FIRST + DAY, -1, 0, 1, 43199, 86399, 31535999, LAST, LAST - DAY,
    951782400, 951868799,  # 2000-02-29, all day
    1077926399, 1078012800, 1078099200,  # from 2004-02-27 to 2004-03-01
    1136073599, 1136073600, 1167609599, 1167609600,  # year ends
    1142418030, 1164358800,  # 2006-03-15 and 2006-11-24
    1142690399, 1142690400, 1159624799, 1159624800,  # Auckland's changes of 2006
    1143961199, 1143961200, 1162101599, 1162101600,  # New York's
    1204243200, 1209600000, 1456704000, 1609415999,
)


class Cases:
    def __init__(self, zone, seed):
        self.zone = zone
        self.any = random.Random(seed)

    def digits_of(self, most, width=2):
        value = self.any.choice((0, 1, most - 1, most, most + 1, self.any.randint(0, most)))
        return f"{value:0{width}}"

    def moment(self):
        kind = self.any.randrange(4)
        if kind == 0:
            return self.any.randint(0, LAST)
        if kind == 1:
            return self.any.choice(NOWS) + self.any.choice((-1, 0, 0, 1, -3600, 3600))
        if kind == 2:
            return self.any.randint(FIRST, LAST)
        # Around a new year, a leap day and the end of March.
        year = self.any.randint(1970, 2037)
        return seconds_of(year, *self.any.choice(((1, 1), (3, 1), (4, 1)))) + self.any.randint(
            -DAY, DAY)

    def cased(self, word):
        return self.any.choice((word, word.lower(), word.capitalize()))

    def older_date(self):
        kind = self.any.randrange(10)
        if kind < 2:
            word = self.any.choice(WEEKDAYS)
            return self.cased(self.any.choice((word, word[:3], word, word[:4])))
        if kind == 2:
            return self.cased(self.any.choice(("TODAY", "YESTERDAY", "TODAY", "TOMORROW", "TOD")))
        if kind == 3:
            return ""
        month = self.any.choice(MONTHS)
        month = self.cased(self.any.choice((month, month[:3], month[:3], month[:4])))
        if self.any.randrange(12) == 0:
            month = ""
        day = self.any.choice(("1", "01", "28", "29", "29", "30", "31", "32", "0", "+7", "-1",
                               str(self.any.randint(1, 28)), str(self.any.randint(1, 28))))
        if self.any.randrange(6) == 0:
            day, month = "29", "feb"
        year = self.any.choice(("", "", "", "-", "-0", "-00", "-6", "-06", "-37", "-38", "-68", "-69",
                                "-70", "-99", "-100", "-1968", "-1969", "-1970", "-1971", "-2000",
                                "-2004", "-2037", "-2038", "-2100", "-+6", "--6", "-4294969302",
                                "-18446744073709553622", f"-{self.any.randint(1970, 2038)}"))
        return f"{day}-{month}{year}"

    def older_time(self):
        hour = self.any.choice((self.digits_of(23, 1), self.digits_of(23), "+5", "-0", "",
                                "4294967296"))
        text = hour + ":" + self.any.choice((self.digits_of(59), self.digits_of(59, 1), "00"))
        if self.any.randrange(2):
            text += ":" + self.any.choice((self.digits_of(59), self.digits_of(59, 1), ""))
        if self.any.randrange(2):
            text += self.cased("UTC") + self.any.choice(
                ("", "", "+5", "-5", "5", "+05:30", "-05:30", "5:30", "-5:-30", "+:30", ":30",
                 "+12", "-12", "+13:00", "+100", "-24:00", "+5:", "+-5", "+99999999999", "+700000",
                 f"{self.any.choice('+-')}{self.any.randint(0, 14)}:{self.digits_of(59)}"))
        return text

    def older_text(self):
        date, time = self.older_date(), self.older_time()
        text = self.any.choice((date, date + "." + time, date + "." + time, time, "." + time,
                                date + ".", self.cased("NOW"), self.cased("NONE")))
        if self.any.randrange(8) == 0:
            text = self.any.choice((" ", "\t\n", "")) + text + self.any.choice((" ", "\r\v\f"))
        return text

    def iso_text(self):
        century = self.any.choice(("19", "20", "20", "20", "18", "21"))
        year = self.any.choice((self.digits_of(99), "00", "04", "06", "08", "37", "38", "50", "51",
                                "70", "69"))
        month, mday = self.digits_of(12), self.any.choice((self.digits_of(31), "29"))
        yday, week = self.digits_of(366, 3), self.digits_of(53)
        wday = self.any.choice("0123456789")
        date = self.any.choice((
            century, year + "-", century + year, f"-{year}", f"--{month}", f"---{mday}", f"-{yday}",
            f"{century}{year}-{month}", f"{year}-{month}", f"-{year}-{month}", f"-{year}{month}",
            f"{century}{year}-{month}-{mday}", f"{year}-{month}-{mday}", f"-{year}-{month}-{mday}",
            f"--{month}-{mday}", f"--{month}{mday}", f"{year}{yday}", f"{century}{year}{yday}",
            f"{year}-{yday}", f"-{year}-{yday}", f"{century}{year}-{yday}",
            f"{year}{month}{mday}", f"{century}{year}{month}{mday}", f"-W-{wday}", f"-w-{wday}",
            f"{century}{year}-W{week}-{wday}", f"{century}{year}W{week}{wday}", f"-W{week}",
            f"{year}W{week}", f"-W{week}{wday}", f"--{month}-W{wday}", ""))
        hour, minute, second = self.digits_of(24), self.digits_of(59), self.digits_of(60)
        time = self.any.choice((
            hour, f"{hour}:{minute}", f"{hour}:{minute}:{second}", hour + minute,
            hour + minute + second, f"{hour}:{minute}:{second}.5", f"-{minute}",
            f"-{minute}:{second}", f"-{minute}{second}", f"--{second}", f"{hour}:", ""))
        zone = self.any.choice((
            "", "", "Z", "z", "+00", "-00:00", "+05:30", "-0530", "+12", "-12:00", "+1300", "+24",
            "-23:59", "+5", "+05:", "+05:60", f"{self.any.choice('+-')}{hour}:{minute}"))
        mark = self.any.choice("TTt")
        return self.any.choice((date, f"{date}{mark}{time}{zone}", f"{date}{mark}{time}{zone}",
                                f"{mark}{time}{zone}", f"{time}{zone}"))

    def spoilt(self, text):
        """Most texts as they are, others with a byte too many, too few or a wrong one."""
        if self.any.randrange(5):
            return text
        at = self.any.randint(0, len(text))
        byte = self.any.choice("0123456789-:.+ TWZUCzanx/\x01\xff")
        return text[:at] + self.any.choice((byte, "", byte)) + text[at + self.any.randrange(2):]

    def parse(self, now, text):
        direction = self.any.choice((0, 0, 1, 1, 2, -1))
        print("parse", direction, answer(older, self.zone, now, direction, text),
              answer(iso, self.zone, now, direction, text), written(text), sep="\t")

    def number(self):
        style = self.any.randrange(9)
        if style in (6, 7):
            value = self.moment() % 2**(31 if style == 6 else 32)
            text = self.any.choice((f"{value}", f" {value}", f"-{value}", f"{value}x", "", "+")
                                   if style == 6 else (f"{value:x}", f"0x{value:X}", f"{value:x}z",
                                                       "", "z"))
        else:
            text = digits(self.zone, self.moment(), style)
            text = self.any.choice((text, text, text + "x", self.spoilt(text), self.spoilt(text)))
        print("number", style, answer(numeric, self.zone, style, text), written(text), sep="\t")

    def formatted(self, now):
        moment = self.any.choice((self.moment(), now, now + 1, year_ago(self.zone, now),
                                  year_ago(self.zone, now) + 1))
        kind, style, utc = self.any.randrange(3), self.any.choice((1, 2)), self.any.randrange(2)
        moment = max(FIRST, min(LAST, moment))
        print("token", moment, kind, style, utc,
              token(self.zone, now, moment, kind, style, utc), sep="\t")
        if moment >= 0:
            self.parse(now, token(self.zone, now, moment, 0, style, utc))
        style = self.any.randrange(9)
        text = digits(self.zone, moment, style)
        print("digits", moment, style, text, sep="\t")
        if style != 6 or moment >= 0:
            print("number", style, answer(numeric, self.zone, style, text), text, sep="\t")
        print("plain", moment, *plain(self.zone, now, moment), sep="\t")
        print("ago", moment, year_ago(self.zone, moment), sep="\t")

    def run(self, rounds):
        for _ in range(rounds):
            for now in (*NOWS, self.any.randint(0, LAST)):
                print("now", now, sep="\t")
                for _ in range(12):
                    self.parse(now, self.spoilt(self.older_text()))
                    self.parse(now, self.spoilt(self.iso_text()))
                for _ in range(4):
                    self.number()
                    self.formatted(now)


def answer(read, *arguments):
    try:
        return "|".join(map(str, sorted(read(*arguments))))
    except Refused:
        return "x"


def written(text):
    return "".join(byte if "!" <= byte <= "~" and byte != "%" else f"%{ord(byte):02X}"
                   for byte in text)


if __name__ == "__main__":
    Cases(Zone(sys.argv[1]), int(sys.argv[2])).run(int(sys.argv[3]))
