// Device access: opening sensors, vendor requests, string descriptors and the
// sensor's non-volatile memory.
#pragma once

#include <cstdint>

#include "device/driver.h"

namespace qv {

// Vendor request codes the library sends.
enum RequestCode : std::uint8_t {
    kReqSweepStart = 177,
    kReqPacketStatus = 178,
    kReqStop1 = 179,
    kReqStop3 = 187,
    kReqTriggerInOff = 190,
    kReqTriggerInOn = 191,
    kReqTriggerOutOff = 192,
    kReqMeasureStart = 193,
    kReqMeasureAck = 194,
    kReqStop2 = 195,
    kReqAntiAliasingOff = 196,
    kReqAntiAliasingOn = 197,
    kReqRecorderOff = 198,
    kReqRecorderOn = 199,
    kReqTriggerOutOnWithInput = 200,
    kReqTriggerOutOnWithoutInput = 201,
    kReqTriggerInNotInverted = 202,
    kReqTriggerInInverted = 203,
    kReqTriggerOutNotInverted = 204,
    kReqTriggerOutInverted = 205,
    kReqLedOn = 206,
    kReqLedOff = 207,
    kReqTriggerThreshold = 212,
    kReqSelectLocation = 216,
    kReqWriteByte = 217,
    kReqReadWord = 218,
    kReqWriteBlock = 219,
    kReqReadBlock = 220,
    kReqMemoryPointer = 225,
    kReqMemoryWrite = 228,
    kReqMemoryRead = 229,
    kReqInitPing = 239,
    kReqWorkingBase = 242,
    kReqFirmwareLocation = 243,
    kReqBeginWrite = 252,
    kReqEndWrite = 253,
};

// Request type passed by the general request operations (vendor) and the
// complete request-type bytes used on the measurement path.
inline constexpr std::int32_t kRequestTypeVendor = 2;
inline constexpr std::int32_t kRequestTypeVendorOut = 0x40;
inline constexpr std::int32_t kRequestTypeVendorIn = 0xC0;

inline bool IsHandle(std::int64_t h) { return h != -1 && h != -2; }

// Opens device `index` (1-based); the handle, or -1.
std::int64_t OpenDevice_Idx(std::int32_t index);
// Opens device `index` that stands for the sensor with serial number `serial`
// (a slot's remembered index): the handle, or -1 when the device there now
// answers with another serial number or none. Indices shift when a sensor
// before it is unplugged, and a handle to whichever sensor moved into the place
// must never be taken for this one's.
std::int64_t OpenKnownDevice_Idx(std::int32_t index, const char* serial);
// Closes `h`; 0 for -1 and -2 (nothing to close), else the handle.
std::int64_t CloseDevice(std::int64_t h);
// Handle of the free sensor with serial number `serial`, or -1.
std::int64_t OpenDevice_SN(const char* serial);
// Handle of the sensor answering to `address`, or -1. A slot owned by the
// caller lends its handle (not to be closed); see `lent`.
std::int64_t OpenDevice_Addr(std::int32_t address, bool* lent = nullptr);

// One vendor request; the driver's result (bytes moved or negative), -2 when
// no WinUSB handle could be had or the driver failed.
std::int32_t VendorRequestOut(std::int64_t h, std::uint8_t request, std::uint8_t* buffer,
                              std::int32_t length);
std::int32_t VendorRequestIn(std::int64_t h, std::uint8_t request, std::uint8_t* buffer,
                             std::int32_t length);

// A command request: IN with `length` bytes, succeeds when at least one byte
// came back and it echoes the request code.
bool CommandRequest(std::int64_t h, std::uint8_t request, std::int32_t length = 1);

// String descriptors 3 (serial) and 2 (product): the driver's result, or
// -2 (empty), -3 (longer than the buffer allows), -5 (no handle, driver failed).
std::int32_t ReadSerialNumberString(std::int64_t h, char* buffer, std::int32_t size);
std::int32_t ReadProductString(std::int64_t h, char* buffer, std::int32_t size);

// Reads `length` bytes of SensorMemory at (region, position): 1, or the
// negative result of the failing request.
std::int32_t SensorMemoryRead(std::int64_t h, std::uint8_t region, std::uint16_t position,
                              std::uint8_t* data, std::int32_t length);

// Writes `length` bytes (at most 64) at (region, position) with the begin and
// end handshake: 1; `noBeginEcho` when 252 is not echoed (no data is then
// sent); `noEndEcho` when 253 is not echoed.
std::int32_t SensorMemoryWrite(std::int64_t h, std::uint8_t region, std::uint16_t position,
                               const std::uint8_t* data, std::int32_t length,
                               std::int32_t noBeginEcho, std::int32_t noEndEcho);

// A handle opened for one operation, closed on every path out of it. A handle
// borrowed from the caller's slot is not closed.
class TransientDevice {
public:
    TransientDevice() = default;
    TransientDevice(std::int64_t h, bool owned) : handle_(h), owned_(owned) {}
    ~TransientDevice() { Close(); }
    TransientDevice(const TransientDevice&) = delete;
    TransientDevice& operator=(const TransientDevice&) = delete;
    void Reset(std::int64_t h, bool owned) {
        Close();
        handle_ = h;
        owned_ = owned;
    }
    std::int64_t get() const { return handle_; }
    // Hands the handle over to the caller, who closes it from now on.
    std::int64_t Release() {
        const std::int64_t h = handle_;
        handle_ = -1;
        owned_ = false;
        return h;
    }
    bool Valid() const { return IsHandle(handle_); }
    // Closes now; the driver's close result is of no interest.
    void Close();

private:
    std::int64_t handle_ = -1;
    bool owned_ = false;
};

}  // namespace qv
