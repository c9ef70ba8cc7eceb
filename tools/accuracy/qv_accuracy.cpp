// Writes docs/accuracy.md: CW and pulse readings of simulated sensors, taken
// through the library's exports, against the power on the simulated input.
//
// Run it in a namespace of its own (it makes a simulated bus there):
//   build/tests/qv_test_env build/tools/accuracy/qv_accuracy docs/accuracy.md
// or `cmake --build build --target accuracy-doc`. Without a file it writes to
// standard output. It exits 1 when a CW error the method should explain is
// beyond its target.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "accuracy_sweep.h"
#include "qv_api2.h"
#include "sim/qvsim.h"

using namespace qv::accuracy;

namespace {

std::string Fixed(double v, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}
std::string Mdb(double db) { return std::isnan(db) ? "refused" : Fixed(1000.0 * db, 1); }
std::string Ghz(double hz) {
    std::ostringstream s;
    s << hz / 1e9 << " GHz";
    return s.str();
}
double Dbm(double mw) { return 10.0 * std::log10(mw); }
double Mw(double dbm) { return std::pow(10.0, dbm / 10.0); }

// "max (at) | RMS" cells; "none" when nothing was counted.
std::string Cells(const ErrorStats& s) {
    if (s.count == 0) return " none | |";
    return " " + Mdb(s.worst) + " (" + Fixed(s.worstAt, 0) + ") | " + Mdb(s.Rms()) + " |";
}

// ---------------------------------------------------------------- CW survey

struct CwSurvey {
    std::vector<double> freqs;
    std::vector<int> temps;
    std::vector<CwPoint> points;  // by frequency, temperature, level

    ErrorStats Stats(const std::function<bool(const CwPoint&)>& which) const {
        ErrorStats s;
        for (const CwPoint& p : points)
            if (which(p)) s.Add(p.error, p.dbm);
        return s;
    }
};

CwSurvey SurveyCW(SensorBench& bench, std::size_t i) {
    CwSurvey s {SurveyFrequencies(bench.sensor(i)), bench.SurveyTemperatures(i), {}};
    for (double hz : s.freqs)
        for (int t : s.temps)
            for (double dbm = kLowestDbm; dbm <= kHighestDbm; dbm += 1.0) s.points.push_back(bench.MeasureCW(i, dbm, hz, t));
    return s;
}

bool Counted(const CwPoint& p) { return !p.hsAtZero; }

// ---------------------------------------------------------------- bands above -20 dBm

// Every band that reaches above the hs path's top calibrated level (-20 dBm):
// the low group above 6 GHz (all three such bands), the models with -15..-8 dBm.
std::vector<double> FrequenciesOfHighBands(const SurveySensor& s) {
    if (s.lowGroup) return {7.0e9, 8.5e9, 9.5e9, s.topHz};
    if (s.bandUpper > -20.0) return {5.0e7, 1.0e9, 6.0e9, 1.2e10, s.topHz};
    return {};
}

// ---------------------------------------------------------------- pulse survey

constexpr double kPulsePeriodUs = 200.0;     // 100 samples
constexpr std::int32_t kPulseAverages = 50;  // 6300 samples: 63 whole periods
constexpr double kDutyPercent[] = {1, 2, 5, 10, 20, 30, 50, 70, 90};
constexpr double kPulseOnDbm[] = {-40, -25, -12, 0, 10, 18};

PulseReading TruePulse(const PulseSignal& p) {
    const double duty = p.widthUs / p.periodUs;
    return {p.onDbm, p.onDbm, Dbm(duty * Mw(p.onDbm) + (1.0 - duty) * Mw(p.offDbm)), duty};
}

// ---------------------------------------------------------------- document

const char* kIntroduction = R"(# Accuracy of CW and pulse readings

Made by `tools/accuracy/qv_accuracy.cpp`; rerun it after any change to the conversion,
the merge or the simulated detector:

```
cmake --build build --target accuracy-doc
# or: build/tests/qv_test_env build/tools/accuracy/qv_accuracy docs/accuracy.md
```

Each reading goes the way an application's does: the simulated sensor's input carries a
signal (`qvsim_signal_set`, noise off, the carrier at the frequency the library is set
to), the sensor samples it through its detector into measurement blocks of 16-bit
counts, and `QV_MeasureCW` (`Averages` 1, streaming) or `QV_MeasurePulse` reads them.
The error is the reading less the power on the input. The detector is the one that
wrote the sensor's calibration image (`sim/detector_model.cpp`), so what is left is the
error of the method: 2 dB calibration levels, the frequency grid, 350 temperature rows,
the count-to-dBm segments, the merge of the two paths, the peak share, and the
quantisation of counts and calibration. The test `AccuracyCW.*` (tests/measure/test_accuracy.cpp)
fails when a representative part of the CW figures leaves its target.

## Sensors

One sensor of each calibration grid group, and the low group's class S as well. Class P
models keep the `hs` value above the band and add a share of the peak; class S models
blend 5 % `hs` with 95 % `ls` there.

| Grid group (model indexes) | Sensor | Merge class | Crossover band (dBm) | Calibration temperature | Other temperatures |
|---|---|---|---|---|---|
)";

void WriteSensors(std::ostream& doc, SensorBench& bench) {
    for (std::size_t i = 0; i < bench.size(); ++i) {
        const SurveySensor& s = bench.sensor(i);
        const std::vector<int> t = bench.SurveyTemperatures(i);
        const double kelvin = (t[2] - t[0]) / bench.CountsPerKelvin(i);
        doc << "| " << s.group << " | " << s.product << " (" << s.serial << ") | "
            << (s.classP ? "P" : "S") << " | "
            << (s.lowGroup ? "-30..-20 to 6 GHz, -25..-18 to 8 GHz, -20..-15 to 9 GHz, -15..-10 above"
                           : Fixed(s.bandLower, 0) + ".." + Fixed(s.bandUpper, 0))
            << " | count " << t[0] << " | -" << Fixed(kelvin, 1) << " K, +" << Fixed(kelvin, 1)
            << " K (counts " << t[1] << ", " << t[2] << ") |\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (qvsim_bus_create(nullptr) != QVSIM_OK) {
        std::fprintf(stderr, "qv_accuracy: no simulated bus (run it through qv_test_env, or set QV_SIM_BUS)\n");
        return 2;
    }
    SensorBench bench;
    std::string error;
    if (!bench.Open(SurveySensors(), &error)) {
        std::fprintf(stderr, "qv_accuracy: %s\n", error.c_str());
        return 2;
    }
    std::vector<CwSurvey> cw;
    for (std::size_t i = 0; i < bench.size(); ++i) cw.push_back(SurveyCW(bench, i));

    std::ostringstream doc;
    doc << kIntroduction;
    WriteSensors(doc, bench);

    // ------------------------------------------------------------ CW summary
    bool withinTarget = true;
    ErrorStats allCounted, hsAtZero;
    doc << R"(
## CW readings

-65 to +20 dBm in 1 dB steps at 50 MHz, 1 GHz, 6 GHz and the model's top frequency, each
at the calibration temperature and about 14 K below and above it: 1,032 readings per
sensor. Errors in mdB: the largest magnitude with its sign and the input (dBm) where it
occurred, then the RMS. The target is )"
        << Mdb(kCwTargetDb) << R"( mdB.

Readings in the crossover band from the power at which the simulated `hs` count reaches
the ADC's 0 would be counted apart (see "The `hs` path at the ADC's limit" below): there
the error would be the simulator's, not the method's.

| Sensor | Readings | Max (at) | RMS | Within target | In band with `hs` at 0: readings | Max (at) |
|---|---|---|---|---|---|---|
)";
    for (std::size_t i = 0; i < bench.size(); ++i) {
        const ErrorStats counted = cw[i].Stats(Counted);
        const ErrorStats clipped = cw[i].Stats([](const CwPoint& p) { return p.hsAtZero; });
        allCounted.Merge(counted);
        hsAtZero.Merge(clipped);
        const bool ok = counted.MaxAbs() <= kCwTargetDb;
        withinTarget = withinTarget && ok;
        doc << "| " << bench.sensor(i).product << " | " << counted.count << " |" << Cells(counted)
            << (ok ? " yes" : " **no**") << " | " << clipped.count << " |"
            << (clipped.count ? " " + Mdb(clipped.worst) + " (" + Fixed(clipped.worstAt, 0) + ")" : std::string(" -"))
            << " |\n";
    }
    doc << "| all | " << allCounted.count << " |" << Cells(allCounted) << (withinTarget ? " yes" : " **no**")
        << " | " << hsAtZero.count << " | " << (hsAtZero.count ? Mdb(hsAtZero.worst) : std::string("-")) << " |\n";

    // ------------------------------------------------------------ by source
    doc << R"(
By where the input lies (readings with `hs` at 0 left out). Calibrated level: on the
2 dB grid of the path that reads it, outside the band, at the calibration temperature;
grid frequency: a calibration frequency (low group every 25 MHz, so all four; other groups
every 66.25 MHz, so only 26.5 GHz). "Between levels" are the odd levels outside the band
at the calibration temperature.

| Sensor | Calibrated level, grid frequency: max (at) | RMS | Calibrated level, between grid frequencies: max (at) | RMS | Between levels: max (at) | RMS | Crossover band: max (at) | RMS | All at -14 K: max (at) | RMS | All at +14 K: max (at) | RMS |
|---|---|---|---|---|---|---|---|---|---|---|---|---|
)";
    ErrorStats onGrid, offGrid, between, band, cold, warm;
    for (std::size_t i = 0; i < bench.size(); ++i) {
        const std::vector<int> t = bench.SurveyTemperatures(i);
        auto atCal = [&](const CwPoint& p) { return p.temperature == t[0] && p.region != Region::kBand; };
        const ErrorStats a = cw[i].Stats([&](const CwPoint& p) { return atCal(p) && p.calibratedLevel && p.gridFrequency; });
        const ErrorStats b = cw[i].Stats([&](const CwPoint& p) { return atCal(p) && p.calibratedLevel && !p.gridFrequency; });
        const ErrorStats c = cw[i].Stats([&](const CwPoint& p) { return atCal(p) && !p.calibratedLevel && std::fmod(p.dbm, 2.0) != 0.0; });
        const ErrorStats d = cw[i].Stats([](const CwPoint& p) { return p.region == Region::kBand && !p.hsAtZero; });
        const ErrorStats e = cw[i].Stats([&](const CwPoint& p) { return p.temperature == t[1] && !p.hsAtZero; });
        const ErrorStats f = cw[i].Stats([&](const CwPoint& p) { return p.temperature == t[2] && !p.hsAtZero; });
        onGrid.Merge(a), offGrid.Merge(b), between.Merge(c), band.Merge(d), cold.Merge(e), warm.Merge(f);
        doc << "| " << bench.sensor(i).product << " |" << Cells(a) << Cells(b) << Cells(c) << Cells(d) << Cells(e)
            << Cells(f) << "\n";
    }
    // Calibrated levels on a grid frequency at a row's own temperature: nothing
    // but quantisation is left there.
    ErrorStats quantisation;
    for (std::size_t i = 0; i < bench.size(); ++i) {
        const double f = bench.GridFrequencyNear(i, 1.0e9);
        for (double dbm = -70.0; dbm <= 20.0; dbm += 2.0)
            if (IsCalibratedLevel(bench.sensor(i), f, dbm))
                quantisation.Add(bench.MeasureCW(i, dbm, f, bench.CalibrationRowTemperature(i)).error, dbm);
    }
    withinTarget = withinTarget && quantisation.MaxAbs() <= kCalibratedTargetDb;

    // Quantisation: half a count in dB where each path is least sensitive.
    const double hz = 1.0e9;
    const int t0 = bench.CalibrationTemperature(0);
    const double hsTop = bench.CountsPerDb(0, QVSIM_PATH_HS, -20.0, hz, t0);
    const double hsBottom = bench.CountsPerDb(0, QVSIM_PATH_HS, -70.0, hz, t0);
    const double lsTop = bench.CountsPerDb(0, QVSIM_PATH_LS, 20.0, hz, t0);
    double rowDb = 0.0;
    for (std::size_t i = 0; i < bench.size(); ++i)
        rowDb = std::max({rowDb, bench.TemperatureRowDb(i, QVSIM_PATH_HS, -20.0, hz),
                          bench.TemperatureRowDb(i, QVSIM_PATH_LS, 20.0, hz)});
    doc << R"(
### Where the errors come from

- **Segment blend** (the largest part): the detector's count is a curved (exponential)
  function of the power in dB, and the conversion replaces it between two calibration
  levels 2 dB apart by the blend of two straight segment lines. The blend is exact at the
  levels and misses the curve most half-way between them: up to )"
        << Mdb(between.MaxAbs()) << R"( mdB (RMS )" << Mdb(between.Rms()) << R"( mdB over the odd
  levels), always reading low; the per-level tables below show the pattern: each odd
  level reads low by about the same amount at every frequency and temperature, the even
  ones within a few mdB. It follows the curvature of the detector law, not the frequency
  or the temperature.
- **Frequency grid**: between calibration frequencies the counts are interpolated in a
  straight line, while the simulated sensitivity ripples (0.1 to 0.4 dB, periods of 1.6
  to 4 GHz): at calibrated levels between grid frequencies up to )"
        << Mdb(offGrid.MaxAbs()) << R"( mdB, against
  )" << Mdb(onGrid.MaxAbs()) << R"( mdB on grid frequencies (both at the calibration temperature, see the rows below).
- **Quantisation**: counts are 16-bit integers, the image rounds the count at calibration
  to an integer and the temperature coefficients to 14 and 10 bits. Half a count is
  worth most where a path is least sensitive: on QV222A at 1 GHz the `hs` path has )"
        << Fixed(hsTop, 0) << R"( counts per dB
  at -20 dBm ()" << Mdb(0.5 / hsTop) << R"( mdB per half count) and )" << Fixed(hsBottom, 0)
        << R"( at -70 dBm; the `ls` path )" << Fixed(lsTop, 0) << R"( at +20 dBm
  ()" << Mdb(0.5 / lsTop) << R"( mdB). At every calibrated level outside the band, on the grid frequency
  nearest 1 GHz and at the temperature of the calibration's own row, where nothing else
  is left, the error is at most )"
        << Mdb(quantisation.MaxAbs()) << R"( mdB (RMS )" << Mdb(quantisation.Rms()) << R"(; target )"
        << Mdb(kCalibratedTargetDb) << R"( mdB).
- **Temperature rows**: a reading uses the row at or below the sensor's temperature count,
  without interpolating between rows 0.18 K apart; at the top calibrated levels, where
  the counts per dB are fewest, one row is worth up to )"
        << Mdb(rowDb) << R"( mdB on these sensors. The calibration
  temperature itself lies inside its row, which is what the calibrated levels above show
  beyond quantisation. The drift itself is captured by the calibration's coefficients:
  14 K away from calibration the worst error is )"
        << Mdb(cold.MaxAbs()) << " and " << Mdb(warm.MaxAbs()) << R"( mdB, as at the calibration temperature.
- **Crossover merge**: in the band the two paths' readings are blended in watts, so the
  merge adds nothing of its own; the band's error is that of the two paths' segments:
  up to )" << Mdb(band.MaxAbs()) << R"( mdB. Class S models take 5 % of `hs` above the band while `ls` is
  still in it, which with both paths right happens only within their errors of the band's
  top.
- **Peak share**: a CW signal gives one run of samples above the pulse criteria, so the
  class P peak share k is 0 and CW readings carry none of it. It shows in pulse averages
  (below).
- **The `hs` path at the ADC's limit**: see the section after next.
)";

    doc << R"(
## CW readings by sensor and frequency

Max (at) and RMS in mdB over the 86 levels; readings with `hs` at 0 left out.

| Sensor | Frequency | Calibration temperature: max (at) | RMS | -14 K: max (at) | RMS | +14 K: max (at) | RMS |
|---|---|---|---|---|---|---|---|
)";
    for (std::size_t i = 0; i < bench.size(); ++i) {
        for (double f : cw[i].freqs) {
            doc << "| " << bench.sensor(i).product << " | " << Ghz(f) << " |";
            for (int t : cw[i].temps)
                doc << Cells(cw[i].Stats([&](const CwPoint& p) { return p.hz == f && p.temperature == t && Counted(p); }));
            doc << "\n";
        }
    }

    // ------------------------------------------------------------ bands above -20 dBm
    doc << R"(
## Crossover bands above the `hs` path's calibration

Where the crossover band reaches above -20 dBm, the top calibrated `hs` level, the library
reads `hs` counts beyond it with the top segment's line (slope(25) = slope(24)² /
slope(23)); the simulated detector goes on along the same line in counts per dB
(docs/sim.md) until its count reaches the ADC's 0. Each band is swept from 3 dB below to
3 dB above in 0.25 dB steps, at the calibration temperature. "hs at 0 from" is the input
power from which the simulated `hs` count is 0 (the detector's own figure).

| Sensor | Frequency | Band (dBm) | `hs` at 0 from (dBm) | Max error while `hs` counts (at) | Max error, whole sweep (at) |
|---|---|---|---|---|---|
)";
    ErrorStats highBands;
    double clipLowest = 1000.0, clipHighest = -1000.0;
    for (std::size_t i = 0; i < bench.size(); ++i) {
        const SurveySensor& sensor = bench.sensor(i);
        for (double f : FrequenciesOfHighBands(sensor)) {
            const Band b = CrossoverBand(sensor, f);
            const int t = bench.CalibrationTemperature(i);
            ErrorStats counted, whole;
            for (double dbm = b.lower - 3.0; dbm <= b.upper + 3.0; dbm += 0.25) {
                const CwPoint p = bench.MeasureCW(i, dbm, f, t);
                whole.Add(p.error, dbm);
                if (Counted(p)) counted.Add(p.error, dbm);
            }
            highBands.Merge(counted);
            clipLowest = std::min(clipLowest, bench.HsClipDbm(i, f, t));
            clipHighest = std::max(clipHighest, bench.HsClipDbm(i, f, t));
            doc << "| " << sensor.product << " | " << Ghz(f) << " | " << Fixed(b.lower, 0) << ".." << Fixed(b.upper, 0)
                << " | " << Fixed(bench.HsClipDbm(i, f, t), 2) << " | " << Mdb(counted.worst) << " ("
                << Fixed(counted.worstAt, 2) << ") | " << Mdb(whole.worst) << " (" << Fixed(whole.worstAt, 2) << ") |\n";
        }
    }
    withinTarget = withinTarget && highBands.MaxAbs() <= kCwTargetDb;
    doc << R"(
While the `hs` path counts, the method's own error in these bands stays within )"
        << Mdb(highBands.MaxAbs()) << R"( mdB on every
model group, frequency band and crossover band: the detector continued beyond its
calibrated levels is read right by the top segment's line.

### The `hs` path at the ADC's limit

The `hs` line reaches the ADC's 0 in these cases from )" << Fixed(clipLowest, 1) << " to " << Fixed(clipHighest, 1)
        << " dBm. ";
    if (hsAtZero.count == 0) {
        doc << R"(That lies above the top of every crossover band (-10 dBm for the low group above
9 GHz, -8 dBm for models 4, 5, 6, 69, 70, 79, 80 and 105 to 109), so the `hs` path
counts wherever the merge uses it and no reading of the survey is set apart.
)";
    } else {
        doc << R"(Every input above that gives the same count 0, which the top
segment's line reads as that power, while the band goes on to -10 dBm (low group above
9 GHz) or -8 dBm (models 4, 5, 6, 69, 70, 79, 80 and 105 to 109). There the merge blends a
`hs` value stuck at the clip point into the reading: )"
            << hsAtZero.count << " readings, up to " << Mdb(hsAtZero.MaxAbs())
            << R"( mdB low. This is the simulator's: a real head's `hs` path
still counts at the top of its crossover band, so the simulated one must too (its count
at -20 dBm at least about 12 dB times its counts per dB).
)";
    }

    // ------------------------------------------------------------ pulse
    doc << R"(
## Pulse readings

Pulse trains of period 200 us (100 samples of 2 us), on for 1 % to 90 % of it and off at
-150 dBm (no power), read with `QV_MeasurePulse`, `Averages` 50 (63 whole periods) and
pulse criteria 3 dB, at 1 GHz and the calibration temperature, on the two merge classes.
True values: pulse and peak = the on power, average = duty cycle x on power (in watts),
duty cycle = width / period. Errors: powers in mdB, duty cycle in percentage points.

)";
    ErrorStats pulseAll, peakAll, averageAll, averageFrom10, dutyAll;
    std::ostringstream pulseTables;
    for (std::size_t i : {std::size_t {0}, std::size_t {2}}) {
        const SurveySensor& sensor = bench.sensor(i);
        pulseTables << "### " << sensor.product << "\n\n| On (dBm) | Duty (%) | Pulse | Peak | Average | Duty cycle |\n"
                    << "|---|---|---|---|---|---|\n";
        for (double on : kPulseOnDbm) {
            for (double duty : kDutyPercent) {
                const PulseSignal signal {kPulsePeriodUs, kPulsePeriodUs * duty / 100.0, on, -150.0};
                const PulseReading truth = TruePulse(signal);
                const PulseReading r = bench.ReadPulse(i, signal, 1.0e9, bench.CalibrationTemperature(i), kPulseAverages);
                const double ePulse = r.pulse - truth.pulse, ePeak = r.peak - truth.peak;
                const double eAverage = r.average - truth.average, eDuty = 100.0 * (r.dutyCycle - truth.dutyCycle);
                pulseAll.Add(ePulse, on);
                peakAll.Add(ePeak, on);
                averageAll.Add(eAverage, on);
                if (duty >= 10) averageFrom10.Add(eAverage, on);
                dutyAll.Add(eDuty, on);
                pulseTables << "| " << on << " | " << duty << " | " << Mdb(ePulse) << " | " << Mdb(ePeak) << " | "
                            << Mdb(eAverage) << " | " << Fixed(eDuty, 2) << " |\n";
            }
        }
        pulseTables << "\n";
    }
    doc << "| | Pulse | Peak | Average | Average, duty 10 % and up | Duty cycle (points) |\n|---|---|---|---|---|---|\n"
        << "| Max (mdB) | " << Mdb(pulseAll.worst) << " | " << Mdb(peakAll.worst) << " | " << Mdb(averageAll.worst) << " | "
        << Mdb(averageFrom10.worst) << " | " << Fixed(dutyAll.worst, 2) << " |\n"
        << "| RMS (mdB) | " << Mdb(pulseAll.Rms()) << " | " << Mdb(peakAll.Rms()) << " | " << Mdb(averageAll.Rms())
        << " | " << Mdb(averageFrom10.Rms()) << " | " << Fixed(dutyAll.Rms(), 2) << " |\n";
    doc << R"(
- Pulse power and peak carry the CW conversion's error at the on power (segment blend,
  merge); the duty cycle is a count of samples and exact on the 2 us clock.
- The average carries the **peak share**: when there are fewer runs than samples above
  the criteria, k = trunc(runs x (runs / 2) / above) peak-sized samples of weight 0.08 are
  added, and k = runs when every pulse is a single sample. At 1 % duty (one sample per
  pulse, 63 runs in 6,300 samples) that is 63 x 0.08 / 6,300 of the peak against 1 % of
  it: +0.33 dB; at 2 % k = 15, +0.04 dB; from 10 % a few mdB.
- An `ls` path that sees the same count in and out of the pulse (its count saturated at
  65,535 by a pulse below its range, -40 dBm) finds all samples above its criteria: one
  run, k = 0, no share. The -40 dBm averages show instead the floor of the off samples:
  the `hs` count of no power (65,535) reads about -74 to -76 dBm through the first
  segment's line, and at 1 % duty the true average is -60 dBm.
- When both paths' averages lie below the band but the merged peak lies above the `ls`
  band edge, the average is the peak times the duty cycle (peak + 10 log10(duty)) and
  carries the peak's error only.

)" << pulseTables.str();

    // ------------------------------------------------------------ per level
    doc << "## CW errors by level\n\nmdB; for each frequency the calibration temperature, -14 K and +14 K. "
           "Readings with `hs` at 0 are in italics.\n\n";
    const int levels = static_cast<int>(kHighestDbm - kLowestDbm) + 1;
    for (std::size_t i = 0; i < bench.size(); ++i) {
        const CwSurvey& s = cw[i];
        doc << "<details><summary>" << bench.sensor(i).product << "</summary>\n\n| dBm |";
        for (double f : s.freqs) doc << " " << Ghz(f) << " | | |";
        doc << "\n|---|";
        for (std::size_t c = 0; c < 3 * s.freqs.size(); ++c) doc << "---|";
        doc << "\n";
        for (int row = 0; row < levels; ++row) {
            doc << "| " << kLowestDbm + row << " |";
            for (std::size_t c = 0; c < 3 * s.freqs.size(); ++c) {
                const CwPoint& p = s.points[c * levels + row];
                doc << " " << (p.hsAtZero ? "*" + Mdb(p.error) + "*" : Mdb(p.error)) << " |";
            }
            doc << "\n";
        }
        doc << "\n</details>\n\n";
    }

    std::fprintf(stderr, "CW max %.1f mdB (rms %.1f) over %d readings; calibrated, quantisation only %.1f; bands above -20 %.1f; "
                 "hs at 0: %d readings, max %.1f; pulse %.1f peak %.1f average %.1f duty %.2f points: %s\n",
                 1000 * allCounted.MaxAbs(), 1000 * allCounted.Rms(), allCounted.count, 1000 * quantisation.MaxAbs(),
                 1000 * highBands.MaxAbs(), hsAtZero.count, 1000 * hsAtZero.MaxAbs(), 1000 * pulseAll.MaxAbs(),
                 1000 * peakAll.MaxAbs(), 1000 * averageAll.MaxAbs(), dutyAll.MaxAbs(),
                 withinTarget ? "within target" : "BEYOND TARGET");
    if (argc > 1) {
        std::ofstream file(argv[1]);
        file << doc.str();
        if (!file) {
            std::fprintf(stderr, "qv_accuracy: cannot write %s\n", argv[1]);
            return 2;
        }
    } else {
        std::cout << doc.str();
    }
    return withinTarget ? 0 : 1;
}
