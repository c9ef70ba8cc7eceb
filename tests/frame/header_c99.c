/* The public header compiles as strict C99 and links against the library. */
#include "qv_api2.h"

#include <stddef.h>

typedef char check_state_size[sizeof(InstrumentState) == 3496 ? 1 : -1];
typedef char check_list_size[sizeof(SensorListEntry) == 16 ? 1 : -1];
typedef char check_response_offset[offsetof(InstrumentState, Response) == 280 ? 1 : -1];

int main(void) {
    return QV_DriverVersion() == QV_DRIVER_VERSION ? 0 : 1;
}
