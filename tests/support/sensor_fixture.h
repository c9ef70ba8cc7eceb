// A fresh bus and clean slots for each test, sensors initialised by this
// process on it, and whatever this process initialised released afterwards.
#pragma once

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "qv_api2.h"
#include "support/sim_fixture.h"
#include "support/slots.h"

namespace qv::test {

class InitialisedSensorTest : public SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        ClearSlots();
    }
    void TearDown() override {
        for (int s = 0; s < kSlotCount; ++s)
            if (Slot(s).inUse == 1 && Slot(s).ownerPid == platform::CurrentProcessId())
                QV_UninitializeSensor_SN(Slot(s).serial);
        ClearSlots();
    }

    // Adds a sensor and initialises it, its transcript empty; its id.
    static int Initialise(const char* serial, int address, const char* product = "QV442A") {
        const int id = AddSensor(serial, address, product);
        EXPECT_EQ(QV_InitializeSensor_SN(serial), 1) << serial;
        qvsim_transcript_clear(id);
        return id;
    }
};

}  // namespace qv::test
