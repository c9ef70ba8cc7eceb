// What every driver library (the simulated sensors', the libusb one) shares,
// included by its exports after it declares the twelve QV_USBDRVD_ functions:
// each must have exactly the type QV_API2 loads it as.
#pragma once

#include <string>
#include <type_traits>

#include "device/driver_abi.h"

static_assert(std::is_same_v<decltype(&QV_USBDRVD_GetDevCount), QvDrv_GetDevCount>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_GetDevicePath), QvDrv_GetDevicePath>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_OpenDevHandle), QvDrv_OpenDevHandle>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_CloseDevHandle), QvDrv_CloseDevHandle>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_OpenWinUSBHandle), QvDrv_OpenWinUSBHandle>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_CloseWinUSBHandle), QvDrv_CloseWinUSBHandle>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_GetStringDescriptorLengthA), QvDrv_GetStringDescriptorLengthA>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_GetStringDescriptorA), QvDrv_GetStringDescriptorA>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_VendorOrClassRequestOut), QvDrv_VendorOrClassRequestOut>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_VendorOrClassRequestIn), QvDrv_VendorOrClassRequestIn>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_PipeReadTimeout), QvDrv_PipeReadTimeout>);
static_assert(std::is_same_v<decltype(&QV_USBDRVD_PipeWriteTimeout), QvDrv_PipeWriteTimeout>);

// Writes a device path as GetDevicePath returns it: wide characters with a
// terminator; 0 (nothing usable) when it does not fit in `pathChars`.
inline int32_t WriteDevicePath(const std::string& text, QvWideChar* path, int32_t pathChars) {
    const auto characters = static_cast<int32_t>(text.size());
    if (characters >= pathChars) return 0;
    for (int32_t i = 0; i < characters; ++i) path[i] = static_cast<unsigned char>(text[static_cast<std::size_t>(i)]);
    path[characters] = 0;
    return characters;
}
