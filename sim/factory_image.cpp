// What a sensor leaves the factory with in its non-volatile memory.
#include <cstring>
#include <vector>

#include "detector_model.h"
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

    // The detector is the sensor's own (serial) on its model's grid (product string);
    // the calibration measured at the factory is the detector itself, encoded.
    sensor.detector = MakeDetectorModel(sensor.identity.serial, sensor.identity.product);
    sensor.temperature = static_cast<std::int32_t>(sensor.detector.calTemperature);
    std::vector<std::uint8_t> image(kImageBytes);
    BuildCalibrationImage(sensor.detector, image.data());
    std::memcpy(sensor.region2 + QVSIM_POS_CAL_IMAGE, image.data(), kImagePartOneBytes);
    std::memcpy(sensor.region6 + QVSIM_POS_CAL_IMAGE, image.data() + kImagePartOneBytes,
                kImageBytes - kImagePartOneBytes);
    const std::uint32_t checksum = ImageChecksum(image.data(), image.size());
    for (int i = 0; i < 4; ++i)
        sensor.region2[QVSIM_POS_CHECKSUM + i] = static_cast<std::uint8_t>(checksum >> (8 * i));
}

}  // namespace qvsim
