#include "profiling/trace_conversion.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "calibration/cal_tables.h"
#include "frame/lookups.h"
#include "profiling/sweep_config.h"
#include "settings/limits.h"

namespace qv {

namespace {

// The segment search of one path's 26 entries: the first entry from 25 down
// whose count is above x (entry 0 when none). Counts fall as the level rises,
// so in a sound calibration the entries above x form a prefix 0..J and a
// binary search finds J; a row whose counts do not fall everywhere (a damaged
// calibration) is searched entry by entry, as written.
class SegmentSearch {
public:
    explicit SegmentSearch(const CalSegment (&entries)[kCalLevels]) : e_(entries) {
        falling_ = true;
        for (int j = 0; j + 1 < kCalLevels; ++j)
            if (!(e_[j].count >= e_[j + 1].count)) falling_ = false;
    }
    int Entry(double x) const {
        if (!falling_) {
            int j = kCalLevels - 1;
            while (j > 0 && !(e_[j].count > x)) --j;
            return j;
        }
        int lo = 0, hi = kCalLevels;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            if (e_[mid].count > x) lo = mid + 1;
            else hi = mid;
        }
        return lo > 0 ? lo - 1 : 0;
    }
    double Dbm(double x) const { return Dbm(Entry(x), x); }
    double Dbm(int j, double x) const { return e_[j].slope * x + e_[j].intercept; }

private:
    const CalSegment (&e_)[kCalLevels];
    bool falling_;
};

double Watts(double dbm) { return DbmToWatts(dbm); }
double Dbm(double watts) { return WattsToDbm(watts); }

// Falling (0), flat (1) or rising (2); only an exact repeat is flat (the same
// count gives the same value).
int StepClass(double d) { return d < 0.0 ? 0 : d > 0.0 ? 2 : 1; }

// The shift of offset and response correction, in dB.
double CorrectionDb(int slot) {
    const InstrumentState& s = Slot(slot).current;
    double shift = 0.0;
    if (s.OffsetEnabled == 1) shift += s.Offset_DB;
    if (s.ResponseEnabled == 1) shift += ResponseCorrection(slot, s.Freq);
    return shift;
}

constexpr double kWattFloor = 1e-11;
double Floor(double w) { return w < kWattFloor ? kWattFloor : w; }

}  // namespace

void Linearise(int slot, double* hi, double* lo, std::int64_t n, std::int32_t tmpHi,
               std::int32_t tmpLo) {
    DeviceRecord& r = Slot(slot);
    const std::int32_t rowHi = TempRowIndex(slot, tmpHi);
    const std::int32_t rowLo = TempRowIndex(slot, tmpLo);
    r.trace.lastTmpRowHi = rowHi;
    r.trace.lastTmpRowLo = rowLo;
    // A temperature beyond the table is converted with the row at that end.
    const SegmentSearch hs(r.tempRows[ClampTempRow(rowHi)].hs);
    const SegmentSearch ls(r.tempRows[ClampTempRow(rowLo)].ls);
    for (std::int64_t i = 0; i < n; ++i) {
        const double v = hs.Dbm(hi[i]);
        hi[i] = v < -120.0 ? -120.0 : v > 30.0 ? 30.0 : v;
        lo[i] = ls.Dbm(lo[i]);
    }
}

void MergePaths(int slot, double* hi, const double* lo, std::int64_t n) {
    double x = 0, y = 0, lsLower = 0, lsUpper = 0;
    CrossoverBounds(slot, Slot(slot).tempRows[0].freq, &x, &y, &lsLower, &lsUpper);
    const double xw = Watts(x), yw = Watts(y);
    for (std::int64_t i = 0; i < n; ++i) {
        const double h = hi[i], l = lo[i];
        if (h <= x) continue;
        if (l >= y) {
            hi[i] = l;
            continue;
        }
        if (h >= y || l < x) continue;
        const double hw = Watts(h), lw = Watts(l);
        hi[i] = Dbm(((yw - hw) / (yw - xw)) * hw + ((lw - xw) / (yw - xw)) * lw);
    }
}

double EdgeCorrectionLevel(int slot) {
    const DeviceRecord& r = Slot(slot);
    const std::int32_t model = r.identity.ModelIndex;
    if (model == 7 || model == 8 || model == 71) return -35.0;
    const double f = r.current.Freq;
    if (f < 200e6) return -49.0;
    if (f < 5e9) return -52.0;
    if (f < 6e9) return -50.0;
    if (f < 7e9) return -48.0;
    if (f < 7.5e9) return -46.0;
    if (f < 8e9) return -44.0;
    if (f < 8.5e9) return -42.0;
    if (f < 9e9) return -37.0;
    return -27.0;
}

void EdgeCorrection(double level, double* x, std::int64_t n) {
    if (n < 1) return;
    double w0 = x[0], w1 = x[0], w2 = x[0];  // the last three values before any correction
    for (std::int64_t i = 1; i < n; ++i) {
        w0 = w1;
        w1 = w2;
        w2 = x[i];
        if (x[i] < level) continue;
        const int kind = StepClass(w1 - w0) + 10 * StepClass(w2 - w1);
        // A single point above the level is left as it is.
        if (i > 1 && i < n - 1 && w1 < level && x[i] > level && x[i + 1] < level) continue;
        switch (kind) {
            case 0:
            case 1:
            case 10:
            case 20: {
                if (x[i] > level && x[i - 1] > level && kind != 20 && x[i] > x[i - 1])
                    x[i] = x[i - 1];
                const double d = Watts(w1) - Watts(w2);
                if (i <= 3) {
                    x[i] = Dbm(Watts(x[i]) + 0.2 * d);
                } else if (x[i - 3] > x[i - 2] && x[i - 2] > x[i - 1]) {
                    // already falling steadily: leave it
                } else if (x[i - 2] > x[i - 1]) {
                    x[i] = Dbm(Watts(x[i]) + 0.2 * d / 2.0);
                } else {
                    x[i] = Dbm(Watts(x[i]) + 0.2 * d);
                }
                break;
            }
            case 2:
            case 12:
            case 21:
            case 22: {
                if (x[i - 1] > x[i] && kind != 2) x[i] = x[i - 1];
                if (i < n - 1) {
                    if (x[i] > x[i + 1]) {
                        x[i] = x[i] + 0.345 * (x[i] - w1);
                    } else {
                        x[i] = x[i] + 0.345 * (kind == 22 ? w2 - w0 : w2 - w1);
                        if (x[i] > x[i + 1] && x[i + 1] >= w2) x[i] = x[i + 1];
                    }
                }
                break;
            }
            default:
                break;
        }
    }
}

void OffsetAndResponse(int slot, double* x, std::int64_t n) {
    const double shift = CorrectionDb(slot);
    if (shift == 0.0) return;
    for (std::int64_t i = 0; i < n; ++i) x[i] += shift;
}

namespace {

// The level of every count a path delivers, in dBm and in watts, worked out
// the first time the count turns up in a trace. The storage (1.3 MB a path)
// is kept by the process and reused: conversions run one at a time under the
// machine-wide lock, and a fresh allocation per trace cost more than a short
// sweep's whole conversion. A trace stamps the counts it has converted, so
// nothing needs clearing between traces.
class CountLevels {
public:
    CountLevels(int path, const SegmentSearch& search, bool clampHs)
        : store_(Stores()[path]), search_(search), clampHs_(clampHs) {
        if (++store_.stamp == 0) {  // after 2^32 traces: start the stamps afresh
            std::fill(store_.seen.begin(), store_.seen.end(), 0u);
            store_.stamp = 1;
        }
    }
    // dBm and watts of a count as the split gives it.
    void Get(std::uint16_t c, double* dbm, double* watts) {
        double* at = store_.levels.data() + 2 * c;
        if (store_.seen[c] != store_.stamp) {
            at[0] = Level(c);
            at[1] = Watts(at[0]);
            store_.seen[c] = store_.stamp;
        }
        *dbm = at[0];
        *watts = at[1];
    }
    // dBm and watts of any value.
    void Get(double count, double* dbm, double* watts) {
        if (!(count >= 0.0 && count < kCounts) || static_cast<int>(count) != count) {
            *dbm = Level(count);  // not a count the split gives: worked out each time
            *watts = Watts(*dbm);
            return;
        }
        const int c = static_cast<int>(count);
        double* at = store_.levels.data() + 2 * c;
        if (store_.seen[c] != store_.stamp) {
            at[0] = Level(count);
            at[1] = Watts(at[0]);
            store_.seen[c] = store_.stamp;
        }
        *dbm = at[0];
        *watts = at[1];
    }

private:
    static constexpr int kCounts = 65536;
    struct Store {
        std::vector<std::uint32_t> seen = std::vector<std::uint32_t>(kCounts, 0u);
        std::vector<double> levels = std::vector<double>(2 * kCounts);
        std::uint32_t stamp = 0;
    };
    static Store* Stores() {
        static Store stores[2];
        return stores;
    }
    double Level(double count) const {
        const double v = search_.Dbm(count);
        return clampHs_ ? (v < -120.0 ? -120.0 : v > 30.0 ? 30.0 : v) : v;
    }
    Store& store_;
    const SegmentSearch& search_;
    bool clampHs_;
};

// Linearise and merge at once: each count is converted once per trace, so a
// point costs two look-ups instead of a segment search per path and, in the
// crossover band, two conversions to watts. The same arithmetic as the steps
// one by one (Linearise, MergePaths), in another order. kToWatts: the merged
// power goes on in watts, with the offset and response factor applied (the
// resampling would otherwise convert every point to watts, and the blends to
// dBm first); else the merged trace is left in dBm for the edge correction.
template <bool kToWatts, class Count>
void ConvertCounts(int slot, const Count* hiCounts, const Count* lo, double* hi, std::int64_t n,
                   std::int32_t tmpHi, std::int32_t tmpLo) {
    DeviceRecord& r = Slot(slot);
    const std::int32_t rowHi = TempRowIndex(slot, tmpHi);
    const std::int32_t rowLo = TempRowIndex(slot, tmpLo);
    r.trace.lastTmpRowHi = rowHi;
    r.trace.lastTmpRowLo = rowLo;
    const SegmentSearch hs(r.tempRows[ClampTempRow(rowHi)].hs);
    const SegmentSearch ls(r.tempRows[ClampTempRow(rowLo)].ls);
    CountLevels hsLevels(0, hs, true), lsLevels(1, ls, false);
    double x = 0, y = 0, lsLower = 0, lsUpper = 0;
    CrossoverBounds(slot, r.tempRows[0].freq, &x, &y, &lsLower, &lsUpper);
    const double xw = Watts(x), yw = Watts(y);
    const double factor = kToWatts ? Watts(CorrectionDb(slot)) / 0.001 : 1.0;
    for (std::int64_t i = 0; i < n; ++i) {
        double h, l, hw, lw;
        hsLevels.Get(hiCounts[i], &h, &hw);
        lsLevels.Get(lo[i], &l, &lw);
        if (h <= x || (l < y && (h >= y || l < x))) {
            hi[i] = kToWatts ? hw * factor : h;
        } else if (l >= y) {
            hi[i] = kToWatts ? lw * factor : l;
        } else {
            const double p = ((yw - hw) / (yw - xw)) * hw + ((lw - xw) / (yw - xw)) * lw;
            hi[i] = kToWatts ? p * factor : Dbm(p);
        }
    }
}

}  // namespace

namespace {

bool EdgeCorrected(int slot) {
    const std::int32_t row = Slot(slot).trace.sweepTimeIdx;
    return (row >= 0 && row <= 4) || (row >= 16 && row <= 18);
}

template <class Count>
bool ConvertRecord(int slot, const Count* hiCounts, const Count* loCounts, double* out,
                   std::int64_t n, std::int32_t tmpHi, std::int32_t tmpLo) {
    if (!EdgeCorrected(slot)) {
        ConvertCounts<true>(slot, hiCounts, loCounts, out, n, tmpHi, tmpLo);
        return true;
    }
    ConvertCounts<false>(slot, hiCounts, loCounts, out, n, tmpHi, tmpLo);
    EdgeCorrection(EdgeCorrectionLevel(slot), out, n);
    OffsetAndResponse(slot, out, n);
    return false;
}

}  // namespace

bool LineariseMergeCorrect(int slot, double* hi, double* lo, std::int64_t n, std::int32_t tmpHi,
                           std::int32_t tmpLo) {
    return ConvertRecord(slot, hi, lo, hi, n, tmpHi, tmpLo);
}

bool LineariseMergeCorrect(int slot, const std::uint16_t* hiCounts, const std::uint16_t* loCounts,
                           double* out, std::int64_t n, std::int32_t tmpHi, std::int32_t tmpLo) {
    return ConvertRecord(slot, hiCounts, loCounts, out, n, tmpHi, tmpLo);
}

std::int64_t SweepSpanPoints(int row) {
    const SweepConfig& c = SweepConfigRow(row);
    const double interval = (1.0 / (c.packets * 500000.0)) * 1000000.0;
    return static_cast<std::int64_t>(c.sweepTimeUsec / interval + 1.0);
}

bool IntervalResample(const double* x, std::int64_t recordLength, std::int64_t span, double* out,
                      std::int32_t L, bool inWatts) {
    if (L < 1 || L >= recordLength || span < 1 || span > recordLength) return false;
    const double width = static_cast<double>(L) / static_cast<double>(span);
    for (std::int32_t i = 0; i < L; ++i) out[i] = 0.0;
    for (std::int64_t j = 0; j < span; ++j) {
        const double a = j * width, b = a + width;
        const double w = inWatts ? x[j] : Watts(x[j]);
        // Each record point is laid over the output points it overlaps.
        const std::int64_t first = static_cast<std::int64_t>(a);
        if (first >= L) break;
        if (b <= first + 1) {
            out[first] += w * (b - a);
            continue;
        }
        for (std::int64_t i = first; i < L && i < b; ++i) {
            const double from = a > i ? a : static_cast<double>(i);
            const double to = b < i + 1 ? b : static_cast<double>(i + 1);
            if (to > from) out[i] += w * (to - from);
        }
    }
    return true;
}

bool SlowDecimate(int userRow, const double* x, std::int64_t recordLength, double* out,
                  std::int32_t L, bool inWatts) {
    auto Watts = [inWatts](double v) { return inWatts ? v : DbmToWatts(v); };
    static constexpr double kFactors[6] = {1, 2.5, 5, 10, 25, 50};
    if (userRow < 10 || userRow > 15) return false;
    const double k = kFactors[userRow - 10];
    if (L < 10000 || static_cast<double>(recordLength) < L * k) return false;
    if (userRow == 11) {
        // Every five record points give two output points, the middle one shared.
        for (std::int32_t i = 0; i < L; ++i) {
            const double* g = x + 5 * static_cast<std::int64_t>(i / 2);
            out[i] = i % 2 == 0 ? (Watts(g[0]) + Watts(g[1]) + 0.5 * Watts(g[2])) / 2.5
                                : (0.5 * Watts(g[2]) + Watts(g[3]) + Watts(g[4])) / 2.5;
        }
        return true;
    }
    const int step = static_cast<int>(k);
    for (std::int32_t i = 0; i < L; ++i) {
        const double* g = x + static_cast<std::int64_t>(i) * step;
        double sum = 0.0;
        for (int m = 0; m < step; ++m) sum += Watts(g[m]);
        out[i] = sum / step;
    }
    return true;
}

void CopyToWatts(const double* x, double* out, std::int32_t L, bool inWatts) {
    for (std::int32_t i = 0; i < L; ++i) out[i] = inWatts ? x[i] : Watts(x[i]);
}

std::int32_t FilterTrace(int row, std::int32_t filter, std::int32_t poles, double* w,
                         std::int32_t L) {
    // 9 is "no filter"; no other code outside the sets reaches here through the setter.
    if (filter < 0 || filter >= kNoFilter) return 1;
    if (row < 0 || row >= kUserSweepRows) return -1;
    const FilterCoefficients& c = SweepConfigRow(row).filters[filter];
    if (L < 1) return poles >= 0 && poles <= 2 ? 1 : -1;
    switch (poles) {
        case 0:
            w[0] = c.onePole[0] * w[0];
            for (std::int32_t i = 1; i < L; ++i)
                w[i] = Floor(c.onePole[0] * w[i] + c.onePole[1] * w[i - 1]);
            return 1;
        case 1: {
            const double start = c.twoPole[0] * 1e-10;
            w[0] = start;
            if (L > 1) w[1] = start + c.twoPole[1] * w[0];
            for (std::int32_t i = 2; i < L; ++i)
                w[i] = Floor(c.twoPole[0] * w[i] + c.twoPole[1] * w[i - 1] +
                             c.twoPole[2] * w[i - 2]);
            return 1;
        }
        case 2:
            // A short one-pole run-in fills the four-pole filter's memory.
            for (std::int32_t i = 1; i < L && i < 20; ++i) w[i] = 0.1 * w[i] + 0.9 * w[i - 1];
            for (std::int32_t i = 20; i < L; ++i)
                w[i] = Floor(c.fourPole[0] * w[i] + c.fourPole[1] * w[i - 1] +
                             c.fourPole[2] * w[i - 2] + c.fourPole[3] * w[i - 3] +
                             c.fourPole[4] * w[i - 4]);
            return 1;
        default:
            return -1;
    }
}

std::int32_t AverageTrace(int slot, double* w, std::int32_t L) {
    DeviceRecord& r = Slot(slot);
    TraceSettings& t = r.trace;
    // The stored average has room for the longest trace; points of a longer
    // caller's array beyond it are delivered as acquired.
    const std::int32_t n = L < kTraceCapacity ? L : kTraceCapacity;
    double* stored = r.avgTrace;
    bool restart;
    switch (t.avgMode) {
        case 0:
            restart = true;
            break;
        case 1:
            if (t.avgRestart) {
                t.avgRestart = 0;
                restart = true;
            } else {
                double sNew = 0.0, sOld = 0.0;
                for (std::int32_t i = 0; i < n; ++i) {
                    if (w[i] > 9e-9 || stored[i] > 9e-9) {
                        sNew += w[i];
                        sOld += stored[i];
                    }
                }
                const double larger = sOld > sNew ? sOld : sNew;
                restart = sNew != 0.0 && sOld != 0.0 &&
                          std::fabs(sOld - sNew) / larger > t.avgResetSens;
            }
            break;
        case 2:
            restart = t.avgRestart != 0;
            if (restart) t.avgRestart = 0;
            break;
        default:
            restart = false;
            break;
    }
    if (restart) {
        t.avgCount = 0;
    } else {
        if (t.avgCount < t.traceAvgs) ++t.avgCount;
        const double alpha = 2.0 / (t.avgCount + 1);
        for (std::int32_t i = 0; i < n; ++i) {
            if (!std::isfinite(w[i])) w[i] = stored[i];
            else if (std::isfinite(stored[i])) w[i] = alpha * w[i] + (1.0 - alpha) * stored[i];
        }
    }
    for (std::int32_t i = 0; i < n; ++i) stored[i] = w[i];
    for (std::int32_t i = 0; i < L; ++i) w[i] = Dbm(w[i]);
    return 1;
}

double ConvertTraceValue(double value, std::int32_t fromUnit, std::int32_t toUnit) {
    if (fromUnit < 0 || fromUnit > 7 || toUnit < 0 || toUnit > 7) return -9999.99;
    double dbm;
    switch (fromUnit) {
        case 0: dbm = value; break;
        case 1: dbm = value + 30.0; break;
        case 2: dbm = value + 60.0; break;
        case 3: dbm = value - 106.9897; break;
        case 6: dbm = 10.0 * std::log10(value / 0.001); break;
        case 7: dbm = 10.0 * std::log10(value * value / 50.0 / 0.001); break;
        default: return -9999.999;
    }
    switch (toUnit) {
        case 0: return dbm;
        case 1: return dbm - 30.0;
        case 2: return dbm - 60.0;
        case 3: return dbm + 106.9897;
        case 6: return 0.001 * std::pow(10.0, dbm / 10.0);
        case 7: return std::sqrt(0.05 * std::pow(10.0, dbm / 10.0));
        default: return -9999.999;
    }
}

std::int32_t CnvtTrace(std::int32_t address, const double* in, std::int32_t n, double* out,
                       std::int32_t fromUnit, std::int32_t toUnit) {
    if (!in || !out || n < 0) return -1;
    if (GetOwnedSlot_Addr(address) == kNoSlot) return -1;
    for (std::int32_t i = 0; i < n; ++i) out[i] = ConvertTraceValue(in[i], fromUnit, toUnit);
    return 1;
}

}  // namespace qv
