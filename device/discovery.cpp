#include "device/discovery.h"

#include <cstdlib>
#include <string>

#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv {

std::int32_t DeviceCount() {
    try {
        return driver::GetDevCount();
    } catch (const DriverFault&) {
        return -2;
    }
}

std::int32_t ReadSensorAddress(std::int64_t h, std::int32_t* address) {
    std::uint8_t value = 0;
    const std::int32_t r = SensorMemoryRead(h, kAddressRegion, kAddressPosition, &value, 1);
    if (r < 0) return r;
    *address = value;
    return 1;
}

std::int32_t WriteSensorAddress(std::int64_t h, std::int32_t address) {
    if (address < 1 || address > 255) return -1;
    const std::uint8_t value = static_cast<std::uint8_t>(address);
    return SensorMemoryWrite(h, kAddressRegion, kAddressPosition, &value, 1, -4, -5);
}

std::int32_t SerialFromDevicePath(std::int32_t index, char* serial) {
    const std::int32_t device = std::abs(index);
    const std::int32_t n = DeviceCount();
    if (device == 0 || n < device) return -5;
    std::string path;
    try {
        path = driver::GetDevicePath(device - 1);
    } catch (const DriverFault&) {
        return -5;
    }
    const std::size_t first = path.find('#');
    const std::size_t second = first == std::string::npos ? first : path.find('#', first + 1);
    if (second == std::string::npos || path.size() < second + 1 + kSerialChars) return -5;
    char found[kSerialChars + 1] = {};
    for (int i = 0; i < kSerialChars; ++i) {
        const char c = path[second + 1 + i];
        found[i] = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
        serial[i] = found[i];
    }
    std::int32_t address = 0, devId = 0, slot = kNoSlot;
    if (LookupSlot_SN(found, &address, &devId, &slot) == 1 && devId != device)
        Slot(slot).devId = device;
    return 1;
}

std::int32_t GetIndex_Addr(std::int32_t address) {
    if (address < 0 || address > 255) return -1;
    const std::int32_t n = DeviceCount();
    if (n < 1) return 0;
    for (std::int32_t i = 1; i <= n; ++i) {
        const std::int32_t slot = InUseSlotByDevId(i);
        if (slot != kNoSlot) {
            if (Slot(slot).address == address) return i;
            continue;
        }
        TransientDevice device(OpenDevice_Idx(i), true);
        if (!device.Valid()) return -5;
        std::int32_t tempAddr = 0;
        const bool read = ReadSensorAddress(device.get(), &tempAddr) == 1;
        device.Close();
        if (read && tempAddr == address) return i;
    }
    return 0;
}

}  // namespace qv
