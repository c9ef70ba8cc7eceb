// qvpower doctor: what stands between the user and a reading (driver library,
// bus file, data directory, sensors); qvpower explain: what a result code means.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qvpower {

int RunDoctor(bool json);

// 0 when the table knows the code (for the export, when one is named), 1 when
// it does not; an export the table does not know is a usage error (2).
int RunExplain(std::int32_t code, const std::optional<std::string>& exportName, bool json);

}  // namespace qvpower
