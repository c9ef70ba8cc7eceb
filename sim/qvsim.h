/* Control interface of the simulated sensors.
 *
 * libqvsim_usbdrvd exports the twelve QV_USBDRVD_ driver functions (device/driver_abi.h),
 * so QV_API2 loads it exactly like the maker's driver library, and beside them these
 * qvsim_ functions, through which tests and the qvsim tool build a bus, plug and unplug
 * sensors, look at what the sensors were sent and inject faults.
 *
 * The whole bus lives in one memory-mapped bus file shared by every process that uses
 * it (layout in docs/sim.md). A process works on one bus at a time: the one it created
 * or opened last, or else the file named by the environment variable QV_SIM_BUS,
 * opened on first use. The driver functions and these functions use the same bus.
 *
 * Every function returns an int (or long long) that is >= 0 on success and one of the
 * negative QVSIM_E_ codes on failure. Sensor ids are the small numbers returned by
 * qvsim_sensor_add; an id stays the sensor's until it is removed, after which a later
 * qvsim_sensor_add may reuse it.
 *
 * Attaching to a bus (create, open, close) must not run concurrently with other calls
 * in the same process; everything else may be called from any thread or process.
 *
 * Plain C99.
 */
#ifndef QVSIM_H
#define QVSIM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define QVSIM_API __declspec(dllexport)
#else
#define QVSIM_API __attribute__((visibility("default")))
#endif

/* Result codes. */
#define QVSIM_OK 0
#define QVSIM_E_NO_BUS (-1)     /* no bus attached and none could be opened */
#define QVSIM_E_ARG (-2)        /* an argument is out of range or a text too long */
#define QVSIM_E_NO_SENSOR (-3)  /* no sensor with that id */
#define QVSIM_E_FULL (-4)       /* no room: sensors, faults or bulk-in queue */
#define QVSIM_E_IO (-5)         /* the bus file could not be created or mapped */
#define QVSIM_E_BAD_FILE (-6)   /* the file is not a bus file of this version */
#define QVSIM_E_STATE (-7)      /* the sensor is not in the state the call needs */

/* Environment variable that names the bus file. */
#define QVSIM_BUS_ENV "QV_SIM_BUS"

/* Limits. */
#define QVSIM_MAX_SENSORS 32
#define QVSIM_TEXT_CHARS 32       /* serial string and path serial: up to 31 characters */
#define QVSIM_LONG_TEXT_CHARS 64  /* product string and firmware text: up to 63 characters */
#define QVSIM_TRANSCRIPT_ENTRIES 4096
#define QVSIM_BULK_IN_BYTES (256 * 1024)
#define QVSIM_MEMORY_BYTES 65536

/* Where the sensor keeps things (SensorMemory regions 2 and 6 are non-volatile;
 * working memory is volatile and set up again at every plug-in). */
#define QVSIM_REGION_CAL_A 2
#define QVSIM_REGION_CAL_B 6
#define QVSIM_POS_DUE_DATE 0        /* region 2: year, month, day */
#define QVSIM_POS_ADDRESS 31        /* region 2: the address byte */
#define QVSIM_POS_CHECKSUM 33       /* region 2: 4-byte calibration checksum */
#define QVSIM_POS_CAL_IMAGE 1024    /* regions 2 and 6: calibration image */
#define QVSIM_WM_FIRMWARE 0x0100    /* working memory: firmware text, 64 bytes */
#define QVSIM_WM_BUFFER_BASE 0x1000 /* working memory: buffer announced by request 242 */
#define QVSIM_WM_TRIGGER_LINE 0xF400 /* working memory: trigger line state read by 218 */

/* Pass as count for a fault that fires every time. */
#define QVSIM_ALWAYS (-1)

/* Pass as sensor id to the transcript functions for all sensors of the bus. */
#define QVSIM_ALL_SENSORS (-1)

/* Describes a sensor to add. Initialise with qvsim_sensor_config_init, then set fields. */
typedef struct qvsim_sensor_config {
    const char* serial;      /* serial-number string (descriptor 3), 0..31 characters */
    const char* path_serial; /* text between the 2nd and 3rd '#' of the device path;
                                NULL: the serial string verbatim */
    const char* product;     /* product string (descriptor 2), 0..63 characters */
    const char* firmware;    /* firmware version text, 0..63 characters */
    int address;             /* address byte 0..255; -1: lowest of 1..255 no sensor on the bus has */
    int due_year;            /* due date bytes 0..255 each; all -1: left erased (0xFF) */
    int due_month;
    int due_day;
} qvsim_sensor_config;

/* What qvsim_sensor_info reports. */
typedef struct qvsim_sensor_info {
    int id;
    int plugged;      /* 1 plugged in, 0 unplugged */
    int index0;       /* 0-based place in the driver's enumeration; -1 while unplugged */
    int address;      /* the address byte in region 2 */
    int open_handles; /* device handles opened and not closed (leaks show here) */
    char serial[QVSIM_TEXT_CHARS];
    char path_serial[QVSIM_TEXT_CHARS];
    char product[QVSIM_LONG_TEXT_CHARS];
    char firmware[QVSIM_LONG_TEXT_CHARS];
} qvsim_sensor_info;

/* Running modes of the sensor. */
#define QVSIM_RUN_IDLE 0
#define QVSIM_RUN_MEASURING 1 /* started by 193 + 194 */
#define QVSIM_RUN_SWEEP 2     /* started by 177 */

/* The sensor's side of things, as the vendor requests left it. Flags are 0 or 1. */
typedef struct qvsim_sensor_state {
    int led_on;
    unsigned led_toggles;       /* changes of the LED between on and off */
    int trigger_in_enabled;     /* 191 / 190 */
    int trigger_in_inverted;    /* 203 / 202 */
    int trigger_out_enabled;    /* 200 or 201 / 192 */
    int trigger_out_variant;    /* 200 or 201: the request that last switched it on; 0 none */
    int trigger_out_inverted;   /* 205 / 204 */
    int anti_aliasing;          /* 197 / 196 */
    int recorder_out;           /* 199 / 198 */
    int running_mode;           /* QVSIM_RUN_ */
    unsigned stop_sequences;    /* completed stop sequences (179 [195] 187) */
    unsigned init_pings;        /* 239 received */
    int measure_readings;       /* byte of the last 193; -1 none since plug-in */
    unsigned measure_starts;    /* 194 received */
    unsigned sweep_starts;      /* 177 received */
    unsigned char sweep_command[4]; /* payload of the last 177 */
    int thresholds[4];          /* 212 value by selector; -1 never set */
    int memory_region;          /* SensorMemory pointer (225) */
    int memory_position;
    int write_open;             /* 1 between an accepted 252 and 253 */
    unsigned ignored_writes;    /* 228 requests dropped because no write was begun */
    int working_location;       /* location selected by 216, advanced by 217..220 */
    int recorder_word;          /* first two bytes of the last pipe 0x01 write, high first; -1 none */
    unsigned bulk_out_writes;   /* pipe 0x01 writes received */
    int bulk_in_pending;        /* bytes queued for pipe 0x82 */
    unsigned opens;             /* device handles opened since the sensor was added */
    unsigned closes;            /* device handles closed */
    int trigger_out_level;      /* TTL output now: 1 while on and not inverted, else 0 */
    unsigned trigger_out_edges; /* changes of that level */
    int measuring;              /* 1 while a 193/194 run still has blocks to send */
    int measure_count;          /* blocks per start of that run; 0: continuous stream */
    unsigned long long blocks_sent; /* complete 512-byte blocks sent on pipe 0x82 */
    unsigned long long overruns;    /* finished blocks a streaming sensor dropped unread */
    unsigned pending_triggers;  /* trigger edges fired and not used yet */
    int capturing;              /* 1 while pipe 0x82 transfers go to a capture file */
    unsigned capture_transfers; /* transfers written to it */
    unsigned capture_failures;  /* transfers that could not be written */
    int replaying;              /* 1 while blocks come from a capture file that has more */
    int sweep_configured;       /* a 177 set a sweep up (193 / 194 end it) */
    int sweep_packet_bytes;     /* B of that sweep: 2 x its command value + 8 */
    int sweep_armed;            /* a packet waits for its trigger or is being sent */
    unsigned long long sweep_packets_sent; /* complete sweep packets sent on pipe 0x82 */
    unsigned sweep_trigger_timeouts;       /* reads that ended waiting for a sweep's trigger */
    unsigned long long sweep_start_ns;     /* trigger of the last packet that had one, sensor time */
} qvsim_sensor_state;

/* Fault kinds. "code" selects what the fault applies to (0 = anything of its kind);
 * the fault lets "skip" matching events pass, then fires "count" times (QVSIM_ALWAYS:
 * for ever) and is then gone. */
#define QVSIM_FAULT_REQUEST_FAILS 1 /* code: request; returns arg if arg < 0 else -1, nothing happens */
#define QVSIM_FAULT_REQUEST_EMPTY 2 /* code: request; returns 0, nothing transferred, nothing happens */
#define QVSIM_FAULT_NO_ECHO 3       /* code: IN request; full-length reply whose first byte is not
                                       the code; the sensor does not carry it out (252: no write begun,
                                       253: write stays open) */
#define QVSIM_FAULT_PIPE_TIMEOUT 4  /* code: pipe; transfer moves nothing and times out */
#define QVSIM_FAULT_PIPE_SHORT 5    /* code: pipe; transfer moves at most arg bytes */
#define QVSIM_FAULT_OPEN_FAILS 6    /* OpenDevHandle returns arg (0 or -1; other values give -1) */
#define QVSIM_FAULT_STRING_FAILS 7  /* code: string index; both string functions return -1 */
#define QVSIM_FAULT_THROWS 8        /* code: QVSIM_FN_; the driver function throws a C++ exception */
#define QVSIM_FAULT_UNPLUG 9        /* after skip more control requests, the next one finds the
                                       sensor unplugged (it fails and the sensor stays unplugged);
                                       arg > 0: sensor arg - 1 is unplugged instead, at that
                                       moment, and the request goes on */

/* Driver functions, for QVSIM_FAULT_THROWS. 0 means any function that names this
 * sensor by index or handle (GetDevCount is only hit when named). */
#define QVSIM_FN_GET_DEV_COUNT 1
#define QVSIM_FN_GET_DEVICE_PATH 2
#define QVSIM_FN_OPEN_DEV_HANDLE 3
#define QVSIM_FN_CLOSE_DEV_HANDLE 4
#define QVSIM_FN_OPEN_WINUSB_HANDLE 5
#define QVSIM_FN_CLOSE_WINUSB_HANDLE 6
#define QVSIM_FN_GET_STRING_LENGTH 7
#define QVSIM_FN_GET_STRING 8
#define QVSIM_FN_REQUEST_OUT 9
#define QVSIM_FN_REQUEST_IN 10
#define QVSIM_FN_PIPE_READ 11
#define QVSIM_FN_PIPE_WRITE 12

typedef struct qvsim_fault {
    int kind;  /* QVSIM_FAULT_ */
    int code;  /* request code, pipe, string index or QVSIM_FN_; 0 = any */
    int skip;  /* matching events let through first */
    int count; /* times it fires, >= 1, or QVSIM_ALWAYS */
    int arg;   /* kind-specific, see above */
} qvsim_fault;

/* Timing model of the bus; all zero (the default) means nothing ever sleeps. */
typedef struct qvsim_timing {
    unsigned control_us;        /* latency of every control transfer, microseconds */
    unsigned bulk_bytes_per_s;  /* pipe throughput; 0 = instant */
    int real_timeouts;          /* 1: a pipe transfer that times out waits its time-out */
    int sampled_blocks;         /* 1: a measurement block is ready 126 x 2 us after its first sample plus
                                   its transfer time (512 bytes at bulk_bytes_per_s); reads wait for it */
} qvsim_timing;

/* Transcript entry kinds. */
#define QVSIM_XFER_OUT 1        /* vendor request host to device */
#define QVSIM_XFER_IN 2         /* vendor request device to host */
#define QVSIM_XFER_PIPE_READ 3  /* code: pipe */
#define QVSIM_XFER_PIPE_WRITE 4 /* code: pipe */
#define QVSIM_XFER_STRING 5     /* string descriptor: code = index; length 0 = length query */

typedef struct qvsim_transfer {
    long long seq;           /* 0-based number of the entry since the transcript was cleared */
    int kind;                /* QVSIM_XFER_ */
    int code;                /* request code, pipe or string index */
    int length;              /* length the host asked for */
    int result;              /* what the driver function returned */
    int transferred;         /* bytes that moved */
    int data_len;            /* bytes in data (at most 8) */
    unsigned char data[8];   /* first bytes sent (OUT, pipe write) or received (IN, pipe read) */
} qvsim_transfer;

/* Creates a new empty bus file at path (NULL: $QV_SIM_BUS), replacing any file there,
 * and attaches this process to it. Processes still attached to a replaced file keep
 * the old bus until they attach again.
 * Returns QVSIM_OK, QVSIM_E_ARG (no path), QVSIM_E_IO. */
QVSIM_API int qvsim_bus_create(const char* path);

/* Attaches this process to the existing bus file at path (NULL: $QV_SIM_BUS).
 * Returns QVSIM_OK, QVSIM_E_ARG (no path), QVSIM_E_IO (cannot open or map),
 * QVSIM_E_BAD_FILE (not a bus file of this version). */
QVSIM_API int qvsim_bus_open(const char* path);

/* Detaches this process; the next call attaches to $QV_SIM_BUS again if set.
 * Returns QVSIM_OK. */
QVSIM_API int qvsim_bus_close(void);

/* Holds the bus lock so that a series of calls appears to every other process as one
 * step. The lock is recursive; every qvsim_bus_lock needs its qvsim_bus_unlock. If the
 * holder dies, the next process to lock recovers it.
 * Returns QVSIM_OK or QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_bus_lock(void);

/* Releases one qvsim_bus_lock. Returns QVSIM_OK or QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_bus_unlock(void);

/* Times a process found the bus lock abandoned by a dead holder and recovered it.
 * Returns that count or QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_bus_recoveries(void);

/* Fills config with defaults: serial NULL (must be set), path serial from the serial,
 * product "QV442A", firmware "V1.00", address -1 (lowest free), due date erased. */
QVSIM_API void qvsim_sensor_config_init(qvsim_sensor_config* config);

/* Adds a sensor and plugs it in; it comes last in the enumeration. Its non-volatile
 * memory reads 0xFF except the address byte, the due date if given, and the factory
 * calibration of its detector (see below).
 * Returns the sensor id (0..QVSIM_MAX_SENSORS-1), QVSIM_E_ARG (NULL config or serial,
 * text too long, value out of range), QVSIM_E_FULL, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_add(const qvsim_sensor_config* config);

/* Removes a sensor from the bus for good (its handles stop working, its id is free).
 * Returns QVSIM_OK, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_remove(int id);

/* Pulls the sensor out: it leaves the enumeration, all its handles stop working for
 * good, its volatile state is lost. Non-volatile memory, strings, faults and the
 * transcript stay. Returns QVSIM_OK, QVSIM_E_STATE (already unplugged),
 * QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_unplug(int id);

/* Plugs an unplugged sensor back in, powered up afresh (LED off, trigger, recorder and
 * anti-aliasing off, idle, firmware text in working memory). It takes its place in the
 * enumeration by the order sensors were added. Returns QVSIM_OK, QVSIM_E_STATE (already
 * plugged), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_replug(int id);

/* Ids of all sensors (plugged or not) in the order they were added, up to max of them.
 * Returns the number of sensors on the bus (may exceed max), or QVSIM_E_ARG, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_list(int* ids, int max);

/* Id of the sensor at the 0-based enumeration index. Returns the id, QVSIM_E_NO_SENSOR
 * (index out of range), QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_at_index(int index0);

/* Identity and enumeration place of a sensor. Returns QVSIM_OK, QVSIM_E_ARG (NULL),
 * QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_info_get(int id, qvsim_sensor_info* info);

/* Sensor-side state. Returns QVSIM_OK, QVSIM_E_ARG (NULL), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_sensor_state_get(int id, qvsim_sensor_state* state);

/* Replaces the product string (index 2) or serial string (index 3); the device path
 * keeps its serial. Returns QVSIM_OK, QVSIM_E_ARG (other index, NULL, too long),
 * QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_set_string(int id, int string_index, const char* text);

/* Replaces the firmware version text (0..63 characters), in working memory at once.
 * Returns QVSIM_OK, QVSIM_E_ARG, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_set_firmware(int id, const char* text);

/* Writes the address byte (region 2, position 31), 0..255.
 * Returns QVSIM_OK, QVSIM_E_ARG, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_set_address(int id, int address);

/* Reads the address byte. Returns it (0..255), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_get_address(int id);

/* Reads or writes len bytes of SensorMemory region 2 or 6 from position; position + len
 * must not pass 65536. Works whether the sensor is plugged or not.
 * Returns len, QVSIM_E_ARG, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_memory_read(int id, int region, int position, void* data, int len);
QVSIM_API int qvsim_memory_write(int id, int region, int position, const void* data, int len);

/* Reads or writes len bytes of working memory from location (location + len <= 65536).
 * Returns len, QVSIM_E_ARG, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_working_read(int id, int location, void* data, int len);
QVSIM_API int qvsim_working_write(int id, int location, const void* data, int len);

/* Adds a fault rule (at most 16 per sensor; faults stay across unplug and replug).
 * Returns QVSIM_OK, QVSIM_E_ARG (unknown kind, count 0 or below -1, negative skip),
 * QVSIM_E_FULL, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_add_fault(int id, const qvsim_fault* fault);

/* Removes every fault rule of the sensor. Returns QVSIM_OK, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_clear_faults(int id);

/* Sets or reads the bus's timing model. Returns QVSIM_OK, QVSIM_E_ARG (NULL), QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_set_timing(const qvsim_timing* timing);
QVSIM_API int qvsim_get_timing(qvsim_timing* timing);

/* Entries recorded since the transcript was last cleared (the ring keeps the last
 * QVSIM_TRANSCRIPT_ENTRIES). id may be QVSIM_ALL_SENSORS for the sum.
 * Returns the count, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API long long qvsim_transcript_count(int id);

/* Copies up to max entries with seq >= first (older ones than the ring keeps are
 * skipped), oldest first. Returns the number copied, QVSIM_E_ARG, QVSIM_E_NO_SENSOR,
 * QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_transcript_read(int id, long long first, qvsim_transfer* out, int max);

/* Empties the transcript (id or QVSIM_ALL_SENSORS). Returns QVSIM_OK, QVSIM_E_NO_SENSOR,
 * QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_transcript_clear(int id);

/* Queues bytes for the sensor's IN pipe 0x82 (lost at unplug). Returns len,
 * QVSIM_E_ARG, QVSIM_E_FULL (queue would overflow; nothing queued), QVSIM_E_NO_SENSOR,
 * QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_bulk_in_push(int id, const void* data, int len);

/* Copies the bytes of the last write to pipe 0x01 (at most 64 are kept).
 * Returns the length of that write (0: none yet), QVSIM_E_ARG, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_bulk_out_last(int id, void* data, int capacity);

/* ---------------------------------------------------------------- detector
 *
 * Each sensor has a detector of its own, fixed when it is added: for each path the
 * count falls smoothly as the input power rises (about 55000 at the bottom of the
 * calibrated range to about 2000 at the top, and beyond the top on along the line of
 * the top calibrated 2-dB segment), with a frequency-dependent sensitivity
 * and a quadratic drift around the calibration temperature. The grid follows the
 * model its product string names; everything else follows its serial, so sensors
 * differ and the same serial and product give the same detector on every bus. Its
 * factory calibration image (regions 2 and 6 at QVSIM_POS_CAL_IMAGE, checksum at
 * QVSIM_POS_CHECKSUM) encodes this detector. Changing the product string later
 * changes neither. */

#define QVSIM_PATH_HS 0 /* high sensitivity, calibrated -70..-20 dBm */
#define QVSIM_PATH_LS 1 /* low sensitivity, calibrated -30..+20 dBm */

typedef struct qvsim_detector_info {
    int model_index;          /* model named by the product string when added; -1 unknown */
    int cal_temperature;      /* temperature count at calibration (image bytes 0 and 1) */
    int temperature;          /* the sensor's temperature count now */
    int temp_table_start;     /* temperature count of the first of the 350 calibration rows */
    int temp_step;            /* temperature counts per row */
    double start_hz;          /* calibration point 0 */
    double step_hz;           /* calibration point i >= 1 lies at i * step_hz */
    double counts_per_kelvin; /* temperature counts per kelvin */
} qvsim_detector_info;

/* Grid, temperatures and model of the sensor's detector. Returns QVSIM_OK, QVSIM_E_ARG
 * (NULL), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_detector_info_get(int id, qvsim_detector_info* info);

/* Sets the sensor's temperature count (0..65535); it starts at the calibration
 * temperature and stays across unplug and replug. The drift follows the temperature
 * only within the calibration rows and holds its end value beyond them.
 * Returns QVSIM_OK, QVSIM_E_ARG, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_set_temperature(int id, int count);

/* The sensor's temperature count, or QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_get_temperature(int id);

/* The detector count of a path (QVSIM_PATH_) for an input power in dBm at a frequency
 * in Hz and a temperature count: the true value, not rounded or clamped to 16 bits.
 * Returns QVSIM_OK, QVSIM_E_ARG (bad path, NULL, value not finite), QVSIM_E_NO_SENSOR,
 * QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_detector_count(int id, int path, double dbm, double freq_hz, double temperature,
                                   double* count);

/* The inverse: the input power in dBm that gives count (+infinity for a count below
 * that of any power). Returns as qvsim_detector_count. */
QVSIM_API int qvsim_detector_power(int id, int path, double count, double freq_hz, double temperature,
                                   double* dbm);

/* The true calibration at a power and frequency: the count at the calibration
 * temperature (z) and the linear (a) and quadratic (b) temperature coefficients per
 * temperature count, count = z + a dT + b dT^2. At the grid points the image holds
 * these values quantised. Returns as qvsim_detector_count. */
QVSIM_API int qvsim_detector_calibration(int id, int path, double dbm, double freq_hz, double* z, double* a,
                                         double* b);

/* ---------------------------------------------------------------- signal
 *
 * Each sensor's RF input carries a signal of its own, kept in the bus file like the
 * rest of the sensor, so every process sees the same one; it outlives unplug and
 * replug and starts as CW at 0 dBm, 1 GHz, without noise. After 193 / 194 the sensor
 * samples it every 2 us through its detector (the model above, at the signal's
 * frequency and the sensor's temperature) into 512-byte blocks on pipe 0x82: ls and
 * hs temperature counts, 126 pairs of ls and hs power counts, ls and hs temperature
 * counts, each 16 bits little-endian, counts rounded and held within 0..65535.
 * The sensor does not know the frequency the host set, so the frequency is part of
 * the signal. */

#define QVSIM_SIGNAL_CW 0
#define QVSIM_SIGNAL_PULSE 1
#define QVSIM_SIGNAL_BURST 2

typedef struct qvsim_signal {
    int kind;          /* QVSIM_SIGNAL_CW, QVSIM_SIGNAL_PULSE or QVSIM_SIGNAL_BURST */
    double cw_dbm;     /* CW power */
    double period_us;  /* pulse train: period, > 0 */
    double width_us;   /* pulse train: time on from the start of each period, 0..period */
    double on_dbm;     /* pulse train: power while on */
    double off_dbm;    /* pulse train: power while off */
    double noise_db;   /* standard deviation of Gaussian noise on each sample's power (dB), 0..20; 0: none */
    unsigned seed;     /* noise sequence: the same seed gives the same noise */
    double freq_hz;    /* carrier frequency, 1 Hz .. 100 GHz */
    /* Pulses and bursts are on from their 50 % rising point to their 50 % falling
     * point width_us later; a pulse train's rising point starts each period, a burst's
     * lies start_us into it. */
    double rise_us;      /* 10 %..90 % rise time (ramp linear in watts), 0..period */
    double fall_us;      /* 10 %..90 % fall time, 0..period */
    double overshoot_db; /* after the rise the top bumps up to on_dbm + this, max(rise / 2,
                            0.05 us) after the rise is complete, then settles; 0..20 */
    double droop_db;     /* top falls by this across the width; 0..20 */
    double start_us;     /* burst: start of the burst in its period, 0..period - width */
} qvsim_signal;

/* Powers in dBm are accepted from -150 to +50. */
#define QVSIM_SIGNAL_MIN_DBM (-150.0)
#define QVSIM_SIGNAL_MAX_DBM 50.0

/* Replaces the sensor's signal (get it, change what you need, set it: every field is
 * checked whatever the kind). Returns QVSIM_OK, QVSIM_E_ARG (NULL, unknown kind, a
 * value out of range or not finite; nothing changes), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_signal_set(int id, const qvsim_signal* signal);

/* The sensor's signal. Returns QVSIM_OK, QVSIM_E_ARG (NULL), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_signal_get(int id, qvsim_signal* signal);

/* Makes the signal CW at dbm, keeping its frequency and noise. Returns QVSIM_OK,
 * QVSIM_E_ARG (out of range or not finite), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_set_cw_power(int id, double dbm);

/* Sweeps (docs/sim.md, "Sweeps"): 177 sets one up, its command value V giving packets
 * of 2V + 8 bytes; each 178 arms a packet that starts at its trigger (free-running,
 * the signal crossing the 212 threshold of a path on an edge, or the TTL line, as the
 * mode byte says) plus (n - 2) / 96 of 2 us, n the packet number at working memory
 * 0x1100, and samples the signal every 2 us through the detector. The sensor state
 * shows the sweep (sweep_ fields). */

/* ---------------------------------------------------------------- trigger input
 *
 * With the TTL trigger input on (191), a reading waits for an edge on the trigger
 * line: a counted run (193 n) as a whole, each block of a stream on its own. An edge
 * fired by hand is kept until a reading takes it (whether the input is on or not;
 * lost at unplug); periodic edges come every period from the sensor's time 0. A
 * reading whose edge does not come within the pipe read's time-out is not sent: the
 * read times out. */

/* Fires one edge on the sensor's trigger input. Returns QVSIM_OK, QVSIM_E_STATE
 * (unplugged), QVSIM_E_FULL (65535 edges already waiting), QVSIM_E_NO_SENSOR,
 * QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_trigger_fire(int id);

/* Sets the period of a periodic trigger on the input, in us (0: none; at most 1e9);
 * kept across unplug. Returns QVSIM_OK, QVSIM_E_ARG, QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_trigger_periodic(int id, double period_us);

/* The periodic trigger's period in us (0: none). Returns QVSIM_OK, QVSIM_E_ARG (NULL),
 * QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_trigger_period_get(int id, double* period_us);

/* ---------------------------------------------------------------- capture and replay
 *
 * A capture file receives every transfer the sensor sends on pipe 0x82, whichever
 * process reads it: a record per pipe read (empty ones too) naming the request that
 * started the bytes, then the bytes (format in docs/sim.md). Replaying a capture file
 * serves its measurement bytes, in order, in place of the signal model: runs start,
 * stop, wait for triggers and take their time as before, but their bytes come from
 * the file until it has no more, after which reads time out. Paths are made absolute
 * (at most 255 characters) and the files are opened by the process that moves the
 * bytes; capture and replay outlive unplug. */

/* Starts a capture into path, replacing any file there (and any capture running).
 * Returns QVSIM_OK, QVSIM_E_ARG (NULL, empty or too long), QVSIM_E_IO (cannot be
 * written), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_capture_start(int id, const char* path);

/* Ends the capture (the file stays). Returns QVSIM_OK, QVSIM_E_STATE (none running),
 * QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_capture_stop(int id);

/* Serves the measurement bytes of the capture file at path from its start. Returns
 * QVSIM_OK, QVSIM_E_ARG (NULL, empty or too long), QVSIM_E_IO (cannot be read),
 * QVSIM_E_BAD_FILE (not a capture file of this version), QVSIM_E_NO_SENSOR, QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_replay_start(int id, const char* path);

/* Back to the signal model. Returns QVSIM_OK, QVSIM_E_STATE (no replay), QVSIM_E_NO_SENSOR,
 * QVSIM_E_NO_BUS. */
QVSIM_API int qvsim_replay_stop(int id);

/* Short English text for a QVSIM_E_ code. Never NULL. */
QVSIM_API const char* qvsim_strerror(int code);

#ifdef __cplusplus
}
#endif

#endif
