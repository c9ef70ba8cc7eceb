// Arguments for calling any export, drawn from a byte string: edge values,
// null pointers, unterminated strings, and output buffers with guard bytes on
// both sides so that a write past the room the caller gave is seen.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "qv_api2.h"
#include "sim/qvsim.h"

namespace qv::test {

// Reads values off a byte string; zeros once it is used up.
class ByteSource {
public:
    ByteSource(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    template <class T>
    T Take() {
        T value {};
        const std::size_t n = std::min(sizeof(T), size_);
        std::memcpy(&value, data_, n);
        data_ += n;
        size_ -= n;
        return value;
    }
    std::uint8_t Byte() { return Take<std::uint8_t>(); }
    bool Empty() const { return size_ == 0; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

// The simulated sensor the calls mostly aim at.
inline constexpr std::int32_t kArgsAddress = 9;
inline constexpr const char* kArgsSerial = "FUZZ01";

class ExportArgs {
public:
    // Largest buffer handed over: a count that gives a buffer's room is
    // backed by a real buffer, since an export may fill all of it.
    static constexpr std::int32_t kMaxRoom = 1 << 16;
    static constexpr std::size_t kGuard = 64;
    static constexpr std::uint8_t kGuardByte = 0xA5;

    explicit ExportArgs(ByteSource& in) : in_(in) {}

    std::int32_t Address() { return in_.Byte() < 192 ? kArgsAddress : Int(); }
    std::int32_t Int() {
        static constexpr std::int32_t kEdges[] = {INT32_MIN, -256, -1, 0, 1, 2, 3, 4, 5, 7, 9, 10,
                                                  11, 12, 15, 16, 19, 20, 100, 199, 200, 201, 254,
                                                  255, 256, 1000, 9999, 10000, 65535, INT32_MAX};
        const std::uint8_t b = in_.Byte();
        if (b < 160) return kEdges[b % std::size(kEdges)];
        return b < 224 ? b - 192 : in_.Take<std::int32_t>();
    }
    // A count that sizes no buffer: may be huge.
    std::int32_t Count() {
        static constexpr std::int32_t kEdges[] = {INT32_MIN, -1, 0, 1, 2, 5, 6, 7, 13, 14, 20, 21,
                                                  42, 200, 201, 202, 1000, 10000, 10001, INT32_MAX};
        const std::uint8_t b = in_.Byte();
        return b < 160 ? kEdges[b % std::size(kEdges)] : b - 160;
    }
    // A count that gives a buffer's room.
    std::int32_t BufferCount() { return std::min(Count(), kMaxRoom); }
    double Real() {
        static constexpr double kEdges[] = {0.0, -0.0, 1.0, -1.0, 1e-300, 1e300, -1e300, 50e6,
                                            6e9, -200.0, -70.0, 20.0, 100.0, 1e6,
                                            std::numeric_limits<double>::infinity(),
                                            -std::numeric_limits<double>::infinity(),
                                            std::numeric_limits<double>::quiet_NaN()};
        const std::uint8_t b = in_.Byte();
        if (b < 136) return kEdges[b % std::size(kEdges)];
        return b < 240 ? b - 200.0 : in_.Take<double>();
    }
    // A string argument: null, the sensor's serial, a path-like name, bytes
    // from the input with a terminator, or 64 bytes without one (longer than
    // any name the library takes, so it must stop reading before the end).
    const char* Text() {
        static constexpr const char* kNames[] = {kArgsSerial, "fuzz01", "State_1", "", "..",
                                                 "../x", "a/b", "a\\b", "C:x", "FUZZ01x", "*"};
        const std::uint8_t b = in_.Byte();
        if (b < 16) return nullptr;
        if (b < 128) return kNames[b % std::size(kNames)];
        const std::size_t n = b < 192 ? b % 24 : 64;
        auto text = std::make_unique<char[]>(n + (b < 192 ? 1 : 0));
        for (std::size_t i = 0; i < n; ++i) text[i] = static_cast<char>(in_.Byte() | 1);
        if (b < 192) text[n] = '\0';
        texts_.push_back(std::move(text));
        return texts_.back().get();
    }
    InstrumentState State() {
        InstrumentState s {};
        auto* bytes = reinterpret_cast<std::uint8_t*>(&s);
        for (std::size_t i = 0; i < sizeof s; i += 4) {
            const std::int32_t v = Int();
            std::memcpy(bytes + i, &v, std::min<std::size_t>(4, sizeof s - i));
        }
        return s;
    }
    // An output of `room` elements (none for a negative room), or null.
    template <class T>
    T* Out(std::int32_t room) {
        if (in_.Byte() < 8) return nullptr;
        return reinterpret_cast<T*>(Guarded(Room(room) * sizeof(T)));
    }
    // An input of `count` elements drawn from the input, or null.
    template <class T>
    const T* In(std::int32_t count) {
        if (in_.Byte() < 8) return nullptr;
        const std::size_t n = Room(count);
        auto* p = reinterpret_cast<T*>(Guarded(n * sizeof(T)));
        for (std::size_t i = 0; i < n; ++i) {
            if constexpr (std::is_same_v<T, double>) p[i] = Real();
            else if constexpr (std::is_same_v<T, std::int32_t>) p[i] = Int();
            else p[i] = T {Real(), Real()};
        }
        return p;
    }
    // A count in a pointer that gives the room of another output: null or its value.
    std::int32_t* InOutCount() {
        std::int32_t* p = Out<std::int32_t>(1);
        if (p) *p = BufferCount();
        return p;
    }
    std::int32_t RoomOf(const std::int32_t* count) const { return count ? *count : 0; }

    // The first guard byte changed, as a text; empty when every guard holds.
    std::string DamagedGuard() const {
        for (std::size_t b = 0; b < buffers_.size(); ++b) {
            const Buffer& buf = buffers_[b];
            for (std::size_t i = 0; i < buf.bytes + 2 * kGuard; ++i) {
                if (i >= kGuard && i < kGuard + buf.bytes) continue;
                if (buf.memory[i] != kGuardByte)
                    return "buffer " + std::to_string(b) + " of " + std::to_string(buf.bytes) +
                           " bytes: byte " + std::to_string(static_cast<long>(i - kGuard)) +
                           " changed";
            }
        }
        return {};
    }

private:
    struct Buffer {
        std::unique_ptr<std::uint8_t[]> memory;
        std::size_t bytes;
    };
    static std::size_t Room(std::int32_t n) {
        return static_cast<std::size_t>(std::clamp(n, 0, kMaxRoom));
    }
    void* Guarded(std::size_t bytes) {
        // Exactly this size on the heap, so that the address sanitiser also
        // sees any access beyond the guards.
        auto memory = std::make_unique<std::uint8_t[]>(bytes + 2 * kGuard);
        std::memset(memory.get(), kGuardByte, bytes + 2 * kGuard);
        std::uint8_t* inside = memory.get() + kGuard;
        buffers_.push_back({std::move(memory), bytes});
        return inside;
    }

    ByteSource& in_;
    std::vector<std::unique_ptr<char[]>> texts_;
    std::vector<Buffer> buffers_;
};

// One export and how to call it (kExportCalls below lists every export).
struct ExportCall {
    const char* name;
    std::int32_t (*call)(ExportArgs& a);
};

// A fresh simulated bus with the trace-capable sensor the calls aim at; its id.
inline int AddArgsSensor() {
    if (qvsim_bus_create(nullptr) != QVSIM_OK) return -1;
    qvsim_sensor_config config;
    qvsim_sensor_config_init(&config);
    config.serial = kArgsSerial;
    config.address = kArgsAddress;
    config.product = "QV442A";
    return qvsim_sensor_add(&config);
}

// Puts the sensor back at its address and initialised by this process, as
// earlier calls may have left it otherwise.
inline void RestoreArgsSensor() {
    if (QV_GetAddress_SN(kArgsSerial) != kArgsAddress) QV_SetAddress_SN(kArgsSerial, kArgsAddress);
    QV_InitializeSensor_SN(kArgsSerial);
}

// Keeps each call short: up to 100,000 averages are valid, but every one
// is a block the simulated sensor makes and the library converts.
inline void LimitArgsAverages() {
    std::int32_t averages = 0;
    if (QV_GetAverages(kArgsAddress, &averages) == 1 && averages > 64) QV_SetAverages(kArgsAddress, 4);
}

}  // namespace qv::test

// The generated table of every export (tests/fuzz/gen_export_calls.py).
#ifdef QV_EXPORT_CALLS_INC
namespace qv::test {
#define QV_EXPORT_CALL(fn, ...) {#fn, []([[maybe_unused]] ExportArgs& a) -> std::int32_t { __VA_ARGS__ }},
inline const ExportCall kExportCalls[] = {
#include QV_EXPORT_CALLS_INC
};
#undef QV_EXPORT_CALL

}  // namespace qv::test
#endif
