#include "measure/corrections.h"

#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "settings/limits.h"
#include "settings/units.h"

namespace qv {

std::int32_t OwnedMeasurementSlot(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    return GetOwnedSlot_Addr(address);
}

double Correction75Ohms(std::int32_t powerUnits) {
    switch (powerUnits) {
        case QV_UNIT_DBM: case QV_UNIT_DBW: case QV_UNIT_DBKW: case QV_UNIT_W:
            return 5.72;
        case QV_UNIT_DBUV: case QV_UNIT_DBMV: case QV_UNIT_DBV: case QV_UNIT_V:
            return 7.48;
        default:
            return 0.0;
    }
}

double CWReadingToDbm(std::int32_t slot, double reading) {
    return LimitUnitsToDbm(slot, reading, Slot(slot).current.PowerUnits);
}

double PulseReadingToDbm(std::int32_t slot, double reading) {
    const InstrumentState& s = Slot(slot).current;
    if (s.PowerUnits != QV_UNIT_DB_REL) return UnitsToDbm(reading, s.PowerUnits);
    return reading + UnitsToDbm(s.PlsRefPulse, s.PulseRefUnits);
}

std::int32_t LimitVerdict(std::int32_t slot, double dbm) {
    switch (Slot(slot).current.LimitsEnabled) {
        case QV_LIMITS_SINGLE_SIDED: return EvaluateSingleSidedLimit(slot, dbm);
        case QV_LIMITS_DOUBLE_SIDED: return EvaluateDoubleSidedLimit(slot, dbm);
        default: return QV_LIMIT_NOT_EVALUATED;
    }
}

}  // namespace qv
