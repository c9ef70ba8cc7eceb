// The raw block parser and the CW conversion on arbitrary blocks: the first
// byte gives the number of blocks, the rest repeats to fill them.
#include "fuzz/fuzz_sensor.h"
#include "measure/conversion.h"

using namespace qv;
using namespace qv::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    const int slot = FuzzSlot();
    const std::int32_t blocks = data[0];
    const std::vector<std::uint8_t> raw =
        Cycled(data + 1, size - 1, static_cast<std::size_t>(blocks) * kBlockBytes);
    SampleBuffers& b = Slot(slot).samples;
    std::int32_t loTmp = kTempSampleCapacity, hiTmp = kTempSampleCapacity;
    std::int32_t loPwr = kPowerSampleCapacity, hiPwr = kPowerSampleCapacity;
    if (ParseRawBlocks(raw.data(), blocks * kBlockBytes, b.loTmpCnt, b.hiTmpCnt, b.loPwrCnt,
                       b.hiPwrCnt, &loTmp, &hiTmp, &loPwr, &hiPwr) < 0)
        return 0;
    ConvertAndMergeCW(slot, blocks);
    CountSamplesAbove(b.hiPwrCnt, hiPwr, -30.0, true, nullptr);
    return 0;
}
