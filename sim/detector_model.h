// The detector of a simulated sensor: what count each path delivers for an input
// power at a frequency and a temperature, the inverse, and the factory calibration
// image generated from it. Everything that turns power into counts goes through
// here, so that a reading can be checked against the power that was put in.
//
// Per path (hs calibrated -70..-20 dBm, ls -30..+20 dBm), with
//   x     = (dBm + sensitivity(f) - first level) / 50 dB     (0..1 across the range)
//   Z     = floor + (top - floor) * (e^(-k x) - e^(-k)) / (1 - e^(-k))
//   dT    = T - calibration temperature  (T held inside the 350 temperature rows)
//   count = Z * (1 + gain1 dT + gain2 dT^2) + offset dT
// so the count falls smoothly and monotonically as the power rises, and the
// calibration coefficients of a point are exactly a = gain1 Z + offset, b = gain2 Z.
// Above the highest calibrated level Z goes on along the line (in counts per dB) of
// the top calibrated segment. Counts are not clamped here: a 16-bit reading made
// from them saturates.
#ifndef QVSIM_DETECTOR_MODEL_H
#define QVSIM_DETECTOR_MODEL_H

#include <cstddef>
#include <cstdint>

namespace qvsim {

inline constexpr int kPathHs = 0;
inline constexpr int kPathLs = 1;
inline constexpr int kGridPoints = 401;
inline constexpr int kGridLevels = 26;
inline constexpr int kTemperatureRows = 350;
inline constexpr double kLevelStepDb = 2.0;
inline constexpr double kCalibratedSpanDb = 50.0;

// Calibration image as the sensor keeps it: region 2 from position 1024 holds the
// first part, region 6 from position 1024 the rest.
inline constexpr std::size_t kImageBytes = 107470;
inline constexpr std::size_t kImagePartOneBytes = 50000;
inline constexpr std::size_t kImageRecordBytes = 268;

// One path's detector. Stored in the bus file, so plain doubles only.
struct PathParameters {
    double countTop;         // Z at x = 0 (bottom of the calibrated range)
    double countFloor;       // Z at x = 1 (top of the range)
    double curvature;        // k
    double tiltDb;           // sensitivity change from 0 Hz to the last grid point
    double rippleDb;         // amplitude of the sensitivity ripple
    double ripplePeriodHz;
    double ripplePhase;      // radians
    double gain1;            // relative drift per temperature count
    double gain2;            // relative drift per temperature count squared
    double offsetPerCount;   // counts of drift per temperature count
};

struct DetectorModel {
    std::int32_t modelIndex;      // from the product string; -1 unknown
    std::uint32_t calTemperature; // temperature count at calibration
    double startHz;               // grid point 0
    double stepHz;                // grid point i >= 1 lies at i * stepHz
    double tempTableStart;        // temperature count of row 0
    double tempStep;              // counts per row
    double countsPerKelvin;
    PathParameters path[2];
};
static_assert(sizeof(DetectorModel) == 48 + 2 * 80, "bus file layout");

// The model index a product string names (first listed text found in it).
std::int32_t ModelIndexOfProduct(const char* product);

// A sensor's detector: the grid follows the model its product string names, every
// other parameter is drawn from its serial, so two sensors differ and the same
// serial and product always give the same detector.
DetectorModel MakeDetectorModel(const char* serial, const char* product);

// Frequency of grid point i (0..400) and level j (0..25) of a path.
double GridFrequency(const DetectorModel& model, int point);
double GridLevel(int path, int level);

// Count of `path` for `dbm` at `hz` and temperature count `temperature`.
double DetectorCount(const DetectorModel& model, int path, double dbm, double hz, double temperature);
// The power that gives `count` (+infinity only for a count no power gives).
double DetectorPower(const DetectorModel& model, int path, double count, double hz, double temperature);

// Calibration of a point: count at the calibration temperature and the linear and
// quadratic temperature coefficients (per temperature count).
struct CalibrationPoint {
    double z;
    double a;
    double b;
};
CalibrationPoint DetectorCalibration(const DetectorModel& model, int path, double dbm, double hz);

// The factory calibration image (kImageBytes) of the model's grid.
void BuildCalibrationImage(const DetectorModel& model, std::uint8_t* image);

// The checksum the sensor keeps beside its image: accumulator * 2 + byte, mod 2^32.
std::uint32_t ImageChecksum(const std::uint8_t* bytes, std::size_t length);

}  // namespace qvsim

#endif
