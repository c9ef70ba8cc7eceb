// What the signal and sweep tests share: a bus of their own with one sensor on it, the
// requests the library sends it, and its detector both ways as the ADC holds the counts.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "qvsim.h"
#include "qvsim_driver.h"
#include "support/process.h"

namespace qv::test {

using Bytes = std::vector<uint8_t>;

inline int Word(const Bytes& b, size_t at) { return b[at] | b[at + 1] << 8; }

// Sample k of a path (QVSIM_PATH_) of the block or packet at `at`: ls first, then hs,
// in 4-byte groups after the two temperatures (k -1).
inline int Sample(const Bytes& b, size_t at, long k, int path) {
    return Word(b, at + 4 + 4 * k + (path == QVSIM_PATH_HS ? 2 : 0));
}

class SimSensor : public ::testing::Test {
protected:
    SimSensor(const char* serial, const char* product) : serial_(serial), product_(product) {}

    void SetUp() override {
        directory_ = MakeTemporaryDirectory("qvsim_");
        ASSERT_FALSE(directory_.empty());
        SetEnv(QVSIM_BUS_ENV, directory_ + "/bus");
        ASSERT_EQ(qvsim_bus_create(nullptr), QVSIM_OK);
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = serial_, config.product = product_;
        ASSERT_GE(id_ = qvsim_sensor_add(&config), 0);
        Reopen();
        ASSERT_NE(winusb_, 0);
    }

    void TearDown() override {
        qvsim_bus_close();
        std::filesystem::remove_all(directory_);
    }

    void Reopen() {
        static constexpr QvGuid kClass = {0x8BC86AFDu, 0xF393u, 0x458Du, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};
        winusb_ = QV_USBDRVD_OpenWinUSBHandle(QV_USBDRVD_OpenDevHandle(0, 0, &kClass));
    }

    int Out(int request, Bytes data) {
        return QV_USBDRVD_VendorOrClassRequestOut(winusb_, 0x40, 0, request, 0, 0, data.data(), uint32_t(data.size()));
    }

    Bytes In(int request, int length) {
        Bytes reply(static_cast<size_t>(length));
        EXPECT_EQ(QV_USBDRVD_VendorOrClassRequestIn(winusb_, 0xC0, 0, request, 0, 0, reply.data(), length), length);
        return reply;
    }

    // A pipe read of `length` bytes; the bytes that came.
    Bytes Read(uint32_t length, uint32_t timeoutMs = 100) {
        Bytes bytes(length);
        uint32_t moved = 0;
        QV_USBDRVD_PipeReadTimeout(winusb_, 0x82, bytes.data(), length, &moved, timeoutMs);
        bytes.resize(moved);
        return bytes;
    }

    template <typename Edit>
    void ChangeSignal(Edit edit) {
        qvsim_signal signal{};
        ASSERT_EQ(qvsim_signal_get(id_, &signal), QVSIM_OK);
        edit(signal);
        ASSERT_EQ(qvsim_signal_set(id_, &signal), QVSIM_OK);
    }

    // The detector's count for dbm at the signal's frequency, as the ADC holds it, and back.
    int Count(int path, double dbm) {
        double count = 0.0;
        EXPECT_EQ(qvsim_detector_count(id_, path, dbm, Frequency(), qvsim_get_temperature(id_), &count), QVSIM_OK);
        return static_cast<int>(std::lround(std::fmin(std::fmax(count, 0.0), 65535.0)));
    }
    double Power(int path, int count) {
        double dbm = 0.0;
        EXPECT_EQ(qvsim_detector_power(id_, path, count, Frequency(), qvsim_get_temperature(id_), &dbm), QVSIM_OK);
        return dbm;
    }
    double Frequency() {
        qvsim_signal signal{};
        return qvsim_signal_get(id_, &signal) == QVSIM_OK ? signal.freq_hz : NAN;
    }

    qvsim_sensor_state State() {
        qvsim_sensor_state state{};
        EXPECT_EQ(qvsim_sensor_state_get(id_, &state), QVSIM_OK);
        return state;
    }

    const char *serial_, *product_;
    std::string directory_;
    int id_ = -1;
    QvDrvHandle winusb_ = 0;
};

}  // namespace qv::test
