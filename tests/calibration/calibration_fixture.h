// A simulated bus, clean slots and an empty data directory for each test, and
// ways to look at a simulated sensor's calibration from both sides.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "calibration/cal_image.h"
#include "calibration/cal_tables.h"
#include "device/model.h"
#include "device/transport.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "support/sim_fixture.h"
#include "support/files.h"
#include "support/slots.h"

namespace qv::test {

using Bytes = std::vector<std::uint8_t>;

class CalibrationTest : public SimBusTest {
protected:
    void SetUp() override {
        // The data directory is emptied before every test: never a real one.
        ASSERT_FALSE(platform::GetEnv(platform::kEnvDataDir).empty()) << "run under qv_test_env";
        ASSERT_FALSE(platform::GetEnv("QV_TEST_TMPDIR").empty()) << "run under qv_test_env";
        SimBusTest::SetUp();
        ResetSlots();
        std::filesystem::remove_all(platform::DataDirectory());
    }
    void TearDown() override {
        for (std::int64_t h : opened_) CloseDevice(h);
        ResetSlots();
    }

    static void ResetSlots() {
        ClearSlots();
        for (int s = 0; s < kSlotCount; ++s) {
            Slot(s).identity.ModelIndex = kUnknownModel;
            Slot(s).tempRows[0].freq = 0.0;
        }
    }

    // A device handle for enumeration index `index`, closed after the test.
    std::int64_t Open(int index = 1) {
        const std::int64_t h = OpenDevice_Idx(index);
        EXPECT_GT(h, 0);
        opened_.push_back(h);
        return h;
    }

    // The calibration image as the sensor holds it.
    static Bytes SensorImage(int id) {
        Bytes image(kCalImageBytes);
        EXPECT_EQ(qvsim_memory_read(id, 2, 1024, image.data(), kCalPartOneBytes), kCalPartOneBytes);
        EXPECT_EQ(qvsim_memory_read(id, 6, 1024, image.data() + kCalPartOneBytes, kCalPartTwoBytes),
                  kCalPartTwoBytes);
        return image;
    }

    static std::uint32_t SensorChecksum(int id) {
        std::uint8_t b[4] = {};
        EXPECT_EQ(qvsim_memory_read(id, 2, 33, b, 4), 4);
        return b[0] | b[1] << 8 | b[2] << 16 | static_cast<std::uint32_t>(b[3]) << 24;
    }

    static Bytes FileBytes(const std::string& path) {
        const std::string text = FileText(path);
        return Bytes(text.begin(), text.end());
    }
    static void WriteBytes(const std::string& path, const Bytes& bytes) { WriteFile(path, {bytes.begin(), bytes.end()}); }

    // The cache file a valid image and checksum make.
    static Bytes CacheContent(const Bytes& image) {
        Bytes file = image;
        const std::uint32_t sum = CalChecksum(image.size(), image.data());
        for (int i = 0; i < 4; ++i) file.push_back(static_cast<std::uint8_t>(sum >> (8 * i)));
        return file;
    }

    // Vendor requests with this code the sensor received since the transcript was cleared.
    static int CountRequests(int id, int code) {
        const std::vector<std::string> r = Requests(id);
        const std::string c = " " + std::to_string(code);
        return static_cast<int>(std::count_if(r.begin(), r.end(), [&](const std::string& s) {
            return s.size() > c.size() && s.compare(s.size() - c.size(), c.size(), c) == 0;
        }));
    }

    // Reads the sensor's calibration into `slot` as initialisation does: model grid,
    // image (through the cache), decoding; rows not yet built.
    void LoadIntoSlot(int slot, int id, const char* serial) {
        const qvsim_sensor_info info = Info(id);
        DeviceRecord& r = Slot(slot);
        r.identity.ModelIndex = ModelFromProductString(info.product);
        SetModelGrid(slot);
        Bytes image(kCalImageBytes);
        LoadCalImage(Open(info.index0 + 1), serial, image.data());
        DecodeCalImage(slot, image.data());
        r.tempRows[0].freq = 0.0;
    }

private:
    std::vector<std::int64_t> opened_;
};

}  // namespace qv::test
