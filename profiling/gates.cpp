// Gate measurements: average and peak power, crest factor, droop, overshoot,
// rise and fall time, pulse width, pulse-top power, repetition time and
// frequency, duty cycle.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "profiling/analysis.h"
#include "profiling/pairs.h"

namespace qv {

namespace {

// Sums in four interleaved parts, point i in lane i % 4: a single running
// sum waits on every add, which on whole traces costs four times as long; the
// rounding differs from it only in the last bits. The lanes are two pairs of
// doubles that the processor adds, compares and selects two at a time; every
// lane still adds in point order, and a lane-wise maximum gives what one
// running maximum gives (a NaN first point included).
double Sum(const double* p, int n) {
    Pair s01 = {0.0, 0.0}, s23 = s01;
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        s01 += LoadPair(p + i);
        s23 += LoadPair(p + i + 2);
    }
    double s0 = s01[0];
    for (; i < n; ++i) s0 += p[i];
    return (s0 + s01[1]) + (s23[0] + s23[1]);
}

double Mean(const double* p, int from, int to) {  // inclusive
    return Sum(p + from, to - from + 1) / (to - from + 1);
}

// Fraction of the way from a to b at which `level` lies; a flat step (both
// points on the level) crosses at its first point.
double Crossing(double level, double a, double b) {
    const double d = b - a;
    return d == 0.0 ? 0.0 : (level - a) / d;
}

bool Finite(double v, double* out) {
    if (!std::isfinite(v)) return false;
    *out = v;
    return true;
}

}  // namespace

bool GateAveragePower(const double* p, int n, double* dbm) {
    return n >= 1 && Finite(AnalysisDbm(Mean(p, 0, n - 1)), dbm);
}

bool GateDroop(const double* p, int n, double* db) {
    if (n < 3) return false;
    const double w = 0.05 * n;
    const int k = static_cast<int>(w);
    const double f = w - k;
    double head = f * p[k + 1];
    double tail = f * p[n - k - 2];
    for (int i = 0; i < k; ++i) head += p[i];
    for (int i = n - k; i < n; ++i) tail += p[i];
    return Finite(AnalysisDbm(head / w) - AnalysisDbm(tail / w), db);
}

bool GateOverShoot(const double* p, int n, double* db) {
    if (n < 3) return false;
    const int q = n / 4;
    double peak = p[0];
    for (int i = 1; i <= q; ++i)
        if (p[i] > peak) peak = p[i];
    return Finite(AnalysisDbm(peak) - AnalysisDbm(Mean(p, q, n - 1)), db);
}

bool GateRiseTime(const double* p, int n, const GateScale& s, double* usec) {
    if (n < 3) return false;
    const double ref = p[n - 1];
    const double l90 = 0.9 * ref, l10 = 0.1 * ref;
    int i90 = -1, i10 = -1;
    for (int i = n - 2; i >= 1 && i90 < 0; --i)
        if (p[i] < l90) i90 = i;
    if (i90 < 0) return false;
    for (int i = i90; i >= 1 && i10 < 0; --i)
        if (p[i] < l10) i10 = i;
    if (i10 < 0) return false;
    if (!(p[i90] <= l90 && l90 <= p[i90 + 1]) || !(p[i10] <= l10 && l10 <= p[i10 + 1])) return false;
    const double t90 = i90 + Crossing(l90, p[i90], p[i90 + 1]);
    const double t10 = i10 + Crossing(l10, p[i10], p[i10 + 1]);
    return Finite((t90 - t10) * s.usecPerPoint, usec);
}

bool GateFallTime(const double* p, int n, const GateScale& s, double* usec) {
    if (n < 3) return false;
    const double ref = p[0];
    const double l90 = 0.9 * ref, l10 = 0.1 * ref;
    int i90 = -1, i10 = -1;
    for (int i = 1; i <= n - 2 && i90 < 0; ++i)
        if (p[i] < l90) i90 = i;
    if (i90 < 0) return false;
    for (int i = i90; i <= n - 2 && i10 < 0; ++i)
        if (p[i] < l10) i10 = i;
    if (i10 < 0) return false;
    if (!(p[i90] <= l90 && l90 <= p[i90 - 1]) || !(p[i10] <= l10 && l10 <= p[i10 - 1])) return false;
    // Measured from the falling side: the crossing lies before the point found.
    const double t90 = i90 - Crossing(l90, p[i90], p[i90 - 1]);
    const double t10 = i10 - Crossing(l10, p[i10], p[i10 - 1]);
    return Finite(std::fabs(t10 - t90) * s.usecPerPoint, usec);
}

namespace {

// The two passes of the first-pulse finder keep the four lanes of Sum, so
// that they too match a plain loop to the bit. The first can raise the points
// to a floor on the way and keep them (kStore), which saves the gate
// measurements a pass over the gate.
template <bool kStore>
GateFigures MaxAndSum(const double* p, int n, double floor, double* out) {
    if (n < 1) return {0.0, 0.0};
    const Pair f = Both(floor);
    const double first = std::max(p[0], floor);
    Pair m01 = Both(first), m23 = m01;
    Pair s01 = {0.0, 0.0}, s23 = s01;
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        Pair a = LoadPair(p + i), b = LoadPair(p + i + 2);
        a = a < f ? f : a;  // as std::max: a NaN point stays NaN
        b = b < f ? f : b;
        if (kStore) {
            std::memcpy(out + i, &a, sizeof a);
            std::memcpy(out + i + 2, &b, sizeof b);
        }
        s01 += a;
        s23 += b;
        m01 = a > m01 ? a : m01;
        m23 = b > m23 ? b : m23;
    }
    double m[4] = {m01[0], m01[1], m23[0], m23[1]};
    double s0 = s01[0];
    for (; i < n; ++i) {
        const double v = std::max(p[i], floor);
        if (kStore) out[i] = v;
        s0 += v;
        m[0] = v > m[0] ? v : m[0];
    }
    double max = m[0];
    for (int j = 1; j < 4; ++j) max = m[j] > max ? m[j] : max;
    return {max, (s0 + s01[1]) + (s23[0] + s23[1])};
}

GateFigures MaxAndSum(const double* p, int n) {
    return MaxAndSum<false>(p, n, -std::numeric_limits<double>::infinity(), nullptr);
}

// Points above the mean: their sum (in lane order) and number. A comparison
// gives -1 per lane where it holds, so the counts subtract it.
struct HighGroup {
    double sum;
    int count;
};

// Blocks of sixteen points that hold a point near the mean (lo < p <= hi),
// noted on the pass that sums the high group: the repetition time's second
// search splits the rest of the gate at a mean of its own, and only points
// between the two means change group. Past the capacity the notes stop
// (count -1) and that search sums the rest afresh. Near is within a factor
// of 1.5: the tops of trains of duty cycles up to about 2/3 stay outside, and
// the rest's mean of a gate of four or more pulses stays inside.
constexpr int kNearBlock = 16, kNearCapacity = 160;
constexpr double kNearRatio = 1.5;
struct NearMean {
    double lo, hi;
    int count;
    int at[kNearCapacity];  // first point of each block
    int tail;               // the points from here on are not in blocks
};

// Four 32-bit integers, and the upper 32 bits of a double.
typedef std::int32_t Quad __attribute__((vector_size(16)));
Quad Four(std::int32_t v) { return Quad {v, v, v, v}; }
std::int32_t Upper(double v) {
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return static_cast<std::int32_t>(bits >> 32);
}

HighGroup AboveMean(const double* p, int n, double mean, NearMean* near = nullptr) {
    const Pair level = Both(mean), zero = {0.0, 0.0};
    Pair h01 = zero, h23 = zero;
    PairMask c01 = {0, 0}, c23 = c01;
    const auto add = [&](Pair a, Pair b) {
        const PairMask above01 = a > level, above23 = b > level;
        h01 += above01 ? a : zero;
        h23 += above23 ? b : zero;
        c01 -= above01;
        c23 -= above23;
    };
    int i = 0;
    if (near) {
        // Near points are rare on pulse trains (a sample or two per edge), so
        // the test on each block is a branch not taken. It compares the upper
        // 32 bits of four points at once, far cheaper than comparing the
        // doubles two at a time: for doubles of 0 or more these order as the
        // values, so every point in (lo, hi] has an upper word in
        // [upper(lo), upper(hi)] (as have a few more, which regrouping passes
        // over), and with lo >= 0 each point adds 1 or 0 to the block's count.
        // A mean below 0 gives no near range the second search accepts, so
        // the test need not hold there.
        static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "upper words are the odd ones");
        near->count = 0;
        const std::int32_t from = Upper(near->lo);
        const Quad below = Four(from == INT32_MIN ? from : from - 1), hi = Four(Upper(near->hi));
        Quad close;
        const auto four = [&](const double* q) {
            const Pair a = LoadPair(q), b = LoadPair(q + 2);
            add(a, b);
            const Quad upper = __builtin_shufflevector((Quad)a, (Quad)b, 1, 3, 5, 7);
            close += (upper > hi) - (upper > below);  // and-ing two masks is slower
        };
        static_assert(kNearBlock == 16, "a block is four times four points");
        for (; i + kNearBlock <= n; i += kNearBlock) {
            close = Four(0);
            four(p + i);
            four(p + i + 4);
            four(p + i + 8);
            four(p + i + 12);
            if ((close[0] | close[1] | close[2] | close[3]) == 0) continue;
            if (near->count == kNearCapacity) {
                near->count = -1;
                i += kNearBlock;
                break;
            }
            near->at[near->count++] = i;
        }
        near->tail = i;
    }
    for (; i + 4 <= n; i += 4) add(LoadPair(p + i), LoadPair(p + i + 2));
    double h[4] = {h01[0], h01[1], h23[0], h23[1]};
    long long count = c01[0] + c01[1] + c23[0] + c23[1];
    for (; i < n; ++i) {  // the last points keep their lanes
        h[i & 3] += p[i] > mean ? p[i] : 0.0;
        count += p[i] > mean;
    }
    return {(h[0] + h[1]) + (h[2] + h[3]), static_cast<int>(count)};
}

// The finder's level for n points of the given sum and high group; the
// largest point is asked for only when the level is taken from it.
template <class Max>
bool PulseLevel(int n, double sum, const HighGroup& high, double criteriaDb, Max max,
                double* level) {
    const double mean = sum / n;
    const double lowSum = sum - high.sum;
    const int lowCount = n - high.count;
    if (lowCount == 0 || high.count == 0) return false;
    const double highMean = high.sum / high.count, lowMean = lowSum / lowCount;
    // A shallow pulse (its top less than the criteria above the mean) is cut
    // at the criteria below its maximum; a deep one half-way between the groups.
    *level = AnalysisDbm(highMean) - AnalysisDbm(mean) < criteriaDb
                 ? AnalysisWatts(AnalysisDbm(max()) - criteriaDb)
                 : (lowMean + highMean) / 2.0;
    return true;
}

bool PulseAtLevel(const double* p, int n, double level, FirstPulse* pulse) {
    int i = 0;
    while (i < n && p[i] >= level) ++i;
    while (i < n && !(p[i] > level)) ++i;
    if (i >= n) return false;
    const int rise = i;
    for (++i; i < n && !(p[i] < level); ++i) {}
    if (i >= n) return false;
    pulse->rise = rise;
    pulse->fall = i;
    return true;
}

// What the finder learnt about the whole gate, kept for a second search.
struct PulseSearch {
    GateFigures figures;
    HighGroup high;
    FirstPulse pulse;
};

bool SearchFirstPulse(const double* p, int n, double criteriaDb, const GateFigures* figures,
                      NearMean* near, PulseSearch* s) {
    if (n < 6) return false;
    s->figures = figures ? *figures : MaxAndSum(p, n);
    const double mean = s->figures.sum / n;
    if (near) {
        near->lo = mean / kNearRatio;
        near->hi = mean * kNearRatio;
    }
    s->high = AboveMean(p, n, mean, near);
    double level;
    return PulseLevel(n, s->figures.sum, s->high, criteriaDb, [&] { return s->figures.max; },
                      &level) &&
           PulseAtLevel(p, n, level, &s->pulse);
}

// The first pulse of the points from the first pulse's falling index f on
// (indices from f), from what the search over the whole gate learnt rather
// than two more passes over it: the rest's sum and high group are the gate's
// less its first f points, with the points of the noted blocks that the
// rest's own mean puts in the other group moved across; its largest point is
// the gate's unless that lies before f. The groups are exactly those the
// rest's mean gives; the sums differ from summing the rest afresh only in the
// last bits, as they subtract instead of add. Where the notes cannot vouch
// for the groups (the rest's mean outside the noted range, too many blocks),
// where f lies past the middle or the first f points hold most of a sum (the
// subtraction would lose digits), the rest is searched afresh.
bool SearchRest(const double* p, int n, double criteriaDb, const PulseSearch& all,
                const NearMean* near, FirstPulse* pulse) {
    const int f = all.pulse.fall, m = n - f;
    const double* rest = p + f;
    const auto afresh = [&] {
        PulseSearch s;
        if (!SearchFirstPulse(rest, m, criteriaDb, nullptr, nullptr, &s)) return false;
        *pulse = s.pulse;
        return true;
    };
    if (!near || near->count < 0 || f > n / 2) return afresh();
    const double mean = all.figures.sum / n;
    double headSum = 0.0, headHigh = 0.0, headMax = -std::numeric_limits<double>::infinity();
    int headCount = 0;
    for (int i = 0; i < f; ++i) {
        headSum += p[i];
        headHigh += p[i] > mean ? p[i] : 0.0;
        headCount += p[i] > mean;
        headMax = p[i] > headMax ? p[i] : headMax;
    }
    const double sum = all.figures.sum - headSum, restMean = sum / m;
    if (!(near->lo <= std::min(mean, restMean) && std::max(mean, restMean) <= near->hi) ||
        !(std::fabs(headSum) <= 16.0 * std::fabs(sum)))
        return afresh();
    HighGroup high {all.high.sum - headHigh, all.high.count - headCount};
    const auto regroup = [&](int from, int to) {
        for (int i = std::max(from, f); i < to; ++i) {
            const double v = p[i];
            if ((v > mean) == (v > restMean)) continue;
            high.sum += v > restMean ? v : -v;
            high.count += v > restMean ? 1 : -1;
        }
    };
    for (int k = 0; k < near->count; ++k) regroup(near->at[k], near->at[k] + kNearBlock);
    regroup(near->tail, n);
    if (high.count > 0 && !(std::fabs(headHigh) <= 16.0 * std::fabs(high.sum))) return afresh();
    const auto max = [&] {
        return headMax < all.figures.max ? all.figures.max : MaxAndSum(rest, m).max;
    };
    double level;
    return PulseLevel(m, sum, high, criteriaDb, max, &level) && PulseAtLevel(rest, m, level, pulse);
}

}  // namespace

GateFigures RaiseToFloor(const double* p, int n, double floor, double* out) {
    return MaxAndSum<true>(p, n, floor, out);
}

bool FindFirstPulse(const double* p, int n, double criteriaDb, FirstPulse* pulse,
                    const GateFigures* figures) {
    PulseSearch s;
    if (!SearchFirstPulse(p, n, criteriaDb, figures, nullptr, &s)) return false;
    *pulse = s.pulse;
    return true;
}

namespace {

// The rising crossing of the pulse whose first point above the level is r:
// the fractional index where the trace passes the level.
bool RisingCrossing(const double* p, int n, int& r, double level, double* t) {
    if (p[r] > level) {
        while (p[r] > level)
            if (--r < 0) return false;
    } else if (p[r + 1] < level) {
        while (p[r + 1] < level)
            if (++r + 1 >= n) return false;
    }
    *t = r + Crossing(level, p[r], p[r + 1]);
    return true;
}

bool FallingCrossing(const double* p, int n, int f, double level, double* t) {
    if (p[f] < level) {
        while (p[f] < level)
            if (--f < 1) return false;
    } else {
        while (f + 1 < n && p[f + 1] >= level) ++f;
        if (f + 1 >= n) return false;
    }
    *t = f + Crossing(level, p[f], p[f + 1]);
    return true;
}

// First pulse of a width or pulse-power measurement, with its level
// (criteria below its top) and its rising crossing.
struct MeasuredPulse {
    FirstPulse first;
    int rise;  // after the crossing search
    double level;
    double tRise;
};

bool MeasurePulseStart(const double* p, int n, double criteriaDb, const FirstPulse& fp,
                       MeasuredPulse* m) {
    if (!(fp.rise >= 1 && fp.fall < n && fp.fall > fp.rise + 1)) return false;
    m->first = fp;
    m->level = AnalysisWatts(AnalysisDbm(Mean(p, fp.rise, fp.fall - 1)) - criteriaDb);
    m->rise = fp.rise;
    return RisingCrossing(p, n, m->rise, m->level, &m->tRise);
}

// The rising crossing used by the repetition time: located between r - 1 and r.
bool RepetitionCrossing(const double* p, int n, int r, double level, double* t) {
    if (p[r] > level) {
        while (p[r - 1] > level)
            if (--r == 0) return false;
    } else {
        while (p[r] < level) {
            if (r >= n - 1) return false;
            ++r;
        }
    }
    *t = (r - 1) + Crossing(level, p[r - 1], p[r]);
    return true;
}

bool WidthOfPulse(const double* p, int n, const GateScale& s, const FirstPulse& first,
                  double* usec) {
    MeasuredPulse m;
    if (!MeasurePulseStart(p, n, s.criteriaDb, first, &m)) return false;
    double tFall;
    if (!FallingCrossing(p, n, m.first.fall, m.level, &tFall)) return false;
    return Finite((tFall - m.tRise) * s.sweepUsec / s.pulsePoints, usec);
}

// The pulse after the first one's falling index f, with indices of the gate.
bool SecondPulse(const double* p, int n, double criteriaDb, const PulseSearch& all,
                 const NearMean* near, FirstPulse* two) {
    const int f = all.pulse.fall;
    // The six points the finder needs are what this check leaves.
    if (f + 5 > n - 1 || !SearchRest(p, n, criteriaDb, all, near, two)) return false;
    two->rise += f;
    two->fall += f;
    return true;
}

bool RepetitionTime(const double* p, int n, const GateScale& s, FirstPulse one, FirstPulse two,
                    double* usec) {
    const double top1 = Mean(p, one.rise, one.fall - 1), top2 = Mean(p, two.rise, two.fall - 1);
    const double level = AnalysisWatts(AnalysisDbm(std::min(top1, top2)) - s.criteriaDb);
    double t1, t2;
    if (!RepetitionCrossing(p, n, one.rise, level, &t1) ||
        !RepetitionCrossing(p, n, two.rise, level, &t2))
        return false;
    return Finite((t2 - t1) * s.sweepUsec / s.pulsePoints, usec);
}

}  // namespace

bool GatePulseWidth(const double* p, int n, const GateScale& s, double* usec,
                    const GateFigures* figures) {
    FirstPulse first;
    return n >= 3 && FindFirstPulse(p, n, s.criteriaDb, &first, figures) &&
           WidthOfPulse(p, n, s, first, usec);
}

bool GatePulsePower(const double* p, int n, const GateScale& s, double* dbm,
                    const GateFigures* figures) {
    FirstPulse first;
    MeasuredPulse m;
    if (n < 3 || !FindFirstPulse(p, n, s.criteriaDb, &first, figures) ||
        !MeasurePulseStart(p, n, s.criteriaDb, first, &m))
        return false;
    const int from = m.rise + 1, to = m.first.fall - 1;
    if (from > to) return false;
    const double mean = Mean(p, from, to);
    if (!(mean > 0.0)) return false;
    return Finite(AnalysisDbm(mean), dbm);
}

bool FindPulsePair(const double* p, int n, double criteriaDb, FirstPulse* one, FirstPulse* two,
                   const GateFigures* figures) {
    NearMean near;
    PulseSearch all;
    if (!SearchFirstPulse(p, n, criteriaDb, figures, &near, &all) ||
        !SecondPulse(p, n, criteriaDb, all, &near, two))
        return false;
    *one = all.pulse;
    return true;
}

bool GatePRT(const double* p, int n, const GateScale& s, double* usec, const GateFigures* figures) {
    FirstPulse one, two;
    return n >= 3 && FindPulsePair(p, n, s.criteriaDb, &one, &two, figures) &&
           RepetitionTime(p, n, s, one, two, usec);
}

// Width and repetition time from one search for the first pulse.
bool GateDutyCycle(const double* p, int n, const GateScale& s, double* ratio,
                   const GateFigures* figures) {
    NearMean near;
    PulseSearch all;
    FirstPulse two;
    double width, prt;
    if (n < 3 || !SearchFirstPulse(p, n, s.criteriaDb, figures, &near, &all) ||
        !WidthOfPulse(p, n, s, all.pulse, &width) ||
        !SecondPulse(p, n, s.criteriaDb, all, &near, &two) ||
        !RepetitionTime(p, n, s, all.pulse, two, &prt) || !(prt > 0.0))
        return false;
    return Finite(width / prt, ratio);
}

// ---------------------------------------------------------------- operations

namespace {

// The points of a gate ready to measure, with the scales of its trace.
struct GatePoints {
    const double* p = nullptr;  // the gate's first point in the analysis trace
    int n = 0;
    std::int32_t start = 0;
    GateScale scale {};
    GateFigures figures {};  // of the points raised to the threshold
};

// The copy raised to the threshold. Calls run one at a time under the
// machine-wide lock, so one buffer serves them all without allocating.
double floorBuffer[kTraceCapacity];

bool PrepareGate(std::int32_t address, std::int32_t gate, bool floor, GatePoints* g) {
    if (gate < 0 || gate >= kGateCount) return false;
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return false;
    const DeviceRecord& r = Slot(slot);
    const AnalysisTrace& a = r.analysis;
    const GateRecord& gr = r.analysisSetup.gates[gate];
    if (a.analysisValid != 1 || gr.mode != 1) return false;
    if (!(gr.startTime >= 0.0 && gr.endTime <= a.analysisSweepTime && gr.startTime < gr.endTime))
        return false;
    // Positions kept from an earlier, longer trace are not measured.
    if (!(0 <= gr.startPos && gr.startPos <= gr.endPos && gr.endPos <= a.analysisLastIdx))
        return false;
    g->start = gr.startPos;
    g->n = gr.endPos - gr.startPos + 1;
    g->p = a.analysisTrace + gr.startPos;
    g->scale.sweepUsec = a.analysisSweepTime;
    g->scale.usecPerPoint = a.analysisLastIdx > 0
                                ? static_cast<double>(a.analysisSweepTime) / a.analysisLastIdx : 0.0;
    g->scale.pulsePoints = PulseTimeScalePoints(a.analysisSweepTime);
    g->scale.criteriaDb = r.current.PulseCriteria_DB;
    if (floor) {
        if (g->n < 3) return false;
        const double threshold = AnalysisWatts(r.analysisSetup.measThreshold);
        g->figures = RaiseToFloor(g->p, g->n, threshold, floorBuffer);
        g->p = floorBuffer;
    }
    return true;
}

template <class Measure>
std::int32_t MeasureGate(std::int32_t address, std::int32_t gate, double* out, Measure measure) {
    if (!out) return -1;
    GatePoints g;
    if (!PrepareGate(address, gate, true, &g)) return -1;
    double v;
    if (!measure(g, &v)) return -1;
    *out = v;
    return 1;
}

}  // namespace

std::int32_t GetGateAveragePower(std::int32_t address, std::int32_t gate, double* dbm) {
    if (!dbm) return -1;
    GatePoints g;
    if (!PrepareGate(address, gate, false, &g)) return -1;
    double v;
    if (!GateAveragePower(g.p, g.n, &v)) return -1;
    *dbm = v;
    return 1;
}

std::int32_t GetGatePeakPower(std::int32_t address, std::int32_t gate, double* dbm) {
    if (!dbm) return -1;
    GatePoints g;
    if (!PrepareGate(address, gate, false, &g)) return -1;
    int at = 0;
    for (int i = 1; i < g.n; ++i)
        if (g.p[i] > g.p[at]) at = i;
    double v;
    if (!Finite(AnalysisDbm(g.p[at]), &v)) return -1;
    *dbm = v;
    return g.start + at;
}

std::int32_t GetGateCrestFactor(std::int32_t address, std::int32_t gate, double* db) {
    if (!db) return -1;
    double average, peak;
    if (GetGateAveragePower(address, gate, &average) < 0) return -1;
    if (GetGatePeakPower(address, gate, &peak) < 0) return -1;
    *db = peak - average;
    return 1;
}

std::int32_t GetGateDroop(std::int32_t address, std::int32_t gate, double* db) {
    return MeasureGate(address, gate, db, [](GatePoints& g, double* v) {
        return GateDroop(g.p, g.n, v);
    });
}

std::int32_t GetGateOverShoot(std::int32_t address, std::int32_t gate, double* db) {
    return MeasureGate(address, gate, db, [](GatePoints& g, double* v) {
        return GateOverShoot(g.p, g.n, v);
    });
}

std::int32_t GetGateRiseTime(std::int32_t address, std::int32_t gate, double* usec) {
    return MeasureGate(address, gate, usec, [](GatePoints& g, double* v) {
        return GateRiseTime(g.p, g.n, g.scale, v);
    });
}

std::int32_t GetGateFallTime(std::int32_t address, std::int32_t gate, double* usec) {
    return MeasureGate(address, gate, usec, [](GatePoints& g, double* v) {
        return GateFallTime(g.p, g.n, g.scale, v);
    });
}

std::int32_t GetGatePulseWidth(std::int32_t address, std::int32_t gate, double* usec) {
    return MeasureGate(address, gate, usec, [](GatePoints& g, double* v) {
        return GatePulseWidth(g.p, g.n, g.scale, v, &g.figures);
    });
}

std::int32_t GetGatePulsePower(std::int32_t address, std::int32_t gate, double* dbm) {
    return MeasureGate(address, gate, dbm, [](GatePoints& g, double* v) {
        return GatePulsePower(g.p, g.n, g.scale, v, &g.figures);
    });
}

std::int32_t GetGatePRT(std::int32_t address, std::int32_t gate, double* usec) {
    return MeasureGate(address, gate, usec, [](GatePoints& g, double* v) {
        return GatePRT(g.p, g.n, g.scale, v, &g.figures);
    });
}

std::int32_t GetGatePRF(std::int32_t address, std::int32_t gate, double* hz) {
    return MeasureGate(address, gate, hz, [](GatePoints& g, double* v) {
        double prt;
        if (!GatePRT(g.p, g.n, g.scale, &prt, &g.figures) || !(prt > 0.0)) return false;
        *v = 1e6 / prt;
        return true;
    });
}

std::int32_t GetGateDutyCycle(std::int32_t address, std::int32_t gate, double* ratio) {
    return MeasureGate(address, gate, ratio, [](GatePoints& g, double* v) {
        return GateDutyCycle(g.p, g.n, g.scale, v, &g.figures);
    });
}

}  // namespace qv
