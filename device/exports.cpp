// Exports of discovery, addresses, LED, model, firmware and due date.
#include "device/discovery.h"
#include "device/model.h"
#include "frame/frame.h"

using namespace qv;

extern "C" {

QV_API int32_t QV_SensorCnt(void) { return Enter([] { return SensorCnt(); }); }

QV_API int32_t QV_SensorList(SensorListEntry* list, int32_t length) {
    return Enter([&] { return SensorList(list, length); });
}

QV_API int32_t QV_GetIndex_SN(const char* serial) {
    return Enter([&] { return GetIndex_SN(serial); });
}

QV_API int32_t QV_GetIndex_Addr(int32_t address) {
    return Enter([&] { return GetIndex_Addr(address); });
}

QV_API int32_t QV_GetSerNo_Addr(int32_t address, char* serial) {
    return Enter([&] { return GetSerNo_Addr(address, serial); });
}

QV_API int32_t QV_GetSerNo_Idx(int32_t index, char* serial) {
    return Enter([&] { return GetSerNo_Idx(index, serial); });
}

QV_API int32_t QV_GetAddress_SN(const char* serial) {
    return Enter([&] { return GetAddress_SN(serial); });
}

QV_API int32_t QV_GetAddress_Idx(int32_t index) {
    return Enter([&] { return GetAddress_Idx(index); });
}

QV_API int32_t QV_SetAddress_SN(const char* serial, int32_t address) {
    return Enter([&] { return SetAddress_SN(serial, address); });
}

QV_API int32_t QV_SetAddress_Idx(int32_t index, int32_t address) {
    return Enter([&] { return SetAddress_Idx(index, address); });
}

QV_API int32_t QV_ChangeAddress(int32_t oldAddress, int32_t newAddress) {
    return Enter([&] { return ChangeAddress(oldAddress, newAddress); });
}

QV_API int32_t QV_AddressConflictExists(void) {
    return Enter([] { return AddressConflictExists(); });
}

QV_API int32_t QV_WillAddressConflict(int32_t address) {
    return Enter([&] { return WillAddressConflict(address); });
}

QV_API int32_t QV_IsSensorConnected_SN(const char* serial) {
    return Enter([&] { return IsSensorConnected_SN(serial); });
}

QV_API int32_t QV_IsSensorConnected_Addr(int32_t address) {
    return Enter([&] { return IsSensorConnected_Addr(address); });
}

QV_API int32_t QV_BlinkLED_SN(const char* serial) {
    return Enter([&] { return BlinkLED_SN(serial); });
}

QV_API int32_t QV_BlinkLED_Addr(int32_t address) {
    return Enter([&] { return BlinkLED_Addr(address); });
}

QV_API int32_t QV_BlinkLED_Idx(int32_t index) {
    return Enter([&] { return BlinkLED_Idx(index); });
}

QV_API int32_t QV_GetModelNumber_SN(const char* serial, int32_t* model) {
    return Enter([&] { return GetModelNumber_SN(serial, model); });
}

QV_API int32_t QV_GetModelNumber_Addr(int32_t address, int32_t* model) {
    return Enter([&] { return GetModelNumber_Addr(address, model); });
}

QV_API int32_t QV_GetModelNumber_Idx(int32_t index, int32_t* model) {
    return Enter([&] { return GetModelNumber_Idx(index, model); });
}

QV_API int32_t QV_GetFirmwareVersion(int32_t address, char* buffer, int32_t length) {
    return Enter([&] { return GetFirmwareVersion(address, buffer, length); });
}

QV_API int32_t QV_GetCalDueDate(const char* serial, int32_t* year, int32_t* month, int32_t* day) {
    return Enter([&] { return GetCalDueDate(serial, year, month, day); });
}

QV_API int32_t QV_SetCalDueDate(const char* serial, int32_t year, int32_t month, int32_t day) {
    return Enter([&] { return SetCalDueDate(serial, year, month, day); });
}

}  // extern "C"
