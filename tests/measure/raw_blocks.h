// Blocks of raw counts made from a known input power through a simulated
// sensor's own detector model, as the sensor would send them on pipe 0x82.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "sim/qvsim.h"

namespace qv::test {

// The raw blocks a sensor sends for an input whose power (dBm) at sample i of
// the acquisition is `dbm(i)`, at `freqHz` and the sensor's temperature.
inline std::vector<std::uint8_t> RawBlocks(int id, int blocks, const std::function<double(int)>& dbm,
                                           double freqHz) {
    std::vector<std::uint8_t> raw(static_cast<std::size_t>(blocks) * 512);
    const int t = qvsim_get_temperature(id);
    auto put = [&](std::size_t at, double count) {
        const long c = std::clamp(std::lround(count), 0L, 65535L);
        raw[at] = static_cast<std::uint8_t>(c & 0xFF);
        raw[at + 1] = static_cast<std::uint8_t>(c >> 8);
    };
    for (int k = 0; k < blocks; ++k) {
        const std::size_t b = static_cast<std::size_t>(k) * 512;
        for (std::size_t at : {b, b + 2, b + 508, b + 510}) put(at, t);
        for (int i = 0; i < 126; ++i) {
            double ls = 0, hs = 0;
            const double p = dbm(126 * k + i);
            qvsim_detector_count(id, QVSIM_PATH_LS, p, freqHz, t, &ls);
            qvsim_detector_count(id, QVSIM_PATH_HS, p, freqHz, t, &hs);
            put(b + 4 + 4 * i, ls);
            put(b + 6 + 4 * i, hs);
        }
    }
    return raw;
}

}  // namespace qv::test
