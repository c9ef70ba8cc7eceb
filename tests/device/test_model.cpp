// Model identification, firmware version and calibration due date.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "device/model.h"
#include "device/transport.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "qv_api2.h"
#include "support/sensor_fixture.h"

using namespace qv;

namespace {

struct ProductCase {
    const char* product;
    int32_t model;       // main list
    int32_t traceModel;  // full-name list
};

class ProductString : public ::testing::TestWithParam<ProductCase> {};

TEST_P(ProductString, FirstListedTextDecides) {
    const ProductCase c = GetParam();
    EXPECT_EQ(ModelFromProductString(c.product), c.model);
    EXPECT_EQ(TraceModelFromProductString(c.product), c.traceModel);
}

INSTANTIATE_TEST_SUITE_P(
    Models, ProductString,
    ::testing::Values(ProductCase{"QV221A", 1, 1}, ProductCase{"QV2XXA", 0, 0}, ProductCase{"RUnset", 65, 65},
                      ProductCase{"RUNSET", -1, -1}, ProductCase{"R7705B", 81, 81},
                      ProductCase{"TKS8410", 112, -1}, ProductCase{"", -1, -1},
                      // "221" comes before "442" in the list
                      ProductCase{"X442-221", 1, 1}));

using Model = qv::test::InitialisedSensorTest;

TEST_F(Model, TraceCapabilityAsksTheSensorOrFollowsABurst) {
    AddSensor("AAA111", 1, "TKS8410");
    AddSensor("BBB222", 2, "TK8410");
    const std::int64_t a = OpenDevice_Idx(1), b = OpenDevice_Idx(2);
    EXPECT_EQ(IsTraceCapableModel(a), 0);
    EXPECT_EQ(IsTraceCapableModel(b), 1);
    EXPECT_EQ(IsTraceCapableModel(-1), 0);
    tableView->burstRunning = 1;
    EXPECT_EQ(IsTraceCapableModel(a), 1);
    tableView->burstRunning = 0;
    CloseDevice(a);
    CloseDevice(b);
}

TEST_F(Model, ModelNumberByEachName) {
    int32_t model = 99;
    EXPECT_EQ(QV_GetModelNumber_SN("AAA111", &model), -1);  // no sensor
    AddSensor("AAA111", 3, "QV223A");
    AddSensor("BBB222", 4, "Unknown");
    EXPECT_EQ(QV_GetModelNumber_SN("AAA111", &model), 1);
    EXPECT_EQ(model, 3);
    EXPECT_EQ(QV_GetModelNumber_SN("BBB222", &model), -1);
    EXPECT_EQ(QV_GetModelNumber_SN("CCC333", &model), -5);
    EXPECT_EQ(QV_GetModelNumber_SN("CC", &model), -2);
    EXPECT_EQ(QV_GetModelNumber_SN("AAA111", nullptr), -1);
    model = 99;
    EXPECT_EQ(QV_GetModelNumber_Addr(3, &model), 1);
    EXPECT_EQ(model, 3);
    EXPECT_EQ(QV_GetModelNumber_Addr(9, &model), -1);
    EXPECT_EQ(model, -1);
    model = 99;
    EXPECT_EQ(QV_GetModelNumber_Addr(0, &model), -2);
    EXPECT_EQ(model, -1);  // cleared before the search
    EXPECT_EQ(QV_GetModelNumber_Idx(1, &model), 1);
    EXPECT_EQ(model, 3);
    EXPECT_EQ(QV_GetModelNumber_Idx(2, &model), -1);
    EXPECT_EQ(QV_GetModelNumber_Idx(0, &model), -2);
    EXPECT_EQ(QV_GetModelNumber_Idx(3, &model), -2);
}

TEST_F(Model, ASensorWithASlotIsAnsweredFromItsIdentity) {
    const int a = AddSensor("AAA111", 3, "QV223A");
    qv::test::Claim(2, "AAA111", 3, 1, qv::test::kOtherPid).identity.ModelIndex = 71;
    qvsim_transcript_clear(a);
    int32_t model = 0;
    EXPECT_EQ(QV_GetModelNumber_SN("AAA111", &model), 1);
    EXPECT_EQ(model, 71);
    EXPECT_EQ(QV_GetModelNumber_Addr(3, &model), 1);
    EXPECT_EQ(model, 71);
    EXPECT_EQ(QV_GetModelNumber_Idx(-1, &model), 1);
    EXPECT_EQ(model, 71);
    EXPECT_EQ(Requests(a).size(), 0u);
}

TEST_F(Model, FirmwareVersion) {
    const int a = AddSensor("AAA111", 3);
    ASSERT_EQ(qvsim_set_firmware(a, "V2.03"), QVSIM_OK);
    char buffer[32];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(QV_GetFirmwareVersion(3, buffer, 32), 1);
    EXPECT_STREQ(buffer, "V2.03");
    qvsim_transcript_clear(a);
    EXPECT_EQ(QV_GetFirmwareVersion(3, buffer, 13), -1);
    EXPECT_TRUE(Requests(a).empty());
    EXPECT_EQ(QV_GetFirmwareVersion(4, buffer, 32), -1);
    EXPECT_EQ(QV_GetFirmwareVersion(3, nullptr, 32), -1);
    // A long text is cut to 14 characters, and a buffer said to hold 14 bytes
    // gets no more than 14.
    ASSERT_EQ(qvsim_set_firmware(a, "V12.345.6789-abcdef"), QVSIM_OK);
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(QV_GetFirmwareVersion(3, buffer, 32), 1);
    EXPECT_STREQ(buffer, "V12.345.6789-a");
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(QV_GetFirmwareVersion(3, buffer, 14), 1);
    EXPECT_EQ(buffer[14], 'x');
    EXPECT_EQ(buffer[13], '\0');
    EXPECT_EQ(Info(a).open_handles, 0);
}

TEST_F(Model, DueDateIsReadFromAnyFreeSensorAndWrittenOnlyByItsOwner) {
    qvsim_sensor_config config;
    qvsim_sensor_config_init(&config);
    config.serial = "AAA111";
    config.address = 3;
    config.due_year = 27;
    config.due_month = 3;
    config.due_day = 31;
    const int a = qvsim_sensor_add(&config);
    int32_t y = 0, m = 0, d = 0;
    EXPECT_EQ(QV_GetCalDueDate("AAA111", &y, &m, &d), 1);
    EXPECT_EQ(y * 10000 + m * 100 + d, 270331);
    EXPECT_EQ(QV_GetCalDueDate("BBB222", &y, &m, &d), -5);
    EXPECT_EQ(QV_GetCalDueDate("AAA111", nullptr, &m, &d), -1);
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 28, 2, 31), -1);  // not initialised by us
    // Owned: a slot of ours with the device open.
    DeviceRecord& r = qv::test::Claim(0, "AAA111", 3, 1, platform::CurrentProcessId());
    r.deviceHandle = OpenDevice_Idx(1);
    qvsim_transcript_clear(a);
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 28, 13, 1), -1);
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 100, 1, 1), -1);
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 28, 1, 0), -1);
    EXPECT_TRUE(Requests(a).empty());
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 28, 2, 31), 1);  // no calendar check
    EXPECT_EQ(QV_GetCalDueDate("AAA111", &y, &m, &d), 1);
    EXPECT_EQ(y * 10000 + m * 100 + d, 280231);
    AddFault(a, QVSIM_FAULT_NO_ECHO, kReqBeginWrite, 1);
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 29, 1, 1), -2);
    AddFault(a, QVSIM_FAULT_NO_ECHO, kReqEndWrite, 1);
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 29, 1, 1), -3);
    CloseDevice(r.deviceHandle);
    r.deviceHandle = -1;
    EXPECT_EQ(QV_SetCalDueDate("AAA111", 29, 1, 1), -5);
}

}  // namespace
