// Two simulated sensors, the second initialised by this process: resolving its
// address makes the library open the first (free) one, so traffic on the first
// shows that a lookup was made.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/shared_table.h"
#include "support/sensor_fixture.h"

namespace qv::test {

inline constexpr int kAddr = 7;

// The current state of the initialised sensor's slot.
inline InstrumentState& Current() { return Slot(0).current; }

class SettingsTest : public InitialisedSensorTest {
protected:
    void SetUp() override {
        InitialisedSensorTest::SetUp();
        free_ = AddSensor("FREE01", 3);
        mine_ = initialise_ ? Initialise("SET001", kAddr) : AddSensor("SET001", kAddr);  // model 8: up to 20 GHz
        ClearTranscripts();
    }
    void ClearTranscripts() {
        qvsim_transcript_clear(free_);
        qvsim_transcript_clear(mine_);
    }

    // Transfers as "IN 191/2" (request/length), "OUT 219/64", "PIPE 1/2".
    static std::vector<std::string> Transfers(int id) {
        std::vector<qvsim_transfer> t(QVSIM_TRANSCRIPT_ENTRIES);
        const int n = qvsim_transcript_read(id, 0, t.data(), static_cast<int>(t.size()));
        std::vector<std::string> out;
        for (int i = 0; i < n; ++i) {
            const char* kind = t[i].kind == QVSIM_XFER_IN    ? "IN "
                               : t[i].kind == QVSIM_XFER_OUT ? "OUT "
                               : t[i].kind == QVSIM_XFER_PIPE_WRITE ? "PIPE "
                                                                    : "OTHER ";
            out.push_back(kind + std::to_string(t[i].code) + "/" + std::to_string(t[i].length));
        }
        return out;
    }

    bool initialise_ = true;
    int free_ = -1;
    int mine_ = -1;
};

}  // namespace qv::test
