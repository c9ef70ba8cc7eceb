"""Codes of the library's settings and results as enumerations."""
from enum import IntEnum


class Unit(IntEnum):
    DBM = 0
    DBW = 1
    DBKW = 2
    DBUV = 3
    DBMV = 4
    DBV = 5
    W = 6
    V = 7
    DB_REL = 8  # dB relative to the CW reference; results only

    @property
    def label(self):
        return ("dBm", "dBW", "dBkW", "dBµV", "dBmV", "dBV", "W", "V", "dB")[self]


class LimitStatus(IntEnum):
    PASS = 0
    BELOW = 1
    ABOVE = 2
    INSIDE = 3
    STRICTLY_INSIDE = 4
    NOT_EVALUATED = 5


class LimitMode(IntEnum):
    OFF = 0
    SINGLE_SIDED = 1
    DOUBLE_SIDED = 2


class SingleRule(IntEnum):
    ABOVE_OR_AT_FAILS = 0
    ABOVE_FAILS = 1
    BELOW_OR_AT_FAILS = 2
    BELOW_FAILS = 3


class DoubleRule(IntEnum):
    OUTSIDE_OR_AT_FAILS = 0
    OUTSIDE_FAILS = 1
    INSIDE_FLAGGED = 2
    STRICTLY_INSIDE_FLAGGED = 3


class Filter(IntEnum):
    KHZ_100 = 1
    KHZ_200 = 2
    KHZ_300 = 3
    KHZ_500 = 4
    MHZ_1 = 5
    MHZ_2 = 6
    MHZ_3 = 7
    MHZ_5 = 8
    OFF = 9


class TriggerSource(IntEnum):
    AUTO = 0
    LEVEL = 1
    EXTERNAL = 2


class TraceAveraging(IntEnum):
    NONE = 0
    AUTO_RESTART = 1
    MANUAL_RESTART = 2


class MarkerMode(IntEnum):
    OFF = 0
    NORMAL = 1
    DELTA = 2
