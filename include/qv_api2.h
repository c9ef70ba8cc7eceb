/** @file qv_api2.h
 * @brief QV_API2: driver library for USB RF power sensors.
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

/** @def QV_API
 * Marks an export: visible outside the shared library; on Windows
 * dllexport while the library is built and dllimport for applications.
 */
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

/** @def QV_CHECK_RESULT
 * Asks GCC and Clang to warn when a result is ignored.
 */
#if defined(__GNUC__)
#  define QV_CHECK_RESULT __attribute__((warn_unused_result))
#else
#  define QV_CHECK_RESULT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup frame Library frame
 * Result codes, the system time-out and the version.
 */
/** @defgroup device Sensors on the bus
 * Finding sensors and naming them by serial number, address or device index;
 * model, firmware and calibration due date.
 */
/** @defgroup calibration Initialisation
 * Claiming a sensor for the calling process, with its calibration, and releasing it.
 */
/** @defgroup settings Measurement settings
 * The settings of an initialised sensor: units, offsets, references, limits,
 * response correction, trigger and recorder outputs.
 */
/** @defgroup measure Power measurement
 * CW, pulse and burst readings.
 */
/** @defgroup states Saved states
 * State files, named states and registers.
 */
/** @defgroup profiling Pulse profiling and analysis
 * Power-versus-time traces and the analysis of a frozen trace: gates, markers,
 * peaks and pulse edges.
 */

/** @defgroup result_codes Result codes
 * @ingroup frame
 * @{
 */

/** Success, or "yes" for predicates. */
#define QV_SUCCESS 1
/** No, not found, or nothing to do. */
#define QV_NO 0
/** Lock not available within the system time-out, argument out of range,
 * sensor not initialised by the calling process, or general failure.
 */
#define QV_ERR_GENERAL (-1)
/** Invalid device index or serial number, or the driver library failed. */
#define QV_ERR_INVALID_DEVICE (-2)
/** A string longer than the buffer allows. */
#define QV_ERR_TOO_LONG (-3)
/** A stored value that the sensor did not confirm. */
#define QV_ERR_NOT_CONFIRMED (-4)
/** The sensor could not be opened, or belongs to another process. */
#define QV_ERR_DEVICE_UNAVAILABLE (-5)
/** The sensor no longer answers. */
#define QV_ERR_NO_ANSWER (-7)
/** Acquisition failed. */
#define QV_ERR_ACQUISITION (-13)

/** The version QV_DriverVersion reports. */
#define QV_DRIVER_VERSION 100101

/** Range of the system time-out, milliseconds. */
#define QV_SYS_TIMEOUT_MIN 100
#define QV_SYS_TIMEOUT_MAX 100000 /**< longest system time-out, ms */
/** @} */

/** @defgroup records Records
 * @ingroup settings
 * @{
 */

/** Number of entries of the frequency-response table of an InstrumentState. */
#define QV_RESPONSE_POINTS 201

/** One point of the frequency-response correction. */
typedef struct QV_ResponsePoint {
    double Frequency; /**< Hz */
    double Amplitude; /**< dB */
} QV_ResponsePoint;

/** The measurement settings of a sensor: the current state and each register
 * have this layout, 3,496 bytes with natural alignment.
 */
typedef struct InstrumentState {
    int32_t MeasMode; /**< measurement mode */
    double Freq; /**< frequency, Hz */
    double CWRef; /**< CW reference, in CWRefUnits */
    double PlsRefPulse; /**< pulse power reference, in PulseRefUnits */
    double PlsRefPeak; /**< peak power reference, in PulseRefUnits */
    double PlsRefAvg; /**< average power reference, in PulseRefUnits */
    double PlsRefDC; /**< duty-cycle reference, a fraction */
    double PulseCriteria_DB; /**< pulse criteria, dB */
    double Offset_DB; /**< offset, dB */
    double DutyeCycle; /**< duty cycle of the duty-cycle correction, a fraction */
    /** result shown as 0 V on the recorder output, in RecorderOutUnits */
    double RecorderOut_OV_Level;
    /** result shown as 1 V on the recorder output, in RecorderOutUnits */
    double RecorderOut_1V_Level;
    double SingleSidedLimit; /**< single-sided limit, in SingleSideLimitUnits */
    double DoubleSidedLowerLimit; /**< lower double-sided limit, in DoubleSideLimitUnits */
    double DoubleSidedUpperLimit; /**< upper double-sided limit, in DoubleSideLimitUnits */
    int32_t Averages; /**< number of averages, 1..100000 */
    int32_t TriggerDelay_mSec; /**< trigger-input time-out, ms */
    int32_t PowerUnits; /**< unit code of results (QV_UNIT_) */
    int32_t CWRefUnits; /**< unit code of CWRef */
    int32_t PulseRefUnits; /**< unit code of the pulse power references */
    int32_t SingleSideLimitUnits; /**< unit code of SingleSidedLimit */
    int32_t DoubleSideLimitUnits; /**< unit code of the double-sided limits */
    int32_t RecorderOutUnits; /**< unit code of the recorder levels */
    int32_t AntiAliasingEnabled; /**< anti-aliasing on (1) or off (0) */
    int32_t OffsetEnabled; /**< offset applied (1) or not (0) */
    int32_t ResponseEnabled; /**< response correction applied (1) or not (0) */
    int32_t DutyCycleEnabled; /**< duty-cycle correction applied (1) or not (0) */
    int32_t AutoPulseCriteriaEnabled; /**< automatic pulse criteria (1) or the set ones (0) */
    int32_t TTL_TriggerInEnabled; /**< TTL trigger input on (1) or off (0) */
    int32_t TTL_TriggerInIvertedEnabled; /**< trigger input inverted (1) or not (0) */
    int32_t TTL_TriggerOutEnabled; /**< TTL trigger output on (1) or off (0) */
    int32_t TTL_TriggerOutInvertEnabled; /**< trigger output inverted (1) or not (0) */
    int32_t RecorderOutEnabled; /**< recorder output on (1) or off (0) */
    int32_t LimitsEnabled; /**< which limit applies (QV_LIMITS_) */
    int32_t ExtendedAveragingEnabled; /**< extended averaging on when exactly 1 (run-time field) */
    int32_t MaxHoldEnabled; /**< max hold on when exactly 1 (run-time field) */
    int32_t ExtendedAveragingCount; /**< extended averaging length N (run-time field) */
    /** readings since the restart, CW and pulse (run-time field) */
    int32_t ExtendedAveragingProgress[2];
    int32_t MaxHoldRestart[2]; /**< hold restarted, CW and pulse (run-time field) */
    double MaxHoldValues[5]; /**< held maxima (run-time field) */
    int32_t Enabled75Ohms; /**< 75-ohm correction: 1 on, any other value off (run-time field) */
    int32_t SingleSidedLimitsRule; /**< single-sided rule (QV_SINGLE_) */
    int32_t DoubleSidedLimitsRule; /**< double-sided rule (QV_DOUBLE_) */
    int32_t NumberOfResponsePoints; /**< response points in use, 0..201 */
    QV_ResponsePoint Response[QV_RESPONSE_POINTS]; /**< frequency-response table */
} InstrumentState;

/** One sensor of the bus as QV_SensorList reports it, 16 bytes. */
typedef struct SensorListEntry {
    int32_t DeviceIndex; /**< 1..n; negated when another process has initialised the sensor */
    int32_t Address;     /**< 1..255 */
    char SerialNumber[7]; /**< serial number, terminated */
    char Reserved;       /**< not written */
} SensorListEntry;

/** @} */

/** @defgroup library_frame Library frame
 * @ingroup frame
 * @{
 */

/** Sets the time-out every call on the machine waits for the library's lock.
 *   timeOutMs: 100 to 100000 milliseconds.
 * @return 1 when stored; -1 when outside that range (the time-out stays as it
 * was) or when the lock could not be had within the time-out in force.
 * @param[in] timeOutMs time-out in milliseconds, 100..100000
 */
QV_API int32_t QV_SetSysTimeOut(int32_t timeOutMs);

/** The library's version. Takes no lock: answers at once even while another
 * call holds it.
 * @return 100101 (QV_DRIVER_VERSION).
 */
QV_API int32_t QV_DriverVersion(void);

/** @} */

/** @defgroup discovery_and_addresses Discovery and addresses
 * @ingroup device
 * Sensors are named by serial number (5 or 6 characters, compared on their
 * first six without regard to case), by address (1..255, stored in the
 * sensor) or by device index (1-based place on the bus; negative indices name
 * a sensor another process has initialised, as QV_SensorList reports them).
 * @{
 */

/** Number of sensors on the bus.
 * @return the number, 0 or more; -2 the driver library failed.
 */
QV_API int32_t QV_SensorCnt(void);

/** Fills `list` with one entry per sensor in device-index order and frees the
 * slots of processes that no longer run. `length`: entries `list` has room for.
 * @return 1; -1 when the address of a free sensor cannot be read, or when the
 * list is too short (the entries that fit are written).
 * @param[out] list one entry per sensor
 * @param[in] length number of entries `list` has room for
 */
QV_API int32_t QV_SensorList(SensorListEntry* list, int32_t length);

/** Device index of the sensor with this serial number.
 * @return the index; 0 not found; -2 invalid serial number; -5 a device could
 * not be opened.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 */
QV_API int32_t QV_GetIndex_SN(const char* serialNumber);

/** Device index of the sensor with this address.
 * @return the index; 0 not found or no sensor; -1 address outside 0..255; -5 a
 * device could not be opened.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_GetIndex_Addr(int32_t address);

/** Serial number of the sensor with this address into `serialNumber` (at least
 * 7 bytes, terminated). @return 1; 0 serial string unreadable or shorter than
 * six characters; -1 no sensor; -2 invalid address or not found.
 * @param[in] address address of the sensor, 1..255
 * @param[out] serialNumber at least 7 bytes for the serial number and its terminator
 */
QV_API int32_t QV_GetSerNo_Addr(int32_t address, char* serialNumber);

/** Serial number of device `index` (negative allowed) as six upper-case
 * characters, no terminator written (`serialNumber` at least 6 bytes).
 * @return 1; -5 index 0 or beyond the count.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 * @param[out] serialNumber at least 6 bytes for the serial number (no terminator)
 */
QV_API int32_t QV_GetSerNo_Idx(int32_t index, char* serialNumber);

/** Address of the sensor with this serial number.
 * @return the address; 0 the sensor did not answer; -1 no sensor; -2 invalid
 * serial number; -5 not found or not openable.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 */
QV_API int32_t QV_GetAddress_SN(const char* serialNumber);

/** Address of device `index` (negative allowed).
 * @return the address; -2 invalid index; -5 not openable; -7 the sensor did not
 * answer (its slot, if any, is released).
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 */
QV_API int32_t QV_GetAddress_Idx(int32_t index);

/** Stores a new address (1..255) in the sensor with this serial number.
 * @return 1; -1 address out of range; -4 sensor not found, not openable or no
 * begin-write echo; -5 initialised by another process or no end-write echo.
 * A failed write releases the caller's slot of the sensor.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_SetAddress_SN(const char* serialNumber, int32_t address);

/** As QV_SetAddress_SN for device `index`.
 * @return as QV_SetAddress_SN; -5 also when not openable.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_SetAddress_Idx(int32_t index, int32_t address);

/** Changes the sensor with address `oldAddress` to `newAddress` (both 1..255).
 * @return 1; -1 the new address is taken, no sensor has the old one, or the
 * write failed; -5 an address out of range or the sensor not openable.
 * @param[in] oldAddress present address, 1..255
 * @param[in] newAddress new address, 1..255
 */
QV_API int32_t QV_ChangeAddress(int32_t oldAddress, int32_t newAddress);

/** Whether two sensors share an address.
 * @return 1 when they do, 0 if not, -5 a device could not be opened.
 */
QV_API int32_t QV_AddressConflictExists(void);

/** Whether a connected sensor has `address` (1..255).
 * @return 1 when one has, 0 if not, -2 address out of range, -5 a device could
 * not be opened.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_WillAddressConflict(int32_t address);

/** Whether the sensor is connected; its LED then blinks for one second.
 * @return 1 connected, 0 not found, -5 initialised by another process.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 */
QV_API int32_t QV_IsSensorConnected_SN(const char* serialNumber);

/** Whether the sensor with this address is connected.
 * @return 1 connected, 0 not found, -1 address outside 0..255 or the sensor no
 * longer answers, -5 a device could not be opened or initialised by another
 * process.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_IsSensorConnected_Addr(int32_t address);

/** Blinks the sensor's LED for one second.
 * @return 1; -5 not found, not openable, initialised by another process, or the
 * blink failed.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 */
QV_API int32_t QV_BlinkLED_SN(const char* serialNumber);
/** As QV_BlinkLED_SN, by address.
 * @return as QV_BlinkLED_SN.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_BlinkLED_Addr(int32_t address);
/** As QV_BlinkLED_SN, by device index.
 * @return as QV_BlinkLED_SN.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 */
QV_API int32_t QV_BlinkLED_Idx(int32_t index);

/** @} */

/** @defgroup model_firmware_due_date Model, firmware, due date
 * @ingroup device
 * @{
 */

/** Model code (ModelIndex) of the sensor with this serial number into `model`.
 * @return 1; -1 model unknown or no sensor; -2 invalid serial number; -5 not
 * found, not openable or its product string unreadable.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 * @param[out] model model code (ModelIndex)
 */
QV_API int32_t QV_GetModelNumber_SN(const char* serialNumber, int32_t* model);

/** As QV_GetModelNumber_SN by address (sets *model to -1 first).
 * @return 1; -1 no sensor, none with this address, or model unknown; -2 address
 * outside 1..255; -5 not openable.
 * @param[in] address address of the sensor, 1..255
 * @param[out] model model code (ModelIndex)
 */
QV_API int32_t QV_GetModelNumber_Addr(int32_t address, int32_t* model);

/** As QV_GetModelNumber_SN by device index (negative allowed; sets *model to
 * -1 first).
 * @return 1; -1 model unknown; -2 index 0 or beyond the count; -5 not openable.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 * @param[out] model model code (ModelIndex)
 */
QV_API int32_t QV_GetModelNumber_Idx(int32_t index, int32_t* model);

/** Firmware version text (at most 14 characters and a terminator) into
 * `buffer` of `length` (at least 14) bytes. @return 1; -1 otherwise.
 * @param[in] address address of the sensor, 1..255
 * @param[out] buffer firmware version text, terminated
 * @param[in] length size of `buffer` in bytes, at least 14
 */
QV_API int32_t QV_GetFirmwareVersion(int32_t address, char* buffer, int32_t length);

/** Calibration due date stored in the sensor: year within the century, month,
 * day. @return 1; -1 a request failed; -5 sensor not found, not openable or
 * initialised by another process.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 * @param[out] year year within the century
 * @param[out] month month, 1..12
 * @param[out] day day, 1..31
 */
QV_API int32_t QV_GetCalDueDate(const char* serialNumber, int32_t* year, int32_t* month,
                                int32_t* day);

/** Stores the calibration due date (year 1..99, month 1..12, day 1..31) in a
 * sensor the caller has initialised. @return 1; -1 not initialised by the
 * caller or date out of range; -2 or -3 the sensor did not confirm the write;
 * -5 no device handle.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 * @param[in] year year within the century
 * @param[in] month month, 1..12
 * @param[in] day day, 1..31
 */
QV_API int32_t QV_SetCalDueDate(const char* serialNumber, int32_t year, int32_t month,
                                int32_t day);

/** @} */

/** @defgroup initialisation_and_ownership Initialisation and ownership
 * @ingroup calibration
 * @{
 */

/** Initialises the sensor for the calling process: claims a slot, reads its
 * model, address and calibration (from the cache file when valid), builds its
 * calibration tables for 1 GHz and keeps it open. @return the slot number
 * 1..13 (the same again when the caller already holds the sensor), or -1
 * (invalid serial, no free slot, held by another process, not openable).
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 */
QV_API int32_t QV_InitializeSensor_SN(const char* serialNumber);

/** As QV_InitializeSensor_SN by address.
 * @return the slot number; 1 (not the slot number) when this process already
 * holds the sensor; or the negative result of the serial-number lookup.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_InitializeSensor_Addr(int32_t address);

/** As QV_InitializeSensor_SN by device index (1..count).
 * @return as QV_InitializeSensor_SN, or the result of the serial lookup.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 */
QV_API int32_t QV_InitializeSensor_Idx(int32_t index);

/** Releases a sensor the caller has initialised.
 * @return 1; -1 not initialised by the caller, or the lock could not be had.
 * @param[in] serialNumber serial number, 5 or 6 characters, any case
 */
QV_API int32_t QV_UninitializeSensor_SN(const char* serialNumber);

/** Opens the sensor's device and closes it again. No slot changes.
 * @return 0 when it could be opened, -1 when not.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_ReInit_Addr(int32_t address);
/** As QV_ReInit_Addr, by device index.
 * @return as QV_ReInit_Addr.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 */
QV_API int32_t QV_ReInit_Idx(int32_t index);

/** Whether the device (|index|) is initialised by some process.
 * @return 1 when it is, else 0.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 */
QV_API int32_t QV_IsDeviceInUse_Idx(int32_t index);

/** Whether the device (|index|) is initialised by the calling process.
 * @return 1 when it is, else 0.
 * @param[in] index device index, 1-based (negative: a sensor another process has initialised)
 */
QV_API int32_t QV_IsDeviceMine_Idx(int32_t index);

/** @} */

/** @defgroup measurement_settings Measurement settings
 * @ingroup settings
 * The settings of a sensor the calling process has initialised, named by its
 * address (1..255). Values are checked before anything is looked up; a
 * refused value gives -1 and changes nothing. Most settings only change the
 * library's record; anti-aliasing, trigger and recorder settings are also
 * sent to the sensor, and every setting that changes how a result is scaled
 * switches the recorder output off. Getters answer -1 for a null pointer.
 * @{
 */

/** Unit codes (UnitCode) of results, references, limits and recorder levels. */
#define QV_UNIT_DBM 0
#define QV_UNIT_DBW 1 /**< dBW */
#define QV_UNIT_DBKW 2 /**< dBkW */
#define QV_UNIT_DBUV 3 /**< dBuV */
#define QV_UNIT_DBMV 4 /**< dBmV */
#define QV_UNIT_DBV 5 /**< dBV */
#define QV_UNIT_W 6 /**< watts */
#define QV_UNIT_V 7 /**< volts */
/** dB relative to the CW reference; results only (QV_SetMeasurementPowerUnits). */
#define QV_UNIT_DB_REL 8

/** Frequency in Hz; 1 GHz after a reset. @return 1; -1 null pointer, sensor
 * not initialised by the caller, or the lock could not be had.
 * @param[in] address address of the sensor, 1..255
 * @param[out] frequencyHz frequency in Hz
 */
QV_API int32_t QV_GetFrequency(int32_t address, double* frequencyHz);

/** Sets the measurement frequency in Hz, which selects the calibration and the
 * response correction. The value is stored first and then checked: from 10 MHz
 * to the model's upper limit (10, 12.5, 18, 20 or 26.5 GHz). At 100 MHz and
 * below anti-aliasing is switched on as well. @return 1; -1 frequency outside
 * the model's range (it stays stored all the same), sensor not found or not
 * initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] frequencyHz frequency in Hz
 */
QV_API int32_t QV_SetFrequency(int32_t address, double frequencyHz);

/** Number of averages of a measurement. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] averages number of averages, 1..100000
 */
QV_API int32_t QV_GetAverages(int32_t address, int32_t* averages);

/** Sets the number of averages, 1 to 100000. @return 1; -1 out of range, sensor
 * not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] averages number of averages, 1..100000
 */
QV_API int32_t QV_SetAverages(int32_t address, int32_t averages);

/** Offset in dB added to results while enabled. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] offsetDb offset in dB
 */
QV_API int32_t QV_GetOffset(int32_t address, double* offsetDb);

/** Sets the offset, -200 to 200 dB, and switches the recorder output off.
 * @return 1; -1 out of range, sensor not found or not initialised by the
 * caller, or no device handle (the offset is stored all the same).
 * @param[in] address address of the sensor, 1..255
 * @param[in] offsetDb offset in dB
 */
QV_API int32_t QV_SetOffset(int32_t address, double offsetDb);

/** Whether the offset is applied (0 or 1). @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetOffsetEnabled(int32_t address, int32_t* enabled);

/** Applies the offset (1) or not (0) and switches the recorder output off
 * through a device handle opened for the call. Needs no ownership. @return 1;
 * -1 not 0 or 1, or no sensor with this address.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetOffsetEnabled(int32_t address, int32_t enabled);

/** Whether the duty-cycle correction is applied. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetDutyCycleEnabled(int32_t address, int32_t* enabled);

/** Applies the duty-cycle correction (1) or not (0) and switches the recorder
 * output off. @return 1; -1 not 0 or 1, sensor not found or not initialised by
 * the caller, or no device handle (nothing stored).
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetDutyCycleEnabled(int32_t address, int32_t enabled);

/** Duty cycle in per cent. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] perCent duty cycle in per cent
 */
QV_API int32_t QV_GetDutyCyclePerCent(int32_t address, double* perCent);

/** Sets the duty cycle, 0.001 to 100 per cent, and switches the recorder output
 * off. @return 1; -1 out of range, sensor not found or not initialised by the
 * caller, or no device handle (the duty cycle is stored all the same).
 * @param[in] address address of the sensor, 1..255
 * @param[in] perCent duty cycle in per cent
 */
QV_API int32_t QV_SetDutyCyclePerCent(int32_t address, double perCent);

/** Unit code of results (QV_UNIT_). @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] units unit code (QV_UNIT_, 0..7)
 */
QV_API int32_t QV_GetMeasurementPowerUnits(int32_t address, int32_t* units);

/** Sets the unit of results, QV_UNIT_DBM to QV_UNIT_DB_REL (0..8), and switches
 * the recorder output off. @return 1; -1 out of range, sensor not found or not
 * initialised by the caller, or no device handle (the unit is stored all the
 * same).
 * @param[in] address address of the sensor, 1..255
 * @param[in] units unit code (QV_UNIT_, 0..7)
 */
QV_API int32_t QV_SetMeasurementPowerUnits(int32_t address, int32_t units);

/** CW reference value and its unit code. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] value CW reference in unit `units`
 * @param[out] units unit code (QV_UNIT_, 0..7)
 */
QV_API int32_t QV_GetCWReference(int32_t address, double* value, int32_t* units);

/** Sets the CW reference that QV_UNIT_DB_REL results are relative to, in unit
 * `units` (0..7). Needs no ownership. @return 1; -1 unit out of range or no
 * sensor with this address.
 * @param[in] address address of the sensor, 1..255
 * @param[in] value CW reference in unit `units`
 * @param[in] units unit code (QV_UNIT_, 0..7)
 */
QV_API int32_t QV_SetCWReference(int32_t address, double value, int32_t units);

/** Pulse references of the pulse power, peak power and average power (in the
 * returned unit code) and of the duty cycle (per cent). @return 1; -1 as
 * QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] pulse pulse power reference
 * @param[out] peak peak power reference
 * @param[out] average average power reference
 * @param[out] dutyCycle duty-cycle reference in per cent
 * @param[out] units unit code of the three power references
 */
QV_API int32_t QV_GetPulseReference(int32_t address, double* pulse, double* peak,
                                    double* average, double* dutyCycle, int32_t* units);

/** Sets the four pulse references; `units` (0..7) applies to the three powers,
 * the duty cycle is in per cent. @return 1; -1 unit out of range, sensor not
 * found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] pulse pulse power reference
 * @param[in] peak peak power reference
 * @param[in] average average power reference
 * @param[in] dutyCycle duty-cycle reference in per cent
 * @param[in] units unit code (0..7) of the three power references
 */
QV_API int32_t QV_SetPulseReference(int32_t address, double pulse, double peak, double average,
                                    double dutyCycle, int32_t units);

/** Pulse criteria in dB. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] criteriaDb pulse criteria in dB
 */
QV_API int32_t QV_GetPulseCriteria(int32_t address, double* criteriaDb);

/** Sets the pulse criteria, 0.001 to 200 dB: samples within this many dB of the
 * largest count as pulse-on. Needs no ownership. @return 1; -1 out of range or
 * no sensor with this address.
 * @param[in] address address of the sensor, 1..255
 * @param[in] criteriaDb pulse criteria in dB
 */
QV_API int32_t QV_SetPulseCriteria(int32_t address, double criteriaDb);

/** Whether the automatic pulse criteria (3 dB) are used. @return 1; -1 as
 * QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetAutoPulseEnabled(int32_t address, int32_t* enabled);

/** Uses the automatic pulse criteria (1) or the set ones (0). Needs no
 * ownership. @return 1; -1 not 0 or 1, or no sensor with this address.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetAutoPulseEnabled(int32_t address, int32_t enabled);

/** Whether anti-aliasing is on. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetAntiAliasingEnabled(int32_t address, int32_t* enabled);

/** Switches the sensor's anti-aliasing on (1) or off (0). The setting is stored
 * whatever the sensor answers. @return 1; -1 not 0 or 1, sensor not found or
 * not initialised by the caller, no device handle, or the sensor refused: its
 * device handle is then closed, and the sensor must be released and
 * initialised again before it can be used.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetAntiAliasingEnabled(int32_t address, int32_t enabled);

/** The 75-ohm correction setting: 1 on, any other value off. @return 1; -1 as
 * QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_Get75OhmsEnabled(int32_t address, int32_t* enabled);

/** Stores the 75-ohm correction setting as given (1 on, any other value off).
 * @return 1; -1 sensor not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, any other value off
 */
QV_API int32_t QV_Set75OhmsEnabled(int32_t address, int32_t enabled);

/** @} */

/** @defgroup limits_and_response_correction Limits and response correction
 * @ingroup settings
 * @{
 */

/** LimitStatus: the verdict of the pass/fail measurements. */
#define QV_LIMIT_PASS 0
#define QV_LIMIT_BELOW 1            /**< below the (lower) limit */
#define QV_LIMIT_ABOVE 2            /**< above the (upper) limit */
#define QV_LIMIT_INSIDE 3           /**< inside [lower, upper], ends included */
#define QV_LIMIT_STRICTLY_INSIDE 4  /**< inside (lower, upper) */
#define QV_LIMIT_NOT_EVALUATED 5    /**< limits off, or no valid rule */

/** LimitsEnabled: which limit the pass/fail measurements apply. */
#define QV_LIMITS_OFF 0
#define QV_LIMITS_SINGLE_SIDED 1 /**< the single-sided limit */
#define QV_LIMITS_DOUBLE_SIDED 2 /**< the double-sided limits */
/** Single-sided rules: the result P against the limit L. */
#define QV_SINGLE_ABOVE_OR_AT_FAILS 0 /**< P >= L gives QV_LIMIT_ABOVE */
#define QV_SINGLE_ABOVE_FAILS 1       /**< P > L gives QV_LIMIT_ABOVE */
#define QV_SINGLE_BELOW_OR_AT_FAILS 2 /**< P <= L gives QV_LIMIT_BELOW */
#define QV_SINGLE_BELOW_FAILS 3       /**< P < L gives QV_LIMIT_BELOW */

/** Double-sided rules: the result P against the limits Lo and Hi. */
#define QV_DOUBLE_OUTSIDE_OR_AT_FAILS 0 /**< P <= Lo: BELOW; else P >= Hi: ABOVE */
#define QV_DOUBLE_OUTSIDE_FAILS 1       /**< P < Lo: BELOW; else P > Hi: ABOVE */
#define QV_DOUBLE_INSIDE_FLAGGED 2      /**< Lo <= P <= Hi: QV_LIMIT_INSIDE */
#define QV_DOUBLE_STRICTLY_INSIDE_FLAGGED 3 /**< Lo < P < Hi: QV_LIMIT_STRICTLY_INSIDE */

/** Sets the single-sided limit: the value (-200 to 200) in unit `units` (0..7)
 * and the rule (QV_SINGLE_, 0..3). @return 1; -1 a value out of range, sensor
 * not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] limit limit value in unit `units`
 * @param[in] units unit code (QV_UNIT_, 0..7)
 * @param[in] rule limit rule, 0..3
 */
QV_API int32_t QV_SetSingleSidedLimit(int32_t address, double limit, int32_t units, int32_t rule);

/** The single-sided limit, its unit code and rule. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] limit limit value in unit `units`
 * @param[out] units unit code (QV_UNIT_, 0..7)
 * @param[out] rule limit rule, 0..3
 */
QV_API int32_t QV_GetSingleSidedLimit(int32_t address, double* limit, int32_t* units,
                                      int32_t* rule);

/** Sets the double-sided limits: lower <= upper, both -200 to 200, in unit
 * `units` (0..7), and the rule (QV_DOUBLE_, 0..3). @return 1; -1 a value out of
 * range or lower above upper, sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] lower lower limit in unit `units`
 * @param[in] upper upper limit in unit `units`
 * @param[in] units unit code (QV_UNIT_, 0..7)
 * @param[in] rule limit rule, 0..3
 */
QV_API int32_t QV_SetDoubleSidedLimit(int32_t address, double lower, double upper, int32_t units,
                                      int32_t rule);

/** The double-sided limits, their unit code and rule. @return 1; -1 as
 * QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] lower lower limit in unit `units`
 * @param[out] upper upper limit in unit `units`
 * @param[out] units unit code (QV_UNIT_, 0..7)
 * @param[out] rule limit rule, 0..3
 */
QV_API int32_t QV_GetDoubleSidedLimit(int32_t address, double* lower, double* upper,
                                      int32_t* units, int32_t* rule);

/** Chooses the limit the pass/fail measurements apply (QV_LIMITS_, 0..2).
 * @return 1; -1 out of range, sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] mode which limit applies (QV_LIMITS_, 0..2)
 */
QV_API int32_t QV_SetLimitEnabled(int32_t address, int32_t mode);

/** Which limit is applied (QV_LIMITS_). @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] mode which limit applies (QV_LIMITS_)
 */
QV_API int32_t QV_GetLimitEnabled(int32_t address, int32_t* mode);

/** Replaces the frequency-response table with `count` (0..201) points, meant in
 * ascending frequency: each amplitude -200 to 200 dB, each frequency valid for
 * the model (as QV_SetFrequency checks it). Entries beyond `count` become
 * 0 Hz / 0 dB. Switches the recorder output off. @return 1; -1 a null array,
 * count or a point out of range, sensor not found or not initialised by the
 * caller, or no device handle; the old table then stays.
 * @param[in] address address of the sensor, 1..255
 * @param[in] points frequency-response points
 * @param[in] count number of points, 0..201
 */
QV_API int32_t QV_SetResponse(int32_t address, const QV_ResponsePoint* points, int32_t count);

/** QV_SetResponse with the frequencies (Hz) and amplitudes (dB) in two arrays
 * of `count` entries. @return as QV_SetResponse.
 * @param[in] address address of the sensor, 1..255
 * @param[in] frequencies frequencies of the response points, Hz
 * @param[in] amplitudes amplitudes of the response points, dB
 * @param[in] count number of points in each array, 0..201
 */
QV_API int32_t QV_SetResponse_Flat(int32_t address, const double* frequencies,
                                   const double* amplitudes, int32_t count);

/** Copies the first *count (0..201) table entries into `points`, in use or not,
 * and lowers *count to the number of points in use when it was larger. Needs
 * no ownership. @return 1; -1 a null pointer, *count out of range, or no
 * sensor with this address in the table.
 * @param[in] address address of the sensor, 1..255
 * @param[out] points frequency-response points
 * @param[in,out] count entries wanted, 0..201; on return lowered to the points in use
 */
QV_API int32_t QV_GetResponse(int32_t address, QV_ResponsePoint* points, int32_t* count);

/** QV_GetResponse into two arrays of *count entries; only the first *count (as
 * returned) are written. @return as QV_GetResponse.
 * @param[in] address address of the sensor, 1..255
 * @param[out] frequencies frequencies of the response points, Hz
 * @param[out] amplitudes amplitudes of the response points, dB
 * @param[in,out] count entries wanted, 0..201; on return lowered to the points in use
 */
QV_API int32_t QV_GetResponse_Flat(int32_t address, double* frequencies, double* amplitudes,
                                   int32_t* count);

/** Applies the response correction (1) or not (0) and switches the recorder
 * output off. @return 1; -1 not 0 or 1, sensor not found or not initialised by
 * the caller, or no device handle.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetResponseEnabled(int32_t address, int32_t enabled);

/** Whether the response correction is applied. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetResponseEnabled(int32_t address, int32_t* enabled);

/** @} */

/** @defgroup trigger_and_recorder_outputs Trigger and recorder outputs
 * @ingroup settings
 * @{
 */

/** Recorder code of 1 V; 0 is 0 V. */
#define QV_RECORDER_FULL_SCALE 52428

/** Switches the sensor's TTL trigger input on (1) or off (0); a trigger output
 * that is on is re-armed to match. @return 1, also when the sensor refused (the
 * setting then keeps its old value); -1 not 0 or 1, sensor not found or not
 * initialised by the caller, or no device handle.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetTTLTriggerInEnabled(int32_t address, int32_t enabled);

/** Whether the trigger input is on. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetTTLTriggerInEnabled(int32_t address, int32_t* enabled);

/** Inverts the trigger input (1) or not (0). @return 1; -1 not 0 or 1, sensor
 * not found or not initialised by the caller, no device handle, or the request
 * failed (the setting then keeps its old value).
 * @param[in] address address of the sensor, 1..255
 * @param[in] inverted 1 inverted, 0 not inverted
 */
QV_API int32_t QV_SetTTLTriggerInInverted(int32_t address, int32_t inverted);

/** Whether the trigger input is inverted. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] inverted 1 inverted, 0 not inverted
 */
QV_API int32_t QV_GetTTLTriggerInInverted(int32_t address, int32_t* inverted);

/** Sets how long a triggered measurement waits for its trigger, 0 to 30000 ms.
 * @return 1; -1 out of range, sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] milliseconds trigger-input time-out in milliseconds
 */
QV_API int32_t QV_SetTTLTriggerInTimeOut(int32_t address, int32_t milliseconds);

/** The trigger-input time-out in ms. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] milliseconds trigger-input time-out in milliseconds
 */
QV_API int32_t QV_GetTTLTriggerInTimeOut(int32_t address, int32_t* milliseconds);

/** Switches the TTL trigger output on (1) or off (any other value). The setting
 * follows whatever the sensor answers. @return 1; -1 sensor not found or not
 * initialised by the caller, or no device handle.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, any other value off
 */
QV_API int32_t QV_SetTTLTriggerOutEnabled(int32_t address, int32_t enabled);

/** Whether the trigger output is on. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetTTLTriggerOutEnabled(int32_t address, int32_t* enabled);

/** Inverts the trigger output (1) or not (0). @return 1; -1 not 0 or 1, sensor
 * not found or not initialised by the caller, no device handle, or the request
 * failed (the setting then keeps its old value).
 * @param[in] address address of the sensor, 1..255
 * @param[in] inverted 1 inverted, 0 not inverted
 */
QV_API int32_t QV_SetTTLTriggerOutInverted(int32_t address, int32_t inverted);

/** Whether the trigger output is inverted. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] inverted 1 inverted, 0 not inverted
 */
QV_API int32_t QV_GetTTLTriggerOutInverted(int32_t address, int32_t* inverted);

/** Switches the recorder output on (1) or off (0); off also re-sends the
 * trigger output's setting. After each CW result the output then shows it
 * between the two levels of QV_SetRecorderOutSetup. @return 1; -1 not 0 or 1,
 * sensor not found or not initialised by the caller, no device handle, or the
 * sensor refused (the setting then keeps its old value).
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetRecorderOutEnabled(int32_t address, int32_t enabled);

/** Whether the recorder output is on. @return 1; -1 as QV_GetFrequency.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetRecorderOutEnabled(int32_t address, int32_t* enabled);

/** Sets the results shown as 0 V and as 1 V, in unit `units` (0..7); results
 * beyond them are held at 0 V and 1 V. With equal levels the output shows 1 V
 * for results above the level and 0 V otherwise. Switches the recorder output
 * off. @return 1; -1 unit out of range, sensor not found or not initialised by
 * the caller; -5 no device handle.
 * @param[in] address address of the sensor, 1..255
 * @param[in] level0V result shown as 0 V, in unit `units`
 * @param[in] level1V result shown as 1 V, in unit `units`
 * @param[in] units unit code (QV_UNIT_, 0..7)
 */
QV_API int32_t QV_SetRecorderOutSetup(int32_t address, double level0V, double level1V,
                                      int32_t units);

/** The two recorder levels and their unit code. @return 1; -1 as
 * QV_GetFrequency, or no device handle.
 * @param[in] address address of the sensor, 1..255
 * @param[out] level0V result shown as 0 V, in unit `units`
 * @param[out] level1V result shown as 1 V, in unit `units`
 * @param[out] units unit code (QV_UNIT_, 0..7)
 */
QV_API int32_t QV_GetRecorderOutSetup(int32_t address, double* level0V, double* level1V,
                                      int32_t* units);

/** @} */

/** @defgroup power_measurement Power measurement
 * @ingroup measure
 * Readings of an initialised sensor owned by the caller, in the unit of its
 * PowerUnits setting (unit 8: dB relative to the reference), with every
 * correction its settings ask for (floor, offset, frequency response, 75 ohm,
 * duty cycle). Averages blocks of 126 samples are taken per reading; counts
 * above 100 are split into several acquisitions.
 * @{
 */

/** One average-power (CW) reading into *reading. With Averages 1 and neither
 * trigger nor recorder output on, the sensor streams: after the first reading
 * each one is a bare read of its next block. A relative reading (unit 8) is
 * shown on the recorder output as the absolute power it stands for.
 * @return 1; -1 null pointer, sensor not found or not initialised by the
 * caller, or the trigger output could not be put back (the reading is then
 * -80 dBm after corrections) or the recorder update failed (the reading is
 * written all the same); -13 the acquisition failed: the sensor did not
 * answer or was unplugged (no reading; the next call starts it afresh).
 * @param[in] address address of the sensor, 1..255
 * @param[out] reading the reading, in the unit of the sensor's PowerUnits setting
 */
QV_API int32_t QV_MeasureCW(int32_t address, double* reading);

/** QV_MeasureCW and the limit verdict (QV_LIMIT_ codes; 5 when no limit is
 * applied) of the reading; a relative reading is judged as the absolute power
 * it stands for. @return 1; -1 null pointer, or the measurement gave less
 * than 1.
 * @param[in] address address of the sensor, 1..255
 * @param[out] reading the reading, in the unit of the sensor's PowerUnits setting
 * @param[out] passFail limit verdict (QV_LIMIT_)
 */
QV_API int32_t QV_MeasureCW_PF(int32_t address, double* reading, int32_t* passFail);

/** One pulse reading: the mean power while the pulse is on (samples within the
 * pulse criteria of the largest), the peak power, the average power, and the
 * duty cycle as a fraction (unit 8: each relative to its pulse reference, the
 * duty cycle less PlsRefDC / 100). A recorder output that is on is switched
 * off: it shows CW readings only. @return 1; -1 null pointer, sensor not found
 * or not initialised by the caller, or the trigger output could not be put
 * back (powers -999 dBm, duty cycle 1, before corrections) or the recorder
 * stop failed; -13 the acquisition failed; -2 the data could not be split.
 * @param[in] address address of the sensor, 1..255
 * @param[out] pulse pulse power
 * @param[out] peak peak power
 * @param[out] average average power
 * @param[out] dutyCycle duty cycle as a fraction
 */
QV_API int32_t QV_MeasurePulse(int32_t address, double* pulse, double* peak, double* average,
                               double* dutyCycle);

/** QV_MeasurePulse and the limit verdict of the pulse power (a relative one
 * judged as the absolute power it stands for). @return 1; -1 null pointer, or
 * the measurement gave less than 1.
 * @param[in] address address of the sensor, 1..255
 * @param[out] pulse pulse power
 * @param[out] peak peak power
 * @param[out] average average power
 * @param[out] dutyCycle duty cycle as a fraction
 * @param[out] passFail limit verdict (QV_LIMIT_)
 */
QV_API int32_t QV_MeasurePulse_PF(int32_t address, double* pulse, double* peak, double* average,
                                  double* dutyCycle, int32_t* passFail);

/** @name Extended averaging and max hold
 * Extended averaging smooths readings across calls in watts: after a restart
 * the k-th reading is weighed 1/(k+1), from the N-th on 1/(N+1). Max hold
 * keeps the largest reading; with both on, the average is taken of the held
 * maxima. Both act on readings in dBm before offset, corrections and unit. CW
 * and pulse readings keep memories of their own, and each restarts the
 * other's.
 * @{
 */
/** Whether extended averaging is on.
 * @return 1; -1 null pointer, sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetExtendedAveragingEnabled(int32_t address, int32_t* enabled);
/** Switches extended averaging: active when exactly 1; not range-tested.
 * @return 1; -1 sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetExtendedAveragingEnabled(int32_t address, int32_t enabled);
/** The averaging length N.
 * @return 1; -1 null pointer, sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[out] count averaging length N
 */
QV_API int32_t QV_GetExtendedAveraging(int32_t address, int32_t* count);
/** Sets N (not range-tested) and restarts both averages.
 * @return 1; -1 sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] count averaging length N
 */
QV_API int32_t QV_SetExtendedAveraging(int32_t address, int32_t count);
/** Restarts both averages.
 * @return 1; -1 sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_ResetExtendedAveraging(int32_t address);
/** Whether max hold is on.
 * @return 1; -1 null pointer, sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[out] enabled 1 on, 0 off
 */
QV_API int32_t QV_GetMaxHoldEnabled(int32_t address, int32_t* enabled);
/** Switches max hold: active when exactly 1; not range-tested; restarts both
 * holds.
 * @return 1; -1 sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] enabled 1 on, 0 off
 */
QV_API int32_t QV_SetMaxHoldEnabled(int32_t address, int32_t enabled);
/** Restarts both holds: the next reading becomes the held value.
 * @return 1; -1 sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_ResetMaxHold(int32_t address);
/** @} */

/** @} */

/** @defgroup saved_states Saved states
 * @ingroup states
 * A sensor's settings (the persisted fields of an InstrumentState: all but
 * the extended averaging, max hold and 75-ohm fields) are kept in INI files
 * in the data directory (QV_API2_DATA_DIR): the sensor's state file, named
 * after its model and the address it had when initialised ("QV442A_12.ini"),
 * holds the current state in section [CurrState] and registers 0 to 9 in
 * [Reg_0] to [Reg_9]; a named state file ("QV442A_12_Bench_1.ini") holds a
 * current state under a name of 1 to 20 characters, each a digit, an ASCII
 * letter or '_'. Files can be edited by hand; a missing key reads as its
 * default. Each sensor also has 20 registers (0..19) in memory, shared by all
 * processes, into which whole states are stored and from which they are
 * recalled.
 * @{
 */

/** Saves the current state as the named state `name`, replacing the keys of
 * an earlier save of that name. @return 1 (also when the file could not be
 * written); -1 name null, empty, longer than 20 characters or with another
 * character, or sensor not found or not initialised by the caller; -2 or -3 a
 * fault while formatting the fixed keys or the response points.
 * @param[in] address address of the sensor, 1..255
 * @param[in] name name of the state: 1 to 20 digits, ASCII letters or '_'
 */
QV_API int32_t QV_SaveCurrStateTo(int32_t address, const char* name);

/** Replaces the current state's persisted fields with those of the named state
 * `name`, taken as they convert, without any check; a missing file or key
 * gives that key's default. @return the restored MeasMode; -1 as
 * QV_SaveCurrStateTo; -2 or -3 a fault while reading.
 * @param[in] address address of the sensor, 1..255
 * @param[in] name name of the state: 1 to 20 digits, ASCII letters or '_'
 */
QV_API int32_t QV_RestoreCurrStateFrom(int32_t address, const char* name);

/** Writes the current state and registers 0 to 9 of the sensor at `address`
 * (1..255) to its state file; any process may do so. @return 1 (also when the
 * file could not be written); -1 address out of range; -2 the current state
 * could not be written (also when no sensor has the address); -3 a register
 * could not be written.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_WriteStateToINI(int32_t address);

/** Reads the current state and registers 0 to 9 from the sensor's state file,
 * as QV_RestoreCurrStateFrom does. @return the current state's MeasMode
 * afterwards; -1 sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_ReadStateFromINI(int32_t address);

/** Copies the whole current state, run-time fields included, into `state`.
 * @return 1; -1 null pointer, sensor not found or not initialised by the
 * caller.
 * @param[in] address address of the sensor, 1..255
 * @param[out] state the current state
 */
QV_API int32_t QV_GetCurrentState(int32_t address, InstrumentState* state);

/** Replaces the whole current state with `state` if it passes the check of
 * every field's range (frequency within the model's range, references and
 * levels within +-200, PlsRefDC and DutyeCycle within 1e-5..1, unit codes,
 * 0/1 flags, not both recorder output and trigger input on, rules 0..3,
 * TriggerDelay_mSec 1..30000, response points in range); nothing is sent to
 * the sensor. @return 1 whether or not the state was applied: read it back to
 * know; -1 sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] state the state to apply
 */
QV_API int32_t QV_SetCurrentState(int32_t address, InstrumentState state);

/** Copies register `reg` (0..19) whole into `state`. @return 1; -1 register
 * out of range, null pointer, sensor not found or not initialised by the
 * caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] reg register number, 0..19
 * @param[out] state the register's state
 */
QV_API int32_t QV_GetRegState(int32_t address, int32_t reg, InstrumentState* state);

/** As QV_SetCurrentState for register `reg` (0..19). @return 1 whether or not
 * applied; -1 register out of range, sensor not found or not initialised by
 * the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] reg register number, 0..19
 * @param[in] state the state to apply
 */
QV_API int32_t QV_SetRegState(int32_t address, int32_t reg, InstrumentState state);

/** Copies the current state's persisted fields into register `reg` (0..19);
 * the register's run-time fields stay. Needs no ownership. @return 1; -1
 * register out of range or sensor not found.
 * @param[in] address address of the sensor, 1..255
 * @param[in] reg register number, 0..19
 */
QV_API int32_t QV_Store(int32_t address, int32_t reg);

/** Copies register `reg`'s (0..19) persisted fields into the current state,
 * without any check and sending nothing to the sensor; the current run-time
 * fields stay. @return the recalled MeasMode; -1 register out of range,
 * sensor not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] reg register number, 0..19
 */
QV_API int32_t QV_Recall(int32_t address, int32_t reg);

/** Gives every field of the current state its default. @return 1; -1 sensor
 * not found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_ResetCurrentState(int32_t address);

/** Gives every field of all 20 registers its default. @return 1; -1 sensor not
 * found or not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_ResetRegStates(int32_t address);

/** Number of named state files of the sensor.
 * @return the number, 0 or more; -1 sensor not found or not initialised by the
 * caller.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t QV_GetNamedStateCount(int32_t address);

/** Lists the names of the sensor's named states into `names`, each followed by
 * a TAB (9), never more than *size bytes; the buffer is zero-filled first, so
 * the list ends with a zero byte when room is left. Give at least 21 bytes
 * per state (QV_GetNamedStateCount). Names longer than 20 characters are left
 * out; states saved after the count are listed while whole entries fit.
 * @return 1 with *size set to the bytes written; -1 null pointer, *size below
 * 21 or below 21 times the count (the buffer untouched), sensor not found or
 * not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[out] names the names, each followed by a TAB
 * @param[in,out] size size of `names` in bytes; on return the bytes written
 */
QV_API int32_t QV_GetNamedStateNames(int32_t address, char* names, int32_t* size);

/** Deletes the named state `name`. @return 1 deleted; 0 it could not be (it
 * does not exist); -1 name null or breaking the name rule, sensor not found or
 * not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] name name of the state: 1 to 20 digits, ASCII letters or '_'
 */
QV_API int32_t QV_DeleteNamedState(int32_t address, const char* name);

/** @} */

/** @defgroup pulse_profiling Pulse profiling
 * @ingroup profiling
 * Power-versus-time traces of trace-capable sensors (QV442A and the other
 * trace models). A sweep of one of sixteen sweep times (10 us to 1 s) starts
 * at a trigger plus the sweep delay; PP_GetTrace delivers it as
 * PP_GetTraceLength points in dBm, filtered and averaged as set below. The
 * settings live in the library's table, shared by all processes, and are not
 * part of the saved state files; most are only read by the next trace. Every
 * function takes the sensor's address first. Values are checked before
 * anything is looked up, and a refused value changes nothing; "unknown" means
 * no initialised sensor of the calling process has the address. The code an
 * unknown address gives differs between functions, as listed: only 1 means
 * success. A null pointer gives -1. All return -1 as well when the library's
 * lock could not be had, except the six that have no effect at all.
 * @{
 */

/** Results of PP_GetTrace (the second code of a pair is the delayed path's). */
#define QV_PP_TRACE_OK 1
#define QV_PP_ERR_NOT_OWNED (-1)            /**< sensor not initialised by the caller */
#define QV_PP_ERR_ADDRESS (-5)              /**< address outside 0..255 */
#define QV_PP_ERR_NO_SLOT (-6)              /**< the sensor's slot not found */
#define QV_PP_ERR_NO_DEVICE_INDEX (-7)      /**< the sensor has no device index */
#define QV_PP_ERR_CALIBRATION (-10)         /**< calibration not rebuilt for the frequency */
#define QV_PP_ERR_NO_SWEEP_TIME (-11)       /**< delayed path: -36 */
#define QV_PP_ERR_BUFFER_SHORT (-12)        /**< delayed path: -35 */
#define QV_PP_ERR_SWEEP_TIME (-13)          /**< stored sweep time inconsistent; delayed: -34 */
#define QV_PP_ERR_NO_HANDLE (-14)           /**< no device handle; delayed: -33 */
#define QV_PP_ERR_NOTHING_READ (-100)       /**< no complete trace (time-out); delayed: -1002 */
#define QV_PP_ERR_SIZE (-101)               /**< packet bytes differ from the row; delayed: -1003 */
#define QV_PP_ERR_RESAMPLE (-102)           /**< resampling failed */
#define QV_PP_ERR_COPY (-104)               /**< resampling by copy failed */
#define QV_PP_ERR_FILTER (-105)             /**< trace filter failed */
#define QV_PP_ERR_AVERAGE (-107)            /**< averaging failed */
#define QV_PP_ERR_DELAYED_NO_SWEEP_TIME (-36) /**< delayed path: no sweep time */
#define QV_PP_ERR_DELAYED_BUFFER_SHORT (-35) /**< delayed path: trace buffer too short */
#define QV_PP_ERR_DELAYED_SWEEP_TIME (-34) /**< delayed path: stored sweep time inconsistent */
#define QV_PP_ERR_DELAYED_NO_HANDLE (-33) /**< delayed path: no device handle */
#define QV_PP_ERR_DELAYED_NOTHING_READ (-1002) /**< delayed path: no complete trace (time-out) */
/** delayed path: packet bytes differ from the acquisition */
#define QV_PP_ERR_DELAYED_SIZE (-1003)
#define QV_PP_ERR_DELAYED_INDEX (-1000)     /**< sweep index above 15 */

/** Sets the sweep time to one of 10, 20, 50, 100, 200, 500, 1000, 2000, 5000,
 * 10000, 20000, 50000, 100000, 200000, 500000 or 1000000 us; with 10000 us or
 * less a sweep delay above 10000 us is cut to 10000. Restarts trace
 * averaging. @return 1; 0 a time not in that list, or unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] usec sweep time in us, one of the sixteen listed
 */
QV_API int32_t PP_SetSweepTime(uint32_t address, int32_t usec);

/** The sweep time in microseconds. @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] usec sweep time in us
 */
QV_API int32_t PP_GetSweepTime(uint32_t address, int32_t* usec);

/** Sets the listed sweep time closest to `usec` (half-way goes to the longer;
 * below 10 gives 10, above 1000000 gives 1000000) without cutting the sweep
 * delay, and restarts trace averaging. @return the chosen time in us; 0 a
 * negative time; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] usec wanted sweep time in us
 */
QV_API int32_t PP_SetClosestSweepTimeUSEC(uint32_t address, int32_t usec);

/** Sets the sweep delay from the trigger to the start of the trace: 0 to
 * 4999000 us with sweeps of 20 ms and more, 0 to 10000 us with shorter ones.
 * Acts only while the delay mode is on. @return 1; 0 out of range, or unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] usec sweep delay in us
 */
QV_API int32_t PP_SetSweepDelay(uint32_t address, int32_t usec);

/** The sweep delay in microseconds. @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] usec sweep delay in us
 */
QV_API int32_t PP_GetSweepDelay(uint32_t address, int32_t* usec);

/** Delay mode: 1 on, any other value stores 0 (off). @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] mode 1 on, any other value off
 */
QV_API int32_t PP_SetSweepDelayMode(uint32_t address, int32_t mode);

/** The delay mode, 1 or 0. @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] mode 1 on, 0 off
 */
QV_API int32_t PP_GetSweepDelayMode(uint32_t address, int32_t* mode);

/** Kept for old applications: does nothing, looks nothing up. @return 0.
 * @param[in] address address of the sensor, 1..255
 * @param[in] value ignored
 */
QV_API int32_t PP_SetSweepHoldOff(uint32_t address, int32_t value);

/** Kept for old applications: leaves *value untouched. @return 0.
 * @param[in] address address of the sensor, 1..255
 * @param[out] value left untouched
 */
QV_API int32_t PP_GetSweepHoldOff(uint32_t address, int32_t* value);

/** Trace filter (video bandwidth) codes. */
#define QV_PP_FILTER_100KHZ 1
#define QV_PP_FILTER_200KHZ 2 /**< 200 kHz */
#define QV_PP_FILTER_300KHZ 3 /**< 300 kHz */
#define QV_PP_FILTER_500KHZ 4 /**< 500 kHz */
#define QV_PP_FILTER_1MHZ 5 /**< 1 MHz */
#define QV_PP_FILTER_2MHZ 6 /**< 2 MHz */
#define QV_PP_FILTER_3MHZ 7 /**< 3 MHz */
#define QV_PP_FILTER_5MHZ 8 /**< 5 MHz */
#define QV_PP_FILTER_OFF 9 /**< no filter (the default) */
/** Sets the trace filter, QV_PP_FILTER_ 1..9 (9 no filter, the default).
 * @return 1; 0 another code, or unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] code trace filter code (QV_PP_FILTER_, 1..9)
 */
QV_API int32_t PP_SetFilter(uint32_t address, int32_t code);

/** The trace filter code. @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] code trace filter code (QV_PP_FILTER_, 1..9)
 */
QV_API int32_t PP_GetFilter(uint32_t address, int32_t* code);

/** Sets the trace filter's order: 0 one pole, 1 two poles, 2 four poles.
 * @return 1; 0 out of range; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] poles filter order: 0 one pole, 1 two, 2 four
 */
QV_API int32_t PP_SetPoles(uint32_t address, int32_t poles);

/** The filter order, 0..2. @return 1; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] poles filter order: 0 one pole, 1 two, 2 four
 */
QV_API int32_t PP_GetPoles(uint32_t address, int32_t* poles);

/** Trigger sources. */
#define QV_PP_TRIGGER_AUTO 0     /**< level found by a short search sweep before each trace */
#define QV_PP_TRIGGER_LEVEL 1    /**< the level of PP_SetTriggerLevel */
#define QV_PP_TRIGGER_EXTERNAL 2 /**< the TTL trigger input */

/** Sets the trigger source (QV_PP_TRIGGER_) and sends the trigger output's
 * setting again, which depends on it. @return 1; 0 another value, an address
 * outside 0..255 or not found; -1 the sensor belongs to another process.
 * (The name is spelled this way in every application that uses it.)
 * @param[in] address address of the sensor, 1..255
 * @param[in] source trigger source (QV_PP_TRIGGER_)
 */
QV_API int32_t PP_SetTriggerSoure(uint32_t address, int32_t source);

/** The trigger source. @return 1; 0 address outside 0..255 or not found; -1
 * another process's sensor.
 * @param[in] address address of the sensor, 1..255
 * @param[out] source trigger source (QV_PP_TRIGGER_)
 */
QV_API int32_t PP_GetTriggerSoure(uint32_t address, int32_t* source);

/** Sets the trigger level, -200 to 200 dBm (at the sensor's input the level
 * less offset and response correction is used, held within -60..20 dBm).
 * @return 1; 0 out of range, address outside 0..255 or not found; -1
 * another process's sensor.
 * @param[in] address address of the sensor, 1..255
 * @param[in] dbm trigger level in dBm, -200..200
 */
QV_API int32_t PP_SetTriggerLevel(uint32_t address, double dbm);

/** The trigger level as set, dBm. @return as PP_GetTriggerSoure.
 * @param[in] address address of the sensor, 1..255
 * @param[out] dbm trigger level in dBm
 */
QV_API int32_t PP_GetTriggerLevel(uint32_t address, double* dbm);

/** Sets the trigger slope, 0 or 1 (external input: 0 not inverted, 1
 * inverted). @return 1; 0 another value, address outside 0..255 or not found;
 * -1 another process's sensor.
 * @param[in] address address of the sensor, 1..255
 * @param[in] edge trigger slope, 0 or 1
 */
QV_API int32_t PP_SetTriggerEdge(uint32_t address, int32_t edge);

/** The trigger slope. @return as PP_GetTriggerSoure.
 * @param[in] address address of the sensor, 1..255
 * @param[out] edge trigger slope, 0 or 1
 */
QV_API int32_t PP_GetTriggerEdge(uint32_t address, int32_t* edge);

/** Sets the trigger output that marks each sweep: 0 off, 1 and 2 the two
 * polarities; sent to the sensor at once. @return 1 done; 0 another mode, an
 * address outside 0..255, a sensor that cannot take traces, or a request the
 * sensor refused (the previous mode stays); -1 sensor not initialised by the
 * caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] mode 0 off, 1 and 2 the two polarities
 */
QV_API int32_t PP_SetTriggerOut(uint32_t address, int32_t mode);

/** The trigger output mode, 0..2. @return 1; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] mode 0 off, 1 and 2 the two polarities
 */
QV_API int32_t PP_GetTriggerOut(uint32_t address, int32_t* mode);

/** Watches the external trigger input for 20 ms. @return 1 when it changed
 * level twice (a trigger signal is present); 0 not seen, address outside
 * 0..255 or not found, sensor not openable or not trace-capable; -1 another
 * process's sensor.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t PP_CheckTrigger(uint32_t address);

/** Sets the manual read time-out, held within 10000..11000000 us. @return 1;
 * 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] usec read time-out in us
 */
QV_API int32_t PP_SetTimeOut(uint32_t address, int32_t usec);

/** The manual read time-out in microseconds. @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] usec read time-out in us
 */
QV_API int32_t PP_GetTimeOut(uint32_t address, int32_t* usec);

/** 1: the read time-out follows the sweep time and delay; 0: the manual one.
 * @return 1; 0 another value; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] mode 1 automatic, 0 manual
 */
QV_API int32_t PP_SetAutoTimeOutMode(uint32_t address, int32_t mode);

/** The time-out mode. @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] mode 1 automatic, 0 manual
 */
QV_API int32_t PP_GetAutoTimeOutMode(uint32_t address, int32_t* mode);

/** 1: sweeps of 20, 50 and 100 ms are sampled at the 2 us base rate over a
 * longer acquisition; 0 off. @return 1; 0 another value, or unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] on 1 undersampling on, 0 off
 */
QV_API int32_t PP_SetUndersampling20ms_50ms_100ms(uint32_t address, int32_t on);

/** The undersampling setting. @return 1; 0 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] on 1 on, 0 off
 */
QV_API int32_t PP_GetUndersampling20ms_50ms_100ms(uint32_t address, int32_t* on);

/** Trace averaging modes. */
#define QV_PP_AVG_NONE 0
#define QV_PP_AVG_AUTO_RESTART 1  /**< restarts when the summed power changes by the sensitivity */
/** restarts only on PP_ResetTraceAveraging and on setting changes */
#define QV_PP_AVG_MANUAL_RESTART 2

/** Sets the trace averaging mode (QV_PP_AVG_) and restarts averaging. @return
 * 1; 0 out of range; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] mode averaging mode (QV_PP_AVG_, 0..2)
 */
QV_API int32_t PP_SetAvgMode(uint32_t address, int32_t mode);

/** The averaging mode. @return 1; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] mode averaging mode (QV_PP_AVG_)
 */
QV_API int32_t PP_GetAvgMode(uint32_t address, int32_t* mode);

/** Sets how many traces are averaged, 1 to 100, and restarts averaging.
 * @return 1; 0 out of range; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] count number of traces averaged, 1..100
 */
QV_API int32_t PP_SetTraceAvgs(uint32_t address, int32_t count);

/** The number of traces averaged. @return 1; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] count number of traces averaged
 */
QV_API int32_t PP_GetTraceAvgs(uint32_t address, int32_t* count);

/** Sets the relative change of the summed power, 0.0 to 0.8, that restarts
 * averaging in mode 1. @return 1; 0 out of range; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[in] sensitivity restart sensitivity, 0.0..0.8
 */
QV_API int32_t PP_SetAvgResetSens(uint32_t address, double sensitivity);

/** The restart sensitivity. @return 1; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 * @param[out] sensitivity restart sensitivity, 0.0..0.8
 */
QV_API int32_t PP_GetAvgResetSens(uint32_t address, double* sensitivity);

/** The next trace starts a new average. @return 1; -1 unknown.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t PP_ResetTraceAveraging(uint32_t address);

/** Kept for old applications: PP_SetState, PP_ResendState, PP_TakeSweep and
 * PP_AcquireTrace do nothing.
 * @return 0.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t PP_SetState(uint32_t address);
/** @copydoc PP_SetState */
QV_API int32_t PP_ResendState(uint32_t address);
/** @copydoc PP_SetState */
QV_API int32_t PP_TakeSweep(uint32_t address);
/** @copydoc PP_SetState */
QV_API int32_t PP_AcquireTrace(uint32_t address);

/** Takes one trace into `trace` (dBm): a sweep of the set sweep time after the
 * trigger (plus the sweep delay in delay mode), converted, filtered and
 * averaged. `length` is the array's size in points and must be at least
 * PP_GetTraceLength; pass exactly that: the trace has `length` points and
 * *count is set to `length`. Holds the library's lock for the whole sweep.
 * @return 1 (QV_PP_TRACE_OK); -5 address outside 0..255; -1 null pointer or
 * sensor not initialised by the caller; -6 its slot not found; -7 no device
 * index; -10 calibration could not be rebuilt; -11/-36 no sweep time; -12/-35
 * `length` too short (nothing touched); -13/-34 sweep time inconsistent;
 * -14/-33 no device handle; -100/-1002 no complete trace from the sensor;
 * -101/-1003 wrong amount of data; -102, -104 resampling failed; -105 filter
 * failed; -107 averaging failed; -1000 sweep index above 15; on the delayed
 * path 0 resampling failed (the second code of each pair is the delayed
 * path's, taken in delay mode or when undersampling a 20, 50 or 100 ms sweep).
 * On failure the array is undefined and the average unchanged.
 * @param[in] address address of the sensor, 1..255
 * @param[out] trace the trace, `length` points in dBm
 * @param[in] length size of `trace` in points, PP_GetTraceLength
 * @param[out] count points written
 */
QV_API int32_t PP_GetTrace(int32_t address, double* trace, int32_t length, int32_t* count);

/** Points of a trace of the current sweep time: 480 for 10 us, 960, 2400,
 * 4800, 9600 for 200 us, 10000 from 500 us on. @return the length; -1 sensor
 * not initialised by the caller; 0 its slot not found.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t PP_GetTraceLength(int32_t address);

/** Converts n trace values from unit code `fromUnit` to `toUnit` (QV_UNIT_:
 * dBm, dBW, dBkW, dBuV, W, V) into `out` (may be `in`). A value with a code
 * outside 0..7 becomes -9999.99; dBmV and dBV (4, 5) give -9999.999. @return
 * 1; -1 null array, negative n, or sensor not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] in values to convert
 * @param[in] n number of values
 * @param[out] out converted values (may be the same array as `in`)
 * @param[in] fromUnit unit code of the values in `in`
 * @param[in] toUnit unit code wanted in `out`
 */
QV_API int32_t PP_CnvtTrace(int32_t address, const double* in, int32_t n, double* out,
                            int32_t fromUnit, int32_t toUnit);

/** @} */

/** @defgroup analysis_trace_and_gates Analysis trace and gates
 * @ingroup profiling
 * Analysis works on a frozen copy of a trace, the sensor's analysis trace:
 * the last acquired trace (PP_CurrTrace2AnalysisTrace) or one of the
 * caller's own (PP_SetAnalysisTrace). It is held in watts with its frequency,
 * sweep time and length, and stays until it is replaced. Positions are point
 * indices 0..length-1; times are microseconds from the first point, point p
 * lying at p x sweep time / (length - 1). Up to ten gates (0..9) mark
 * stretches of it; each measurement runs over the gate's points. Powers are
 * averaged in watts and reported in dBm, ratios in dB. Every function takes
 * the sensor's address (0..255) first, returns 1 on success unless stated and
 * -1 on any failure: address out of range, sensor not initialised by the
 * caller, null pointer, value out of range, or the library's lock not had.
 * Outputs are written only on success. Gate functions other than
 * PP_SetGateMode and PP_GetGateMode also return -1 until
 * PP_CurrTrace2AnalysisTrace has made the analysis trace valid, or while the
 * gate is off.
 * @{
 */

/** Copies the last acquired trace (PP_GetTraceLength points) into the analysis
 * trace with the current frequency and sweep time, and makes the analysis
 * trace valid. When `out` is not null and n >= that length, also writes the
 * trace to `out` in dBm. @return 1; -1 sensor not initialised by the caller
 * (or no sweep time set).
 * @param[in] address address of the sensor, 1..255
 * @param[out] out the trace in dBm, or null
 * @param[in] n size of `out` in points
 */
QV_API int32_t PP_CurrTrace2AnalysisTrace(int32_t address, double* out, int32_t n);

/** Freezes the caller's trace of n points (1..10000) in unit `unit`
 * (QV_UNIT_; dBmV, dBV and codes above 7 cannot be taken, nor values <= 0 in
 * W or V: such a point repeats the previous point, 0 W for the first) with
 * its frequency (Hz) and sweep time (us, 1 or more, truncated to whole us).
 * Points n..9999 become 0 W. Does not make the analysis trace valid. @return
 * 1; -1 null trace, n or sweep time out of range, sensor not initialised by
 * the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] freq frequency of the trace in Hz
 * @param[in] sweepTime sweep time of the trace in us
 * @param[in] trace the points in unit `unit`
 * @param[in] n number of points, 1..10000
 * @param[in] unit unit code of the points (0..3, 6)
 */
QV_API int32_t PP_SetAnalysisTrace(int32_t address, double freq, double sweepTime,
                                   const double* trace, int32_t n, int32_t unit);

/** Reads the analysis trace back in unit *unit (codes above 7 give
 * -9999.999; a point of 0 W leaves the caller's value as it was), zero-fills
 * the array up to *n, reports frequency (Hz) and sweep time (us) and sets *n
 * to the length. *n on entry must be at least the length. Works whether or
 * not the trace is valid. @return 1; -1 *n too small, null pointer, sensor
 * not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[out] freq frequency of the trace in Hz
 * @param[out] sweepTime sweep time of the trace in us
 * @param[out] trace the points in unit *unit
 * @param[in,out] n size of `trace` in points; on return the trace's length
 * @param[in] unit unit code wanted (QV_UNIT_)
 */
QV_API int32_t PP_GetAnalysisTrace(int32_t address, double* freq, double* sweepTime, double* trace,
                                   int32_t* n, const int32_t* unit);

/** Number of points of the analysis trace.
 * @return the length; -1 sensor not initialised by the caller, or the analysis
 * trace not valid; 0 its slot not found.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t PP_GetAnalysisTraceLength(int32_t address);

/** Whether the analysis trace is valid.
 * @return 1 when it is, 0 when not or when the slot is not found; -1 sensor not
 * initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 */
QV_API int32_t PP_AnalysisTraceIsValid(int32_t address);

/** Turns gate `gate` (0..9) off (0) or on (1). Needs no valid trace. @return
 * 1; -1 mode or gate out of range, sensor not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[in] mode 0 off, 1 on
 */
QV_API int32_t PP_SetGateMode(int32_t address, int32_t gate, int32_t mode);

/** The gate's mode, 0 or 1. @return 1; -1 as PP_SetGateMode.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] mode 0 off, 1 on
 */
QV_API int32_t PP_GetGateMode(int32_t address, int32_t gate, int32_t* mode);

/** Sets both positions of the gate, 0 <= start <= end <= last index, and the
 * matching times. @return 1; -1 out of range, trace not valid, gate off.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[in] start start position (point index)
 * @param[in] end end position (point index)
 */
QV_API int32_t PP_SetGateStartEndPosition(int32_t address, int32_t gate, int32_t start,
                                          int32_t end);

/** Sets the start position, 0..the current end position, and its time.
 * @return 1; -1 as PP_SetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[in] start start position (point index)
 */
QV_API int32_t PP_SetGateStartPosition(int32_t address, int32_t gate, int32_t start);

/** Sets the end position, the current start position (and 0) to the last
 * index, and its time. @return 1; -1 as PP_SetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[in] end end position (point index)
 */
QV_API int32_t PP_SetGateEndPosition(int32_t address, int32_t gate, int32_t end);

/** The gate's positions (-1 when never set). @return 1; -1 null pointer, trace
 * not valid, gate off, sensor not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] start start position (point index)
 * @param[out] end end position (point index)
 */
QV_API int32_t PP_GetGateStartEndPosition(int32_t address, int32_t gate, int32_t* start,
                                          int32_t* end);
/** The gate's start position (-1 when never set).
 * @return as PP_GetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] start start position (point index)
 */
QV_API int32_t PP_GetGateStartPosition(int32_t address, int32_t gate, int32_t* start);
/** The gate's end position (-1 when never set).
 * @return as PP_GetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] end end position (point index)
 */
QV_API int32_t PP_GetGateEndPosition(int32_t address, int32_t gate, int32_t* end);

/** The gate's positions with the times (us) of those positions. @return 1; -1
 * as PP_GetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] startPos start position (point index)
 * @param[out] startTime start time in us
 * @param[out] endPos end position (point index)
 * @param[out] endTime end time in us
 */
QV_API int32_t PP_GetGateStartEndPositionTime(int32_t address, int32_t gate, int32_t* startPos,
                                              double* startTime, int32_t* endPos,
                                              double* endTime);

/** Sets both times (us), 0 <= start <= end <= sweep time, and the positions
 * nearest to them. @return 1; -1 out of range, trace not valid, gate off.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[in] start start time in us
 * @param[in] end end time in us
 */
QV_API int32_t PP_SetGateStartEndTime(int32_t address, int32_t gate, double start, double end);

/** Sets the start time, 0..sweep time, and its position; a start later than
 * the end time moves the end time to it (the end position stays). @return 1;
 * -1 as PP_SetGateStartEndTime.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[in] start start time in us
 */
QV_API int32_t PP_SetGateStartTime(int32_t address, int32_t gate, double start);

/** Sets the end time, the start time (and 0) to the sweep time, and its
 * position. @return 1; -1 as PP_SetGateStartEndTime.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[in] end end time in us
 */
QV_API int32_t PP_SetGateEndTime(int32_t address, int32_t gate, double end);

/** The gate's times as last set (us; -1 when never set). @return 1; -1 as
 * PP_GetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] start start time in us
 * @param[out] end end time in us
 */
QV_API int32_t PP_GetGateStartEndTime(int32_t address, int32_t gate, double* start, double* end);
/** The gate's start time as last set (us; -1 when never set).
 * @return as PP_GetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] start start time in us
 */
QV_API int32_t PP_GetGateStartTime(int32_t address, int32_t gate, double* start);
/** The gate's end time as last set (us; -1 when never set).
 * @return as PP_GetGateStartEndPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] end end time in us
 */
QV_API int32_t PP_GetGateEndTime(int32_t address, int32_t gate, double* end);

/** Sets *valid to 0 first, then to 1 when 0 <= start <= end <= last index.
 * @return 1 either way; -1 null pointer, trace not valid, gate off, sensor not
 * initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] valid 1 when valid, else 0
 */
QV_API int32_t PP_GatePositionIsValid(int32_t address, int32_t gate, int32_t* valid);

/** The measurement threshold (dBm, any value; -55 by default, -40 for the
 * QV442A and R7705A): gate measurements from droop on raise points below it
 * to it, and peaks and pulse edges must lie above it. @return 1; -1 null
 * pointer, sensor not initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[in] dbm threshold in dBm
 */
QV_API int32_t PP_SetMeasurementThreshold(int32_t address, double dbm);
/** @copydoc PP_SetMeasurementThreshold */
QV_API int32_t PP_GetMeasurementThreshold(int32_t address, double* dbm);

/** @name Gate measurements
 * Gate measurements. Each needs a valid analysis trace, the gate on, its
 * start time >= 0, end time <= the sweep time and start before end, and its
 * positions within the trace. From droop on the gate needs 3 points and more.
 * Each returns 1 (PP_GetGatePeakPower: the index of the peak point, 0 or
 * more) or -1 when a condition fails, no pulse or crossing is found, or the
 * result is not a finite number. The pulse finder splits the gate's points at
 * their mean, and places the pulse level half-way between the two groups, or
 * QV_GetPulseCriteria below the maximum when the upper group lies less than
 * that above the mean.
 * @{
 */
/** Mean power of the gate's points, dBm.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] dbm average power in dBm
 */
QV_API int32_t PP_GetGateAveragePower(int32_t address, int32_t gate, double* dbm);
/** Largest point (the first of equal ones), dBm; returns its index.
 * @return the index of the peak point, 0 or more; -1 as listed for the gate
 * measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] dbm peak power in dBm
 */
QV_API int32_t PP_GetGatePeakPower(int32_t address, int32_t gate, double* dbm);
/** Peak minus average power, dB, written whenever both could be measured.
 * @return the index of the peak point; -1 as the two above, or (with the
 * crest factor written) a peak at index 0.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] db result in dB
 */
QV_API int32_t PP_GetGateCrestFactor(int32_t address, int32_t gate, double* db);
/** Mean of the first 5 % of the points minus that of the last 5 %, dB.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] db result in dB
 */
QV_API int32_t PP_GetGateDroop(int32_t address, int32_t gate, double* db);
/** Largest of the first quarter over the mean of the rest, dB.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] db result in dB
 */
QV_API int32_t PP_GetGateOverShoot(int32_t address, int32_t gate, double* db);
/** 10 % to 90 % of the gate's last point (the gate ends on the pulse top), us.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] usec time in microseconds
 */
QV_API int32_t PP_GetGateRiseTime(int32_t address, int32_t gate, double* usec);
/** 90 % to 10 % of the gate's first point (the gate starts on the pulse top), us.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] usec time in microseconds
 */
QV_API int32_t PP_GetGateFallTime(int32_t address, int32_t gate, double* usec);
/** Width of the first pulse at its top less the pulse criteria, us.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] usec time in microseconds
 */
QV_API int32_t PP_GetGatePulseWidth(int32_t address, int32_t gate, double* usec);
/** Mean power of the first pulse's top, dBm.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] dbm pulse power in dBm
 */
QV_API int32_t PP_GetGatePulsePower(int32_t address, int32_t gate, double* dbm);
/** Time between the rising edges of the first two pulses, us.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] usec time in microseconds
 */
QV_API int32_t PP_GetGatePRT(int32_t address, int32_t gate, double* usec);
/** 1e6 / PRT, Hz.
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] hz pulse repetition frequency in Hz
 */
QV_API int32_t PP_GetGatePRF(int32_t address, int32_t gate, double* hz);
/** Pulse width / PRT, a fraction (not per cent).
 * @return 1; -1 as listed for the gate measurements.
 * @param[in] address address of the sensor, 1..255
 * @param[in] gate gate number, 0..9
 * @param[out] ratio a fraction, 0..1
 */
QV_API int32_t PP_GetGateDutyCycle(int32_t address, int32_t gate, double* ratio);

/** @} */
/** @} */

/** @defgroup markers_and_peak_search Markers and peak search
 * @ingroup profiling
 * A peak is a local maximum that rises by the excursion above the lowest
 * point before it and falls by the excursion below itself after it, and lies
 * above a threshold; a final rise that never falls back is not a peak. On the
 * analysis trace the excursion is QV_GetPulseCriteria and the threshold
 * PP_GetMeasurementThreshold. Ten markers (0..9) point at samples of the
 * analysis trace: mode 0 off, 1 normal, 2 delta (setters and moves then act
 * on the second, delta point; the reference point is the one set in mode 1).
 * Marker functions take the address and the marker index and return -1 when
 * the sensor is not initialised by the caller, the index is out of range, a
 * pointer is null, or (all but PP_SetMarkerMode and PP_GetMarkerMode) the
 * analysis trace is not valid, or (all but these and PP_MarkerPosIsValid) the
 * marker is off.
 * @{
 */

/** One peak: point index and value (dBm), 16 bytes. */
typedef struct PP_Peak {
    int32_t Index; /**< point index */
    int32_t Reserved; /**< no meaning */
    double Value; /**< value, dBm */
} PP_Peak;

/** Sets the marker's mode, 0..2. @return 1; -1 out of range.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[in] mode 0 off, 1 normal, 2 delta
 */
QV_API int32_t PP_SetMarkerMode(int32_t address, int32_t marker, int32_t mode);
/** The marker's mode. @return 1.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[out] mode 0 off, 1 normal, 2 delta
 */
QV_API int32_t PP_GetMarkerMode(int32_t address, int32_t marker, int32_t* mode);
/** Puts the marker on point `index` with its time and power. @return 1; -1 a
 * negative index, or one beyond the trace (both points then become -1); in
 * mode 2, 0 when the reference point lies outside the trace (it becomes -1).
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[in] index point index
 */
QV_API int32_t PP_SetMarkerPosition(int32_t address, int32_t marker, int32_t index);
/** Sets *index to -1, then to the point (mode 2: the delta point). @return 1;
 * -1 when the point (or the reference point) lies outside the trace, which
 * then becomes -1.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[out] index point index, or -1
 */
QV_API int32_t PP_GetMarkerPosition(int32_t address, int32_t marker, int32_t* index);
/** Puts the marker on the point nearest to `usec` (0..sweep time); the
 * amplitude is not refreshed. @return 1; -1 out of range.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[in] usec time in us, 0..sweep time
 */
QV_API int32_t PP_SetMarkerPositionTime(int32_t address, int32_t marker, double usec);
/** The time (us) of the marker's point (mode 2: the delta point). @return 1.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[out] usec time of the marker's point in us
 */
QV_API int32_t PP_GetMarkerPositionTime(int32_t address, int32_t marker, double* usec);
/** Mode 2 only: puts the delta point `usec` after the reference point (the sum
 * within 0..sweep time). @return 1; -1 otherwise.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[in] usec delta time in us
 */
QV_API int32_t PP_SetMarkerDeltaTime(int32_t address, int32_t marker, double usec);
/** Mode 2 only: delta time minus reference time, us. @return 1; -1 otherwise.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[out] usec delta time in us
 */
QV_API int32_t PP_GetMarkerDeltaTime(int32_t address, int32_t marker, double* usec);
/** Power at the marker's point (mode 2: the delta point), dBm; a point of 0 W
 * reads as -infinity. @return 1; -1 when the reference point is not before
 * the last point, or the point lies outside the trace.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[out] dbm power at the marker's point in dBm
 */
QV_API int32_t PP_GetMarkerAmp(int32_t address, int32_t marker, double* dbm);
/** Mode 2 only: power at the delta point minus power at the reference point,
 * dB. @return 1; -1 otherwise or when a point lies outside the trace.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[out] db power difference in dB
 */
QV_API int32_t PP_GetMarkerDeltaAmp(int32_t address, int32_t marker, double* db);
/** *valid = 1 when the marker's point (mode 2: the delta point) lies before
 * the trace's last point, else 0; untouched in mode 0. @return 1.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 * @param[out] valid 1 when valid, else 0
 */
QV_API int32_t PP_MarkerPosIsValid(int32_t address, int32_t marker, int32_t* valid);

/** Marker moves to a peak of the analysis trace (of its first 3000 peaks): the
 * highest, lowest, first or last peak; the next peak to the right (the last
 * when none; the first when the marker lies before it or there is one peak);
 * the previous peak (the first when the marker is at or before it or there is
 * one); the next higher peak (the highest when none); the next lower (the
 * lowest when none). Each sets point, time and amplitude (the peak's value).
 * @return the new point index; -1 when there is no peak, or as above.
 * @param[in] address address of the sensor, 1..255
 * @param[in] marker marker number, 0..9
 */
QV_API int32_t PP_MarkerToPk(int32_t address, int32_t marker);
/** @copydoc PP_MarkerToPk */
QV_API int32_t PP_MarkerToLowestPk(int32_t address, int32_t marker);
/** @copydoc PP_MarkerToPk */
QV_API int32_t PP_MarkerToFirstPk(int32_t address, int32_t marker);
/** @copydoc PP_MarkerToPk */
QV_API int32_t PP_MarkerToLastPk(int32_t address, int32_t marker);
/** @copydoc PP_MarkerToPk */
QV_API int32_t PP_MarkerNextPk(int32_t address, int32_t marker);
/** @copydoc PP_MarkerToPk */
QV_API int32_t PP_MarkerPrevPk(int32_t address, int32_t marker);
/** @copydoc PP_MarkerToPk */
QV_API int32_t PP_MarkerPkHigher(int32_t address, int32_t marker);
/** @copydoc PP_MarkerToPk */
QV_API int32_t PP_MarkerPkLower(int32_t address, int32_t marker);

/** Up to n peaks of the analysis trace into `peaks`, by index (_Idx: values
 * strictly above the threshold) or by value, highest first (_Val: at or above
 * the threshold; equal values in index order); *count the number found. A
 * maximum below 1 finds nothing. @return 1; -1 null pointer, sensor not
 * initialised by the caller.
 * @param[in] address address of the sensor, 1..255
 * @param[out] peaks the peaks found
 * @param[in] n room in `peaks`, entries
 * @param[out] count number of peaks found
 */
QV_API int32_t PP_GetPeaks_Idx(int32_t address, PP_Peak* peaks, int32_t n, int32_t* count);
/** @copydoc PP_GetPeaks_Idx */
QV_API int32_t PP_GetPeaks_Val(int32_t address, PP_Peak* peaks, int32_t n, int32_t* count);

/** As PP_GetPeaks_Idx and PP_GetPeaks_Val into parallel arrays of indices and
 * values. They fill min(n, 10000) entries of both: the first *count are
 * peaks, the rest read 0. @return 0 at once, touching nothing, when n < 1;
 * else 1, or -1 as PP_GetPeaks_Idx. The _Flat forms are the same functions.
 * @param[in] address address of the sensor, 1..255
 * @param[out] indices the peaks' point indices
 * @param[out] values the peaks' values in dBm
 * @param[in] n room in `indices` and `values`, entries
 * @param[out] count number of peaks found
 */
QV_API int32_t PP_GetPeaks_VEE_Idx(int32_t address, int32_t* indices, double* values, int32_t n,
                                   int32_t* count);
/** @copydoc PP_GetPeaks_VEE_Idx */
QV_API int32_t PP_GetPeaks_VEE_Val(int32_t address, int32_t* indices, double* values, int32_t n,
                                   int32_t* count);
/** @copydoc PP_GetPeaks_VEE_Idx */
QV_API int32_t PP_GetPeaks_Idx_Flat(int32_t address, int32_t* indices, double* values, int32_t n,
                                    int32_t* count);
/** @copydoc PP_GetPeaks_VEE_Idx */
QV_API int32_t PP_GetPeaks_Val_Flat(int32_t address, int32_t* indices, double* values, int32_t n,
                                    int32_t* count);

/** Up to n peaks of the caller's trace (`length` points in dBm; `unit` is
 * taken and not used) with the given excursion (dB) and threshold (dBm), by
 * index or by value as PP_GetPeaks_Idx and PP_GetPeaks_Val. No sensor is
 * needed. @return 1; -1 null pointer or negative length.
 * @param[in] trace trace points in dBm
 * @param[in] length number of points of `trace`
 * @param[in] unit unit code, taken and not used
 * @param[in] excursion excursion in dB: how far a peak must rise above the points before it and
 *     fall after it
 * @param[in] threshold threshold in dBm that a peak must exceed
 * @param[out] peaks the peaks found
 * @param[in] n room in `peaks`, entries
 * @param[out] count number of peaks found
 */
QV_API int32_t PP_GetPeaksFromTr_Idx(const double* trace, int32_t length, int32_t unit,
                                     double excursion, double threshold, PP_Peak* peaks,
                                     int32_t n, int32_t* count);
/** @copydoc PP_GetPeaksFromTr_Idx */
QV_API int32_t PP_GetPeaksFromTr_Val(const double* trace, int32_t length, int32_t unit,
                                     double excursion, double threshold, PP_Peak* peaks,
                                     int32_t n, int32_t* count);
/** The same into parallel arrays; only the first *count entries are written.
 * @return 1; -1 as above.
 * @param[in] trace trace points in dBm
 * @param[in] length number of points of `trace`
 * @param[in] unit unit code, taken and not used
 * @param[in] excursion excursion in dB: how far a peak must rise above the points before it and
 *     fall after it
 * @param[in] threshold threshold in dBm that a peak must exceed
 * @param[out] indices the peaks' point indices
 * @param[out] values the peaks' values in dBm
 * @param[in] n room in `indices` and `values`, entries
 * @param[out] count number of peaks found
 */
QV_API int32_t PP_GetPeaksFromTr_Idx_Flat(const double* trace, int32_t length, int32_t unit,
                                          double excursion, double threshold, int32_t* indices,
                                          double* values, int32_t n, int32_t* count);
/** @copydoc PP_GetPeaksFromTr_Idx_Flat */
QV_API int32_t PP_GetPeaksFromTr_Val_Flat(const double* trace, int32_t length, int32_t unit,
                                          double excursion, double threshold, int32_t* indices,
                                          double* values, int32_t n, int32_t* count);

/** @} */

/** @defgroup pulse_edges_and_trace_statistics Pulse edges and trace statistics
 * @ingroup profiling
 * Figures of the whole analysis trace. Each returns 1, or -1 when the sensor
 * is not initialised by the caller, a pointer is null, the analysis trace is
 * not valid, or (powers) the result is no finite number of dBm (a trace of
 * 0 W). The pulse level is the peak less QV_GetPulseCriteria (3 dB while
 * automatic pulse criteria are on).
 * @{
 */
/** Mean power of all points, dBm.
 * @return 1; -1 as listed for the trace statistics.
 * @param[in] address address of the sensor, 1..255
 * @param[out] dbm average power in dBm
 */
QV_API int32_t PP_GetTraceAvgPower(int32_t address, double* dbm);
/** Largest point, dBm.
 * @return 1; -1 as listed for the trace statistics.
 * @param[in] address address of the sensor, 1..255
 * @param[out] dbm peak power in dBm
 */
QV_API int32_t PP_GetTracePkPwr(int32_t address, double* dbm);
/** Peak minus average power, dB.
 * @return 1; -1 as listed for the trace statistics.
 * @param[in] address address of the sensor, 1..255
 * @param[out] db result in dB
 */
QV_API int32_t PP_GetTraceCrestFactor(int32_t address, double* db);
/** Mean power of the points at or above the pulse level, dBm.
 * @return 1; -1 as listed for the trace statistics.
 * @param[in] address address of the sensor, 1..255
 * @param[out] dbm pulse power in dBm
 */
QV_API int32_t PP_GetTracePulsePower(int32_t address, double* dbm);
/** Share of the points at or above the pulse level, a fraction 0..1.
 * @return 1; -1 as listed for the trace statistics.
 * @param[in] address address of the sensor, 1..255
 * @param[out] ratio a fraction, 0..1
 */
QV_API int32_t PP_GetTraceDC(int32_t address, double* ratio);
/** The edges of the pulse around peak point `peak` (4 to last index - 4): the
 * nearest points on either side at or below the peak less
 * QV_GetPulseCriteria. @return 1; -1 as above, the peak out of range or
 * below the measurement threshold, or an edge not found.
 * @param[in] address address of the sensor, 1..255
 * @param[in] peak point index of the peak
 * @param[out] left left edge (point index)
 * @param[out] right right edge (point index)
 */
QV_API int32_t PP_GetPulseEdgesPosition(int32_t address, int32_t peak, int32_t* left,
                                        int32_t* right);
/** As PP_GetPulseEdgesPosition for the peak at `peakUsec` (truncated to its
 * point), edges as times in us.
 * @return as PP_GetPulseEdgesPosition.
 * @param[in] address address of the sensor, 1..255
 * @param[in] peakUsec time of the peak in us
 * @param[out] left left edge, time in us
 * @param[out] right right edge, time in us
 */
QV_API int32_t PP_GetPulseEdgesTime(int32_t address, double peakUsec, double* left, double* right);
/** Kept for old applications: does nothing and leaves the array untouched.
 * @return 0.
 * @param[in] address address of the sensor, 1..255
 * @param[out] values left untouched
 * @param[in] n ignored
 */
QV_API int32_t PP_GetTraceCDF(int32_t address, double* values, int32_t n);
/** @copydoc PP_GetTraceCDF */
QV_API int32_t PP_GetTraceCCDF(int32_t address, double* values, int32_t n);
/** @copydoc PP_GetTraceCDF */
QV_API int32_t PP_GetTracePwrDensity(int32_t address, double* values, int32_t n);

/** @} */

/** @defgroup burst_measurement Burst measurement
 * @ingroup measure
 * @{
 */

/** Measures a burst: the largest, mean and smallest power (dBm) of one trace's
 * points inside the window from `start` for `length` us (start, length >= 0,
 * start + length <= 1000000). Sets the sweep time to the shortest of 1, 2, 5,
 * 10, 20, 100, 500 ms and 1 s that covers the window, the trigger source to
 * automatic level (trigger 0) or the external input (any other value) and the
 * trigger edge to 0, and leaves them so; works with every model. Takes a
 * trace, up to three tries. @return 1; -1 window out of range, null pointer,
 * sensor not initialised by the caller, a setting refused, or no trace.
 * @param[in] address address of the sensor, 1..255
 * @param[in] start start of the window in us after the trigger
 * @param[in] length length of the window in us
 * @param[in] trigger 0 automatic level trigger, any other value the external trigger input
 * @param[out] maximum largest power in the window, dBm
 * @param[out] average mean power in the window, dBm
 * @param[out] minimum smallest power in the window, dBm
 */
QV_API int32_t QV_MeasureBurst_DBM(int32_t address, int32_t start, int32_t length, int32_t trigger,
                                   double* maximum, double* average, double* minimum);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* QV_API2_H */
