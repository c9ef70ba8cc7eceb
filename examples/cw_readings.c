/* Takes CW (average power) readings of one sensor in a loop.
 *
 *   cw_readings SERIAL [FREQUENCY_HZ] [COUNT]
 *
 * A sensor that was unplugged and plugged in again answers -13 until it is
 * released and initialised again; this loop does so once per failed reading
 * (the C++ version also waits for the sensor to come back). */
#include <stdio.h>
#include <stdlib.h>

#include <qv_api2.h>

static int32_t Prepare(const char* serial, double frequencyHz) {
    if (QV_InitializeSensor_SN(serial) < 1) {
        fprintf(stderr, "cannot initialise %s (not on the bus, or held by another process)\n", serial);
        return -1;
    }
    int32_t address = QV_GetAddress_SN(serial);
    if (address < 1 || QV_SetFrequency(address, frequencyHz) != QV_SUCCESS ||
        QV_SetAverages(address, 16) != QV_SUCCESS ||
        QV_SetMeasurementPowerUnits(address, QV_UNIT_DBM) != QV_SUCCESS) {
        fprintf(stderr, "cannot set up %s at %g Hz\n", serial, frequencyHz);
        (void)QV_UninitializeSensor_SN(serial);
        return -1;
    }
    return address;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: cw_readings SERIAL [FREQUENCY_HZ] [COUNT]\n");
        return 2;
    }
    const char* serial = argv[1];
    double frequencyHz = argc > 2 ? atof(argv[2]) : 1e9;
    int count = argc > 3 ? atoi(argv[3]) : 10;

    int32_t address = Prepare(serial, frequencyHz);
    if (address < 0) return 1;
    int failures = 0;
    for (int i = 1; i <= count; ++i) {
        double dbm = 0.0;
        int32_t rc = QV_MeasureCW(address, &dbm);
        if (rc == QV_SUCCESS) {
            printf("%d %.3f dBm\n", i, dbm);
            continue;
        }
        fprintf(stderr, "reading %d: QV_MeasureCW returned %d\n", i, (int)rc);
        if (++failures > 3) break;
        /* Release and initialise again: a replugged sensor works after this. */
        (void)QV_UninitializeSensor_SN(serial);
        address = Prepare(serial, frequencyHz);
        if (address < 0) {
            fprintf(stderr, "plug %s in again and start again\n", serial);
            return 1;
        }
    }
    (void)QV_UninitializeSensor_SN(serial);
    return failures > 3 ? 1 : 0;
}
