/* Takes one power-versus-time trace of a trace-capable sensor and writes it as
 * CSV (time in seconds from the trigger, power in dBm).
 *
 *   trace_csv SERIAL SWEEP_US FILE.csv */
#include <stdio.h>
#include <stdlib.h>

#include <qv_api2.h>

static int Fail(const char* what, int32_t rc, const char* serial) {
    fprintf(stderr, "%s returned %d\n", what, (int)rc);
    (void)QV_UninitializeSensor_SN(serial);
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: trace_csv SERIAL SWEEP_US FILE.csv\n");
        return 2;
    }
    const char* serial = argv[1];
    int32_t sweepUs = atoi(argv[2]);
    if (QV_InitializeSensor_SN(serial) < 1) {
        fprintf(stderr, "cannot initialise %s\n", serial);
        return 1;
    }
    int32_t address = QV_GetAddress_SN(serial);
    int32_t rc;
    if (address < 1) return Fail("QV_GetAddress_SN", address, serial);
    /* Trace settings answer 1 on success only; 0 means a refused value. */
    if ((rc = PP_SetSweepTime((uint32_t)address, sweepUs)) != 1)
        return Fail("PP_SetSweepTime (10, 20, 50 ... 1000000 us)", rc, serial);
    if ((rc = PP_SetTriggerSoure((uint32_t)address, QV_PP_TRIGGER_AUTO)) != 1)
        return Fail("PP_SetTriggerSoure", rc, serial);

    int32_t length = PP_GetTraceLength(address);
    if (length < 1) return Fail("PP_GetTraceLength", length, serial);
    double* trace = malloc((size_t)length * sizeof *trace);
    if (!trace) return Fail("malloc", 0, serial);
    int32_t got = 0;
    if ((rc = PP_GetTrace(address, trace, length, &got)) != QV_PP_TRACE_OK) {
        free(trace);
        return Fail("PP_GetTrace", rc, serial);
    }
    (void)QV_UninitializeSensor_SN(serial);

    FILE* out = fopen(argv[3], "w");
    if (!out) {
        perror(argv[3]);
        free(trace);
        return 1;
    }
    fprintf(out, "time_s,power_dbm\n");
    for (int32_t k = 0; k < got; ++k)
        fprintf(out, "%.9g,%.4f\n", k * sweepUs * 1e-6 / (got > 1 ? got - 1 : 1), trace[k]);
    free(trace);
    if (fclose(out) != 0) {
        perror(argv[3]);
        return 1;
    }
    printf("%d points over %d us written to %s\n", (int)got, (int)sweepUs, argv[3]);
    return 0;
}
