// A calibration read that goes wrong halfway never leaves a wrong image in the
// cache or its checksum in the sensor.
#include <gtest/gtest.h>

#include "calibration/calibration_fixture.h"
#include "qv_api2.h"

namespace qv::test {
namespace {

struct ReadFault {
    const char* name;
    int kind, count;
    bool initialises;  // the second read of the image gets it whole
};

class CalibrationReadFault : public CalibrationTest, public ::testing::WithParamInterface<ReadFault> {};

TEST_P(CalibrationReadFault, NeverCachesOrStoresAWrongImage) {
    const ReadFault& c = GetParam();
    const int id = AddSensor("CAL001", 1);
    AddSensor("CAL002", 2);  // moves into place 1 if CAL001 goes
    const Bytes image = SensorImage(id);
    const std::uint32_t factory = SensorChecksum(id);
    // Well into the image: 19 reads of 229 come before it.
    AddFault(id, c.kind, kReqMemoryRead, c.count, 0, 100);
    const std::int32_t slot = QV_InitializeSensor_SN("CAL001");
    if (c.initialises) {
        EXPECT_EQ(slot, 1);
        EXPECT_EQ(FileBytes(CalCachePath("CAL001")), CacheContent(image));
        EXPECT_EQ(SensorChecksum(id), CalChecksum(image.size(), image.data()));
        return;
    }
    EXPECT_EQ(slot, -1);
    EXPECT_FALSE(platform::FileExists(CalCachePath("CAL001")));
    EXPECT_EQ(SensorChecksum(id), factory);
    EXPECT_EQ(Slot(0).inUse, 0);
    EXPECT_EQ(Info(id).open_handles, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, CalibrationReadFault,
    ::testing::Values(ReadFault{"FailsOnce", QVSIM_FAULT_REQUEST_FAILS, 1, true},
                      ReadFault{"EmptyOnce", QVSIM_FAULT_REQUEST_EMPTY, 1, true},
                      ReadFault{"FailsForGood", QVSIM_FAULT_REQUEST_FAILS, QVSIM_ALWAYS, false},
                      ReadFault{"Unplugged", QVSIM_FAULT_UNPLUG, 1, false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qv::test
