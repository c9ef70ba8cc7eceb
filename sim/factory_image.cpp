// What a sensor leaves the factory with in its non-volatile memory.
#include <cstring>

#include "sensor.h"

namespace qvsim {

void WriteFactoryImage(SensorRecord& sensor, const FactoryData& factory) {
    // Erased memory reads 0xFF.
    std::memset(sensor.region2, 0xFF, sizeof sensor.region2);
    std::memset(sensor.region6, 0xFF, sizeof sensor.region6);

    sensor.region2[QVSIM_POS_ADDRESS] = static_cast<std::uint8_t>(factory.address);
    if (factory.dueYear >= 0) {
        sensor.region2[QVSIM_POS_DUE_DATE + 0] = static_cast<std::uint8_t>(factory.dueYear);
        sensor.region2[QVSIM_POS_DUE_DATE + 1] = static_cast<std::uint8_t>(factory.dueMonth);
        sensor.region2[QVSIM_POS_DUE_DATE + 2] = static_cast<std::uint8_t>(factory.dueDay);
    }

    // Calibration image: region 2 from QVSIM_POS_CAL_IMAGE (50,000 bytes), region 6
    // from QVSIM_POS_CAL_IMAGE (57,470 bytes), checksum at QVSIM_POS_CHECKSUM. A
    // generated image belongs here; until then both stay erased and tests that need
    // one write it with qvsim_memory_write.
}

}  // namespace qvsim
