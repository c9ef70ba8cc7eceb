// A simulated sensor initialised by this process, with a known signal at its
// input.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "frame/shared_table.h"
#include "support/sensor_fixture.h"

namespace qv::test {

inline constexpr int kMeasAddr = 9;

class MeasureTest : public InitialisedSensorTest {
protected:
    void SetUp() override {
        InitialisedSensorTest::SetUp();
        id_ = Initialise("MEAS01", kMeasAddr, product_);
    }
    static DeviceRecord& Record() { return Slot(0); }
    static InstrumentState& Current() { return Slot(0).current; }

    // The sensor's input: CW at `dbm`, or whatever `change` makes of the signal.
    void SetPower(double dbm) { ASSERT_EQ(qvsim_set_cw_power(id_, dbm), QVSIM_OK); }
    void SetSignal(const std::function<void(qvsim_signal&)>& change) { SimBusTest::SetSignal(id_, change); }

    // A CW reading of `dbm` at the input.
    double ReadCW(double dbm, std::int32_t expected = 1) {
        SetPower(dbm);
        double reading = -12345;
        EXPECT_EQ(QV_MeasureCW(kMeasAddr, &reading), expected);
        return reading;
    }

    // The vendor requests since the last call, as "OUT 193" / "IN 194".
    std::vector<std::string> NewRequests() {
        std::vector<std::string> r = Requests(id_);
        qvsim_transcript_clear(id_);
        return r;
    }

    // Payload bytes of the start requests (193) in the transcript.
    std::vector<int> StartPayloads() const {
        std::vector<qvsim_transfer> t(QVSIM_TRANSCRIPT_ENTRIES);
        const int n = qvsim_transcript_read(id_, 0, t.data(), static_cast<int>(t.size()));
        std::vector<int> out;
        for (int i = 0; i < n; ++i)
            if (t[i].kind == QVSIM_XFER_OUT && t[i].code == 193) out.push_back(t[i].data[0]);
        return out;
    }

    const char* product_ = "QV442A";  // model 8: class P, band -30..-20 dBm
    int id_ = -1;
};

}  // namespace qv::test
