/* QV_API2: driver library for USB RF power sensors.
 *
 * Every function returns a signed 32-bit result code (see "Result codes");
 * values come back through pointer arguments, which are written only on
 * success. Any number of processes may use the library at once; all calls on
 * the machine are serialised by one lock, waited on for at most the system
 * time-out (QV_SetSysTimeOut).
 *
 * Compiles as C99 and as C++.
 */
#ifndef QV_API2_H
#define QV_API2_H

#include <stdint.h>

#if defined(_WIN32)
#  if defined(QV_API2_BUILDING)
#    define QV_API __declspec(dllexport)
#  else
#    define QV_API __declspec(dllimport)
#  endif
#elif defined(__GNUC__)
#  define QV_API __attribute__((visibility("default")))
#else
#  define QV_API
#endif

#if defined(__GNUC__)
#  define QV_CHECK_RESULT __attribute__((warn_unused_result))
#else
#  define QV_CHECK_RESULT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ result codes */

/* Success, or "yes" for predicates. */
#define QV_SUCCESS 1
/* No, not found, or nothing to do. */
#define QV_NO 0
/* Lock not available within the system time-out, argument out of range,
 * sensor not initialised by the calling process, or general failure. */
#define QV_ERR_GENERAL (-1)
/* Invalid device index or serial number, or the driver library failed. */
#define QV_ERR_INVALID_DEVICE (-2)
/* A string longer than the buffer allows. */
#define QV_ERR_TOO_LONG (-3)
/* A stored value that the sensor did not confirm. */
#define QV_ERR_NOT_CONFIRMED (-4)
/* The sensor could not be opened, or belongs to another process. */
#define QV_ERR_DEVICE_UNAVAILABLE (-5)
/* The sensor no longer answers. */
#define QV_ERR_NO_ANSWER (-7)
/* Acquisition failed. */
#define QV_ERR_ACQUISITION (-13)

/* The version QV_DriverVersion reports. */
#define QV_DRIVER_VERSION 100101

/* Range of the system time-out, milliseconds. */
#define QV_SYS_TIMEOUT_MIN 100
#define QV_SYS_TIMEOUT_MAX 100000

/* ------------------------------------------------------------------ records */

/* Number of entries of the frequency-response table of an InstrumentState. */
#define QV_RESPONSE_POINTS 201

/* One point of the frequency-response correction. */
typedef struct QV_ResponsePoint {
    double Frequency; /* Hz */
    double Amplitude; /* dB */
} QV_ResponsePoint;

/* The measurement settings of a sensor: the current state and each register
 * have this layout, 3,496 bytes with natural alignment. */
typedef struct InstrumentState {
    int32_t MeasMode;
    double Freq;
    double CWRef;
    double PlsRefPulse;
    double PlsRefPeak;
    double PlsRefAvg;
    double PlsRefDC;
    double PulseCriteria_DB;
    double Offset_DB;
    double DutyeCycle;
    double RecorderOut_OV_Level;
    double RecorderOut_1V_Level;
    double SingleSidedLimit;
    double DoubleSidedLowerLimit;
    double DoubleSidedUpperLimit;
    int32_t Averages;
    int32_t TriggerDelay_mSec;
    int32_t PowerUnits;
    int32_t CWRefUnits;
    int32_t PulseRefUnits;
    int32_t SingleSideLimitUnits;
    int32_t DoubleSideLimitUnits;
    int32_t RecorderOutUnits;
    int32_t AntiAliasingEnabled;
    int32_t OffsetEnabled;
    int32_t ResponseEnabled;
    int32_t DutyCycleEnabled;
    int32_t AutoPulseCriteriaEnabled;
    int32_t TTL_TriggerInEnabled;
    int32_t TTL_TriggerInIvertedEnabled;
    int32_t TTL_TriggerOutEnabled;
    int32_t TTL_TriggerOutInvertEnabled;
    int32_t RecorderOutEnabled;
    int32_t LimitsEnabled;
    int32_t ExtendedAveragingEnabled;
    int32_t MaxHoldEnabled;
    int32_t ExtendedAveragingCount;
    int32_t ExtendedAveragingProgress[2];
    int32_t MaxHoldRestart[2];
    double MaxHoldValues[5];
    int32_t Enabled75Ohms;
    int32_t SingleSidedLimitsRule;
    int32_t DoubleSidedLimitsRule;
    int32_t NumberOfResponsePoints;
    QV_ResponsePoint Response[QV_RESPONSE_POINTS];
} InstrumentState;

/* One sensor of the bus as QV_SensorList reports it, 16 bytes. */
typedef struct SensorListEntry {
    int32_t DeviceIndex; /* 1..n; negated when another process has initialised the sensor */
    int32_t Address;     /* 1..255 */
    char SerialNumber[7];
    char Reserved;       /* not written */
} SensorListEntry;

/* ------------------------------------------------------------------ library frame */

/* Sets the time-out every call on the machine waits for the library's lock.
 *   timeOutMs: 100 to 100000 milliseconds.
 * Returns 1 when stored; -1 when outside that range (the time-out stays as it
 * was) or when the lock could not be had within the time-out in force. */
QV_API int32_t QV_SetSysTimeOut(int32_t timeOutMs);

/* Returns the library's version, 100101. Takes no lock: answers at once even
 * while another call holds it. */
QV_API int32_t QV_DriverVersion(void);

/* ------------------------------------------------------------------ discovery and addresses
 *
 * Sensors are named by serial number (5 or 6 characters, compared on their
 * first six without regard to case), by address (1..255, stored in the
 * sensor) or by device index (1-based place on the bus; negative indices name
 * a sensor another process has initialised, as QV_SensorList reports them). */

/* Number of sensors on the bus; -2 when the driver library fails. */
QV_API int32_t QV_SensorCnt(void);

/* Fills `list` with one entry per sensor in device-index order and frees the
 * slots of processes that no longer run. `length`: entries `list` has room for.
 * Returns 1; -1 when the address of a free sensor cannot be read, or when the
 * list is too short (the entries that fit are written). */
QV_API int32_t QV_SensorList(SensorListEntry* list, int32_t length);

/* Device index of the sensor with this serial number; 0 not found; -2 invalid
 * serial number; -5 a device could not be opened. */
QV_API int32_t QV_GetIndex_SN(const char* serialNumber);

/* Device index of the sensor with this address; 0 not found or no sensor; -1
 * address outside 0..255; -5 a device could not be opened. */
QV_API int32_t QV_GetIndex_Addr(int32_t address);

/* Serial number of the sensor with this address into `serialNumber` (at least
 * 7 bytes, terminated). Returns 1; 0 serial string unreadable or shorter than
 * six characters; -1 no sensor; -2 invalid address or not found. */
QV_API int32_t QV_GetSerNo_Addr(int32_t address, char* serialNumber);

/* Serial number of device `index` (negative allowed) as six upper-case
 * characters, no terminator written (`serialNumber` at least 6 bytes).
 * Returns 1; -5 index 0 or beyond the count. */
QV_API int32_t QV_GetSerNo_Idx(int32_t index, char* serialNumber);

/* Address of the sensor with this serial number; 0 the sensor did not answer;
 * -1 no sensor; -2 invalid serial number; -5 not found or not openable. */
QV_API int32_t QV_GetAddress_SN(const char* serialNumber);

/* Address of device `index` (negative allowed); -2 invalid index; -5 not
 * openable; -7 the sensor did not answer (its slot, if any, is released). */
QV_API int32_t QV_GetAddress_Idx(int32_t index);

/* Stores a new address (1..255) in the sensor with this serial number.
 * Returns 1; -1 address out of range; -4 sensor not found, not openable or no
 * begin-write echo; -5 initialised by another process or no end-write echo.
 * A failed write releases the caller's slot of the sensor. */
QV_API int32_t QV_SetAddress_SN(const char* serialNumber, int32_t address);

/* As QV_SetAddress_SN for device `index`; -5 also when not openable. */
QV_API int32_t QV_SetAddress_Idx(int32_t index, int32_t address);

/* Changes the sensor with address `oldAddress` to `newAddress` (both 1..255).
 * Returns 1; -1 the new address is taken, no sensor has the old one, or the
 * write failed; -5 an address out of range or the sensor not openable. */
QV_API int32_t QV_ChangeAddress(int32_t oldAddress, int32_t newAddress);

/* 1 when two sensors share an address, 0 if not, -5 a device could not be opened. */
QV_API int32_t QV_AddressConflictExists(void);

/* 1 when a connected sensor has `address` (1..255), 0 if not, -2 address out
 * of range, -5 a device could not be opened. */
QV_API int32_t QV_WillAddressConflict(int32_t address);

/* 1 connected (the LED blinks for one second), 0 not found, -5 initialised by
 * another process. */
QV_API int32_t QV_IsSensorConnected_SN(const char* serialNumber);

/* 1 connected, 0 not found, -1 address outside 0..255 or the sensor no longer
 * answers, -5 a device could not be opened or initialised by another process. */
QV_API int32_t QV_IsSensorConnected_Addr(int32_t address);

/* Blink the sensor's LED for one second. 1; -5 not found, not openable,
 * initialised by another process, or the blink failed. */
QV_API int32_t QV_BlinkLED_SN(const char* serialNumber);
QV_API int32_t QV_BlinkLED_Addr(int32_t address);
QV_API int32_t QV_BlinkLED_Idx(int32_t index);

/* ------------------------------------------------------------------ model, firmware, due date */

/* Model code (ModelIndex) of the sensor with this serial number into `model`.
 * Returns 1; -1 model unknown or no sensor; -2 invalid serial number; -5 not
 * found, not openable or its product string unreadable. */
QV_API int32_t QV_GetModelNumber_SN(const char* serialNumber, int32_t* model);

/* As above by address (sets *model to -1 first). -1 no sensor, none with this
 * address, or model unknown; -2 address outside 1..255; -5 not openable. */
QV_API int32_t QV_GetModelNumber_Addr(int32_t address, int32_t* model);

/* As above by device index (negative allowed; sets *model to -1 first).
 * -1 model unknown; -2 index 0 or beyond the count; -5 not openable. */
QV_API int32_t QV_GetModelNumber_Idx(int32_t index, int32_t* model);

/* Firmware version text (at most 14 characters and a terminator) into
 * `buffer` of `length` (at least 14) bytes. Returns 1; -1 otherwise. */
QV_API int32_t QV_GetFirmwareVersion(int32_t address, char* buffer, int32_t length);

/* Calibration due date stored in the sensor: year within the century, month,
 * day. Returns 1; -1 a request failed; -5 sensor not found, not openable or
 * initialised by another process. */
QV_API int32_t QV_GetCalDueDate(const char* serialNumber, int32_t* year, int32_t* month,
                                int32_t* day);

/* Stores the calibration due date (year 1..99, month 1..12, day 1..31) in a
 * sensor the caller has initialised. Returns 1; -1 not initialised by the
 * caller or date out of range; -2 or -3 the sensor did not confirm the write;
 * -5 no device handle. */
QV_API int32_t QV_SetCalDueDate(const char* serialNumber, int32_t year, int32_t month,
                                int32_t day);

/* ------------------------------------------------------------------ initialisation and ownership */

/* Initialises the sensor for the calling process: claims a slot, reads its
 * model, address and calibration (from the cache file when valid), builds its
 * calibration tables for 1 GHz and keeps it open. Returns the slot number
 * 1..13 (the same again when the caller already holds the sensor), or -1
 * (invalid serial, no free slot, held by another process, not openable). */
QV_API int32_t QV_InitializeSensor_SN(const char* serialNumber);

/* As above by address; 1 (not the slot number) when this process already
 * holds the sensor; or the negative result of the serial-number lookup. */
QV_API int32_t QV_InitializeSensor_Addr(int32_t address);

/* As above by device index (1..count); or the result of the serial lookup. */
QV_API int32_t QV_InitializeSensor_Idx(int32_t index);

/* Releases a sensor the caller has initialised. 1, or -1. */
QV_API int32_t QV_UninitializeSensor_SN(const char* serialNumber);

/* Opens the sensor's device and closes it again. 0 when it could be opened,
 * -1 when not. No slot changes. */
QV_API int32_t QV_ReInit_Addr(int32_t address);
QV_API int32_t QV_ReInit_Idx(int32_t index);

/* 1 when the device (|index|) is initialised by some process, else 0. */
QV_API int32_t QV_IsDeviceInUse_Idx(int32_t index);

/* 1 when the device (|index|) is initialised by the calling process, else 0. */
QV_API int32_t QV_IsDeviceMine_Idx(int32_t index);

#ifdef __cplusplus
}
#endif

#endif /* QV_API2_H */
