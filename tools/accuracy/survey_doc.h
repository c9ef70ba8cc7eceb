// What the trace and analysis surveys share: their sensor and their section
// of docs/accuracy.md.
#pragma once

#include <string>

namespace qv::accuracy {

// Adds a simulated QV442A with `serial` at `address`, initialises it and sets
// the TTL trigger source. The simulator's id of the sensor; -1 when any step fails.
int AddTraceSensor(const char* serial, int address);

// `v` printed with `format`; "-" for a value that was not found (NaN).
std::string Fixed(const char* format, double v);

// Replaces the section of `file` that starts at `heading` (to its end) with
// `section`, or appends it; prints the section. True when the file was written.
bool ReplaceSection(const char* file, const char* heading, const std::string& section);

}  // namespace qv::accuracy
