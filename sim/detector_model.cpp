#include "detector_model.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

#include "device/model_names.h"

namespace qvsim {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kFirstLevelDbm[2] = {-70.0, -30.0};

// Models calibrated on the coarse grid (6.625e7 Hz steps, temperature rows of 70
// counts); every other model, known or not, uses the fine one.
constexpr std::int32_t kCoarseGridModels[] = {4,  105, 106, 5,   69,  79,  107, 108, 6,   70,
                                              80, 109, 7,   8,   71,  81,  110, 111, 112, 113};

bool HasCoarseGrid(std::int32_t model) {
    return std::find(std::begin(kCoarseGridModels), std::end(kCoarseGridModels), model) !=
           std::end(kCoarseGridModels);
}

// Deterministic draws from a seed (splitmix64).
class Draws {
public:
    explicit Draws(std::uint64_t seed) : state_(seed) {}
    double Uniform(double low, double high) {
        state_ += 0x9E3779B97F4A7C15ull;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        return low + (high - low) * static_cast<double>(z >> 11) * 0x1.0p-53;
    }

private:
    std::uint64_t state_;
};

std::uint64_t HashText(const char* text, std::uint64_t hash) {
    for (const char* c = text; c != nullptr && *c != '\0'; ++c) {
        hash ^= static_cast<unsigned char>(*c);
        hash *= 0x100000001B3ull;
    }
    return hash;
}

double LastGridFrequency(const DetectorModel& model) { return (kGridPoints - 1) * model.stepHz; }

double SensitivityDb(const DetectorModel& model, const PathParameters& p, double hz) {
    return p.tiltDb * (hz / LastGridFrequency(model) - 0.5) +
           p.rippleDb * std::sin(2.0 * kPi * hz / p.ripplePeriodHz + p.ripplePhase);
}

double LastLevel(int path) { return kFirstLevelDbm[path] + kLevelStepDb * (kGridLevels - 1); }

// The curve the calibration samples.
double CalibratedCurve(const DetectorModel& model, int path, double dbm, double hz) {
    const PathParameters& p = model.path[path];
    const double x = (dbm + SensitivityDb(model, p, hz) - kFirstLevelDbm[path]) / kCalibratedSpanDb;
    const double tail = std::exp(-p.curvature);
    const double shape = (std::exp(-p.curvature * x) - tail) / (1.0 - tail);
    return p.countFloor + (p.countTop - p.countFloor) * shape;
}

// Counts per dB above the highest calibrated level (negative: the count falls). The
// last two segments' ratio goes on once more, c25 = c24^2 / c23, which is the line the
// host extrapolates with (in dB per count, slope(25) = slope(24)^2 / slope(23)).
double TopSegmentSlope(const DetectorModel& model, int path, double hz) {
    const double last = LastLevel(path);
    double counts[3];
    for (int i = 0; i < 3; ++i) counts[i] = CalibratedCurve(model, path, last - kLevelStepDb * (2 - i), hz);
    const double c23 = (counts[1] - counts[0]) / kLevelStepDb, c24 = (counts[2] - counts[1]) / kLevelStepDb;
    return c24 * c24 / c23;
}

double CountAtCalibration(const DetectorModel& model, int path, double dbm, double hz) {
    const double last = LastLevel(path);
    if (dbm <= last) return CalibratedCurve(model, path, dbm, hz);
    return CalibratedCurve(model, path, last, hz) + (dbm - last) * TopSegmentSlope(model, path, hz);
}

// Temperature distance from calibration. The drift is a quadratic only over the
// temperature rows the calibration covers; beyond them it holds at the end value.
double TemperatureOffset(const DetectorModel& model, double temperature) {
    const double last = model.tempTableStart + (kTemperatureRows - 1) * model.tempStep;
    return std::clamp(temperature, model.tempTableStart, last) - model.calTemperature;
}

// ---------------------------------------------------------------- image encoding

constexpr double kPowersOfTen[15] = {1e-7, 1e-6, 1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1e0,
                                     1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7};

// A coefficient is stored as mantissa / divisor * 10^exponent, the divisor and
// exponent shared by the 26 levels of a path at one frequency.
struct Scale {
    std::uint32_t divisor;
    int exponent;
    double factor;  // mantissa = coefficient * factor
};

// The finest scale at which the largest coefficient still fits the mantissa.
Scale ChooseScale(double largest, int mantissaMax, std::uint32_t divisorMax) {
    const double limit = largest > 0.0 ? mantissaMax / largest : std::numeric_limits<double>::infinity();
    Scale best{1, 7, 0.0};
    for (int exponent = -7; exponent <= 7; ++exponent) {
        const double power = kPowersOfTen[exponent + 7];
        const double divisor = std::floor(std::min(limit * power, static_cast<double>(divisorMax)));
        if (divisor < 1.0) continue;
        const double factor = divisor / power;
        if (factor > best.factor) best = Scale{static_cast<std::uint32_t>(divisor), exponent, factor};
    }
    if (best.factor == 0.0) best.factor = 1.0 / kPowersOfTen[14];  // too large for any scale: saturate
    return best;
}

// Sign and magnitude in `bits` bits; the sign bit alone is never produced.
std::uint32_t SignMagnitude(long value, int bits) {
    const long largest = (1L << (bits - 1)) - 1;
    const long magnitude = std::min(std::labs(value), largest);
    if (value < 0 && magnitude > 0) return static_cast<std::uint32_t>((1L << (bits - 1)) | magnitude);
    return static_cast<std::uint32_t>(magnitude);
}

std::uint32_t Exponent4(int exponent) { return SignMagnitude(exponent, 4); }

void EncodePath(const DetectorModel& model, int path, double hz, std::uint8_t* header, std::uint8_t* entries) {
    CalibrationPoint points[kGridLevels];
    double largestA = 0.0, largestB = 0.0;
    for (int j = 0; j < kGridLevels; ++j) {
        points[j] = DetectorCalibration(model, path, GridLevel(path, j), hz);
        largestA = std::max(largestA, std::fabs(points[j].a));
        largestB = std::max(largestB, std::fabs(points[j].b));
    }
    const Scale a = ChooseScale(largestA, 8191, 16383);
    const Scale b = ChooseScale(largestB, 511, 1023);
    header[0] = static_cast<std::uint8_t>(a.divisor >> 6);
    header[1] = static_cast<std::uint8_t>(((a.divisor & 63) << 2) | (b.divisor >> 8));
    header[2] = static_cast<std::uint8_t>(b.divisor & 255);
    header[3] = static_cast<std::uint8_t>((Exponent4(a.exponent) << 4) | Exponent4(b.exponent));
    for (int j = 0; j < kGridLevels; ++j) {
        const long z = std::clamp(std::lround(points[j].z), 0L, 65535L);
        const std::uint32_t y = SignMagnitude(std::lround(points[j].a * a.factor), 14);
        const std::uint32_t x = SignMagnitude(std::lround(points[j].b * b.factor), 10);
        std::uint8_t* entry = entries + 5 * j;
        entry[0] = static_cast<std::uint8_t>(z >> 8);
        entry[1] = static_cast<std::uint8_t>(z & 255);
        entry[2] = static_cast<std::uint8_t>(y >> 6);
        entry[3] = static_cast<std::uint8_t>(((y & 63) << 2) | (x >> 8));
        entry[4] = static_cast<std::uint8_t>(x & 255);
    }
}

}  // namespace

// The sensor's firmware names its model in the product string, in the texts
// the host software tells models apart by.
std::int32_t ModelIndexOfProduct(const char* product) { return qv::FindModelName(product, false); }

DetectorModel MakeDetectorModel(const char* serial, const char* product) {
    DetectorModel model{};
    model.modelIndex = ModelIndexOfProduct(product);
    const bool coarse = HasCoarseGrid(model.modelIndex);
    model.startHz = 1.0e7;
    model.stepHz = coarse ? 6.625e7 : 2.5e7;
    model.tempTableStart = coarse ? 2785.0 : 7334.0;
    model.tempStep = coarse ? 70.0 : 9.0;
    // Either way the 350 rows span about 60 K.
    model.countsPerKelvin = coarse ? 400.0 : 50.0;

    Draws draw(HashText(serial, 0xCBF29CE484222325ull) ^
               (static_cast<std::uint64_t>(static_cast<std::uint32_t>(model.modelIndex)) * 0x9E3779B97F4A7C15ull));
    // Calibrated well inside the rows, so that warmer and colder both have rows.
    const double row = std::floor(draw.Uniform(100.0, 250.0));
    model.calTemperature =
        static_cast<std::uint32_t>(model.tempTableStart + row * model.tempStep + std::floor(draw.Uniform(0.0, model.tempStep)));
    const double perKelvin = model.countsPerKelvin;
    for (PathParameters& p : model.path) {
        p.countTop = draw.Uniform(52000.0, 56000.0);
        // The hs path keeps well clear of the ADC's zero at its top level, so that
        // continued beyond it it still counts through the highest crossover band
        // (-8 dBm), as a real head's does.
        p.countFloor = draw.Uniform(1800.0, 2600.0) + (&p == &model.path[kPathHs] ? 8000.0 : 0.0);
        p.curvature = draw.Uniform(1.6, 2.4);
        // Sensitivity stays within +-1.5 dB, so counts at the grid levels stay
        // inside 16 bits at the calibration temperature.
        p.tiltDb = draw.Uniform(-1.0, 1.0);
        p.rippleDb = draw.Uniform(0.1, 0.4);
        p.ripplePeriodHz = draw.Uniform(0.06, 0.15) * LastGridFrequency(model);
        p.ripplePhase = draw.Uniform(0.0, 2.0 * kPi);
        p.gain1 = draw.Uniform(-1.2e-3, -0.3e-3) / perKelvin;
        p.gain2 = draw.Uniform(-1.5e-5, 1.5e-5) / (perKelvin * perKelvin);
        p.offsetPerCount = draw.Uniform(-15.0, 15.0) / perKelvin;
    }
    return model;
}

double GridFrequency(const DetectorModel& model, int point) {
    return point == 0 ? model.startHz : point * model.stepHz;
}

double GridLevel(int path, int level) { return kFirstLevelDbm[path] + kLevelStepDb * level; }

CalibrationPoint DetectorCalibration(const DetectorModel& model, int path, double dbm, double hz) {
    const PathParameters& p = model.path[path];
    const double z = CountAtCalibration(model, path, dbm, hz);
    return CalibrationPoint{z, p.gain1 * z + p.offsetPerCount, p.gain2 * z};
}

double DetectorCount(const DetectorModel& model, int path, double dbm, double hz, double temperature) {
    const PathParameters& p = model.path[path];
    const double dT = TemperatureOffset(model, temperature);
    const double z = CountAtCalibration(model, path, dbm, hz);
    return z * (1.0 + p.gain1 * dT + p.gain2 * dT * dT) + p.offsetPerCount * dT;
}

double DetectorPower(const DetectorModel& model, int path, double count, double hz, double temperature) {
    const PathParameters& p = model.path[path];
    const double dT = TemperatureOffset(model, temperature);
    const double z = (count - p.offsetPerCount * dT) / (1.0 + p.gain1 * dT + p.gain2 * dT * dT);
    const double last = LastLevel(path);
    const double lastCount = CalibratedCurve(model, path, last, hz);
    if (z < lastCount) return last + (z - lastCount) / TopSegmentSlope(model, path, hz);
    const double tail = std::exp(-p.curvature);
    const double e = (z - p.countFloor) / (p.countTop - p.countFloor) * (1.0 - tail) + tail;
    if (!(e > 0.0)) return std::numeric_limits<double>::infinity();
    const double x = -std::log(e) / p.curvature;
    return kFirstLevelDbm[path] + kCalibratedSpanDb * x - SensitivityDb(model, p, hz);
}

void BuildCalibrationImage(const DetectorModel& model, std::uint8_t* image) {
    image[0] = static_cast<std::uint8_t>((model.calTemperature >> 8) & 255);
    image[1] = static_cast<std::uint8_t>(model.calTemperature & 255);
    for (int i = 0; i < kGridPoints; ++i) {
        std::uint8_t* record = image + 2 + kImageRecordBytes * i;
        const double hz = GridFrequency(model, i);
        EncodePath(model, kPathHs, hz, record + 0, record + 8);
        EncodePath(model, kPathLs, hz, record + 4, record + 138);
    }
}

std::uint32_t ImageChecksum(const std::uint8_t* bytes, std::size_t length) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < length; ++i) sum = sum * 2u + bytes[i];
    return sum;
}

}  // namespace qvsim
