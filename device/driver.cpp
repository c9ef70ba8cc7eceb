#include "device/driver.h"

#include <mutex>

#include "platform/platform.h"

namespace qv {

const QvGuid kSensorClassGuid = {
    0x8BC86AFD, 0xF393, 0x458D, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};

namespace {

struct DriverTable {
    std::uintptr_t library = 0;
    QvDrv_GetDevCount getDevCount = nullptr;
    QvDrv_GetDevicePath getDevicePath = nullptr;
    QvDrv_OpenDevHandle openDevHandle = nullptr;
    QvDrv_CloseDevHandle closeDevHandle = nullptr;
    QvDrv_OpenWinUSBHandle openWinUSBHandle = nullptr;
    QvDrv_CloseWinUSBHandle closeWinUSBHandle = nullptr;
    QvDrv_GetStringDescriptorLengthA getStringDescriptorLength = nullptr;
    QvDrv_GetStringDescriptorA getStringDescriptor = nullptr;
    QvDrv_VendorOrClassRequestOut requestOut = nullptr;
    QvDrv_VendorOrClassRequestIn requestIn = nullptr;
    QvDrv_PipeReadTimeout pipeRead = nullptr;
    QvDrv_PipeWriteTimeout pipeWrite = nullptr;
};

// Per process: driver handles and function addresses mean nothing elsewhere.
std::mutex g_loadGuard;
DriverTable g_driver;

// Failed loads are tried again on every call: each kind of failure is said
// once, until a load succeeds.
enum class LoadFailure { kNone, kNotLoaded, kIncomplete };
LoadFailure g_lastFailure = LoadFailure::kNone;

bool Told(LoadFailure failure) {
    const bool told = g_lastFailure == failure;
    g_lastFailure = failure;
    return told;
}

// Binds one function; the first name that fails is kept for the log line.
template <class Fn>
bool Bind(std::uintptr_t library, const char* name, Fn& fn, const char*& missing) {
    fn = reinterpret_cast<Fn>(platform::LibrarySymbol(library, name));
    if (fn == nullptr && missing == nullptr) missing = name;
    return fn != nullptr;
}

const DriverTable* Load() {
    std::lock_guard<std::mutex> guard(g_loadGuard);
    // A failed load is tried again on the next call: the driver may be
    // installed while an application keeps running.
    if (g_driver.library) return &g_driver;
    std::string file = platform::GetEnv(platform::kEnvDriver);
    if (file.empty()) file = platform::DefaultDriverFile();
    DriverTable t;
    t.library = platform::LibraryLoad(file.c_str());
    if (!t.library) {
        if (platform::LogEnabled() && !Told(LoadFailure::kNotLoaded))
            platform::Log("the sensor driver library %s could not be loaded (%s); set %s to its path",
                          file.c_str(), platform::LibraryLoadError().c_str(), platform::kEnvDriver);
        return nullptr;
    }
    const char* missing = nullptr;
    const bool complete =
        Bind(t.library, "QV_USBDRVD_GetDevCount", t.getDevCount, missing) &&
        Bind(t.library, "QV_USBDRVD_GetDevicePath", t.getDevicePath, missing) &&
        Bind(t.library, "QV_USBDRVD_OpenDevHandle", t.openDevHandle, missing) &&
        Bind(t.library, "QV_USBDRVD_CloseDevHandle", t.closeDevHandle, missing) &&
        Bind(t.library, "QV_USBDRVD_OpenWinUSBHandle", t.openWinUSBHandle, missing) &&
        Bind(t.library, "QV_USBDRVD_CloseWinUSBHandle", t.closeWinUSBHandle, missing) &&
        Bind(t.library, "QV_USBDRVD_GetStringDescriptorLengthA", t.getStringDescriptorLength, missing) &&
        Bind(t.library, "QV_USBDRVD_GetStringDescriptorA", t.getStringDescriptor, missing) &&
        Bind(t.library, "QV_USBDRVD_VendorOrClassRequestOut", t.requestOut, missing) &&
        Bind(t.library, "QV_USBDRVD_VendorOrClassRequestIn", t.requestIn, missing) &&
        Bind(t.library, "QV_USBDRVD_PipeReadTimeout", t.pipeRead, missing) &&
        Bind(t.library, "QV_USBDRVD_PipeWriteTimeout", t.pipeWrite, missing);
    if (!complete) {
        // A driver without all twelve functions is not used at all.
        if (platform::LogEnabled() && !Told(LoadFailure::kIncomplete))
            platform::Log("the sensor driver library %s lacks the function %s and is not used", file.c_str(),
                          missing);
        platform::LibraryUnload(t.library);
        return nullptr;
    }
    g_driver = t;
    g_lastFailure = LoadFailure::kNone;
    return &g_driver;
}

const DriverTable& Driver() {
    const DriverTable* t = Load();
    if (!t) throw DriverFault{};
    return *t;
}

// Calls into the driver; anything it throws becomes DriverFault.
template <class Fn, class... Args>
auto Call(Fn fn, Args... args) {
    try {
        return fn(args...);
    } catch (...) {
        throw DriverFault{};
    }
}

}  // namespace

bool DriverAvailable() { return Load() != nullptr; }

void UnloadDriver() {
    std::lock_guard<std::mutex> guard(g_loadGuard);
    if (g_driver.library) platform::LibraryUnload(g_driver.library);
    g_driver = DriverTable{};
    g_lastFailure = LoadFailure::kNone;
}

namespace driver {

std::int32_t GetDevCount() { return Call(Driver().getDevCount, &kSensorClassGuid); }

std::string GetDevicePath(std::int32_t index0) {
    QvWideChar wide[QV_DRV_DEVICE_PATH_CHARS] = {};
    Call(Driver().getDevicePath, index0, &kSensorClassGuid, wide,
         static_cast<std::int32_t>(QV_DRV_DEVICE_PATH_CHARS));
    std::string narrow;
    for (QvWideChar c : wide) {
        if (c == 0) break;
        narrow.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    }
    return narrow;
}

QvDrvHandle OpenDevHandle(std::int32_t index0) {
    return Call(Driver().openDevHandle, index0, std::int32_t{0}, &kSensorClassGuid);
}

void CloseDevHandle(QvDrvHandle device) { Call(Driver().closeDevHandle, device); }

QvDrvHandle OpenWinUSBHandle(QvDrvHandle device) {
    return Call(Driver().openWinUSBHandle, device);
}

void CloseWinUSBHandle(QvDrvHandle winusb) { Call(Driver().closeWinUSBHandle, winusb); }

std::int32_t GetStringDescriptorLength(QvDrvHandle winusb, std::int32_t stringIndex) {
    return Call(Driver().getStringDescriptorLength, winusb,
                std::int32_t{QV_DRV_STRING_DESCRIPTOR_ARG}, stringIndex);
}

std::int32_t GetStringDescriptor(QvDrvHandle winusb, std::int32_t stringIndex,
                                 std::int32_t length, char* buffer) {
    return Call(Driver().getStringDescriptor, winusb,
                std::int32_t{QV_DRV_STRING_DESCRIPTOR_ARG}, stringIndex, length, buffer);
}

std::int32_t RequestOut(QvDrvHandle winusb, std::int32_t requestType, std::int32_t request,
                        std::uint8_t* buffer, std::int32_t length) {
    return Call(Driver().requestOut, winusb, requestType, std::int32_t{0}, request,
                std::int32_t{0}, std::int32_t{0}, buffer, length);
}

std::int32_t RequestIn(QvDrvHandle winusb, std::int32_t requestType, std::int32_t request,
                       std::uint8_t* buffer, std::int32_t length) {
    return Call(Driver().requestIn, winusb, requestType, std::int32_t{0}, request,
                std::int32_t{0}, std::int32_t{0}, buffer, length);
}

std::int32_t PipeRead(QvDrvHandle winusb, std::uint8_t* buffer, std::uint32_t length,
                      std::uint32_t* transferred, std::uint32_t timeoutMs) {
    return Call(Driver().pipeRead, winusb, std::int32_t{QV_DRV_PIPE_IN}, buffer, length,
                transferred, timeoutMs);
}

std::int32_t PipeWrite(QvDrvHandle winusb, std::uint8_t* buffer, std::uint32_t length,
                       std::uint32_t* transferred, std::uint32_t timeoutMs) {
    return Call(Driver().pipeWrite, winusb, std::int32_t{QV_DRV_PIPE_OUT}, buffer, length,
                transferred, timeoutMs);
}

}  // namespace driver

}  // namespace qv
