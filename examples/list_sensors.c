/* Lists the sensors on the bus: serial number, address, model code, firmware
 * and calibration due date, and whether a process has initialised it.
 *
 *   list_sensors
 *
 * Build: cc list_sensors.c $(pkg-config --cflags --libs qv_api2) */
#include <stdio.h>
#include <stdlib.h>

#include <qv_api2.h>

int main(void) {
    int32_t count = QV_SensorCnt();
    if (count < 0) {
        /* -2: the driver library could not be loaded (QV_USBDRVD names it). */
        fprintf(stderr, "QV_SensorCnt returned %d: no driver library?\n", (int)count);
        return 1;
    }
    printf("%d sensor(s)\n", (int)count);
    if (count == 0) return 0;

    SensorListEntry* list = calloc((size_t)count, sizeof *list);
    if (!list) return 1;
    int32_t rc = QV_SensorList(list, count);
    if (rc != QV_SUCCESS) {
        /* A sensor plugged in since QV_SensorCnt makes the list too short:
         * the entries that fit are still written. */
        fprintf(stderr, "QV_SensorList returned %d\n", (int)rc);
    }
    for (int32_t i = 0; i < count; ++i) {
        const SensorListEntry* e = &list[i];
        int32_t model = -1;
        char firmware[16] = "?";
        int32_t year = 0, month = 0, day = 0;
        /* A negative index names a sensor that another process has initialised;
         * its model can still be read, its firmware and due date cannot. */
        if (QV_GetModelNumber_Idx(e->DeviceIndex, &model) != QV_SUCCESS) model = -1;
        if (QV_GetFirmwareVersion(e->Address, firmware, (int32_t)sizeof firmware) != QV_SUCCESS)
            snprintf(firmware, sizeof firmware, "?");
        printf("%2d  %-6.6s  address %3d  model %2d  firmware %-14s", (int)e->DeviceIndex,
               e->SerialNumber, (int)e->Address, (int)model, firmware);
        if (QV_GetCalDueDate(e->SerialNumber, &year, &month, &day) != QV_SUCCESS)
            printf("  due date unreadable");
        else if (month < 1 || month > 12)
            printf("  due date erased");
        else
            printf("  due 20%02d-%02d-%02d", (int)year, (int)month, (int)day);
        printf("%s\n", e->DeviceIndex < 0 ? "  (in use by another process)" : "");
    }
    free(list);
    return 0;
}
