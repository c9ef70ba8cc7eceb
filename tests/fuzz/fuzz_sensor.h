// The slot of the simulated sensor, initialised once per fuzzing process, whose
// calibration and settings the component fuzzers work with.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

#include "frame/lookups.h"
#include "support/export_args.h"

namespace qv::test {

inline int FuzzSlot() {
    static const int slot = [] {
        if (AddArgsSensor() < 0 || QV_InitializeSensor_SN(kArgsSerial) != 1) std::abort();
        return GetOwnedSlot_Addr(kArgsAddress);
    }();
    return slot;
}

// `size` bytes repeating `data` (zeros when it is empty).
inline std::vector<std::uint8_t> Cycled(const std::uint8_t* data, std::size_t n, std::size_t size) {
    std::vector<std::uint8_t> out(size, 0);
    for (std::size_t i = 0; n > 0 && i < size; ++i) out[i] = data[i % n];
    return out;
}

// Puts bytes at a path plainly (no flush to disk: the fuzzer writes thousands).
inline void PutFile(const std::string& path, const std::uint8_t* data, std::size_t size) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

}  // namespace qv::test
