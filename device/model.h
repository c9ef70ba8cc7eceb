// Model identification, firmware version and calibration due date.
#pragma once

#include <cstdint>

namespace qv {

inline constexpr std::int32_t kUnknownModel = -1;

// The model a product string names (first listed text found in it), or -1.
std::int32_t ModelFromProductString(const char* product);
// The same with the full-name list used for the trace-capability test.
std::int32_t TraceModelFromProductString(const char* product);
bool IsTraceCapableModelIndex(std::int32_t model);
// 1 when the sensor behind `h` can acquire traces (or a burst measurement runs).
std::int32_t IsTraceCapableModel(std::int64_t h);

// Model of a sensor without a slot in use, read from its product string
// (zeroed 30-byte buffer); -1 when unknown or unreadable.
std::int32_t ReadModel(std::int64_t h);

std::int32_t ReadCalDueDate(std::int64_t h, std::int32_t* year, std::int32_t* month,
                            std::int32_t* day);
std::int32_t WriteCalDueDate(std::int64_t h, std::int32_t year, std::int32_t month,
                             std::int32_t day);

// Operations behind the exports.
std::int32_t GetModelNumber_SN(const char* serial, std::int32_t* model);
std::int32_t GetModelNumber_Addr(std::int32_t address, std::int32_t* model);
std::int32_t GetModelNumber_Idx(std::int32_t index, std::int32_t* model);
std::int32_t GetFirmwareVersion(std::int32_t address, char* buffer, std::int32_t length);
std::int32_t GetCalDueDate(const char* serial, std::int32_t* year, std::int32_t* month,
                           std::int32_t* day);
std::int32_t SetCalDueDate(const char* serial, std::int32_t year, std::int32_t month,
                           std::int32_t day);

}  // namespace qv
