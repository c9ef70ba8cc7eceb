"""Exceptions for refused calls, with the meaning of each result code taken from
result_codes.json, the table `qvpower explain` uses too."""
import json
import os
from pathlib import Path

_TABLE_NAME = "result_codes.json"


class QVError(Exception):
    """A call of the library gave a result that is not success.

    `export` is the C function, `arguments` the call as C would write it, `code`
    its result and `meaning` what that code means for that function."""

    def __init__(self, export, arguments, code, meaning, note=""):
        self.export, self.arguments, self.code, self.meaning = export, arguments, code, meaning
        message = f"{export}({arguments}) returned {code}: {meaning}" if export else meaning
        super().__init__(message + (f" ({note})" if note else ""))


class RefusedError(QVError):
    """Refused: an argument out of range, or the request could not be carried out."""


class NotOwnedError(RefusedError):
    """The sensor is not initialised by this process."""


class LockTimeoutError(RefusedError):
    """The library's machine-wide lock could not be had within the system time-out."""


class NoSuchSensorError(QVError, LookupError):
    """No sensor with that serial number, address or index, or an invalid one."""


class SensorUnavailableError(QVError):
    """The sensor could not be opened, or another process has initialised it."""


class NotConfirmedError(QVError):
    """The sensor did not confirm a stored value."""


class NoAnswerError(QVError):
    """The sensor no longer answers."""


class AcquisitionError(QVError):
    """A measurement or trace could not be taken."""


class StateRejectedError(RefusedError):
    """A whole state was not applied: one of its fields is out of range."""


_BY_CODE = {-2: NoSuchSensorError, -3: RefusedError, -4: NotConfirmedError,
            -5: SensorUnavailableError, -7: NoAnswerError, -13: AcquisitionError}


def _table_places(library_path=None):
    """Where the code table may be: beside the package, in share/qv_api2 of the
    library's install prefix, or in the source tree the package runs from."""
    here = Path(__file__).resolve().parent
    places = [here / _TABLE_NAME]
    if library_path is not None and Path(library_path).is_absolute():
        for prefix in list(Path(library_path).resolve().parents)[:3]:
            places.append(prefix / "share" / "qv_api2" / _TABLE_NAME)
    # Windows has no shared data folders of this kind.
    data_dirs = os.environ.get("XDG_DATA_DIRS", "" if os.name == "nt" else "/usr/local/share:/usr/share")
    places += [Path(p) / "qv_api2" / _TABLE_NAME for p in data_dirs.split(os.pathsep) if p]
    places.append(here.parent.parent / "tools" / _TABLE_NAME)
    return places


_table = None


def code_table(library_path=None):
    """The parsed table; a table of no entries when none is found, so that
    errors are still raised, with the bare code."""
    global _table
    if _table is None:
        for place in _table_places(library_path):
            if place.is_file():
                with open(place, encoding="utf-8") as f:
                    _table = json.load(f)
                break
        else:
            _table = {"general": {}, "exports": {}}
    return _table


def explain(export, code):
    """What `code` means when `export` returns it."""
    table = code_table()
    key = str(int(code))
    own = table["exports"].get(export, {})
    if key in own:
        return own[key]
    if key in table["general"]:
        return table["general"][key]
    return f"a code {export} is not documented to return"


def error_for(export, arguments, code, not_owned=False, timed_out=False):
    """The exception for a refused call. -1 (and 0 from the profiling setters)
    is told apart by what the caller saw: the sensor not held, or the call
    having waited the whole system time-out."""
    meaning = explain(export, code)
    if code in _BY_CODE:
        return _BY_CODE[code](export, arguments, code, meaning)
    if export == "PP_GetTrace" and code not in (-1, 0):
        return AcquisitionError(export, arguments, code, meaning)
    if not_owned:
        return NotOwnedError(export, arguments, code, meaning, "this process does not hold the sensor")
    if timed_out:
        return LockTimeoutError(export, arguments, code, meaning, "the call waited the whole system time-out")
    return RefusedError(export, arguments, code, meaning)
