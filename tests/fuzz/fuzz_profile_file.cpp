// The profile-file reader on arbitrary files: reading keys, rewriting one
// (which must then read back as written), and a state file read whole into
// the sensor's settings.
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_sensor.h"
#include "platform/platform.h"
#include "states/state_file.h"

using namespace qv;
using namespace qv::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int slot = FuzzSlot();
    const std::string path = StateFilePath(slot);
    PutFile(path, data, size);

    char values[4][64];
    platform::ProfileRead reads[] = {{"Freq", "x", values[0], 64, 0},
                                     {"MeasMode", "", values[1], 64, 0},
                                     {"Fz", "  d ", values[2], 1, 0},
                                     {"", "", values[3], 0, 0}};
    platform::ProfileReadStrings(path, "CurrState", reads, std::size(reads));
    ReadStateFromINI(kArgsAddress);

    const platform::ProfileWrite write {"Fz", "v 1"};
    if (platform::ProfileWriteStrings(path, "Reg_1", &write, 1)) {
        platform::ProfileRead back {"FZ", "", values[0], 64, 0};
        platform::ProfileReadStrings(path, "reg_1", &back, 1);
        if (std::strcmp(values[0], "v 1") != 0) std::abort();
    }
    return 0;
}
