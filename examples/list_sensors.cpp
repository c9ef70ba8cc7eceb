// Lists the sensors on the bus with their model code and firmware (C++).
//
//   list_sensors_cpp
#include <cstdio>
#include <iostream>
#include <vector>

#include <qv_api2.h>

int main() {
    const std::int32_t count = QV_SensorCnt();
    if (count < 0) {
        std::cerr << "QV_SensorCnt returned " << count << ": no driver library? (QV_USBDRVD)\n";
        return 1;
    }
    std::vector<SensorListEntry> list(static_cast<std::size_t>(count));
    if (count > 0 && QV_SensorList(list.data(), count) != QV_SUCCESS)
        std::cerr << "the bus changed while it was listed\n";
    std::cout << count << " sensor(s)\n";
    for (const SensorListEntry& e : list) {
        std::int32_t model = -1;
        char firmware[16] = "?";
        if (QV_GetModelNumber_Idx(e.DeviceIndex, &model) != QV_SUCCESS) model = -1;
        if (QV_GetFirmwareVersion(e.Address, firmware, sizeof firmware) != QV_SUCCESS)
            std::snprintf(firmware, sizeof firmware, "?");
        std::cout << e.DeviceIndex << "  " << e.SerialNumber << "  address " << e.Address
                  << "  model " << model << "  firmware " << firmware
                  << (e.DeviceIndex < 0 ? "  (in use by another process)" : "") << "\n";
    }
}
