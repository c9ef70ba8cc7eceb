#include "measure/burst.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "profiling/trace_acquisition.h"
#include "qv_api2.h"

namespace qv {

std::int32_t BurstSweepTime(std::int64_t endUsec) {
    if (endUsec <= 1000) return 1000;
    if (endUsec <= 2000) return 2000;
    if (endUsec <= 5000) return 5000;
    if (endUsec <= 10000) return 10000;
    if (endUsec <= 20000) return 20000;
    if (endUsec <= 100000) return 100000;
    if (endUsec <= 499999) return 500000;
    return 1000000;
}

// Indices are kept within the points the trace delivered; with the full
// 10,000-point traces of every sweep chosen here that is index 9,999.
BurstWindow BurstWindowIndices(std::int32_t start, std::int32_t length, std::int32_t sweepUsec,
                               std::int32_t points) {
    const double dt = static_cast<double>(sweepUsec) / points;
    const std::int32_t lastPoint = std::min(points, kBurstTracePoints) - 1;
    const double first = std::trunc(start / dt);
    const double span = std::trunc(length / dt);
    BurstWindow w;
    w.first = static_cast<std::int32_t>(std::clamp(first, 0.0, static_cast<double>(lastPoint)));
    const double last = w.first + span;
    w.last = static_cast<std::int32_t>(std::clamp(last, static_cast<double>(w.first),
                                                  static_cast<double>(lastPoint)));
    return w;
}

std::int32_t MeasureBurst_DBM(std::int32_t address, std::int32_t start, std::int32_t length,
                              std::int32_t trigger, double* maximum, double* average,
                              double* minimum) {
    if (!maximum || !average || !minimum) return -1;
    const std::int64_t end = static_cast<std::int64_t>(start) + length;
    if (start < 0 || length < 0 || end > 1000000) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return -1;

    const std::int32_t sweep = BurstSweepTime(end);
    // The library's own exports: their frames take the lock this thread holds again.
    const std::uint32_t a = static_cast<std::uint32_t>(address);
    if (PP_SetSweepTime(a, sweep) < 0) return -1;
    if (PP_SetTriggerSoure(a, trigger == 0 ? QV_PP_TRIGGER_AUTO : QV_PP_TRIGGER_EXTERNAL) < 0)
        return -1;
    if (PP_SetTriggerEdge(a, 0) < 0) return -1;

    std::vector<double> tr(kBurstTracePoints);
    std::int32_t trUsed = 0;
    std::int32_t got = -1;
    for (int attempt = 0; attempt < 3 && got < 0; ++attempt)
        got = GetTrace(address, tr.data(), kBurstTracePoints, &trUsed);
    if (got < 0 || trUsed <= 0) return -1;

    const BurstWindow w = BurstWindowIndices(start, length, sweep, trUsed);
    double hi = tr[w.first], lo = tr[w.first], watts = 0.0;
    for (std::int32_t i = w.first; i <= w.last; ++i) {
        hi = std::max(hi, tr[i]);
        lo = std::min(lo, tr[i]);
        // Infinite and undefined points add nothing but still count below.
        if (std::isfinite(tr[i])) watts += 0.001 * std::pow(10.0, tr[i] / 10.0);
    }
    double mean = 10.0 * std::log10(watts / (w.last - w.first + 1) / 0.001);
    // The first model's detector reads nothing meaningful below -37 dBm.
    if (Slot(slot).identity.ModelIndex == 1) {
        hi = std::max(hi, -37.0);
        mean = std::max(mean, -37.0);
        lo = std::max(lo, -37.0);
    }
    *maximum = hi;
    *average = mean;
    *minimum = lo;
    return 1;
}

std::int32_t MeasureBurstRunning(std::int32_t address, std::int32_t start, std::int32_t length,
                                 std::int32_t trigger, double* maximum, double* average,
                                 double* minimum) {
    struct Flag {
        Flag() { tableView->burstRunning = 1; }
        ~Flag() { tableView->burstRunning = 0; }
    } flag;
    return MeasureBurst_DBM(address, start, length, trigger, maximum, average, minimum);
}

}  // namespace qv
