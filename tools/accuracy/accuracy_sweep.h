// Readings of simulated sensors against the power put on their inputs: the
// survey behind docs/accuracy.md (tools/accuracy/qv_accuracy.cpp) and the test
// that keeps it honest (tests/measure/test_accuracy.cpp).
//
// Everything goes through the public exports and the simulator's control API:
// the signal is set on the simulated input, the library reads it as any
// application would, and the reading is held against the signal's true power.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qv::accuracy {

// One sensor of the survey: a model of one calibration grid group.
struct SurveySensor {
    const char* group;    // the models that share its grid, as the docs name them
    const char* product;  // product string, which names the model
    const char* serial;
    std::int32_t address;
    double topHz;  // the model's highest frequency
    bool classP;   // merge class: P keeps hs above the band and adds a peak share
    bool lowGroup; // crossover band by frequency; otherwise fixed by the model
    double bandLower, bandUpper;  // the fixed band, dBm
};

// One sensor of each calibration grid group: the low group (model 2, class P),
// the three coarse groups of class S models with the band -15..-8 dBm, the
// coarse group of class P models with the band -30..-20 dBm; then the low
// group's class S (model 64), which merges differently above the band.
const std::vector<SurveySensor>& SurveySensors();

// Where a level lies for a sensor at a frequency.
enum class Region { kHsOnly, kBand, kLsOnly };
struct Band {
    double lower;
    double upper;
};
Band CrossoverBand(const SurveySensor& sensor, double hz);
Region RegionOf(const SurveySensor& sensor, double hz, double dbm);
const char* RegionName(Region region);

// Levels at which the calibration holds a count of the path that reads them
// (hs -70..-20, ls -30..+20 dBm in 2 dB steps; hs below the band, ls above it).
bool IsCalibratedLevel(const SurveySensor& sensor, double hz, double dbm);

// One CW reading against the input power, and what explains its error.
struct CwPoint {
    double dbm;
    double hz;
    int temperature;
    double error;         // reading - dbm; NaN when the library refused
    Region region;
    bool calibratedLevel; // see IsCalibratedLevel
    bool gridFrequency;   // hz is a calibration grid frequency
    bool hsAtZero;        // in the band with the simulated hs count at the ADC's 0
};

// The CW target: the worst error the method explains for the simulated
// detector, and what is left at calibrated levels on grid frequencies at a
// temperature row's own temperature (quantisation).
inline constexpr double kCwTargetDb = 0.035;
inline constexpr double kCalibratedTargetDb = 0.005;

// A pulse train on the input, the 2 us sample clock's multiples.
struct PulseSignal {
    double periodUs;
    double widthUs;
    double onDbm;
    double offDbm;
};
struct PulseReading {
    double pulse;
    double peak;
    double average;
    double dutyCycle;  // fraction
};

// The survey's sensors on the current simulated bus (created by the caller),
// initialised by this process. Noise off throughout.
class SensorBench {
public:
    // Adds and initialises the sensors; false with a message on failure.
    bool Open(const std::vector<SurveySensor>& sensors, std::string* error);

    std::size_t size() const { return sensors_.size(); }
    const SurveySensor& sensor(std::size_t i) const { return sensors_[i]; }

    // Temperature counts: at calibration, and `rows` temperature rows away from it.
    int CalibrationTemperature(std::size_t i) const;
    int TemperatureRowsAway(std::size_t i, int rows) const;
    // The temperature count of the row the calibration temperature falls in:
    // there a reading takes its row's counts exactly.
    int CalibrationRowTemperature(std::size_t i) const;
    // The calibration grid frequency nearest to `hz`.
    double GridFrequencyNear(std::size_t i, double hz) const;
    double CountsPerKelvin(std::size_t i) const;
    // Whether `hz` is one of the calibration's grid frequencies.
    bool OnCalibrationGrid(std::size_t i, double hz) const;

    // The detector itself (true values): the lowest power at which the hs
    // count reaches the ADC's 0, and a path's counts per dB at a power.
    double HsClipDbm(std::size_t i, double hz, int temperature) const;
    double CountsPerDb(std::size_t i, int path, double dbm, double hz, int temperature) const;
    // What one temperature row (the rows are not interpolated) is worth in dB
    // on a path at a power, near the calibration temperature.
    double TemperatureRowDb(std::size_t i, int path, double dbm, double hz) const;

    // The survey's temperatures: calibration, then `kTemperatureRowsAway` rows
    // (about 14 K) colder and warmer.
    static constexpr int kTemperatureRowsAway = 80;
    std::vector<int> SurveyTemperatures(std::size_t i) const;

    // One CW reading, classified.
    CwPoint MeasureCW(std::size_t i, double dbm, double hz, int temperature);

    // One CW reading in dBm (Averages 1) of `dbm` at `hz` with the sensor at
    // `temperature`; NaN when the library refused.
    double ReadCW(std::size_t i, double dbm, double hz, int temperature);

    // One pulse reading of `averages` blocks; NaNs when the library refused.
    PulseReading ReadPulse(std::size_t i, const PulseSignal& signal, double hz, int temperature,
                           std::int32_t averages);

private:
    bool Prepare(std::size_t i, double hz, int temperature, std::int32_t averages);

    std::vector<SurveySensor> sensors_;
    std::vector<int> ids_;
};

// Error distribution of a set of readings (reading - true value).
struct ErrorStats {
    int count = 0;
    double worst = 0.0;  // largest magnitude, with its sign
    double worstAt = 0.0;
    double sumSquares = 0.0;

    void Add(double error, double at);
    void Merge(const ErrorStats& other);
    double MaxAbs() const;
    double Rms() const;
};

// The CW sweep's levels and frequencies.
inline constexpr double kLowestDbm = -65.0;
inline constexpr double kHighestDbm = 20.0;
std::vector<double> SurveyFrequencies(const SurveySensor& sensor);  // 50 MHz, 1 GHz, 6 GHz, top

}  // namespace qv::accuracy
