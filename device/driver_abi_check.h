// Included by a driver library's exports after it declares the twelve
// QV_USBDRVD_ functions: each must have exactly the type QV_API2 loads it as.
#pragma once

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
