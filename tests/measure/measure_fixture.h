// A simulated sensor initialised by this process, and blocks of raw counts
// for it made from a known input power through its own detector model.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "frame/shared_table.h"
#include "platform/platform.h"
#include "qv_api2.h"
#include "measure/raw_blocks.h"
#include "support/sim_fixture.h"

namespace qv::test {

inline constexpr int kMeasAddr = 9;

class MeasureTest : public SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        ClearSlots();
        id_ = AddSensor("MEAS01", kMeasAddr, product_);
        ASSERT_EQ(QV_InitializeSensor_SN("MEAS01"), 1);
        qvsim_transcript_clear(id_);
    }
    void TearDown() override {
        for (int s = 0; s < kSlotCount; ++s)
            if (Slot(s).inUse == 1 && Slot(s).ownerPid == platform::CurrentProcessId())
                QV_UninitializeSensor_SN(Slot(s).serial);
        ClearSlots();
    }
    static void ClearSlots() {
        for (int s = 0; s < kSlotCount; ++s) {
            ResetDeviceRecord(s);
            Slot(s).ownerPid = 0;
            Slot(s).singleAverageStream = 0;
        }
    }
    static DeviceRecord& Record() { return Slot(0); }
    static InstrumentState& Current() { return Slot(0).current; }

    // Queues the blocks of `blocks` acquisitions-worth of samples.
    void Queue(int blocks, const std::function<double(int)>& dbm) {
        const std::vector<std::uint8_t> raw = RawBlocks(id_, blocks, dbm, freqHz_);
        ASSERT_EQ(qvsim_bulk_in_push(id_, raw.data(), static_cast<int>(raw.size())),
                  static_cast<int>(raw.size()));
    }
    void QueueCW(int blocks, double dbm) {
        Queue(blocks, [dbm](int) { return dbm; });
    }

    // A CW reading of `dbm` at the input, with the blocks it takes queued first.
    double ReadCW(double dbm, std::int32_t expected = 1) {
        QueueCW(Current().Averages, dbm);
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
    double freqHz_ = 1.0e9;
    int id_ = -1;
};

}  // namespace qv::test
