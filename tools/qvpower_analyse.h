// qvpower analyse: a trace written by qvpower trace, or a fresh one, frozen
// into a sensor's analysis trace and measured there: whole-trace statistics,
// gates of the command line, markers, the peak list (in any of the library's
// layouts and orders) with each pulse's edges.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "qvpower_trace.h"

namespace qvpower {

struct AnalyseOptions {
    std::string source;      // a trace file, or a sensor to acquire from
    std::string host;        // --sensor: the sensor whose analysis trace holds a file's trace
    TraceOptions trace;      // acquisition settings when the source is a sensor
    std::vector<std::string> gates;  // START_US:END_US
    std::vector<std::string> markers;  // TIME_US or a move, then moves; @DELTA_US
    int peaks = 10;
    std::string peakOrder = "index";     // index | value
    std::string peakLayout = "records";  // records | vee | flat
    bool json = false, csv = false;
};

void AddAnalyseOptions(CLI::App* command, AnalyseOptions& options);
// Exit code 0; refused exports throw ExportFailure, unreadable files
// std::runtime_error.
int RunAnalyse(const AnalyseOptions& options);

}  // namespace qvpower
