// The calibration image decoder and the tables built from it, and the cache
// file reader, on arbitrary bytes.
#include "calibration/cal_image.h"
#include "calibration/cal_tables.h"
#include "fuzz/fuzz_sensor.h"
#include "platform/platform.h"

using namespace qv;
using namespace qv::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int slot = FuzzSlot();
    ByteSource in(data, size);
    const double freq = ExportArgs(in).Real();
    const std::vector<std::uint8_t> image = Cycled(data, size, kCalImageBytes);
    DecodeCalImage(slot, image.data());
    BuildCalTables(slot, freq);
    double bounds[4];
    CrossoverBounds(slot, freq, &bounds[0], &bounds[1], &bounds[2], &bounds[3]);

    // The same bytes as the sensor's cache file, whole or cut short.
    PutFile(CalCachePath(kArgsSerial), data, size);
    std::vector<std::uint8_t> read(kCalImageBytes);
    ReadCalCache(kArgsSerial, kCalImageBytes, read.data(), kCalTestBytes, image.data(),
                 CalChecksum(size, data));
    return 0;
}
