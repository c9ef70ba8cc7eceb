"""Finding and loading the QV_API2 shared library, and the C records it uses."""
import ctypes
import ctypes.util
import os
import sys
from pathlib import Path

_HERE = Path(__file__).resolve().parent

if sys.platform == "win32":
    _NAMES = ("QV_API2.dll",)
elif sys.platform == "darwin":
    _NAMES = ("libqv_api2.dylib", "libqv_api2.1.dylib")
else:
    _NAMES = ("libqv_api2.so.1", "libqv_api2.so")


class LibraryNotFoundError(OSError):
    """The shared library was not found; the message names every place tried."""


def _own_prefix():
    """The prefix the package itself is installed under, read from its folder:
    PREFIX/lib/python3/dist-packages (Debian), PREFIX/lib/pythonX.Y/site-packages,
    PREFIX/Lib/site-packages (Windows). None when run from elsewhere (a source tree)."""
    site = _HERE.parent
    if site.name not in ("dist-packages", "site-packages"):
        return None
    up = site.parent
    if up.name.lower().startswith("python"):
        up = up.parent
    return up.parent if up.name.lower() in ("lib", "lib64") else None


def _prefix_dirs():
    """Library folders of the install prefixes: the package's own, Python's, then the usual ones."""
    prefixes = []
    for p in (_own_prefix(), Path(sys.prefix)):
        if p is not None and p not in prefixes:
            prefixes.append(p)
    if sys.platform == "win32":
        dirs = [p / sub for p in prefixes for sub in ("bin", "Library/bin", "DLLs")]
        program_files = os.environ.get("ProgramFiles")
        if program_files:
            dirs.append(Path(program_files) / "qv_api2" / "bin")
        return dirs
    prefixes += [Path("/usr/local"), Path("/usr")]
    multiarch = getattr(sys.implementation, "_multiarch", None)
    dirs = []
    for p in prefixes:
        if multiarch:
            dirs.append(p / "lib" / multiarch)
        dirs += [p / "lib64", p / "lib"]
    return dirs


def candidates():
    """Where the library is looked for, in order: QV_API2_LIBRARY (a file), the
    package's own folder, then the install prefixes' library folders."""
    places = []
    env = os.environ.get("QV_API2_LIBRARY")
    if env:
        places.append(Path(env))
    for folder in [_HERE] + _prefix_dirs():
        places += [folder / name for name in _NAMES]
    return places


def load():
    """The loaded library; LibraryNotFoundError naming the places tried when none loads."""
    tried = []
    for path in candidates():
        if not path.is_file():
            tried.append(f"{path} (no such file)")
            continue
        # Loaded by absolute path: a bare relative name would be searched for
        # rather than taken from the working folder, and on Windows an absolute
        # path makes the DLL's own folder searched for the DLLs it needs, so
        # no os.add_dll_directory is called for.
        path = Path(os.path.abspath(path))
        try:
            return ctypes.CDLL(str(path)), path
        except OSError as e:
            tried.append(f"{path} ({e})")
    # Last, the system's own search: ld.so.conf and LD_LIBRARY_PATH; on Windows
    # the folders given to os.add_dll_directory. Python 3.8+ no longer looks in
    # PATH for a bare DLL name, so find_library walks PATH for it instead.
    for name in _NAMES:
        try:
            return ctypes.CDLL(name), Path(name)
        except OSError:
            tried.append(f"{name} (system search)")
    if sys.platform == "win32":
        found = ctypes.util.find_library("QV_API2")
        if found:
            try:
                return ctypes.CDLL(found), Path(found)
            except OSError as e:
                tried.append(f"{found} (PATH, {e})")
        else:
            tried.append("QV_API2.dll (PATH)")
    raise LibraryNotFoundError(
        "the QV_API2 library was not found; set QV_API2_LIBRARY to its file. Tried:\n  "
        + "\n  ".join(tried))


# ---------------------------------------------------------------- records

RESPONSE_POINTS = 201


class ResponsePointC(ctypes.Structure):
    _fields_ = [("Frequency", ctypes.c_double), ("Amplitude", ctypes.c_double)]


_i32, _dbl = ctypes.c_int32, ctypes.c_double


class InstrumentStateC(ctypes.Structure):
    _fields_ = [("MeasMode", _i32)] + [(n, _dbl) for n in (
        "Freq", "CWRef", "PlsRefPulse", "PlsRefPeak", "PlsRefAvg", "PlsRefDC", "PulseCriteria_DB",
        "Offset_DB", "DutyeCycle", "RecorderOut_OV_Level", "RecorderOut_1V_Level",
        "SingleSidedLimit", "DoubleSidedLowerLimit", "DoubleSidedUpperLimit")] + [(n, _i32) for n in (
        "Averages", "TriggerDelay_mSec", "PowerUnits", "CWRefUnits", "PulseRefUnits",
        "SingleSideLimitUnits", "DoubleSideLimitUnits", "RecorderOutUnits", "AntiAliasingEnabled",
        "OffsetEnabled", "ResponseEnabled", "DutyCycleEnabled", "AutoPulseCriteriaEnabled",
        "TTL_TriggerInEnabled", "TTL_TriggerInIvertedEnabled", "TTL_TriggerOutEnabled",
        "TTL_TriggerOutInvertEnabled", "RecorderOutEnabled", "LimitsEnabled",
        "ExtendedAveragingEnabled", "MaxHoldEnabled", "ExtendedAveragingCount")] + [
        ("ExtendedAveragingProgress", _i32 * 2), ("MaxHoldRestart", _i32 * 2),
        ("MaxHoldValues", _dbl * 5), ("Enabled75Ohms", _i32), ("SingleSidedLimitsRule", _i32),
        ("DoubleSidedLimitsRule", _i32), ("NumberOfResponsePoints", _i32),
        ("Response", ResponsePointC * RESPONSE_POINTS)]


class SensorListEntryC(ctypes.Structure):
    _fields_ = [("DeviceIndex", ctypes.c_int32), ("Address", ctypes.c_int32),
                ("SerialNumber", ctypes.c_char * 7), ("Reserved", ctypes.c_char)]


class PeakC(ctypes.Structure):
    _fields_ = [("Index", ctypes.c_int32), ("Reserved", ctypes.c_int32), ("Value", ctypes.c_double)]


assert ctypes.sizeof(InstrumentStateC) == 3496 and ctypes.sizeof(SensorListEntryC) == 16

# ---------------------------------------------------------------- prototypes

_I, _U, _D, _S = ctypes.c_int32, ctypes.c_uint32, ctypes.c_double, ctypes.c_char_p
_PI, _PD = ctypes.POINTER(ctypes.c_int32), ctypes.POINTER(ctypes.c_double)
_PSTATE, _PPEAK = ctypes.POINTER(InstrumentStateC), ctypes.POINTER(PeakC)
_PRESP = ctypes.POINTER(ResponsePointC)

# Argument types by export; every export returns int32. Settings of the
# profiling group take the address unsigned, as the header declares it.
_SIGNATURES = {
    "QV_SetSysTimeOut": [_I], "QV_DriverVersion": [], "QV_SensorCnt": [],
    "QV_SensorList": [ctypes.POINTER(SensorListEntryC), _I],
    "QV_GetIndex_SN": [_S], "QV_GetSerNo_Idx": [_I, ctypes.c_char_p], "QV_GetIndex_Addr": [_I], "QV_GetAddress_SN": [_S],
    "QV_SetAddress_SN": [_S, _I], "QV_ChangeAddress": [_I, _I],
    "QV_AddressConflictExists": [], "QV_WillAddressConflict": [_I],
    "QV_IsSensorConnected_SN": [_S], "QV_BlinkLED_SN": [_S],
    "QV_GetModelNumber_SN": [_S, _PI], "QV_GetModelNumber_Idx": [_I, _PI],
    "QV_GetFirmwareVersion": [_I, ctypes.c_char_p, _I],
    "QV_GetCalDueDate": [_S, _PI, _PI, _PI], "QV_SetCalDueDate": [_S, _I, _I, _I],
    "QV_InitializeSensor_SN": [_S], "QV_UninitializeSensor_SN": [_S],
    "QV_IsDeviceInUse_Idx": [_I], "QV_IsDeviceMine_Idx": [_I],
    "QV_GetCurrentState": [_I, _PSTATE], "QV_SetCurrentState": [_I, InstrumentStateC],
    "QV_GetRegState": [_I, _I, _PSTATE], "QV_SetRegState": [_I, _I, InstrumentStateC],
    "QV_Store": [_I, _I], "QV_Recall": [_I, _I], "QV_ResetCurrentState": [_I],
    "QV_ResetRegStates": [_I], "QV_SaveCurrStateTo": [_I, _S], "QV_RestoreCurrStateFrom": [_I, _S],
    "QV_WriteStateToINI": [_I], "QV_ReadStateFromINI": [_I], "QV_GetNamedStateCount": [_I],
    "QV_GetNamedStateNames": [_I, ctypes.c_char_p, _PI], "QV_DeleteNamedState": [_I, _S],
    "QV_GetCWReference": [_I, _PD, _PI], "QV_SetCWReference": [_I, _D, _I],
    "QV_GetPulseReference": [_I, _PD, _PD, _PD, _PD, _PI],
    "QV_SetPulseReference": [_I, _D, _D, _D, _D, _I],
    "QV_SetSingleSidedLimit": [_I, _D, _I, _I], "QV_GetSingleSidedLimit": [_I, _PD, _PI, _PI],
    "QV_SetDoubleSidedLimit": [_I, _D, _D, _I, _I],
    "QV_GetDoubleSidedLimit": [_I, _PD, _PD, _PI, _PI],
    "QV_SetResponse_Flat": [_I, _PD, _PD, _I], "QV_GetResponse_Flat": [_I, _PD, _PD, _PI],
    "QV_SetRecorderOutSetup": [_I, _D, _D, _I], "QV_GetRecorderOutSetup": [_I, _PD, _PD, _PI],
    "QV_MeasureCW": [_I, _PD], "QV_MeasureCW_PF": [_I, _PD, _PI],
    "QV_MeasurePulse": [_I, _PD, _PD, _PD, _PD], "QV_MeasurePulse_PF": [_I, _PD, _PD, _PD, _PD, _PI],
    "QV_MeasureBurst_DBM": [_I, _I, _I, _I, _PD, _PD, _PD],
    "QV_ResetExtendedAveraging": [_I], "QV_ResetMaxHold": [_I],
    "PP_SetClosestSweepTimeUSEC": [_U, _I], "PP_CheckTrigger": [_U],
    "PP_ResetTraceAveraging": [_U], "PP_GetTrace": [_I, _PD, _I, _PI], "PP_GetTraceLength": [_I],
    "PP_CurrTrace2AnalysisTrace": [_I, _PD, _I],
    "PP_SetAnalysisTrace": [_I, _D, _D, _PD, _I, _I], "PP_AnalysisTraceIsValid": [_I],
    "PP_SetGateMode": [_I, _I, _I], "PP_GetGateMode": [_I, _I, _PI],
    "PP_SetGateStartEndTime": [_I, _I, _D, _D], "PP_SetGateStartEndPosition": [_I, _I, _I, _I],
    "PP_GetGateStartEndPositionTime": [_I, _I, _PI, _PD, _PI, _PD],
    "PP_SetMeasurementThreshold": [_I, _D], "PP_GetMeasurementThreshold": [_I, _PD],
    "PP_SetMarkerMode": [_I, _I, _I], "PP_GetMarkerMode": [_I, _I, _PI],
    "PP_SetMarkerPosition": [_I, _I, _I], "PP_GetMarkerPosition": [_I, _I, _PI],
    "PP_SetMarkerPositionTime": [_I, _I, _D], "PP_GetMarkerPositionTime": [_I, _I, _PD],
    "PP_SetMarkerDeltaTime": [_I, _I, _D], "PP_GetMarkerDeltaTime": [_I, _I, _PD],
    "PP_GetMarkerAmp": [_I, _I, _PD], "PP_GetMarkerDeltaAmp": [_I, _I, _PD],
    "PP_GetPeaks_Idx": [_I, _PPEAK, _I, _PI], "PP_GetPeaks_Val": [_I, _PPEAK, _I, _PI],
    "PP_GetPeaksFromTr_Idx": [_PD, _I, _I, _D, _D, _PPEAK, _I, _PI],
    "PP_GetPeaksFromTr_Val": [_PD, _I, _I, _D, _D, _PPEAK, _I, _PI],
    "PP_GetPulseEdgesPosition": [_I, _I, _PI, _PI],
}
for _name in ("GateAveragePower", "GatePeakPower", "GateCrestFactor", "GateDroop", "GateOverShoot",
              "GateRiseTime", "GateFallTime", "GatePulseWidth", "GatePulsePower", "GatePRT",
              "GatePRF", "GateDutyCycle"):
    _SIGNATURES["PP_Get" + _name] = [_I, _I, _PD]
for _name in ("TraceAvgPower", "TracePkPwr", "TraceCrestFactor", "TracePulsePower", "TraceDC"):
    _SIGNATURES["PP_Get" + _name] = [_I, _PD]
for _name in ("ToPk", "ToLowestPk", "ToFirstPk", "ToLastPk", "NextPk", "PrevPk", "PkHigher",
              "PkLower"):
    _SIGNATURES["PP_Marker" + _name] = [_I, _I]


def setting_signatures(settings):
    """Adds the getter and setter of each (name, C type, unsigned address) setting."""
    for getter, setter, ctype, unsigned in settings:
        address = _U if unsigned else _I
        if getter:
            _SIGNATURES.setdefault(getter, [address, ctypes.POINTER(ctype)])
        if setter:
            _SIGNATURES.setdefault(setter, [address, ctype])


def bind(lib):
    """Gives every known export its prototype."""
    for name, argtypes in _SIGNATURES.items():
        f = getattr(lib, name)
        f.argtypes = argtypes
        f.restype = ctypes.c_int32
