"""Power-versus-time traces and their analysis: gates, markers, peaks, edges."""
import ctypes
from collections import namedtuple

import numpy as np

from . import _library, errors, stats
from ._api import call, i32
from .enums import MarkerMode, Unit

_D, _I = ctypes.c_double, ctypes.c_int32

Peak = namedtuple("Peak", "index time_s power_dbm")
Edges = namedtuple("Edges", "left right left_s right_s")

_GATE_FIGURES = {  # name: (export, unit)
    "average_dbm": ("PP_GetGateAveragePower", "dBm"), "peak_dbm": ("PP_GetGatePeakPower", "dBm"),
    "crest_factor_db": ("PP_GetGateCrestFactor", "dB"), "droop_db": ("PP_GetGateDroop", "dB"),
    "overshoot_db": ("PP_GetGateOverShoot", "dB"), "rise_time_us": ("PP_GetGateRiseTime", "µs"),
    "fall_time_us": ("PP_GetGateFallTime", "µs"), "pulse_width_us": ("PP_GetGatePulseWidth", "µs"),
    "pulse_power_dbm": ("PP_GetGatePulsePower", "dBm"), "prt_us": ("PP_GetGatePRT", "µs"),
    "prf_hz": ("PP_GetGatePRF", "Hz"), "duty_cycle": ("PP_GetGateDutyCycle", "fraction"),
}


def _peaks_c(found, count, time_of):
    return [Peak(p.Index, time_of(p.Index), p.Value) for p in found[:count]]


def find_peaks(power_dbm, excursion_db, threshold_dbm, limit=100, by_value=False, sweep_time_us=None):
    """Peaks of any trace in dBm as the library finds them on the analysis trace,
    without a sensor: index order, or highest first with `by_value`."""
    p = np.ascontiguousarray(power_dbm, dtype=float)
    found, count = (_library.PeakC * max(1, limit))(), _I()
    export = "PP_GetPeaksFromTr_Val" if by_value else "PP_GetPeaksFromTr_Idx"
    call(export, p.ctypes.data_as(ctypes.POINTER(_D)), i32(p.size, "length"), 0, float(excursion_db),
         float(threshold_dbm), found, i32(limit, "limit"), ctypes.byref(count))
    sweep, last = float(sweep_time_us or 0), max(p.size - 1, 1)
    return _peaks_c(found, count.value, lambda i: (i * sweep / last) * 1e-6)


class Trace:
    """One trace: `power_dbm` and `time_s` (from the trigger, the sweep delay
    included) as numpy arrays, and the settings it was taken with. Analysis
    runs in the library on the sensor's analysis trace; a Trace puts its own
    points back there first when another trace has replaced them."""

    def __init__(self, power_dbm, settings, sensor):
        self.power_dbm = np.asarray(power_dbm, dtype=float)
        self.settings = dict(settings)
        self.sensor = sensor
        n = self.power_dbm.size
        sweep = self.settings["sweep_time_us"]
        self.time_s = (self.settings.get("sweep_delay_us", 0) + np.arange(n) * sweep / max(n - 1, 1)) * 1e-6

    def __len__(self):
        return self.power_dbm.size

    def __repr__(self):
        return f"<Trace {len(self)} points over {self.sweep_time_us} µs>"

    @property
    def sweep_time_us(self):
        return self.settings["sweep_time_us"]

    @property
    def frequency_hz(self):
        return self.settings["frequency_hz"]

    def _address(self):
        s = self.sensor
        if s._analysis is not self:
            call("PP_SetAnalysisTrace", s.address, float(self.frequency_hz), float(self.sweep_time_us),
                 self.power_dbm.ctypes.data_as(ctypes.POINTER(_D)), len(self), int(Unit.DBM), sensor=s)
            s._analysis = self
        return s.address

    def _figure(self, export):
        value = _D()
        call(export, self._address(), ctypes.byref(value), sensor=self.sensor)
        return value.value

    # ------------------------------------------------------------ whole-trace figures

    @property
    def average_dbm(self):
        return self._figure("PP_GetTraceAvgPower")

    @property
    def peak_dbm(self):
        return self._figure("PP_GetTracePkPwr")

    @property
    def crest_factor_db(self):
        return self._figure("PP_GetTraceCrestFactor")

    @property
    def pulse_power_dbm(self):
        return self._figure("PP_GetTracePulsePower")

    @property
    def duty_cycle(self):
        """Share of the points at or above the pulse level, 0..1."""
        return self._figure("PP_GetTraceDC")

    def pulse_edges(self, peak):
        """Edges of the pulse around point `peak`: indices and times (s)."""
        left, right = _I(), _I()
        call("PP_GetPulseEdgesPosition", self._address(), i32(peak, "peak"), ctypes.byref(left),
             ctypes.byref(right), sensor=self.sensor)
        return Edges(left.value, right.value, float(self.time_s[left.value]), float(self.time_s[right.value]))

    def peaks(self, limit=100, by_value=False):
        """Peaks of the trace (pulse criteria as excursion, the measurement
        threshold as floor), in index order or highest first."""
        found, count = (_library.PeakC * max(1, limit))(), _I()
        call("PP_GetPeaks_Val" if by_value else "PP_GetPeaks_Idx", self._address(), found,
             i32(limit, "limit"), ctypes.byref(count), sensor=self.sensor)
        return _peaks_c(found, count.value, lambda i: float(self.time_s[i]))

    def gate(self, number=0, start_us=None, end_us=None):
        """Gate `number` (0..9) switched on over start..end µs from the first
        point (the whole trace by default)."""
        gate = Gate(self, i32(number, "gate"))
        call("PP_SetGateMode", self._address(), gate.number, 1, sensor=self.sensor)
        gate.set_time(0.0 if start_us is None else start_us,
                      float(self.sweep_time_us) if end_us is None else end_us)
        return gate

    def marker(self, number=0, mode=MarkerMode.NORMAL):
        marker = Marker(self, i32(number, "marker"))
        marker.mode = mode
        return marker

    # ------------------------------------------------------------ computed here

    def ccdf(self, step_db=0.1):
        """CCDF of the trace's points (computed in this package): see stats.ccdf."""
        return stats.ccdf(self.power_dbm, step_db)

    def power_distribution(self, bin_db=0.5):
        """Power distribution of the trace's points (computed in this package)."""
        return stats.power_distribution(self.power_dbm, bin_db)

    def plot(self, ax=None, **style):
        """Plots power over time with matplotlib; returns the axes."""
        import matplotlib.pyplot as plt
        if ax is None:
            _, ax = plt.subplots()
        span = self.time_s[-1] if len(self) else 0.0
        scale, unit = (1e3, "ms") if span >= 1e-3 else (1e6, "µs")
        ax.plot(self.time_s * scale, self.power_dbm, **style)
        ax.set_xlabel(f"Time ({unit})")
        ax.set_ylabel("Power (dBm)")
        ax.grid(True, alpha=0.3)
        return ax


class Gate:
    """A gate of a trace; each figure is measured by the library when read."""

    def __init__(self, trace, number):
        self.trace, self.number = trace, number

    def set_time(self, start_us, end_us):
        call("PP_SetGateStartEndTime", self.trace._address(), self.number, float(start_us), float(end_us),
             sensor=self.trace.sensor)

    def set_position(self, start, end):
        call("PP_SetGateStartEndPosition", self.trace._address(), self.number, i32(start, "start"),
             i32(end, "end"), sensor=self.trace.sensor)

    @property
    def span(self):
        """(start index, start µs, end index, end µs)."""
        a, ta, b, tb = _I(), _D(), _I(), _D()
        call("PP_GetGateStartEndPositionTime", self.trace._address(), self.number, ctypes.byref(a),
             ctypes.byref(ta), ctypes.byref(b), ctypes.byref(tb), sensor=self.trace.sensor)
        return a.value, ta.value, b.value, tb.value

    def _figure(self, export):
        value = _D()
        ok = range(0, 2**31 - 1) if export in ("PP_GetGatePeakPower", "PP_GetGateCrestFactor") else (1,)
        call(export, self.trace._address(), self.number, ctypes.byref(value), ok=ok,
             sensor=self.trace.sensor)
        return value.value

    def measurements(self):
        """Every figure of the gate; None for those the library finds no value for."""
        result = {}
        for name, (export, _) in _GATE_FIGURES.items():
            try:
                result[name] = self._figure(export)
            except errors.RefusedError:
                result[name] = None
        return result

    def close(self):
        call("PP_SetGateMode", self.trace._address(), self.number, 0, sensor=self.trace.sensor)


def _gate_property(name, export, unit):
    return property(lambda self: self._figure(export), doc=f"{name.replace('_', ' ')} ({unit})")


for _name, (_export, _unit) in _GATE_FIGURES.items():
    setattr(Gate, _name, _gate_property(_name, _export, _unit))


class Marker:
    """A marker (0..9) on a trace's points."""

    _MOVES = {"to_peak": "PP_MarkerToPk", "to_lowest_peak": "PP_MarkerToLowestPk",
              "to_first_peak": "PP_MarkerToFirstPk", "to_last_peak": "PP_MarkerToLastPk",
              "next_peak": "PP_MarkerNextPk", "previous_peak": "PP_MarkerPrevPk",
              "next_higher_peak": "PP_MarkerPkHigher", "next_lower_peak": "PP_MarkerPkLower"}

    def __init__(self, trace, number):
        self.trace, self.number = trace, number

    def _get(self, export, ctype):
        value = ctype()
        call(export, self.trace._address(), self.number, ctypes.byref(value), sensor=self.trace.sensor)
        return value.value

    def _set(self, export, value):
        call(export, self.trace._address(), self.number, value, sensor=self.trace.sensor)

    mode = property(lambda self: MarkerMode(self._get("PP_GetMarkerMode", _I)),
                    lambda self, v: self._set("PP_SetMarkerMode", i32(v, "mode")))
    position = property(lambda self: self._get("PP_GetMarkerPosition", _I),
                        lambda self, v: self._set("PP_SetMarkerPosition", i32(v, "position")),
                        doc="Point index (delta mode: the delta point).")
    time_us = property(lambda self: self._get("PP_GetMarkerPositionTime", _D),
                       lambda self, v: self._set("PP_SetMarkerPositionTime", float(v)))
    delta_time_us = property(lambda self: self._get("PP_GetMarkerDeltaTime", _D),
                             lambda self, v: self._set("PP_SetMarkerDeltaTime", float(v)))
    power_dbm = property(lambda self: self._get("PP_GetMarkerAmp", _D))
    delta_power_db = property(lambda self: self._get("PP_GetMarkerDeltaAmp", _D))


def _move(export):
    def move(self):
        return call(export, self.trace._address(), self.number, ok=range(0, 2**31 - 1),
                    sensor=self.trace.sensor)
    move.__doc__ = "Moves the marker to a peak; returns its point index."
    return move


for _name, _export in Marker._MOVES.items():
    setattr(Marker, _name, _move(_export))
