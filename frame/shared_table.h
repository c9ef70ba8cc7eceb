// The block of memory shared by every process that has the library loaded:
// a few machine-wide values followed by the table of 13 sensor slots.
//
// The layout is fixed: every process, whatever build of the library it loaded,
// must agree on it, so each group is a plain struct with its size checked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qv_api2.h"

namespace qv {

inline constexpr int kSlotCount = 13;
inline constexpr int kNoSlot = -1;

inline constexpr int kCalFreqPoints = 401;
inline constexpr int kCalLevels = 26;
inline constexpr int kCalTempRows = 350;
inline constexpr int kRegisterCount = 20;
inline constexpr int kDefaultRegisters = 10;   // registers given defaults by the reset
inline constexpr int kTraceCapacity = 10000;
inline constexpr int kHistogramBins = 10000;
inline constexpr int kTempSampleCapacity = 300;
inline constexpr int kPowerSampleCapacity = 40000;
inline constexpr int kRawBufferBytes = 132000;
inline constexpr int kGateCount = 10;
inline constexpr int kMarkerCount = 10;
inline constexpr int kSerialChars = 6;          // stored with a terminating zero

inline constexpr std::int64_t kNoHandle = -1;   // -1 and -2 both mean "no handle"
inline constexpr double kResetCalTmp = 8900.0;

// ---------------------------------------------------------------- calibration (3.3)

struct CalLevelPoint {
    double level;  // dBm
    double b;      // quadratic temperature coefficient
    double a;      // linear temperature coefficient
    double z;      // count at the calibration temperature
};

struct CalFreqPoint {
    double freq;  // Hz
    CalLevelPoint hs[kCalLevels];
    CalLevelPoint ls[kCalLevels];
};

struct CalCoefficients {
    double b;
    double a;
    double z;
};

// Calibration interpolated at the frequency the tables were last built for.
struct CurrentCalibration {
    double lastTemperature[2];  // temperature counts last used (hs, ls)
    CalCoefficients hs[kCalLevels];
    CalCoefficients ls[kCalLevels];
};

// One straight-line segment from count to dBm.
struct CalSegment {
    double level;      // dBm
    double count;      // expected detector count at this level and temperature
    double slope;      // dB per count
    double intercept;  // dB
};

struct CalTempRow {
    double freq;       // Hz the row was built for
    double tempCount;  // T(r)
    CalSegment hs[kCalLevels];
    CalSegment ls[kCalLevels];
};

// ---------------------------------------------------------------- measurement (4.x)

struct MeasurementBookkeeping {
    std::int64_t value;   // reset -1
    std::int32_t counter; // reset 0
    std::int32_t pad;
    double values[7];     // reset 0
};

struct SampleBuffers {
    double loTmpCnt[kTempSampleCapacity];
    double hiTmpCnt[kTempSampleCapacity];
    double loPwrCnt[kPowerSampleCapacity];
    double hiPwrCnt[kPowerSampleCapacity];
    std::uint8_t raw[kRawBufferBytes];
};

// ---------------------------------------------------------------- identity (2.3)

struct IdentityBlock {
    std::int32_t ModelIndex;        // -1 when the model could not be read
    char serial[kSerialChars + 1];
    char pad0;
    std::int32_t address;           // -1 when unknown
    std::uint32_t valid;            // 1 once set up
};

// ---------------------------------------------------------------- pulse profiling (7.x)

struct TraceSettings {
    std::int32_t sweepTimeIdx;
    std::int32_t sweepTimeUsec;
    std::int32_t sweepDelayMode;
    std::int32_t sweepDelayUsec;
    std::int32_t trgSource;
    std::int32_t trgEdge;
    double trgLevel;
    double trgLevelEff;
    double autoTrgLevel;
    std::int32_t autoTrgLevelSet;
    std::int32_t trgAdcHi;
    std::int32_t trgAdcLo;
    std::int32_t trgOut;
    std::int32_t avgMode;
    std::int32_t traceAvgs;
    double avgResetSens;
    std::int32_t avgRestart;
    std::int32_t avgCount;
    std::int32_t filter;
    std::int32_t poles;
    std::int32_t timeOutUsec;
    std::int32_t autoTimeOutMode;
    std::int32_t undersampling;
    std::int32_t lastTmpRowHi;
    std::int32_t lastTmpRowLo;
    std::int32_t pad;
};

struct GateRecord {
    std::int32_t mode;
    std::int32_t startPos;
    std::int32_t endPos;
    std::int32_t pad;
    double startTime;
    double endTime;
    double startPosTime;
    double endPosTime;
};

struct MarkerRecord {
    std::int32_t mode;
    std::int32_t pos;
    double posTime;
    double time;
    double amp;
    std::int32_t deltaPos;
    std::int32_t pad;
    double deltaTime;
    double deltaPosTime;
    double deltaAmp;
};

struct GatesAndMarkers {
    GateRecord gates[kGateCount];
    MarkerRecord markers[kMarkerCount];
    double measThreshold;  // dBm
};

struct AnalysisTrace {
    std::int32_t analysisValid;
    std::int32_t analysisSweepTime;
    double analysisFreq;
    std::int32_t analysisLastIdx;
    std::int32_t analysisUnit;
    double analysisTrace[kTraceCapacity];  // watts
};

// ---------------------------------------------------------------- the slot

struct DeviceRecord {
    // 1. header
    std::int32_t inUse;
    std::uint32_t ownerPid;
    char serial[kSerialChars + 1];
    char pad0;
    std::int32_t address;
    std::int32_t devId;
    std::int64_t deviceHandle;
    std::int64_t winUsbHandle;
    std::int32_t streamArmed;
    std::int32_t singleAverageStream;
    double calTmp;
    // 2. calibration table
    CalFreqPoint calPoints[kCalFreqPoints];
    // 3. measurement bookkeeping
    MeasurementBookkeeping bookkeeping;
    // 4. measurement sample buffers
    SampleBuffers samples;
    // 5. calibration at the current frequency
    CurrentCalibration currentCal;
    // 6. temperature-correction table
    CalTempRow tempRows[kCalTempRows];
    // 7. identity
    IdentityBlock identity;
    // 8. current state
    InstrumentState current;
    // 9. registers
    InstrumentState registers[kRegisterCount];
    // 10. pulse-profiling settings
    TraceSettings trace;
    // 11. current trace
    double avgTrace[kTraceCapacity];
    // 12. gates and markers
    GatesAndMarkers analysisSetup;
    // 13. analysis trace
    AnalysisTrace analysis;
};

// ---------------------------------------------------------------- the block

struct SharedBlock {
    double positiveInfinity;
    std::uint32_t sysTimeOut;
    std::uint32_t firstLoadDone;
    float histogramHi[kHistogramBins];
    float histogramLo[kHistogramBins];
    std::int32_t attachCount;
    std::int32_t pad0;
    std::uint64_t lockHandle;
    std::uint32_t burstRunning;
    std::uint32_t pad1;
    DeviceRecord table[kSlotCount];
};

// Sizes that other builds and the state files depend on.
static_assert(sizeof(InstrumentState) == 3496);
static_assert(offsetof(InstrumentState, Freq) == 8);
static_assert(offsetof(InstrumentState, Averages) == 120);
static_assert(offsetof(InstrumentState, ExtendedAveragingProgress) == 208);
static_assert(offsetof(InstrumentState, MaxHoldValues) == 224);
static_assert(offsetof(InstrumentState, Enabled75Ohms) == 264);
static_assert(offsetof(InstrumentState, NumberOfResponsePoints) == 276);
static_assert(offsetof(InstrumentState, Response) == 280);
static_assert(sizeof(SensorListEntry) == 16);
static_assert(offsetof(SensorListEntry, SerialNumber) == 8);
static_assert(sizeof(CalLevelPoint) == 32);
static_assert(sizeof(CalFreqPoint) == 8 + 2 * kCalLevels * 32);
static_assert(sizeof(CalTempRow) == 16 + 2 * kCalLevels * 32);
static_assert(sizeof(MeasurementBookkeeping) == 8 + 4 + 4 + 7 * 8);
static_assert(sizeof(SampleBuffers) ==
              (2 * kTempSampleCapacity + 2 * kPowerSampleCapacity) * 8 + kRawBufferBytes);
static_assert(offsetof(DeviceRecord, deviceHandle) == 24);
static_assert(offsetof(DeviceRecord, calPoints) == 56);
static_assert(sizeof(DeviceRecord) % 8 == 0);
static_assert(offsetof(SharedBlock, attachCount) == 16 + 2 * kHistogramBins * 4);

// This process's view of the shared block (tableView); null when the library
// could not attach to it.
extern SharedBlock* tableView;

inline DeviceRecord& Slot(int index) { return tableView->table[index]; }

// Stores at most six characters of `serial` in a seven-byte field, the rest zero.
inline void StoreSerial(char (&field)[kSerialChars + 1], const char* serial) {
    for (int i = 0; i <= kSerialChars; ++i) field[i] = '\0';
    for (int i = 0; i < kSerialChars && serial && serial[i]; ++i) field[i] = serial[i];
}

// Puts slot `index` into its reset state (owner process id untouched).
void ResetDeviceRecord(int index);

// The reset of a slot whose sensor is released: header (owner included) and
// the default calibration grid; settings, registers and traces stay.
void ResetReleasedRecord(int index);

// First-load set-up of a freshly created, zero-filled block.
void SetUpFreshBlock(SharedBlock& block);

}  // namespace qv
