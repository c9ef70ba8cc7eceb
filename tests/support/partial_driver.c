/* A driver library that lacks most of the twelve functions. (On Windows the
 * linker exports it: a DLL that marks nothing for export exports everything.) */
#include <stdint.h>

__attribute__((visibility("default"))) int32_t QV_USBDRVD_GetDevCount(const void* guid) {
    (void)guid;
    return 3;
}
