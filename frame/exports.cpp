// Exports of the library frame.
#include "frame/frame.h"

using namespace qv;

extern "C" {

QV_API int32_t QV_SetSysTimeOut(int32_t timeOutMs) {
    return Enter([&] { return SetSysTimeOut(timeOutMs); });
}

QV_API int32_t QV_DriverVersion(void) {
    return EnterWithoutLock([] { return DriverVersion(); });
}

}  // extern "C"
