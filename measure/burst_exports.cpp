// Export of the burst measurement.
#include "frame/frame.h"
#include "measure/burst.h"

using namespace qv;

extern "C" {

QV_API int32_t QV_MeasureBurst_DBM(int32_t address, int32_t start, int32_t length, int32_t trigger,
                                   double* maximum, double* average, double* minimum) {
    return Enter([&] { return MeasureBurstRunning(address, start, length, trigger, maximum, average, minimum); });
}

}  // extern "C"
