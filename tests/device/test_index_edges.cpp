// Integer and length edges of the arguments that name a sensor: each gets its
// range code without undefined behaviour (the sanitizer build checks that).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>

#include "qv_api2.h"
#include "support/sim_fixture.h"

namespace qv::test {
namespace {

struct IndexCase {
    const char* name;
    std::function<std::int32_t()> call;
    std::int32_t expected;
};

class MostNegativeIndex : public SimBusTest, public ::testing::WithParamInterface<IndexCase> {};

TEST_P(MostNegativeIndex, GetsItsRangeCode) {
    AddSensor("AAA111", 5);
    EXPECT_EQ(GetParam().call(), GetParam().expected);
}

char g_serial[8];
std::int32_t g_model;
INSTANTIATE_TEST_SUITE_P(
    Edges, MostNegativeIndex,
    ::testing::Values(
        IndexCase{"GetSerNo", [] { return QV_GetSerNo_Idx(INT32_MIN, g_serial); }, -5},
        IndexCase{"GetAddress", [] { return QV_GetAddress_Idx(INT32_MIN); }, -2},
        IndexCase{"GetModelNumber", [] { return QV_GetModelNumber_Idx(INT32_MIN, &g_model); }, -2},
        IndexCase{"SetAddress", [] { return QV_SetAddress_Idx(INT32_MIN, 9); }, -5},
        IndexCase{"BlinkLED", [] { return QV_BlinkLED_Idx(INT32_MIN); }, -5},
        IndexCase{"ReInit", [] { return QV_ReInit_Idx(INT32_MIN); }, -1}),
    [](const auto& info) { return std::string(info.param.name); });

using SerialArgument = SimBusTest;

TEST_F(SerialArgument, AtMostSevenBytesOfItAreRead) {
    AddSensor("AAA111", 5);
    // Seven characters and no terminator, filling their allocation to the end.
    const auto serial = std::make_unique<char[]>(7);
    std::memset(serial.get(), 'A', 7);
    EXPECT_EQ(QV_InitializeSensor_SN(serial.get()), -1);
    EXPECT_EQ(QV_GetIndex_SN(serial.get()), -2);
    EXPECT_EQ(QV_GetAddress_SN(serial.get()), -2);
    EXPECT_EQ(QV_UninitializeSensor_SN(serial.get()), -1);
}

}  // namespace
}  // namespace qv::test
