"""qvpower: USB RF power sensors from Python, over the QV_API2 library.

    import qvpower
    for info in qvpower.sensors():
        print(info.serial, info.model_name, info.owner)
    with qvpower.open(serial="AB1234") as sensor:
        sensor.frequency = 2.4e9
        print(sensor.measure_cw())

The library is looked for in QV_API2_LIBRARY, the package's folder and the
install prefixes. Every refused call raises a QVError subclass.
"""
from ._api import driver_version, library_path, set_system_timeout
from ._library import LibraryNotFoundError
from .enums import (DoubleRule, Filter, LimitMode, LimitStatus, MarkerMode, SingleRule,
                    TraceAveraging, TriggerSource, Unit)
from .errors import (AcquisitionError, LockTimeoutError, NoAnswerError, NoSuchSensorError,
                     NotConfirmedError, NotOwnedError, QVError, RefusedError,
                     SensorUnavailableError, StateRejectedError, explain)
from .sensor import (FREE, OTHER_PROCESS, THIS_PROCESS, BurstReading, PulseReading, Sensor,
                     SensorInfo, open, sensors)
from .state import InstrumentState
from .stats import ccdf, mean_dbm, power_distribution, reading_statistics
from .trace import Gate, Marker, Peak, Trace, find_peaks

__version__ = "1.0.0"
