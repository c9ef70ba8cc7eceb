// Exports of state files, whole states, registers and named states.
#include "frame/frame.h"
#include "states/named_states.h"
#include "states/registers.h"
#include "states/state_file.h"

using namespace qv;

extern "C" {

QV_API int32_t QV_SaveCurrStateTo(int32_t address, const char* name) {
    return Enter([&] { return SaveCurrStateTo(address, name); });
}

QV_API int32_t QV_RestoreCurrStateFrom(int32_t address, const char* name) {
    return Enter([&] { return RestoreCurrStateFrom(address, name); });
}

QV_API int32_t QV_WriteStateToINI(int32_t address) {
    return Enter([&] { return WriteStateToINI(address); });
}

QV_API int32_t QV_ReadStateFromINI(int32_t address) {
    return Enter([&] { return ReadStateFromINI(address); });
}

QV_API int32_t QV_GetCurrentState(int32_t address, InstrumentState* state) {
    return Enter([&] { return GetCurrentState(address, state); });
}

QV_API int32_t QV_SetCurrentState(int32_t address, InstrumentState state) {
    return Enter([&] { return SetCurrentState(address, state); });
}

QV_API int32_t QV_GetRegState(int32_t address, int32_t reg, InstrumentState* state) {
    return Enter([&] { return GetRegState(address, reg, state); });
}

QV_API int32_t QV_SetRegState(int32_t address, int32_t reg, InstrumentState state) {
    return Enter([&] { return SetRegState(address, reg, state); });
}

QV_API int32_t QV_Store(int32_t address, int32_t reg) {
    return Enter([&] { return Store(address, reg); });
}

QV_API int32_t QV_Recall(int32_t address, int32_t reg) {
    return Enter([&] { return Recall(address, reg); });
}

QV_API int32_t QV_ResetCurrentState(int32_t address) {
    return Enter([&] { return ResetCurrentState(address); });
}

QV_API int32_t QV_ResetRegStates(int32_t address) {
    return Enter([&] { return ResetRegStates(address); });
}

QV_API int32_t QV_GetNamedStateCount(int32_t address) {
    return Enter([&] { return GetNamedStateCount(address); });
}

QV_API int32_t QV_GetNamedStateNames(int32_t address, char* names, int32_t* size) {
    return Enter([&] { return GetNamedStateNames(address, names, size); });
}

QV_API int32_t QV_DeleteNamedState(int32_t address, const char* name) {
    return Enter([&] { return DeleteNamedState(address, name); });
}

}  // extern "C"
