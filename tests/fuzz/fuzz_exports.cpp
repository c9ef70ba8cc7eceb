// Calls exports with arbitrary arguments on a simulated bus: each input is a
// series of calls, each picked by a byte and its arguments drawn from the
// rest. Any write past an output's room aborts with the export's name.
#include <cstdio>
#include <cstdlib>

#include "support/export_args.h"

using namespace qv::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int sensor = AddArgsSensor();
    if (sensor < 0) std::abort();
    ByteSource in(data, size);
    RestoreArgsSensor();
    for (int calls = 0; calls < 8 && !in.Empty(); ++calls) {
        const ExportCall& e = kExportCalls[in.Take<std::uint16_t>() % std::size(kExportCalls)];
        ExportArgs args(in);
        e.call(args);
        LimitArgsAverages();
        const std::string damage = args.DamagedGuard();
        if (!damage.empty()) {
            std::fprintf(stderr, "%s wrote past its room: %s\n", e.name, damage.c_str());
            std::abort();
        }
    }
    return 0;
}
