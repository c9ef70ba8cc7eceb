// Limits with their pass/fail evaluation, and the frequency-response
// correction table with its lookup.
#pragma once

#include <cstdint>

#include "qv_api2.h"

namespace qv {

// A value held in unit `unit` of slot `slot`'s current state, in dBm. As
// UnitsToDbm, except that code 8 (dB relative to the CW reference) is taken
// relative to UnitsToDbm(CWRef, CWRefUnits), so that relative results and
// limits compare with absolute ones. The pass/fail measurements convert their
// result with this before evaluating it.
double LimitUnitsToDbm(std::int32_t slot, double value, std::int32_t unit);

// LimitStatus of `dbm` against the slot's single-sided or double-sided limit
// and rule; 5 (not evaluated) for a rule outside 0..3 or a slot outside 0..12.
std::int32_t EvaluateSingleSidedLimit(std::int32_t slot, double dbm);
std::int32_t EvaluateDoubleSidedLimit(std::int32_t slot, double dbm);

// The correction in dB the slot's response table gives at `hz`; 0 where none
// applies (no points, below the first or above the last point in use).
double ResponseCorrection(std::int32_t slot, double hz);

// Operations behind the exports.
std::int32_t SetSingleSidedLimit(std::int32_t address, double limit, std::int32_t units,
                                 std::int32_t rule);
std::int32_t GetSingleSidedLimit(std::int32_t address, double* limit, std::int32_t* units,
                                 std::int32_t* rule);
std::int32_t SetDoubleSidedLimit(std::int32_t address, double lower, double upper,
                                 std::int32_t units, std::int32_t rule);
std::int32_t GetDoubleSidedLimit(std::int32_t address, double* lower, double* upper,
                                 std::int32_t* units, std::int32_t* rule);
std::int32_t SetLimitEnabled(std::int32_t address, std::int32_t mode);
std::int32_t GetLimitEnabled(std::int32_t address, std::int32_t* mode);
std::int32_t SetResponse(std::int32_t address, const QV_ResponsePoint* points, std::int32_t count);
// Packs the two arrays into a temporary pair array for SetResponse.
std::int32_t SetResponse_Flat(std::int32_t address, const double* frequencies,
                              const double* amplitudes, std::int32_t count);
std::int32_t GetResponse(std::int32_t address, QV_ResponsePoint* points, std::int32_t* count);
// GetResponse into a temporary pair array, split into the two arrays.
std::int32_t GetResponse_Flat(std::int32_t address, double* frequencies, double* amplitudes,
                              std::int32_t* count);
std::int32_t SetResponseEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t GetResponseEnabled(std::int32_t address, std::int32_t* enabled);

}  // namespace qv
