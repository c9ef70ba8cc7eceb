// The packet split and the trace pipeline (linearise, merge, edge and offset
// correction, resampling, filter, averaging) on arbitrary packets, with the
// sweep, delay, filter and averaging settings drawn from the input and set
// through the exports, so that only settings the library accepts are used.
#include <cstdlib>

#include "fuzz/fuzz_sensor.h"
#include "profiling/sweep_config.h"
#include "profiling/trace_acquisition.h"

using namespace qv;
using namespace qv::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int slot = FuzzSlot();
    ByteSource in(data, size);
    ExportArgs a(in);
    // Sweeps of 20 ms and more run the same steps on up to 500,000 points:
    // rarer, so that the fuzzer gets on.
    const std::uint8_t row = in.Byte();
    PP_SetSweepTime(kArgsAddress, SweepConfigRow(row < 224 ? row % 10 : row % kUserSweepRows).sweepTimeUsec);
    PP_SetSweepDelayMode(kArgsAddress, a.Int());
    PP_SetSweepDelay(kArgsAddress, a.Int());
    PP_SetUndersampling20ms_50ms_100ms(kArgsAddress, a.Int());
    PP_SetFilter(kArgsAddress, a.Int());
    PP_SetPoles(kArgsAddress, a.Int());
    PP_SetAvgMode(kArgsAddress, a.Int());
    PP_SetTraceAvgs(kArgsAddress, a.Int());
    PP_SetAvgResetSens(kArgsAddress, a.Real());
    const TraceSettings& t = Slot(slot).trace;
    if (t.sweepTimeIdx < 0 || t.sweepTimeIdx >= kUserSweepRows) std::abort();
    // Any caller's length from the row's own up: PP_GetTrace refuses shorter.
    const std::int32_t length = SweepConfigRow(t.sweepTimeIdx).traceLength + in.Take<std::uint16_t>() % 4096;
    std::vector<double> trace(static_cast<std::size_t>(length));
    TraceScratch scratch;
    if (TakesDelayedPath(t)) {
        const DelayedPlan plan = PlanDelayed(t.sweepTimeIdx, EffectiveDelayUsec(t), t.undersampling, length);
        if (plan.acqRow < 0) return 0;
        const auto raw = Cycled(data, size, SweepConfigRow(plan.acqRow).totalBytes);
        ConvertDelayed(slot, t.sweepTimeIdx, plan, raw.data(), trace.data(), length, scratch);
    } else {
        const auto raw = Cycled(data, size, SweepConfigRow(t.sweepTimeIdx).totalBytes);
        ConvertDirect(slot, t.sweepTimeIdx, raw.data(), trace.data(), length, scratch);
    }
    return 0;
}
