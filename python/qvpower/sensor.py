"""Finding, opening and using sensors."""
import ctypes
import datetime
from collections import namedtuple

import numpy as np

from . import _api, _library, errors
from ._api import call, i32
from .enums import (Filter, LimitMode, LimitStatus, TraceAveraging, TriggerSource, Unit)
from .state import InstrumentState

_D, _I = ctypes.c_double, ctypes.c_int32

SensorInfo = namedtuple("SensorInfo", "serial address index model model_name owner")
PulseReading = namedtuple("PulseReading", "pulse peak average duty_cycle")
BurstReading = namedtuple("BurstReading", "maximum average minimum")
Reference = namedtuple("Reference", "value units")
PulseReference = namedtuple("PulseReference", "pulse peak average duty_cycle_percent units")
SingleSidedLimit = namedtuple("SingleSidedLimit", "limit units rule")
DoubleSidedLimit = namedtuple("DoubleSidedLimit", "lower upper units rule")
RecorderSetup = namedtuple("RecorderSetup", "level_0v level_1v units")
ResponsePoint = namedtuple("ResponsePoint", "frequency_hz amplitude_db")

FREE, THIS_PROCESS, OTHER_PROCESS = "free", "this process", "another process"

# Model codes as the library reports them, with their names as qvpower (the
# command-line tool) shows them; the library itself reports codes only.
_MODELS = {0: "QV2xxA family", 1: "QV221A", 2: "QV222A", 3: "QV223A", 4: "QV331A", 5: "QV332A",
           6: "QV333A", 7: "QV441A", 8: "QV442A", 64: "OEMOEM", 65: "RUNSET", 66: "R7777A",
           67: "R7701A", 68: "R7702A", 69: "R7703A", 70: "R7704A", 71: "R7705A", 76: "R7777B",
           77: "R7701B", 78: "R7702B", 79: "R7703B", 80: "R7704B", 81: "R7705B", 95: "VRT2",
           101: "TK7110 or TKS7110", 102: "TK7120 or TKS7120", 103: "TK8110 or TKS8110",
           104: "TK8120 or TKS8120", 105: "TK6110 or TKS6110", 106: "TK6120 or TKS6120",
           107: "TK6310 or TKS6310", 108: "TK6320 or TKS6320", 109: "TK6510 or TKS6510",
           110: "TK7410 or TKS7410", 111: "TK7320 or TKS7320", 112: "TK8410 or TKS8410",
           113: "TK8320 or TKS8320"}


def model_name(code):
    return _MODELS.get(code, "unknown")


def _entries():
    count = call("QV_SensorCnt", ok=range(0, 256))
    size = count + 4
    while True:
        buf = (_library.SensorListEntryC * size)()
        try:
            call("QV_SensorList", buf, size)
            return [e for e in buf[:size] if e.DeviceIndex != 0]
        except errors.RefusedError:
            # The list grew between the count and the listing: ask again with room.
            if size > 1024:
                raise
            size *= 2


def _model_of(index):
    model = _I(-1)
    code = _api.lib().QV_GetModelNumber_Idx(index, ctypes.byref(model))
    return model.value if code == 1 else -1


def sensors():
    """The sensors on the bus, in device-index order."""
    found = []
    for e in _entries():
        index = abs(e.DeviceIndex)
        if e.DeviceIndex < 0:
            owner = OTHER_PROCESS
        else:
            owner = THIS_PROCESS if _api.lib().QV_IsDeviceMine_Idx(index) == 1 else FREE
        model = _model_of(index)
        found.append(SensorInfo(e.SerialNumber.decode("ascii", "replace"), e.Address, index, model,
                                model_name(model), owner))
    return found


def open(serial=None, *, address=None, index=None):  # noqa: A001 - mirrors the builtin on purpose
    """Initialises the sensor named by exactly one of serial, address or device
    index for this process and returns it as a Sensor."""
    if sum(x is not None for x in (serial, address, index)) != 1:
        raise TypeError("open() takes exactly one of serial, address or index")
    lib = _api.lib()
    if serial is not None:
        code = lib.QV_GetIndex_SN(str(serial).encode("ascii", "replace"))
        export, shown = "QV_GetIndex_SN", f'"{serial}"'
    elif address is not None:
        code = lib.QV_GetIndex_Addr(i32(address, "address"))
        export, shown = "QV_GetIndex_Addr", str(address)
    else:
        buf = ctypes.create_string_buffer(7)
        code = lib.QV_GetSerNo_Idx(i32(index, "index"), buf)
        export, shown = "QV_GetSerNo_Idx", f"{index}, &serial"
        code = abs(index) if code == 1 else code
    if code == 0 or (export == "QV_GetSerNo_Idx" and code == -5):
        raise errors.NoSuchSensorError(export, shown, code, errors.explain(export, code))
    if code < 0:
        raise errors.error_for(export, shown, code)
    match = [e for e in _entries() if abs(e.DeviceIndex) == abs(code)]
    if not match:  # unplugged between the two calls
        raise errors.NoSuchSensorError(export, shown, code, "the sensor left the bus")
    entry = match[0]
    return Sensor(entry.SerialNumber.decode("ascii"), entry.Address, abs(entry.DeviceIndex))


class _Setting:
    """A setting as a property: getter and setter exports taking the address,
    the C type of the value, and the Python type it is shown as."""

    def __init__(self, getter, setter, ctype, kind=None, unsigned=False, doc=""):
        self.getter, self.setter, self.ctype, self.kind = getter, setter, ctype, kind
        self.unsigned = unsigned
        self.__doc__ = doc
        _library.setting_signatures([(getter, setter, ctype, unsigned)])

    def __get__(self, sensor, owner=None):
        if sensor is None:
            return self
        value = self.ctype()
        call(self.getter, sensor.address, ctypes.byref(value), sensor=sensor)
        value = value.value
        return self.kind(value) if self.kind else value

    def __set__(self, sensor, value):
        if self.ctype is _I:
            value = i32(value, self.setter)
        else:
            value = float(value)
        call(self.setter, sensor.address, value, sensor=sensor)


def _bool(getter, setter, doc, unsigned=False):
    return _Setting(getter, setter, _I, bool, unsigned, doc)


class _Registers:
    """The sensor's 20 registers of whole states, indexed 0..19."""

    def __init__(self, sensor):
        self._sensor = sensor

    def __len__(self):
        return 20

    def __getitem__(self, reg):
        record = _library.InstrumentStateC()
        call("QV_GetRegState", self._sensor.address, i32(reg, "register"), ctypes.byref(record),
             sensor=self._sensor)
        return InstrumentState.from_c(record)

    def __setitem__(self, reg, state):
        call("QV_SetRegState", self._sensor.address, i32(reg, "register"), state.to_c(),
             sensor=self._sensor)
        self._sensor._check_applied("QV_SetRegState", f"{self._sensor.address}, {reg}, state",
                                    state, self[reg])


class Sensor:
    """A sensor initialised by this process. Use it as a context manager: it is
    released on leaving the block, by close(), or when garbage-collected."""

    def __init__(self, serial, address, index):
        self.serial, self.address, self.index = serial, address, index
        self._open = False
        self._analysis = None  # the Trace whose points the library's analysis trace holds
        encoded = serial.encode("ascii")
        try:
            call("QV_InitializeSensor_SN", encoded, ok=range(1, 14))
        except errors.RefusedError as e:
            if _api.lib().QV_IsDeviceInUse_Idx(index) == 1 and _api.lib().QV_IsDeviceMine_Idx(index) != 1:
                raise errors.SensorUnavailableError(e.export, e.arguments, e.code, e.meaning,
                                                    "another process holds the sensor") from None
            raise
        self._open = True
        self.model = _model_of(index)
        self.registers = _Registers(self)

    # ------------------------------------------------------------ life time

    def close(self):
        """Releases the sensor; closing twice does nothing."""
        if self._open:
            self._open = False
            call("QV_UninitializeSensor_SN", self.serial.encode("ascii"), sensor=self)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        try:
            if self._open:
                self._open = False
                _api.lib().QV_UninitializeSensor_SN(self.serial.encode("ascii"))
        except Exception:  # at interpreter exit ctypes may be gone already
            pass

    def __repr__(self):
        state = "open" if self._open else "closed"
        return f"<Sensor {self.serial} {self.model_name} @{self.address} {state}>"

    def _held_here(self):
        """Whether this process holds the sensor; None when the library cannot say."""
        lib = _api.lib()
        index = lib.QV_GetIndex_SN(self.serial.encode("ascii"))
        if index == 0:
            return False
        if -5 <= index < 0:
            return None
        return lib.QV_IsDeviceMine_Idx(abs(index)) == 1

    def _check_applied(self, export, arguments, wanted, got):
        if got != wanted:
            bad = [f.name for f in InstrumentState.__dataclass_fields__.values()
                   if getattr(wanted, f.name) != getattr(got, f.name)]
            raise errors.StateRejectedError(export, arguments, 1,
                                            "the state was not applied: a field is out of range",
                                            "fields that differ from the state in force: " + ", ".join(bad[:5]))

    # ------------------------------------------------------------ identity

    @property
    def model_name(self):
        return model_name(self.model)

    @property
    def firmware(self):
        buf = ctypes.create_string_buffer(16)
        call("QV_GetFirmwareVersion", self.address, buf, 16, sensor=self)
        return buf.value.decode("ascii", "replace")

    @property
    def calibration_due(self):
        """The calibration due date stored in the sensor; None when it holds none."""
        y, m, d = _I(), _I(), _I()
        call("QV_GetCalDueDate", self.serial.encode("ascii"), ctypes.byref(y), ctypes.byref(m),
             ctypes.byref(d), sensor=self)
        try:
            return datetime.date(2000 + y.value, m.value, d.value)
        except ValueError:  # never set: the sensor holds no date
            return None

    # ------------------------------------------------------------ measurement settings

    frequency = _Setting("QV_GetFrequency", "QV_SetFrequency", _D, doc="Frequency, Hz.")
    averages = _Setting("QV_GetAverages", "QV_SetAverages", _I, doc="Averages per reading, 1..100000.")
    offset_db = _Setting("QV_GetOffset", "QV_SetOffset", _D, doc="Offset, dB, -200..200.")
    offset_enabled = _bool("QV_GetOffsetEnabled", "QV_SetOffsetEnabled", "Offset applied.")
    duty_cycle_enabled = _bool("QV_GetDutyCycleEnabled", "QV_SetDutyCycleEnabled",
                               "Duty-cycle correction applied.")
    duty_cycle_percent = _Setting("QV_GetDutyCyclePerCent", "QV_SetDutyCyclePerCent", _D,
                                  doc="Duty cycle of the correction, per cent, 0.001..100.")
    units = _Setting("QV_GetMeasurementPowerUnits", "QV_SetMeasurementPowerUnits", _I, Unit,
                     doc="Unit of readings (Unit).")
    pulse_criteria_db = _Setting("QV_GetPulseCriteria", "QV_SetPulseCriteria", _D,
                                 doc="Samples within this many dB of the largest are pulse-on.")
    auto_pulse_criteria = _bool("QV_GetAutoPulseEnabled", "QV_SetAutoPulseEnabled",
                                "Automatic pulse criteria (3 dB) used.")
    anti_aliasing = _bool("QV_GetAntiAliasingEnabled", "QV_SetAntiAliasingEnabled", "Anti-aliasing on.")
    impedance_75_ohm = _bool("QV_Get75OhmsEnabled", "QV_Set75OhmsEnabled", "75-ohm correction on.")
    limit_mode = _Setting("QV_GetLimitEnabled", "QV_SetLimitEnabled", _I, LimitMode,
                          doc="Which limit pass/fail readings apply (LimitMode).")
    response_enabled = _bool("QV_GetResponseEnabled", "QV_SetResponseEnabled",
                             "Frequency-response correction applied.")
    ttl_trigger_in = _bool("QV_GetTTLTriggerInEnabled", "QV_SetTTLTriggerInEnabled", "TTL trigger input on.")
    ttl_trigger_in_inverted = _bool("QV_GetTTLTriggerInInverted", "QV_SetTTLTriggerInInverted",
                                    "TTL trigger input inverted.")
    ttl_trigger_in_timeout_ms = _Setting("QV_GetTTLTriggerInTimeOut", "QV_SetTTLTriggerInTimeOut", _I,
                                         doc="Wait for a trigger, ms, 0..30000.")
    ttl_trigger_out = _bool("QV_GetTTLTriggerOutEnabled", "QV_SetTTLTriggerOutEnabled",
                            "TTL trigger output on.")
    ttl_trigger_out_inverted = _bool("QV_GetTTLTriggerOutInverted", "QV_SetTTLTriggerOutInverted",
                                     "TTL trigger output inverted.")
    recorder_out = _bool("QV_GetRecorderOutEnabled", "QV_SetRecorderOutEnabled", "Recorder output on.")
    extended_averaging = _bool("QV_GetExtendedAveragingEnabled", "QV_SetExtendedAveragingEnabled",
                               "Readings smoothed across calls.")
    extended_averaging_count = _Setting("QV_GetExtendedAveraging", "QV_SetExtendedAveraging", _I,
                                        doc="Length of the extended average.")
    max_hold = _bool("QV_GetMaxHoldEnabled", "QV_SetMaxHoldEnabled", "The largest reading held.")

    def reset_extended_averaging(self):
        call("QV_ResetExtendedAveraging", self.address, sensor=self)

    def reset_max_hold(self):
        call("QV_ResetMaxHold", self.address, sensor=self)

    @property
    def cw_reference(self):
        """The CW reference relative readings (Unit.DB_REL) are taken against: (value, units)."""
        value, units = _D(), _I()
        call("QV_GetCWReference", self.address, ctypes.byref(value), ctypes.byref(units), sensor=self)
        return Reference(value.value, Unit(units.value))

    @cw_reference.setter
    def cw_reference(self, reference):
        value, units = reference
        call("QV_SetCWReference", self.address, float(value), i32(units, "unit"), sensor=self)

    @property
    def pulse_reference(self):
        values = [_D() for _ in range(4)]
        units = _I()
        call("QV_GetPulseReference", self.address, *map(ctypes.byref, values), ctypes.byref(units),
             sensor=self)
        return PulseReference(*(v.value for v in values), Unit(units.value))

    @pulse_reference.setter
    def pulse_reference(self, reference):
        pulse, peak, average, duty, units = reference
        call("QV_SetPulseReference", self.address, float(pulse), float(peak), float(average),
             float(duty), i32(units, "unit"), sensor=self)

    # ------------------------------------------------------------ limits, response, recorder

    @property
    def single_sided_limit(self):
        limit, units, rule = _D(), _I(), _I()
        call("QV_GetSingleSidedLimit", self.address, ctypes.byref(limit), ctypes.byref(units),
             ctypes.byref(rule), sensor=self)
        return SingleSidedLimit(limit.value, Unit(units.value), rule.value)

    @single_sided_limit.setter
    def single_sided_limit(self, value):
        limit, units, rule = value
        call("QV_SetSingleSidedLimit", self.address, float(limit), i32(units, "unit"),
             i32(rule, "rule"), sensor=self)

    @property
    def double_sided_limit(self):
        lower, upper, units, rule = _D(), _D(), _I(), _I()
        call("QV_GetDoubleSidedLimit", self.address, ctypes.byref(lower), ctypes.byref(upper),
             ctypes.byref(units), ctypes.byref(rule), sensor=self)
        return DoubleSidedLimit(lower.value, upper.value, Unit(units.value), rule.value)

    @double_sided_limit.setter
    def double_sided_limit(self, value):
        lower, upper, units, rule = value
        call("QV_SetDoubleSidedLimit", self.address, float(lower), float(upper), i32(units, "unit"),
             i32(rule, "rule"), sensor=self)

    @property
    def response(self):
        """The frequency-response table in use: ResponsePoint(frequency_hz, amplitude_db)s."""
        n = _library.RESPONSE_POINTS
        freqs, amps, count = (_D * n)(), (_D * n)(), _I(n)
        call("QV_GetResponse_Flat", self.address, freqs, amps, ctypes.byref(count), sensor=self)
        return [ResponsePoint(freqs[i], amps[i]) for i in range(count.value)]

    @response.setter
    def response(self, points):
        points = list(points)
        n = len(points)
        freqs = (_D * max(n, 1))(*(float(f) for f, _ in points))
        amps = (_D * max(n, 1))(*(float(a) for _, a in points))
        call("QV_SetResponse_Flat", self.address, freqs, amps, i32(n, "count"), sensor=self)

    @property
    def recorder_setup(self):
        low, high, units = _D(), _D(), _I()
        call("QV_GetRecorderOutSetup", self.address, ctypes.byref(low), ctypes.byref(high),
             ctypes.byref(units), sensor=self)
        return RecorderSetup(low.value, high.value, Unit(units.value))

    @recorder_setup.setter
    def recorder_setup(self, value):
        low, high, units = value
        call("QV_SetRecorderOutSetup", self.address, float(low), float(high), i32(units, "unit"),
             sensor=self)

    # ------------------------------------------------------------ whole states

    @property
    def state(self):
        """The whole current state (InstrumentState)."""
        record = _library.InstrumentStateC()
        call("QV_GetCurrentState", self.address, ctypes.byref(record), sensor=self)
        return InstrumentState.from_c(record)

    @state.setter
    def state(self, state):
        # The library applies a state only when every field is in range, and
        # says so by nothing but the state itself: read it back.
        call("QV_SetCurrentState", self.address, state.to_c(), sensor=self)
        self._check_applied("QV_SetCurrentState", f"{self.address}, state", state, self.state)

    def store(self, reg):
        """Copies the current state into register `reg` (0..19)."""
        call("QV_Store", self.address, i32(reg, "register"), sensor=self)

    def recall(self, reg):
        """Makes register `reg` (0..19) the current state."""
        call("QV_Recall", self.address, i32(reg, "register"), ok=range(0, 2**31 - 1), sensor=self)

    def reset_state(self):
        call("QV_ResetCurrentState", self.address, sensor=self)

    def reset_registers(self):
        call("QV_ResetRegStates", self.address, sensor=self)

    @property
    def named_states(self):
        """Names of the saved named states."""
        count = call("QV_GetNamedStateCount", self.address, ok=range(0, 2**31 - 1), sensor=self)
        # Room for a few saved after the count, up to 21 bytes each.
        size = _I(21 * (count + 4))
        buf = ctypes.create_string_buffer(size.value)
        call("QV_GetNamedStateNames", self.address, buf, ctypes.byref(size), sensor=self)
        text = buf.raw[:size.value].split(b"\0", 1)[0].decode("ascii", "replace")
        return [name for name in text.split("\t") if name]

    def save_state(self, name):
        call("QV_SaveCurrStateTo", self.address, str(name).encode("ascii", "replace"), sensor=self)

    def restore_state(self, name):
        call("QV_RestoreCurrStateFrom", self.address, str(name).encode("ascii", "replace"),
             ok=range(0, 2**31 - 1), sensor=self)

    def delete_state(self, name):
        """Deletes a named state; False when there was none of that name."""
        return call("QV_DeleteNamedState", self.address, str(name).encode("ascii", "replace"),
                    ok=(0, 1), sensor=self) == 1

    def write_state_file(self):
        """Writes the current state and registers 0..9 to the sensor's state file."""
        call("QV_WriteStateToINI", self.address, sensor=self)

    def read_state_file(self):
        call("QV_ReadStateFromINI", self.address, ok=range(0, 2**31 - 1), sensor=self)

    # ------------------------------------------------------------ readings

    def measure_cw(self):
        """One average-power reading in the unit of `units`."""
        reading = _D()
        call("QV_MeasureCW", self.address, ctypes.byref(reading), sensor=self)
        return reading.value

    def measure_cw_pf(self):
        """One reading and its limit verdict: (reading, LimitStatus)."""
        reading, verdict = _D(), _I()
        call("QV_MeasureCW_PF", self.address, ctypes.byref(reading), ctypes.byref(verdict), sensor=self)
        return reading.value, LimitStatus(verdict.value)

    def read_cw(self, count):
        """`count` readings in a row, as a numpy array."""
        return np.array([self.measure_cw() for _ in range(i32(count, "count"))], dtype=float)

    def measure_pulse(self):
        """One pulse reading: pulse, peak and average power and the duty cycle (a fraction)."""
        values = [_D() for _ in range(4)]
        call("QV_MeasurePulse", self.address, *map(ctypes.byref, values), sensor=self)
        return PulseReading(*(v.value for v in values))

    def measure_pulse_pf(self):
        values = [_D() for _ in range(4)]
        verdict = _I()
        call("QV_MeasurePulse_PF", self.address, *map(ctypes.byref, values), ctypes.byref(verdict),
             sensor=self)
        return PulseReading(*(v.value for v in values)), LimitStatus(verdict.value)

    def measure_burst(self, start_us, length_us, external_trigger=False):
        """Largest, mean and smallest power (dBm) of one trace inside the window
        from `start_us` for `length_us` (whole microseconds). Leaves the sweep
        time and trigger set as the measurement needed them."""
        values = [_D() for _ in range(3)]
        call("QV_MeasureBurst_DBM", self.address, i32(start_us, "start"), i32(length_us, "length"),
             1 if external_trigger else 0, *map(ctypes.byref, values), sensor=self)
        return BurstReading(*(v.value for v in values))

    # ------------------------------------------------------------ traces

    sweep_time_us = _Setting("PP_GetSweepTime", "PP_SetSweepTime", _I, unsigned=True,
                             doc="Sweep time, µs: 10, 20, 50 ... 1000000.")
    sweep_delay_us = _Setting("PP_GetSweepDelay", "PP_SetSweepDelay", _I, unsigned=True,
                              doc="Delay from the trigger to the trace, µs (delay mode only).")
    sweep_delay_mode = _bool("PP_GetSweepDelayMode", "PP_SetSweepDelayMode", "Sweep delay used.", True)
    trace_filter = _Setting("PP_GetFilter", "PP_SetFilter", _I, Filter, True, "Trace filter (Filter).")
    filter_poles = _Setting("PP_GetPoles", "PP_SetPoles", _I, None, True,
                            "Filter order: 0 one pole, 1 two, 2 four.")
    trigger_source = _Setting("PP_GetTriggerSoure", "PP_SetTriggerSoure", _I, TriggerSource, True,
                              "Trigger source (TriggerSource).")
    trigger_level_dbm = _Setting("PP_GetTriggerLevel", "PP_SetTriggerLevel", _D, None, True,
                                 "Trigger level, dBm.")
    trigger_edge = _Setting("PP_GetTriggerEdge", "PP_SetTriggerEdge", _I, None, True,
                            "Trigger slope, 0 or 1.")
    trigger_out_mode = _Setting("PP_GetTriggerOut", "PP_SetTriggerOut", _I, None, True,
                                "Trigger output per sweep: 0 off, 1 and 2 the polarities.")
    read_timeout_us = _Setting("PP_GetTimeOut", "PP_SetTimeOut", _I, None, True,
                               "Manual trace read time-out, µs.")
    auto_read_timeout = _bool("PP_GetAutoTimeOutMode", "PP_SetAutoTimeOutMode",
                              "Read time-out follows sweep time and delay.", True)
    undersampling = _bool("PP_GetUndersampling20ms_50ms_100ms", "PP_SetUndersampling20ms_50ms_100ms",
                          "Sweeps of 20 to 100 ms sampled at the base rate.", True)
    trace_averaging = _Setting("PP_GetAvgMode", "PP_SetAvgMode", _I, TraceAveraging, True,
                               "Trace averaging mode (TraceAveraging).")
    trace_averages = _Setting("PP_GetTraceAvgs", "PP_SetTraceAvgs", _I, None, True,
                              "Traces averaged, 1..100.")
    averaging_reset_sensitivity = _Setting("PP_GetAvgResetSens", "PP_SetAvgResetSens", _D, None, True,
                                           "Relative change that restarts averaging, 0..0.8.")
    measurement_threshold_dbm = _Setting("PP_GetMeasurementThreshold", "PP_SetMeasurementThreshold",
                                         _D, doc="Peaks and edges of the analysis lie above it, dBm.")

    def set_closest_sweep_time(self, usec):
        """Chooses the sweep time nearest to `usec`; returns the one chosen."""
        return call("PP_SetClosestSweepTimeUSEC", self.address, i32(usec, "sweep time"),
                    ok=range(1, 2**31 - 1), sensor=self)

    def reset_trace_averaging(self):
        call("PP_ResetTraceAveraging", self.address, sensor=self)

    def trace(self):
        """Takes one trace (dBm) and makes it the analysis trace: a Trace."""
        from .trace import Trace
        length = call("PP_GetTraceLength", self.address, ok=range(1, 2**31 - 1), sensor=self)
        points, count = (_D * length)(), _I()
        call("PP_GetTrace", self.address, points, length, ctypes.byref(count), sensor=self)
        call("PP_CurrTrace2AnalysisTrace", self.address, None, 0, sensor=self)
        delay = self.sweep_delay_us if self.sweep_delay_mode else 0
        settings = {"sweep_time_us": self.sweep_time_us, "sweep_delay_us": delay,
                    "filter": self.trace_filter, "trigger_source": self.trigger_source,
                    "trigger_level_dbm": self.trigger_level_dbm, "trace_averages": self.trace_averages,
                    "frequency_hz": self.frequency}
        trace = Trace(np.frombuffer(points, dtype=float, count=count.value).copy(), settings, self)
        self._analysis = trace
        return trace
