// A fresh simulated bus for each test, and helpers to look at what the
// sensors received.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sim/qvsim.h"

namespace qv::test {

class SimBusTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(qvsim_bus_create(nullptr), QVSIM_OK); }

    // Adds a sensor; its id.
    static int AddSensor(const char* serial, int address, const char* product = "QV442A") {
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = serial;
        config.address = address;
        config.product = product;
        const int id = qvsim_sensor_add(&config);
        EXPECT_GE(id, 0);
        return id;
    }

    static qvsim_sensor_state State(int id) {
        qvsim_sensor_state s {};
        EXPECT_EQ(qvsim_sensor_state_get(id, &s), QVSIM_OK);
        return s;
    }

    static qvsim_sensor_info Info(int id) {
        qvsim_sensor_info i {};
        EXPECT_EQ(qvsim_sensor_info_get(id, &i), QVSIM_OK);
        return i;
    }

    // The vendor requests the sensor received, in order, as "OUT 225" / "IN 252".
    static std::vector<std::string> Requests(int id) {
        std::vector<std::string> requests;
        std::vector<qvsim_transfer> t(256);
        for (long long first = 0;;) {
            const int n = qvsim_transcript_read(id, first, t.data(), static_cast<int>(t.size()));
            if (n <= 0) break;
            for (int i = 0; i < n; ++i) {
                if (t[i].kind == QVSIM_XFER_OUT) requests.push_back("OUT " + std::to_string(t[i].code));
                if (t[i].kind == QVSIM_XFER_IN) requests.push_back("IN " + std::to_string(t[i].code));
            }
            first = t[n - 1].seq + 1;
        }
        return requests;
    }

    // The signal on a sensor's input, as `change` makes it.
    static void SetSignal(int id, const std::function<void(qvsim_signal&)>& change) {
        qvsim_signal signal {};
        ASSERT_EQ(qvsim_signal_get(id, &signal), QVSIM_OK);
        change(signal);
        ASSERT_EQ(qvsim_signal_set(id, &signal), QVSIM_OK);
    }

    static void AddFault(int id, int kind, int code, int count = QVSIM_ALWAYS, int arg = 0,
                         int skip = 0) {
        qvsim_fault f {kind, code, skip, count, arg};
        ASSERT_EQ(qvsim_add_fault(id, &f), QVSIM_OK);
    }
};

}  // namespace qv::test
