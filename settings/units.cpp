#include "settings/units.h"

#include <cmath>

#include "frame/shared_table.h"

namespace qv {

double DbmToUnits(double dbm, std::int32_t unit) {
    switch (unit) {
        case QV_UNIT_DBM: return dbm;
        case QV_UNIT_DBW: return dbm - 30.0;
        case QV_UNIT_DBKW: return dbm - 60.0;
        case QV_UNIT_DBUV: return dbm + 106.9897;
        case QV_UNIT_DBMV: return dbm + 46.9897;
        case QV_UNIT_DBV: return dbm - 13.0103;
        case QV_UNIT_W: return 0.001 * std::pow(10.0, dbm / 10.0);
        case QV_UNIT_V: return std::sqrt(0.05 * std::pow(10.0, dbm / 10.0));
        default: return kNoConversion;  // 8 included: only the measurement knows its reference
    }
}

double UnitsToDbm(double value, std::int32_t unit) {
    switch (unit) {
        case QV_UNIT_DBM: return value;
        case QV_UNIT_DBW: return value + 30.0;
        case QV_UNIT_DBKW: return value + 60.0;
        case QV_UNIT_DBUV: return value - 106.9897;
        case QV_UNIT_DBMV: return value - 46.9897;
        case QV_UNIT_DBV: return value + 13.0103;
        case QV_UNIT_W: return 10.0 * std::log10(value / 0.001);
        case QV_UNIT_V: return 10.0 * std::log10(value * value / 50.0 / 0.001);
        default: return kNoConversion;
    }
}

namespace {

double UpperFrequencyLimit(std::int32_t model) {
    switch (model) {
        case 4: case 105: case 106:
            return 1.25e10;
        case 5: case 69: case 79: case 107: case 108:
            return 1.8e10;
        case 6: case 70: case 80: case 109:
            return 2.65e10;
        case 7: case 8: case 71: case 81: case 110: case 111: case 112: case 113:
            return 2.0e10;
        default:
            return 1.0e10;  // unknown models (-1) included
    }
}

}  // namespace

std::int32_t IsValidFrequency(std::int32_t slot, double f) {
    if (slot < 0 || slot >= kSlotCount) return -1;
    const double upper = UpperFrequencyLimit(Slot(slot).identity.ModelIndex);
    return (f >= 1.0e7 && f <= upper) ? 1 : 0;  // NaN fails both
}

}  // namespace qv
