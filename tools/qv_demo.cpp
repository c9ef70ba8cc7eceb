// The library at work on whatever sensors the driver library shows it: lists
// them, then initialises the first one and reports what it learned.
#include <cstdio>
#include <vector>

#include "qv_api2.h"

int main() {
    std::printf("QV_API2 version %d\n", QV_DriverVersion());
    const int32_t count = QV_SensorCnt();
    if (count < 0) {
        std::printf("the driver library is missing or failed (%d); set QV_USBDRVD\n", count);
        return 1;
    }
    std::printf("%d sensor(s) on the bus\n", count);
    if (count == 0) return 0;

    std::vector<SensorListEntry> list(static_cast<size_t>(count));
    if (QV_SensorList(list.data(), count) != 1) {
        std::printf("listing failed\n");
        return 1;
    }
    std::printf("%-6s %-8s %-8s %s\n", "index", "serial", "address", "model");
    for (const SensorListEntry& e : list) {
        int32_t model = -1;
        QV_GetModelNumber_Idx(e.DeviceIndex, &model);
        std::printf("%-6d %-8s %-8d %d\n", e.DeviceIndex, e.SerialNumber, e.Address, model);
    }

    const SensorListEntry& first = list.front();
    const int32_t slot = QV_InitializeSensor_SN(first.SerialNumber);
    if (slot < 1) {
        std::printf("initialising %s failed (%d)\n", first.SerialNumber, slot);
        return 1;
    }
    int32_t model = -1, year = 0, month = 0, day = 0;
    char firmware[16] = {};
    QV_GetModelNumber_SN(first.SerialNumber, &model);
    QV_GetFirmwareVersion(first.Address, firmware, sizeof firmware);
    const int32_t due = QV_GetCalDueDate(first.SerialNumber, &year, &month, &day);
    std::printf("initialised %s into slot %d: address %d, model %d, firmware %s, ",
                first.SerialNumber, slot, first.Address, model, firmware);
    if (due == 1)
        std::printf("calibration due 20%02d-%02d-%02d\n", year, month, day);
    else
        std::printf("no calibration due date (%d)\n", due);
    return QV_UninitializeSensor_SN(first.SerialNumber) == 1 ? 0 : 1;
}
