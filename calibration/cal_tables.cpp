#include "calibration/cal_tables.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "frame/shared_table.h"

namespace qv {

namespace {

constexpr double kFirstLevelHs = -70.0;  // dBm
constexpr double kFirstLevelLs = -30.0;
constexpr double kLevelStep = 2.0;       // dB

struct ModelGrid {
    double startFrequency;
    double frequencyStep;
    double maximumFrequency;
    double tempTableStart;
    double tempStep;
};

constexpr ModelGrid kLowGroup{1.0e7, 2.5e7, 1.0e10, 7334.0, 9.0};
constexpr ModelGrid kGroup4{1.0e7, 6.625e7, 1.25e10, 2785.0, 70.0};
constexpr ModelGrid kGroup5{1.0e7, 6.625e7, 1.8e10, 2785.0, 70.0};
constexpr ModelGrid kGroup6{1.0e7, 6.625e7, 2.65e10, 2785.0, 70.0};
constexpr ModelGrid kGroup7{1.0e7, 6.625e7, 2.0e10, 2785.0, 70.0};

// Every model not named here, known or not, is calibrated on the low group's grid.
const ModelGrid& GridOfModel(std::int32_t model) {
    switch (model) {
        case 4: case 105: case 106:
            return kGroup4;
        case 5: case 69: case 79: case 107: case 108:
            return kGroup5;
        case 6: case 70: case 80: case 109:
            return kGroup6;
        case 7: case 8: case 71: case 81: case 110: case 111: case 112: case 113:
            return kGroup7;
        default:
            return kLowGroup;
    }
}

bool IsSlot(std::int32_t slot) { return slot >= 0 && slot < kSlotCount && tableView != nullptr; }

const ModelGrid& GridOfSlot(std::int32_t slot) { return GridOfModel(Slot(slot).identity.ModelIndex); }

template <typename Field>
double SlotConstant(std::int32_t slot, Field field) {
    return IsSlot(slot) ? GridOfSlot(slot).*field : -1.0;
}

void Interpolate(const CalLevelPoint* low, const CalLevelPoint* high, double u, double t,
                 CalCoefficients* out) {
    for (int j = 0; j < kCalLevels; ++j) {
        out[j].b = u * low[j].b + t * high[j].b;
        out[j].a = u * low[j].a + t * high[j].a;
        out[j].z = u * low[j].z + t * high[j].z;
    }
}

void Copy(const CalLevelPoint* point, CalCoefficients* out) {
    for (int j = 0; j < kCalLevels; ++j) out[j] = CalCoefficients{point[j].b, point[j].a, point[j].z};
}

// One path of one temperature row: expected counts at the 26 levels and the
// count-to-dBm segment starting at each.
void BuildRowPath(const CalCoefficients* c, double firstLevel, double dT, CalSegment* s) {
    double level = firstLevel;
    for (int j = 0; j < kCalLevels; ++j) {
        s[j].level = level;
        level += kLevelStep;
        s[j].count = c[j].b * dT * dT + c[j].a * dT + c[j].z;
    }
    for (int j = 0; j + 1 < kCalLevels; ++j) {
        const double rise = s[j + 1].count - s[j].count;
        s[j].slope = rise != 0.0 ? (s[j + 1].level - s[j].level) / rise : 0.0;
        s[j].intercept = s[j].level - s[j].slope * s[j].count;
    }
    // The last entry continues the last segment geometrically. When the segment
    // before it is flat there is no ratio to continue: carry the last slope on.
    CalSegment& last = s[kCalLevels - 1];
    const double s23 = s[kCalLevels - 3].slope;
    const double s24 = s[kCalLevels - 2].slope;
    last.slope = s23 != 0.0 ? s24 * s24 / s23 : s24;
    last.intercept = last.level - last.slope * last.count;
}

}  // namespace

double CalStartFrequency(std::int32_t slot) { return SlotConstant(slot, &ModelGrid::startFrequency); }
double CalFrequencyStep(std::int32_t slot) { return SlotConstant(slot, &ModelGrid::frequencyStep); }
double CalMaximumFrequency(std::int32_t slot) { return SlotConstant(slot, &ModelGrid::maximumFrequency); }
double CalTempTableStart(std::int32_t slot) { return SlotConstant(slot, &ModelGrid::tempTableStart); }
double CalTempStep(std::int32_t slot) { return SlotConstant(slot, &ModelGrid::tempStep); }
double CalFirstLevelHs(std::int32_t slot) { return IsSlot(slot) ? kFirstLevelHs : -1.0; }
double CalFirstLevelLs(std::int32_t slot) { return IsSlot(slot) ? kFirstLevelLs : -1.0; }
double CalLevelStep(std::int32_t slot) { return IsSlot(slot) ? kLevelStep : -1.0; }

double ClampCalFrequency(std::int32_t slot, double f) {
    if (!IsSlot(slot)) return 0.0;
    const ModelGrid& grid = GridOfSlot(slot);
    // Written so that NaN goes to the start frequency instead of through.
    if (!(f >= grid.startFrequency)) return grid.startFrequency;
    return std::min(f, grid.maximumFrequency);
}

void SetModelGrid(std::int32_t slot) {
    if (!IsSlot(slot)) return;
    const ModelGrid& grid = GridOfSlot(slot);
    DeviceRecord& r = Slot(slot);
    for (int i = 0; i < kCalFreqPoints; ++i) {
        CalFreqPoint& point = r.calPoints[i];
        point.freq = i == 0 ? grid.startFrequency : i * grid.frequencyStep;
        for (int j = 0; j < kCalLevels; ++j) {
            point.hs[j].level = kFirstLevelHs + kLevelStep * j;
            point.ls[j].level = kFirstLevelLs + kLevelStep * j;
        }
    }
}

std::int32_t BuildCalTables(std::int32_t slot, double f) {
    if (!IsSlot(slot)) return -1;
    const ModelGrid& grid = GridOfSlot(slot);
    DeviceRecord& r = Slot(slot);
    f = ClampCalFrequency(slot, f);
    if (r.current.Freq == r.tempRows[0].freq) return 1;

    int i = 1;
    while (i < kCalFreqPoints && r.calPoints[i].freq < f) ++i;
    const int lo = i - 1;
    const double lower = lo == 0 ? grid.startFrequency : r.calPoints[lo].freq;
    const double width = lo == 0 ? grid.frequencyStep - grid.startFrequency : grid.frequencyStep;
    double t = (f - lower) / width;
    double u = 1.0 - t;
    // More than 1 % of a step outside the interval: the point grid is not the
    // model's. (With u = 1 - t the first test already catches every such case.)
    if (u > 1.01 || t > 1.01) return -5;
    if (u < -0.01 || t < -0.01) return -6;
    u = std::clamp(u, 0.0, 1.0);
    t = std::clamp(t, 0.0, 1.0);

    CurrentCalibration& current = r.currentCal;
    if (lo == kCalFreqPoints - 1) {
        Copy(r.calPoints[lo].hs, current.hs);
        Copy(r.calPoints[lo].ls, current.ls);
    } else {
        Interpolate(r.calPoints[lo].hs, r.calPoints[lo + 1].hs, u, t, current.hs);
        Interpolate(r.calPoints[lo].ls, r.calPoints[lo + 1].ls, u, t, current.ls);
    }

    for (int row = 0; row < kCalTempRows; ++row) {
        CalTempRow& tempRow = r.tempRows[row];
        const double T = grid.tempTableStart + row * grid.tempStep;
        const double dT = T - r.calTmp;
        tempRow.freq = f;
        tempRow.tempCount = T;
        BuildRowPath(current.hs, kFirstLevelHs, dT, tempRow.hs);
        BuildRowPath(current.ls, kFirstLevelLs, dT, tempRow.ls);
    }
    r.current.Freq = f;
    return 1;
}

std::int32_t TempRowIndex(std::int32_t slot, double t) {
    if (!IsSlot(slot)) return -1;
    const ModelGrid& grid = GridOfSlot(slot);
    // Truncation toward zero, kept within what an integer holds; a NaN reading
    // counts as 0, below every row.
    const double held = std::isnan(t) ? 0.0
                                      : std::clamp(t, double{std::numeric_limits<std::int32_t>::min()},
                                                   double{std::numeric_limits<std::int32_t>::max()});
    const std::int64_t count = static_cast<std::int64_t>(held);
    const std::int64_t row = (count - static_cast<std::int64_t>(grid.tempTableStart)) /
                             static_cast<std::int64_t>(grid.tempStep);
    return static_cast<std::int32_t>(row);
}

std::int32_t ClampTempRow(std::int32_t row) { return std::clamp(row, 0, kCalTempRows - 1); }

std::int32_t CrossoverBounds(std::int32_t slot, double f, double* hsLower, double* hsUpper,
                             double* lsLower, double* lsUpper) {
    if (!IsSlot(slot)) return -1;
    double lower = -30.0, upper = -20.0;
    switch (Slot(slot).identity.ModelIndex) {
        case 4: case 5: case 6: case 69: case 70: case 79: case 80: case 105: case 106: case 107:
        case 108: case 109:
            lower = -15.0, upper = -8.0;
            break;
        case 7: case 8: case 71: case 81: case 110: case 111: case 112: case 113:
            break;
        default:
            if (f > 9.0e9) lower = -15.0, upper = -10.0;
            else if (f > 8.0e9) lower = -20.0, upper = -15.0;
            else if (f > 6.0e9) lower = -25.0, upper = -18.0;
            break;
    }
    *hsLower = *lsLower = lower;
    *hsUpper = *lsUpper = upper;
    return 1;
}

}  // namespace qv
