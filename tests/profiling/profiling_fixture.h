// A simulated trace-capable sensor initialised into slot 0 by this process,
// and raw sweep packets crafted for it and queued on its pipe 0x82.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "frame/shared_table.h"
#include "profiling/sweep_config.h"
#include "support/sensor_fixture.h"

namespace qv::test {

inline constexpr int kAddr = 9;
inline constexpr int kSlot = 0;
// Temperature readings of the crafted packets: row 140 of a QV442A's table.
inline constexpr int kTemperature = 2785 + 140 * 70;

inline DeviceRecord& Record() { return Slot(kSlot); }
inline TraceSettings& Trace() { return Slot(kSlot).trace; }

// High-sense count at which row 140 reads `dbm` (between two of its entries).
inline double HiCount(double dbm) {
    const CalTempRow& row = Record().tempRows[140];
    const double at = (dbm + 70.0) / 2.0;
    const int j = static_cast<int>(at);
    return row.hs[j].count + (row.hs[j + 1].count - row.hs[j].count) * (at - j);
}

// Counts of sample k of packet p: {high sense, low sense}.
using CountsAt = std::function<std::pair<int, int>(int p, int k)>;

// `packets` packets of row `row`'s layout.
inline std::vector<std::uint8_t> Packets(int row, int packets, const CountsAt& counts,
                                         int tmpHi = kTemperature, int tmpLo = kTemperature) {
    const SweepConfig& c = SweepConfigRow(row);
    std::vector<std::uint8_t> raw(static_cast<std::size_t>(packets) * c.packetBytes, 0);
    auto put = [&](std::size_t at, int v) {
        raw[at] = static_cast<std::uint8_t>(v & 0xFF);
        raw[at + 1] = static_cast<std::uint8_t>((v >> 8) & 0xFF);
    };
    for (int p = 0; p < packets; ++p) {
        const std::size_t base = static_cast<std::size_t>(p) * c.packetBytes;
        put(base, tmpLo);
        put(base + 2, tmpHi);
        for (int k = 0; k < c.samplesPerPacket; ++k) {
            const auto [hi, lo] = counts(p, k);
            put(base + 4 + 4 * k, lo);
            put(base + 6 + 4 * k, hi);
        }
    }
    return raw;
}

class ProfilingTest : public InitialisedSensorTest {
protected:
    void SetUp() override {
        InitialisedSensorTest::SetUp();
        id_ = Initialise("PRO001", kAddr);
        ASSERT_EQ(Record().address, kAddr);
    }
    // Makes the sensor's slot look like another process's.
    static void GiveAway() { Record().ownerPid = platform::CurrentProcessId() + 1; }

    void Queue(const std::vector<std::uint8_t>& raw) {
        ASSERT_EQ(qvsim_bulk_in_push(id_, raw.data(), static_cast<int>(raw.size())),
                  static_cast<int>(raw.size()));
    }

    // Transfers as "IN 192", "OUT 177 28 0 0 252" (request and first data bytes), "PIPE 512".
    std::vector<std::string> Transfers(bool withData = false) const {
        std::vector<qvsim_transfer> t(QVSIM_TRANSCRIPT_ENTRIES);
        const int n = qvsim_transcript_read(id_, 0, t.data(), static_cast<int>(t.size()));
        std::vector<std::string> out;
        for (int i = 0; i < n; ++i) {
            std::string s = t[i].kind == QVSIM_XFER_IN    ? "IN "
                            : t[i].kind == QVSIM_XFER_OUT ? "OUT "
                            : t[i].kind == QVSIM_XFER_PIPE_READ ? "PIPE "
                                                                : "OTHER ";
            s += std::to_string(t[i].kind == QVSIM_XFER_PIPE_READ ? t[i].length : t[i].code);
            if (withData && t[i].kind == QVSIM_XFER_OUT)
                for (int b = 0; b < t[i].data_len; ++b) s += " " + std::to_string(t[i].data[b]);
            if (t[i].kind != QVSIM_XFER_STRING) out.push_back(s);
        }
        return out;
    }

    int id_ = -1;
};

}  // namespace qv::test
