// State files: the persisted settings of a sensor in INI files in the data
// directory, one file for the current state and registers 0 to 9, and one per
// named state for the current state alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/shared_table.h"

namespace qv {

// A state name: 1 to 20 characters, each a digit, an ASCII letter or '_'.
inline constexpr std::size_t kStateNameMaxChars = 20;
// Bytes a value may take when read back, terminating zero included.
inline constexpr std::size_t kStateValueBufferBytes = 100;

// File-name prefix of a model ("QV442A_"); "Other_" for models without one.
const char* ModelFilePrefix(std::int32_t modelIndex);

// The state file of slot `slot` (data directory, prefix, the identity's copy of
// the address, ".ini"); with a name, that named state's file instead ("_" and
// the name before ".ini"); empty for a name that breaks the name rule.
std::string StateFilePath(std::int32_t slot, const char* name = nullptr);
// The directory search pattern of the slot's named state files: "*" for the name.
std::string NamedStatePattern(std::int32_t slot);

// StateFilePath's file name up to and including the "_" before a state name.
std::string NamedStateFilePrefix(std::int32_t slot);

// True when `name` obeys the name rule.
bool IsValidStateName(const char* name);

// Slot of `address` for the state operations: LookupSlot_Addr, and when
// `withFallback` ResolveSlot_Addr after it; kNoSlot when none finds one.
std::int32_t StateSlot(std::int32_t address, bool withFallback);

// Text of a value as a state file holds it: "%i" for integers, "%f" for
// doubles; a double whose "%f" text would not fit kStateValueBufferBytes is
// written in exponent form instead. `text` has room for kStateValueBufferBytes.
void FormatStateInteger(std::int32_t value, char* text);
void FormatStateDouble(double value, char* text);
// Values as a state file's texts convert: leading blanks, optional sign,
// digits (and for doubles a fraction and exponent, "inf", "nan") up to the
// first other character; 0 when there is nothing to convert. The decimal point
// is '.', whatever the process's locale.
std::int32_t ConvertStateInteger(const char* text);
double ConvertStateDouble(const char* text);

// Section operations: the current state (section "CurrState") of the sensor's
// state file, or with a name of that named state's file; and register `reg`
// (section "Reg_" reg) of the sensor's state file. Each finds the slot with
// StateSlot(address, true) (-1 when it fails) and returns 1, or -2 for a fault
// among the fixed keys, -3 among the response points.
std::int32_t WriteCurrStateSection(std::int32_t address, const char* name);
std::int32_t ReadCurrStateSection(std::int32_t address, const char* name);
std::int32_t WriteRegisterSection(std::int32_t address, std::int32_t reg);
std::int32_t ReadRegisterSection(std::int32_t address, std::int32_t reg);

// Operations behind the exports.
std::int32_t SaveCurrStateTo(std::int32_t address, const char* name);
std::int32_t RestoreCurrStateFrom(std::int32_t address, const char* name);
std::int32_t WriteStateToINI(std::int32_t address);
std::int32_t ReadStateFromINI(std::int32_t address);

}  // namespace qv
