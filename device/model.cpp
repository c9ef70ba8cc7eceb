#include "device/model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "device/discovery.h"
#include "device/model_names.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv {

std::int32_t ModelFromProductString(const char* product) { return FindModelName(product, false); }

std::int32_t TraceModelFromProductString(const char* product) {
    return FindModelName(product, true);
}

bool IsTraceCapableModelIndex(std::int32_t model) {
    switch (model) {
        case 3: case 8: case 68: case 78: case 71: case 81: case 103: case 104: case 112:
        case 113:
            return true;
        default:
            return false;
    }
}

std::int32_t IsTraceCapableModel(std::int64_t h) {
    if (h == -1) return 0;
    char product[20] = {};
    if (ReadProductString(h, product, sizeof product) < 1) return 0;
    return IsTraceCapableModelIndex(TraceModelFromProductString(product)) ||
                   tableView->burstRunning == 1
               ? 1
               : 0;
}

std::int32_t ReadModel(std::int64_t h) {
    char product[30] = {};
    if (ReadProductString(h, product, sizeof product) < 2) return kUnknownModel;
    return ModelFromProductString(product);
}

std::int32_t ReadCalDueDate(std::int64_t h, std::int32_t* year, std::int32_t* month,
                            std::int32_t* day) {
    std::uint8_t dateBuff[3] = {};
    if (SensorMemoryRead(h, 2, 0, dateBuff, 3) < 0) return -1;
    *year = dateBuff[0];
    *month = dateBuff[1];
    *day = dateBuff[2];
    return 1;
}

std::int32_t WriteCalDueDate(std::int64_t h, std::int32_t year, std::int32_t month,
                             std::int32_t day) {
    if (!(year > 0 && year < 100) || month < 1 || month > 12 || day < 1 || day > 31) return -1;
    std::uint8_t tmpBuff[3] = {2, 0, 0};
    VendorRequestOut(h, kReqMemoryPointer, tmpBuff, 3);
    if (VendorRequestIn(h, kReqBeginWrite, tmpBuff, 3) < 1 || tmpBuff[0] != kReqBeginWrite)
        return -2;
    std::uint8_t dateBuff[3] = {static_cast<std::uint8_t>(year), static_cast<std::uint8_t>(month),
                                static_cast<std::uint8_t>(day)};
    VendorRequestOut(h, kReqMemoryWrite, dateBuff, 3);
    if (VendorRequestIn(h, kReqEndWrite, dateBuff, 1) < 1) return -3;
    return dateBuff[0] == kReqEndWrite ? 1 : -3;
}

std::int32_t GetModelNumber_SN(const char* serial, std::int32_t* model) {
    if (!model) return -1;
    if (!IsValidSerialNumber(serial)) return -2;
    if (DeviceCount() < 1) return -1;
    const std::int32_t slot = InUseSlotBySerial(serial);
    if (slot != kNoSlot) {
        *model = Slot(slot).identity.ModelIndex;
        return 1;
    }
    TransientDevice device(OpenDevice_SN(serial), true);
    if (!device.Valid()) return -5;
    char product[30] = {};
    if (ReadProductString(device.get(), product, sizeof product) < 2) return -5;
    const std::int32_t m = ModelFromProductString(product);
    *model = m;
    return m != kUnknownModel ? 1 : -1;
}

std::int32_t GetModelNumber_Addr(std::int32_t address, std::int32_t* model) {
    if (!model) return -1;
    *model = kUnknownModel;
    if (!IsValidAddress(address)) return -2;
    const std::int32_t n = DeviceCount();
    if (n < 1) return -1;
    if (IsDeviceInUse_Addr(address) == 1) {
        *model = Slot(GetInUseSlotByAddress(address)).identity.ModelIndex;
        return 1;
    }
    for (std::int32_t i = 1; i <= n; ++i) {
        if (InUseSlotByDevId(i) != kNoSlot) continue;
        TransientDevice device(OpenDevice_Idx(i), true);
        if (!device.Valid()) return -5;
        std::int32_t found = 0;
        if (ReadSensorAddress(device.get(), &found) == 1 && found == address) {
            char product[30] = {};
            if (ReadProductString(device.get(), product, sizeof product) > 0)
                *model = ModelFromProductString(product);
        }
        device.Close();
        if (*model != kUnknownModel) return 1;
    }
    return -1;
}

std::int32_t GetModelNumber_Idx(std::int32_t index, std::int32_t* model) {
    if (!model) return -1;
    *model = kUnknownModel;
    const std::int32_t device = DeviceIndexMagnitude(index);
    if (!IsValidDeviceIndex(device)) return -2;
    const std::int32_t slot = InUseSlotByDevId(device);
    if (slot != kNoSlot) {
        *model = Slot(slot).identity.ModelIndex;
        return 1;
    }
    TransientDevice opened(OpenDevice_Idx(device), true);
    if (!opened.Valid()) return -5;
    *model = ReadModel(opened.get());
    return *model == kUnknownModel ? -1 : 1;
}

std::int32_t GetFirmwareVersion(std::int32_t address, char* buffer, std::int32_t length) {
    if (!buffer) return -1;
    if (!IsValidAddress(address) || length < 14) return -1;
    if (DeviceCount() < 1) return -1;
    TransientDevice device;
    std::int32_t devId = 0, slot = kNoSlot;
    char serial[kSerialChars + 1] = {};
    if (LookupSlot_Addr(address, &devId, &slot, serial) == 1 && Slot(slot).inUse == 1) {
        if (!OwnedByCaller(slot)) return -1;
        device.Reset(Slot(slot).deviceHandle, false);
    } else {
        bool lent = false;
        const std::int64_t h = OpenDevice_Addr(address, &lent);
        device.Reset(h, !lent);
    }
    if (!device.Valid()) return -1;
    std::uint8_t cmdBuff[10] = {};
    if (VendorRequestIn(device.get(), kReqFirmwareLocation, cmdBuff, 3) < 0) return -1;
    cmdBuff[0] = cmdBuff[1];
    cmdBuff[1] = cmdBuff[2];
    if (VendorRequestOut(device.get(), kReqSelectLocation, cmdBuff, 2) < 0) return -1;
    std::uint8_t lclBuff[64] = {};
    if (VendorRequestIn(device.get(), kReqReadBlock, lclBuff, 64) < 0) return -1;
    // Never more than the caller said it has: the text and its terminator.
    const std::size_t clear = std::min<std::size_t>(15, static_cast<std::size_t>(length));
    std::memset(buffer, 0, clear);
    std::size_t n = 0;
    while (n < 14 && n + 1 < clear && lclBuff[n] != 0) {
        buffer[n] = static_cast<char>(lclBuff[n]);
        ++n;
    }
    return 1;
}

std::int32_t GetCalDueDate(const char* serial, std::int32_t* year, std::int32_t* month,
                           std::int32_t* day) {
    if (!serial || !year || !month || !day) return -1;
    TransientDevice device;
    const std::int32_t slot = InUseSlotBySerial(serial);
    if (slot != kNoSlot) {
        if (!OwnedByCaller(slot)) return -5;
        device.Reset(Slot(slot).deviceHandle, false);
    } else {
        device.Reset(OpenDevice_SN(serial), true);
    }
    if (!device.Valid()) return -5;
    std::int32_t y = 0, m = 0, d = 0;
    const std::int32_t r = ReadCalDueDate(device.get(), &y, &m, &d);
    if (r == 1) {
        *year = y;
        *month = m;
        *day = d;
    }
    return r;
}

std::int32_t SetCalDueDate(const char* serial, std::int32_t year, std::int32_t month,
                           std::int32_t day) {
    if (!serial) return -1;
    if (IsDeviceMine_SN(serial) != 1) return -1;
    const std::int32_t slot = InUseSlotBySerial(serial);
    if (slot == kNoSlot) return -1;
    const std::int64_t h = Slot(slot).deviceHandle;
    if (!IsHandle(h)) return -5;
    return WriteCalDueDate(h, year, month, day);
}

}  // namespace qv
