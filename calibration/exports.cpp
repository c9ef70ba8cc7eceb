// Exports of sensor initialisation and ownership.
#include "calibration/ownership.h"
#include "frame/frame.h"

using namespace qv;

extern "C" {

QV_API int32_t QV_InitializeSensor_SN(const char* serial) {
    return Enter([&] { return InitializeSensor_SN(serial); });
}

QV_API int32_t QV_InitializeSensor_Addr(int32_t address) {
    return Enter([&] { return InitializeSensor_Addr(address); });
}

QV_API int32_t QV_InitializeSensor_Idx(int32_t index) {
    return Enter([&] { return InitializeSensor_Idx(index); });
}

QV_API int32_t QV_UninitializeSensor_SN(const char* serial) {
    return Enter([&] { return UninitializeSensor_SN(serial); });
}

QV_API int32_t QV_ReInit_Addr(int32_t address) {
    return Enter([&] { return ReInit_Addr(address); });
}

QV_API int32_t QV_ReInit_Idx(int32_t index) {
    return Enter([&] { return ReInit_Idx(index); });
}

QV_API int32_t QV_IsDeviceInUse_Idx(int32_t index) {
    return Enter([&] { return IsDeviceInUse_Idx(index); });
}

QV_API int32_t QV_IsDeviceMine_Idx(int32_t index) {
    return Enter([&] { return IsDeviceMine_Idx(index); });
}

}  // extern "C"
