// qvpower trace: power-versus-time traces of a trace-capable sensor, with the
// sweep, trigger, averaging and filter settings of the command line, written
// with their time axis as CSV or JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

namespace qvpower {

struct TraceOptions {
    std::string sensor;
    std::optional<double> frequencyHz;
    int sweepUsec = 1000;
    std::optional<int> delayUsec;        // sweep delay from the trigger (delay mode on)
    bool undersampling = false;          // 20, 50 and 100 ms sweeps at the 2 us base rate
    std::string trigger = "auto";        // auto, level, ttl
    double levelDbm = -30.0;
    std::string edge = "rising";         // rising, falling
    int averages = 1;                    // traces averaged into each one written
    int filter = 9;                      // video bandwidth code, 9 = none
    int poles = 0;
    int count = 1;
    bool json = false;
};

void AddTraceOptions(CLI::App* command, TraceOptions& options);
// The acquisition settings alone (no SENSOR, --count or --json), for commands
// that take a trace of their own.
void AddTraceSettings(CLI::App* command, TraceOptions& options);
// Puts the sweep, trigger, averaging and filter settings on sensor `address`.
void ApplyTraceSettings(std::int32_t address, const TraceOptions& options);
// Exit code 0; refused exports throw ExportFailure.
int RunTrace(const TraceOptions& options);

}  // namespace qvpower
