// The simulated trace-capable sensor of the profiling tests with a trace of
// the test's own frozen into its analysis trace.
#pragma once

#include <cmath>
#include <vector>

#include "profiling/analysis.h"
#include "profiling/profiling_fixture.h"

namespace qv::test {

// A trace of powers in watts: `base` everywhere, `top` on [from, to).
inline std::vector<double> Pulses(int n, double base, double top,
                                  std::vector<std::pair<int, int>> on) {
    std::vector<double> w(static_cast<std::size_t>(n), base);
    for (auto [from, to] : on)
        for (int i = from; i < to; ++i) w[i] = top;
    return w;
}

// A gate's, marker's or the whole trace's value read with `get`, whose result must be `code`.
inline double ValueOf(std::int32_t (*get)(std::int32_t, std::int32_t, double*), int gate,
                        int code = 1) {
    double v = NAN;
    EXPECT_EQ(get(kAddr, gate, &v), code);
    return v;
}
inline double TraceValue(std::int32_t (*get)(std::int32_t, double*), int code = 1) {
    double v = NAN;
    EXPECT_EQ(get(kAddr, &v), code);
    return v;
}

class AnalysisTest : public ProfilingTest {
protected:
    void SetUp() override {
        ProfilingTest::SetUp();
        // An acquired trace once makes the analysis trace valid; the test's own replaces it.
        ASSERT_EQ(PP_CurrTrace2AnalysisTrace(kAddr, nullptr, 0), 1);
        ASSERT_EQ(PP_SetMeasurementThreshold(kAddr, -100.0), 1);
    }
    // Freezes `values` in `unit` (watts by default) with `sweepUsec`.
    static void Freeze(const std::vector<double>& values, double sweepUsec = 1000.0,
                       int unit = QV_UNIT_W) {
        ASSERT_EQ(PP_SetAnalysisTrace(kAddr, 1e9, sweepUsec, values.data(),
                                      static_cast<int>(values.size()), unit), 1);
    }
    static void Gate(int gate, int start, int end) {
        ASSERT_EQ(PP_SetGateMode(kAddr, gate, 1), 1);
        ASSERT_EQ(PP_SetGateStartEndPosition(kAddr, gate, start, end), 1);
    }
    static const AnalysisTrace& Analysis() { return Record().analysis; }
};

}  // namespace qv::test
