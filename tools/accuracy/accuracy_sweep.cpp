#include "accuracy_sweep.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "qv_api2.h"
#include "sim/qvsim.h"

namespace qv::accuracy {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

}  // namespace

const std::vector<SurveySensor>& SurveySensors() {
    static const std::vector<SurveySensor> sensors = {
        {"low group, class P (1, 2, 3, 66, ...)", "QV222A", "ACC002", 21, 1.0e10, true, true, 0, 0},
        {"4, 105, 106", "QV331A", "ACC004", 22, 1.25e10, false, false, -15.0, -8.0},
        {"5, 69, 79, 107, 108", "QV332A", "ACC005", 23, 1.8e10, false, false, -15.0, -8.0},
        {"6, 70, 80, 109", "QV333A", "ACC006", 24, 2.65e10, false, false, -15.0, -8.0},
        {"7, 8, 71, 81, 110..113", "QV442A", "ACC008", 25, 2.0e10, true, false, -30.0, -20.0},
        {"low group, class S (64, 65)", "OEM", "ACC064", 26, 1.0e10, false, true, 0, 0},
    };
    return sensors;
}

std::vector<double> SurveyFrequencies(const SurveySensor& sensor) {
    return {5.0e7, 1.0e9, 6.0e9, sensor.topHz};
}

Band CrossoverBand(const SurveySensor& sensor, double hz) {
    if (!sensor.lowGroup) return {sensor.bandLower, sensor.bandUpper};
    if (hz <= 6.0e9) return {-30.0, -20.0};
    if (hz <= 8.0e9) return {-25.0, -18.0};
    if (hz <= 9.0e9) return {-20.0, -15.0};
    return {-15.0, -10.0};
}

Region RegionOf(const SurveySensor& sensor, double hz, double dbm) {
    const Band band = CrossoverBand(sensor, hz);
    if (dbm < band.lower) return Region::kHsOnly;
    if (dbm > band.upper) return Region::kLsOnly;
    return Region::kBand;
}

const char* RegionName(Region region) {
    switch (region) {
        case Region::kHsOnly: return "hs only";
        case Region::kBand: return "crossover band";
        default: return "ls only";
    }
}

bool IsCalibratedLevel(const SurveySensor& sensor, double hz, double dbm) {
    const long level = std::lround(dbm);
    if (static_cast<double>(level) != dbm || level % 2 != 0) return false;
    switch (RegionOf(sensor, hz, dbm)) {
        case Region::kHsOnly: return level >= -70 && level <= -20;
        case Region::kLsOnly: return level >= -30 && level <= 20;
        default: return false;
    }
}

bool SensorBench::Open(const std::vector<SurveySensor>& sensors, std::string* error) {
    sensors_ = sensors;
    ids_.clear();
    for (const SurveySensor& s : sensors_) {
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = s.serial;
        config.product = s.product;
        config.address = s.address;
        const int id = qvsim_sensor_add(&config);
        if (id < 0) {
            *error = std::string("qvsim_sensor_add ") + s.serial + ": " + qvsim_strerror(id);
            return false;
        }
        ids_.push_back(id);
        if (QV_InitializeSensor_SN(s.serial) < 1) {
            *error = std::string("QV_InitializeSensor_SN ") + s.serial + " refused";
            return false;
        }
    }
    return true;
}

int SensorBench::CalibrationTemperature(std::size_t i) const {
    qvsim_detector_info info {};
    qvsim_detector_info_get(ids_[i], &info);
    return info.cal_temperature;
}

int SensorBench::TemperatureRowsAway(std::size_t i, int rows) const {
    qvsim_detector_info info {};
    qvsim_detector_info_get(ids_[i], &info);
    return info.cal_temperature + rows * info.temp_step;
}

int SensorBench::CalibrationRowTemperature(std::size_t i) const {
    qvsim_detector_info info {};
    qvsim_detector_info_get(ids_[i], &info);
    return info.temp_table_start + (info.cal_temperature - info.temp_table_start) / info.temp_step * info.temp_step;
}

double SensorBench::GridFrequencyNear(std::size_t i, double hz) const {
    qvsim_detector_info info {};
    qvsim_detector_info_get(ids_[i], &info);
    return std::max(1.0, std::round(hz / info.step_hz)) * info.step_hz;
}

double SensorBench::CountsPerKelvin(std::size_t i) const {
    qvsim_detector_info info {};
    qvsim_detector_info_get(ids_[i], &info);
    return info.counts_per_kelvin;
}

std::vector<int> SensorBench::SurveyTemperatures(std::size_t i) const {
    return {CalibrationTemperature(i), TemperatureRowsAway(i, -kTemperatureRowsAway),
            TemperatureRowsAway(i, kTemperatureRowsAway)};
}

CwPoint SensorBench::MeasureCW(std::size_t i, double dbm, double hz, int temperature) {
    const SurveySensor& s = sensors_[i];
    CwPoint p {dbm, hz, temperature, ReadCW(i, dbm, hz, temperature) - dbm, RegionOf(s, hz, dbm),
               IsCalibratedLevel(s, hz, dbm), OnCalibrationGrid(i, hz), false};
    p.hsAtZero = p.region == Region::kBand && dbm >= HsClipDbm(i, hz, temperature);
    return p;
}

bool SensorBench::OnCalibrationGrid(std::size_t i, double hz) const {
    qvsim_detector_info info {};
    qvsim_detector_info_get(ids_[i], &info);
    return hz == info.start_hz || std::fmod(hz, info.step_hz) == 0.0;
}

double SensorBench::HsClipDbm(std::size_t i, double hz, int temperature) const {
    double dbm = kNaN;
    qvsim_detector_power(ids_[i], QVSIM_PATH_HS, 0.5, hz, temperature, &dbm);  // rounds to 0 beyond
    return dbm;
}

double SensorBench::CountsPerDb(std::size_t i, int path, double dbm, double hz, int temperature) const {
    double below = 0.0, above = 0.0;
    qvsim_detector_count(ids_[i], path, dbm - 0.05, hz, temperature, &below);
    qvsim_detector_count(ids_[i], path, dbm + 0.05, hz, temperature, &above);
    return (below - above) / 0.1;
}

double SensorBench::TemperatureRowDb(std::size_t i, int path, double dbm, double hz) const {
    const int t = CalibrationTemperature(i);
    double here = 0.0, rowAway = 0.0;
    qvsim_detector_count(ids_[i], path, dbm, hz, t, &here);
    qvsim_detector_count(ids_[i], path, dbm, hz, TemperatureRowsAway(i, 1), &rowAway);
    return std::fabs(here - rowAway) / CountsPerDb(i, path, dbm, hz, t);
}

bool SensorBench::Prepare(std::size_t i, double hz, int temperature, std::int32_t averages) {
    const std::int32_t address = sensors_[i].address;
    double setHz = 0.0;
    std::int32_t setAverages = 0;
    QV_GetFrequency(address, &setHz);
    QV_GetAverages(address, &setAverages);
    if (setHz != hz && QV_SetFrequency(address, hz) != 1) return false;
    if (setAverages != averages && QV_SetAverages(address, averages) != 1) return false;
    return qvsim_set_temperature(ids_[i], temperature) == QVSIM_OK;
}

double SensorBench::ReadCW(std::size_t i, double dbm, double hz, int temperature) {
    if (!Prepare(i, hz, temperature, 1)) return kNaN;
    qvsim_signal signal {};
    qvsim_signal_get(ids_[i], &signal);
    signal.kind = QVSIM_SIGNAL_CW;
    signal.cw_dbm = dbm;
    signal.noise_db = 0.0;
    signal.freq_hz = hz;
    if (qvsim_signal_set(ids_[i], &signal) != QVSIM_OK) return kNaN;
    double reading = kNaN;
    if (QV_MeasureCW(sensors_[i].address, &reading) != 1) return kNaN;
    return reading;
}

PulseReading SensorBench::ReadPulse(std::size_t i, const PulseSignal& pulse, double hz, int temperature,
                                    std::int32_t averages) {
    const PulseReading refused {kNaN, kNaN, kNaN, kNaN};
    if (!Prepare(i, hz, temperature, averages)) return refused;
    qvsim_signal signal {};
    qvsim_signal_get(ids_[i], &signal);
    signal.kind = QVSIM_SIGNAL_PULSE;
    signal.period_us = pulse.periodUs;
    signal.width_us = pulse.widthUs;
    signal.on_dbm = pulse.onDbm;
    signal.off_dbm = pulse.offDbm;
    signal.noise_db = 0.0;
    signal.freq_hz = hz;
    if (qvsim_signal_set(ids_[i], &signal) != QVSIM_OK) return refused;
    PulseReading r {};
    if (QV_MeasurePulse(sensors_[i].address, &r.pulse, &r.peak, &r.average, &r.dutyCycle) != 1)
        return refused;
    return r;
}

// A refused reading (NaN) becomes the worst for good.
void ErrorStats::Add(double error, double at) {
    ++count;
    sumSquares += error * error;
    if (!std::isnan(worst) && !(std::fabs(error) <= std::fabs(worst))) {
        worst = error;
        worstAt = at;
    }
}

void ErrorStats::Merge(const ErrorStats& other) {
    if (other.count == 0) return;
    if (!std::isnan(worst) && !(std::fabs(other.worst) <= std::fabs(worst))) {
        worst = other.worst;
        worstAt = other.worstAt;
    }
    count += other.count;
    sumSquares += other.sumSquares;
}

double ErrorStats::MaxAbs() const { return std::fabs(worst); }

double ErrorStats::Rms() const { return count > 0 ? std::sqrt(sumSquares / count) : 0.0; }

}  // namespace qv::accuracy
