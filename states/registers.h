// Whole-state access and the 20 register states of a sensor: get, set with
// validation, store, recall and reset.
#pragma once

#include <cstdint>

#include "frame/shared_table.h"

namespace qv {

// 1 when `s` may be applied to slot `slot`, else -1 (the first failing test).
std::int32_t CheckInstrumentState(std::int32_t slot, const InstrumentState& s);

// The persisted fields of the current state into register n, and back; the
// run-time fields of the target (extended averaging, max hold, 75 ohms) stay.
void StoreRegister(std::int32_t slot, std::int32_t n);
void RecallRegister(std::int32_t slot, std::int32_t n);

// Operations behind the exports.
std::int32_t GetCurrentState(std::int32_t address, InstrumentState* state);
std::int32_t SetCurrentState(std::int32_t address, const InstrumentState& state);
std::int32_t GetRegState(std::int32_t address, std::int32_t reg, InstrumentState* state);
std::int32_t SetRegState(std::int32_t address, std::int32_t reg, const InstrumentState& state);
std::int32_t Store(std::int32_t address, std::int32_t reg);
std::int32_t Recall(std::int32_t address, std::int32_t reg);
std::int32_t ResetCurrentState(std::int32_t address);
std::int32_t ResetRegStates(std::int32_t address);

}  // namespace qv
