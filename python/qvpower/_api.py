"""The one place that calls the library: loads it on first use and turns every
result that is not success into the matching exception."""
import ctypes
import threading
import time

from . import _library, errors

_lock = threading.Lock()
_lib = None
_lib_path = None
# The system time-out this process last set (the library starts with 500 ms).
# A -1 after waiting that long is taken for a lock time-out.
_sys_timeout_s = 0.5


def lib():
    global _lib, _lib_path
    if _lib is None:
        with _lock:
            if _lib is None:
                loaded, _lib_path = _library.load()
                _library.bind(loaded)
                errors.code_table(_lib_path)
                _lib = loaded
    return _lib


def library_path():
    lib()
    return _lib_path


def _show(value):
    if isinstance(value, bytes):
        return '"' + value.decode("ascii", "replace") + '"'
    if isinstance(value, (int, float)):
        return repr(value)
    if value is None:
        return "NULL"
    return "&" + ("array" if isinstance(value, ctypes.Array) else "out")


def call(export, *args, ok=(1,), sensor=None):
    """Calls `export`; returns its result when in `ok`, else raises. `sensor` is
    the Sensor the call concerns, asked whether it is still held on failure."""
    f = getattr(lib(), export)
    started = time.monotonic()
    code = f(*args)
    if code in ok:
        return code
    elapsed = time.monotonic() - started
    timed_out = code == -1 and elapsed >= 0.95 * _sys_timeout_s
    not_owned = (code in (-1, 0) and not timed_out and sensor is not None
                 and sensor._held_here() is False)
    shown = ", ".join(_show(a) for a in args)
    raise errors.error_for(export, shown, code, not_owned=not_owned, timed_out=timed_out)


def out(ctype=ctypes.c_double):
    return ctype()


def i32(value, what="value"):
    """An int32 argument; a value that is no whole number in range is refused
    here rather than wrapped around by ctypes."""
    if isinstance(value, bool) or not isinstance(value, int):
        try:
            if float(value) != int(value):
                raise ValueError
            value = int(value)
        except (TypeError, ValueError, OverflowError):
            raise errors.RefusedError("", repr(value), -1,
                                      f"{what} {value!r} refused: not a whole number") from None
    if not -2**31 <= value < 2**31:
        raise errors.RefusedError("", repr(value), -1, f"{what} {value!r} refused: outside 32 bits")
    return value


def set_system_timeout(milliseconds):
    """Sets the machine-wide time-out every call waits for the library's lock."""
    global _sys_timeout_s
    call("QV_SetSysTimeOut", i32(milliseconds, "time-out"))
    _sys_timeout_s = milliseconds / 1000.0


def driver_version():
    return lib().QV_DriverVersion()
