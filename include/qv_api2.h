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

#ifdef __cplusplus
}
#endif

#endif /* QV_API2_H */
