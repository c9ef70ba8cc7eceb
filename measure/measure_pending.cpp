// Placeholder operations until the measurement core lands: every call refuses.
#include "measure/measure.h"

#include "qv_api2.h"

namespace qv {

std::int32_t MeasureCW(std::int32_t, double*) { return QV_ERR_GENERAL; }
std::int32_t MeasureCW_PF(std::int32_t, double*, std::int32_t*) { return QV_ERR_GENERAL; }
std::int32_t MeasurePulse(std::int32_t, double*, double*, double*, double*) { return QV_ERR_GENERAL; }
std::int32_t MeasurePulse_PF(std::int32_t, double*, double*, double*, double*, std::int32_t*) {
    return QV_ERR_GENERAL;
}
std::int32_t GetExtendedAveragingEnabled(std::int32_t, std::int32_t*) { return QV_ERR_GENERAL; }
std::int32_t SetExtendedAveragingEnabled(std::int32_t, std::int32_t) { return QV_ERR_GENERAL; }
std::int32_t GetExtendedAveraging(std::int32_t, std::int32_t*) { return QV_ERR_GENERAL; }
std::int32_t SetExtendedAveraging(std::int32_t, std::int32_t) { return QV_ERR_GENERAL; }
std::int32_t ResetExtendedAveraging(std::int32_t) { return QV_ERR_GENERAL; }
std::int32_t GetMaxHoldEnabled(std::int32_t, std::int32_t*) { return QV_ERR_GENERAL; }
std::int32_t SetMaxHoldEnabled(std::int32_t, std::int32_t) { return QV_ERR_GENERAL; }
std::int32_t ResetMaxHold(std::int32_t) { return QV_ERR_GENERAL; }

}  // namespace qv
