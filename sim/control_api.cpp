// The qvsim_ control functions: building the bus and looking into the sensors.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "bus.h"
#include "detector_model.h"
#include "qvsim.h"
#include "sensor.h"

namespace qvsim {

namespace {

// Runs operation(bus) with the bus locked; QVSIM_E_NO_BUS without a bus.
template <typename Operation>
auto WithBus(Operation operation) -> decltype(operation(std::declval<Bus&>())) {
    std::shared_ptr<Bus> bus = AttachedBus();
    if (!bus) return QVSIM_E_NO_BUS;
    BusLock lock(*bus);
    if (!lock.held()) return QVSIM_E_NO_BUS;
    return operation(*bus);
}

template <typename Operation>
auto WithSensor(int id, Operation operation) -> decltype(operation(std::declval<Bus&>(), std::declval<SensorRecord&>())) {
    return WithBus([&](Bus& bus) -> decltype(operation(bus, std::declval<SensorRecord&>())) {
        SensorRecord* sensor = bus.sensor(id);
        if (sensor == nullptr) return QVSIM_E_NO_SENSOR;
        return operation(bus, *sensor);
    });
}

bool FitsText(const char* text, std::size_t capacity) { return text != nullptr && std::strlen(text) < capacity; }

template <std::size_t N>
void CopyText(char (&target)[N], const char* text) {
    std::memset(target, 0, N);
    std::memcpy(target, text, std::strlen(text));
}

bool IsByte(int value) { return value >= 0 && value <= 255; }

bool ValidSpan(int start, int len, const void* data) {
    return start >= 0 && len >= 0 && start + static_cast<long>(len) <= static_cast<long>(kMemoryBytes) &&
           (len == 0 || data != nullptr);
}

int LowestFreeAddress(Bus& bus) {
    bool used[256] = {};
    for (int id = 0; id < kMaxSensors; ++id)
        if (const SensorRecord* sensor = bus.sensor(id)) used[sensor->region2[QVSIM_POS_ADDRESS]] = true;
    for (int address = 1; address <= 255; ++address)
        if (!used[address]) return address;
    return 1;
}

bool ValidConfig(const qvsim_sensor_config& config) {
    const bool erasedDate = config.due_year == -1 && config.due_month == -1 && config.due_day == -1;
    return FitsText(config.serial, QVSIM_TEXT_CHARS) &&
           (config.path_serial == nullptr || FitsText(config.path_serial, QVSIM_TEXT_CHARS)) &&
           FitsText(config.product, QVSIM_LONG_TEXT_CHARS) && FitsText(config.firmware, QVSIM_LONG_TEXT_CHARS) &&
           (config.address == -1 || IsByte(config.address)) &&
           (erasedDate || (IsByte(config.due_year) && IsByte(config.due_month) && IsByte(config.due_day)));
}

int AddSensor(Bus& bus, const qvsim_sensor_config& config) {
    int id = 0;
    while (id < kMaxSensors && bus.record(id).inUse != 0) ++id;
    if (id == kMaxSensors) return QVSIM_E_FULL;
    const int address = config.address == -1 ? LowestFreeAddress(bus) : config.address;
    SensorRecord& sensor = bus.record(id);
    std::memset(&sensor, 0, sizeof sensor);
    CopyText(sensor.identity.serial, config.serial);
    CopyText(sensor.identity.pathSerial, config.path_serial != nullptr ? config.path_serial : config.serial);
    CopyText(sensor.identity.product, config.product);
    CopyText(sensor.identity.firmware, config.firmware);
    WriteFactoryImage(sensor, FactoryData{address, config.due_year, config.due_month, config.due_day});
    sensor.signal = DefaultSignal();
    sensor.inUse = 1;
    sensor.plugged = 1;
    sensor.addSequence = bus.header().nextAddSequence++;
    PowerOn(sensor);
    return id;
}

void FillState(const SensorRecord& sensor, qvsim_sensor_state* out) {
    const DeviceState& state = sensor.state;
    *out = qvsim_sensor_state{};
    out->led_on = state.ledOn;
    out->led_toggles = state.ledToggles;
    out->trigger_in_enabled = state.triggerInEnabled;
    out->trigger_in_inverted = state.triggerInInverted;
    out->trigger_out_enabled = state.triggerOutEnabled;
    out->trigger_out_variant = state.triggerOutVariant;
    out->trigger_out_inverted = state.triggerOutInverted;
    out->anti_aliasing = state.antiAliasing;
    out->recorder_out = state.recorderOut;
    out->running_mode = state.runningMode;
    out->stop_sequences = state.stopSequences;
    out->init_pings = state.initPings;
    out->measure_readings = state.measureReadings;
    out->measure_starts = state.measureStarts;
    out->sweep_starts = state.sweepStarts;
    std::memcpy(out->sweep_command, state.sweepCommand, sizeof out->sweep_command);
    std::copy(std::begin(state.thresholds), std::end(state.thresholds), out->thresholds);
    out->memory_region = state.memoryRegion;
    out->memory_position = state.memoryPosition;
    out->write_open = state.writeOpen;
    out->ignored_writes = state.ignoredWrites;
    out->working_location = state.workingLocation;
    out->recorder_word = state.recorderWord;
    out->bulk_out_writes = state.bulkOutWrites;
    out->bulk_in_pending = static_cast<int>(state.bulkInCount);
    out->opens = sensor.opens;
    out->closes = sensor.closes;
    const Acquisition& run = sensor.acquisition;
    out->trigger_out_level = TriggerOutLevel(state);
    out->trigger_out_edges = run.triggerOutEdges;
    out->measuring = run.armed;
    out->measure_count = run.count;
    out->blocks_sent = run.blocksSent;
    out->overruns = run.overruns;
    out->pending_triggers = run.pendingTriggers;
    const PipeFiles& files = sensor.files;
    out->capturing = files.capturePath[0] != '\0';
    out->capture_transfers = files.captureTransfers;
    out->capture_failures = files.captureFailures;
    out->replaying = files.replayPath[0] != '\0' && files.replayEnded == 0;
    const SweepRun& sweep = sensor.sweep;
    out->sweep_configured = sweep.configured;
    out->sweep_packet_bytes = static_cast<int>(sweep.packetBytes);
    out->sweep_armed = sweep.armed;
    out->sweep_packets_sent = sweep.packetsSent;
    out->sweep_trigger_timeouts = sweep.triggerTimeouts;
    out->sweep_start_ns = sweep.startNs;
}

bool IsSignalPower(double dbm) { return std::isfinite(dbm) && dbm >= QVSIM_SIGNAL_MIN_DBM && dbm <= QVSIM_SIGNAL_MAX_DBM; }

bool ValidSignal(const qvsim_signal& s) {
    // Every field is checked whatever the kind: callers get, change and set.
    const bool pulseOk = std::isfinite(s.period_us) && s.period_us > 0.0 && s.period_us <= 1.0e9 &&
                         std::isfinite(s.width_us) && s.width_us >= 0.0 && s.width_us <= s.period_us &&
                         IsSignalPower(s.on_dbm) && IsSignalPower(s.off_dbm);
    const auto within = [](double value, double most) { return std::isfinite(value) && value >= 0.0 && value <= most; };
    const bool shapeOk = within(s.rise_us, s.period_us) && within(s.fall_us, s.period_us) &&
                         within(s.overshoot_db, 20.0) && within(s.droop_db, 20.0) &&
                         within(s.start_us, s.period_us - s.width_us);
    return (s.kind == QVSIM_SIGNAL_CW || s.kind == QVSIM_SIGNAL_PULSE || s.kind == QVSIM_SIGNAL_BURST) && pulseOk &&
           shapeOk && IsSignalPower(s.cw_dbm) &&
           std::isfinite(s.noise_db) && s.noise_db >= 0.0 && s.noise_db <= 20.0 && std::isfinite(s.freq_hz) &&
           s.freq_hz >= 1.0 && s.freq_hz <= 100.0e9;
}

void FillTransfer(const TranscriptEntry& entry, qvsim_transfer* out) {
    *out = qvsim_transfer{};
    out->seq = static_cast<long long>(entry.seq);
    out->kind = entry.kind;
    out->code = entry.code;
    out->length = entry.length;
    out->result = entry.result;
    out->transferred = entry.transferred;
    out->data_len = entry.dataLength;
    std::memcpy(out->data, entry.data, sizeof out->data);
}

int MemoryAccess(int id, int region, int position, void* data, const void* source, int len) {
    if ((region != QVSIM_REGION_CAL_A && region != QVSIM_REGION_CAL_B) || !ValidSpan(position, len, source ? source : data))
        return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        std::uint8_t* memory = RegionMemory(sensor, region) + position;
        if (len > 0) {
            if (source != nullptr) std::memcpy(memory, source, static_cast<std::size_t>(len));
            else std::memcpy(data, memory, static_cast<std::size_t>(len));
        }
        return len;
    });
}

int WorkingAccess(int id, int location, void* data, const void* source, int len) {
    if (!ValidSpan(location, len, source ? source : data)) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        if (len > 0) {
            if (source != nullptr) std::memcpy(sensor.working + location, source, static_cast<std::size_t>(len));
            else std::memcpy(data, sensor.working + location, static_cast<std::size_t>(len));
        }
        return len;
    });
}

bool ValidDetectorQuery(int path, double first, double freqHz) {
    return (path == QVSIM_PATH_HS || path == QVSIM_PATH_LS) && std::isfinite(first) && std::isfinite(freqHz);
}

const char* PathOrEnvironment(const char* path) {
    if (path != nullptr) return path;
    const char* fromEnvironment = std::getenv(QVSIM_BUS_ENV);
    return fromEnvironment != nullptr && *fromEnvironment != '\0' ? fromEnvironment : nullptr;
}

}  // namespace

}  // namespace qvsim

using namespace qvsim;

extern "C" {

int qvsim_bus_create(const char* path) {
    const char* target = PathOrEnvironment(path);
    if (target == nullptr) return QVSIM_E_ARG;
    int error = QVSIM_OK;
    std::shared_ptr<Bus> bus = Bus::Create(target, &error);
    if (!bus) return error;
    AttachBus(std::move(bus));
    return QVSIM_OK;
}

int qvsim_bus_open(const char* path) {
    const char* target = PathOrEnvironment(path);
    if (target == nullptr) return QVSIM_E_ARG;
    int error = QVSIM_OK;
    std::shared_ptr<Bus> bus = Bus::Open(target, &error);
    if (!bus) return error;
    AttachBus(std::move(bus));
    return QVSIM_OK;
}

int qvsim_bus_close(void) {
    AttachBus(nullptr);
    return QVSIM_OK;
}

int qvsim_bus_lock(void) {
    std::shared_ptr<Bus> bus = AttachedBus();
    return bus && bus->Lock() ? QVSIM_OK : QVSIM_E_NO_BUS;
}

int qvsim_bus_unlock(void) {
    std::shared_ptr<Bus> bus = AttachedBus();
    if (!bus) return QVSIM_E_NO_BUS;
    bus->Unlock();
    return QVSIM_OK;
}

int qvsim_bus_recoveries(void) {
    return WithBus([](Bus& bus) { return static_cast<int>(bus.header().lockRecoveries); });
}

void qvsim_sensor_config_init(qvsim_sensor_config* config) {
    if (config == nullptr) return;
    *config = qvsim_sensor_config{};
    config->product = "QV442A";
    config->firmware = "V1.00";
    config->address = -1;
    config->due_year = config->due_month = config->due_day = -1;
}

int qvsim_sensor_add(const qvsim_sensor_config* config) {
    if (config == nullptr || !ValidConfig(*config)) return QVSIM_E_ARG;
    return WithBus([config](Bus& bus) { return AddSensor(bus, *config); });
}

int qvsim_sensor_remove(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) {
        Unplug(sensor);
        sensor.inUse = 0;
        return QVSIM_OK;
    });
}

int qvsim_sensor_unplug(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) {
        if (sensor.plugged == 0) return QVSIM_E_STATE;
        Unplug(sensor);
        return QVSIM_OK;
    });
}

int qvsim_sensor_replug(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) {
        if (sensor.plugged != 0) return QVSIM_E_STATE;
        sensor.plugged = 1;
        PowerOn(sensor);
        return QVSIM_OK;
    });
}

int qvsim_sensor_list(int* ids, int max) {
    if (max < 0 || (max > 0 && ids == nullptr)) return QVSIM_E_ARG;
    return WithBus([&](Bus& bus) {
        int all[kMaxSensors];
        int count = 0;
        for (int id = 0; id < kMaxSensors; ++id)
            if (bus.sensor(id) != nullptr) all[count++] = id;
        std::sort(all, all + count, [&bus](int a, int b) { return bus.record(a).addSequence < bus.record(b).addSequence; });
        std::copy(all, all + std::min(count, max), ids);
        return count;
    });
}

int qvsim_sensor_at_index(int index0) {
    return WithBus([index0](Bus& bus) {
        const int id = PluggedSensorAt(bus, index0);
        return id >= 0 ? id : QVSIM_E_NO_SENSOR;
    });
}

int qvsim_sensor_info_get(int id, qvsim_sensor_info* info) {
    if (info == nullptr) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus& bus, SensorRecord& sensor) {
        *info = qvsim_sensor_info{};
        info->id = id;
        info->plugged = sensor.plugged != 0;
        info->index0 = EnumerationIndexOf(bus, id);
        info->address = sensor.region2[QVSIM_POS_ADDRESS];
        info->open_handles = OpenHandleCount(sensor);
        CopyText(info->serial, sensor.identity.serial);
        CopyText(info->path_serial, sensor.identity.pathSerial);
        CopyText(info->product, sensor.identity.product);
        CopyText(info->firmware, sensor.identity.firmware);
        return QVSIM_OK;
    });
}

int qvsim_sensor_state_get(int id, qvsim_sensor_state* state) {
    if (state == nullptr) return QVSIM_E_ARG;
    return WithSensor(id, [state](Bus&, SensorRecord& sensor) {
        FillState(sensor, state);
        return QVSIM_OK;
    });
}

int qvsim_set_string(int id, int string_index, const char* text) {
    const bool product = string_index == QV_DRV_STRING_PRODUCT;
    if ((!product && string_index != QV_DRV_STRING_SERIAL) ||
        !FitsText(text, product ? QVSIM_LONG_TEXT_CHARS : QVSIM_TEXT_CHARS))
        return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        if (product) CopyText(sensor.identity.product, text);
        else CopyText(sensor.identity.serial, text);
        return QVSIM_OK;
    });
}

int qvsim_set_firmware(int id, const char* text) {
    if (!FitsText(text, QVSIM_LONG_TEXT_CHARS)) return QVSIM_E_ARG;
    return WithSensor(id, [text](Bus&, SensorRecord& sensor) {
        CopyText(sensor.identity.firmware, text);
        if (sensor.plugged != 0) StoreFirmwareText(sensor);
        return QVSIM_OK;
    });
}

int qvsim_set_address(int id, int address) {
    if (!IsByte(address)) return QVSIM_E_ARG;
    return WithSensor(id, [address](Bus&, SensorRecord& sensor) {
        sensor.region2[QVSIM_POS_ADDRESS] = static_cast<std::uint8_t>(address);
        return QVSIM_OK;
    });
}

int qvsim_get_address(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) { return static_cast<int>(sensor.region2[QVSIM_POS_ADDRESS]); });
}

int qvsim_memory_read(int id, int region, int position, void* data, int len) {
    return MemoryAccess(id, region, position, data, nullptr, len);
}

int qvsim_memory_write(int id, int region, int position, const void* data, int len) {
    return MemoryAccess(id, region, position, nullptr, data, len);
}

int qvsim_working_read(int id, int location, void* data, int len) {
    return WorkingAccess(id, location, data, nullptr, len);
}

int qvsim_working_write(int id, int location, const void* data, int len) {
    return WorkingAccess(id, location, nullptr, data, len);
}

int qvsim_add_fault(int id, const qvsim_fault* fault) {
    if (fault == nullptr || fault->kind < QVSIM_FAULT_REQUEST_FAILS || fault->kind > QVSIM_FAULT_UNPLUG ||
        fault->skip < 0 || (fault->count < 1 && fault->count != QVSIM_ALWAYS))
        return QVSIM_E_ARG;
    return WithSensor(id, [fault](Bus&, SensorRecord& sensor) {
        for (FaultRule& rule : sensor.faults) {
            if (rule.kind != 0) continue;
            rule = FaultRule{fault->kind, fault->code, fault->skip, fault->count, fault->arg, 0};
            return QVSIM_OK;
        }
        return QVSIM_E_FULL;
    });
}

int qvsim_clear_faults(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) {
        std::fill(std::begin(sensor.faults), std::end(sensor.faults), FaultRule{});
        return QVSIM_OK;
    });
}

int qvsim_set_timing(const qvsim_timing* timing) {
    if (timing == nullptr) return QVSIM_E_ARG;
    return WithBus([timing](Bus& bus) {
        bus.header().timing = TimingModel{timing->control_us, timing->bulk_bytes_per_s,
                                          timing->real_timeouts != 0 ? 1u : 0u, timing->sampled_blocks != 0 ? 1u : 0u};
        return QVSIM_OK;
    });
}

int qvsim_get_timing(qvsim_timing* timing) {
    if (timing == nullptr) return QVSIM_E_ARG;
    return WithBus([timing](Bus& bus) {
        const TimingModel& model = bus.header().timing;
        *timing = qvsim_timing{model.controlMicros, model.bulkBytesPerSecond, static_cast<int>(model.realTimeouts),
                               static_cast<int>(model.sampledBlocks)};
        return QVSIM_OK;
    });
}

long long qvsim_transcript_count(int id) {
    return WithBus([id](Bus& bus) -> long long {
        if (id != QVSIM_ALL_SENSORS) {
            const SensorRecord* sensor = bus.sensor(id);
            return sensor != nullptr ? static_cast<long long>(sensor->transcriptTotal) : QVSIM_E_NO_SENSOR;
        }
        long long total = 0;
        for (int each = 0; each < kMaxSensors; ++each)
            if (const SensorRecord* sensor = bus.sensor(each)) total += static_cast<long long>(sensor->transcriptTotal);
        return total;
    });
}

int qvsim_transcript_read(int id, long long first, qvsim_transfer* out, int max) {
    if (first < 0 || max < 0 || (max > 0 && out == nullptr)) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        const std::uint64_t total = sensor.transcriptTotal;
        const std::uint64_t oldest = total > kTranscriptEntries ? total - kTranscriptEntries : 0;
        int copied = 0;
        for (std::uint64_t seq = std::max<std::uint64_t>(static_cast<std::uint64_t>(first), oldest);
             seq < total && copied < max; ++seq)
            FillTransfer(sensor.transcript[seq % kTranscriptEntries], &out[copied++]);
        return copied;
    });
}

int qvsim_transcript_clear(int id) {
    return WithBus([id](Bus& bus) {
        if (id != QVSIM_ALL_SENSORS && bus.sensor(id) == nullptr) return QVSIM_E_NO_SENSOR;
        for (int each = 0; each < kMaxSensors; ++each) {
            SensorRecord* sensor = bus.sensor(each);
            if (sensor != nullptr && (id == QVSIM_ALL_SENSORS || id == each)) sensor->transcriptTotal = 0;
        }
        return QVSIM_OK;
    });
}

int qvsim_bulk_in_push(int id, const void* data, int len) {
    if (len < 0 || (len > 0 && data == nullptr)) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        if (sensor.plugged == 0) return QVSIM_E_STATE;
        if (!QueueBulkIn(sensor, static_cast<const std::uint8_t*>(data), static_cast<std::uint32_t>(len)))
            return QVSIM_E_FULL;
        return len;
    });
}

int qvsim_bulk_out_last(int id, void* data, int capacity) {
    if (capacity < 0 || (capacity > 0 && data == nullptr)) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        const DeviceState& state = sensor.state;
        const auto kept = std::min<std::uint32_t>(state.bulkOutLength, kBulkOutKept);
        const std::size_t copied = std::min<std::size_t>(kept, static_cast<std::size_t>(capacity));
        if (copied > 0) std::memcpy(data, state.bulkOutLast, copied);
        return static_cast<int>(state.bulkOutLength);
    });
}

int qvsim_detector_info_get(int id, qvsim_detector_info* info) {
    if (info == nullptr) return QVSIM_E_ARG;
    return WithSensor(id, [info](Bus&, SensorRecord& sensor) {
        const DetectorModel& model = sensor.detector;
        *info = qvsim_detector_info{};
        info->model_index = model.modelIndex;
        info->cal_temperature = static_cast<int>(model.calTemperature);
        info->temperature = sensor.temperature;
        info->temp_table_start = static_cast<int>(model.tempTableStart);
        info->temp_step = static_cast<int>(model.tempStep);
        info->start_hz = model.startHz;
        info->step_hz = model.stepHz;
        info->counts_per_kelvin = model.countsPerKelvin;
        return QVSIM_OK;
    });
}

int qvsim_set_temperature(int id, int count) {
    if (count < 0 || count > 65535) return QVSIM_E_ARG;
    return WithSensor(id, [count](Bus&, SensorRecord& sensor) {
        sensor.temperature = count;
        return QVSIM_OK;
    });
}

int qvsim_get_temperature(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) { return static_cast<int>(sensor.temperature); });
}

int qvsim_detector_count(int id, int path, double dbm, double freq_hz, double temperature, double* count) {
    if (count == nullptr || !ValidDetectorQuery(path, dbm, freq_hz) || !std::isfinite(temperature)) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        *count = DetectorCount(sensor.detector, path, dbm, freq_hz, temperature);
        return QVSIM_OK;
    });
}

int qvsim_detector_power(int id, int path, double count, double freq_hz, double temperature, double* dbm) {
    if (dbm == nullptr || !ValidDetectorQuery(path, count, freq_hz) || !std::isfinite(temperature)) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        *dbm = DetectorPower(sensor.detector, path, count, freq_hz, temperature);
        return QVSIM_OK;
    });
}

int qvsim_detector_calibration(int id, int path, double dbm, double freq_hz, double* z, double* a, double* b) {
    if (z == nullptr || a == nullptr || b == nullptr || !ValidDetectorQuery(path, dbm, freq_hz)) return QVSIM_E_ARG;
    return WithSensor(id, [&](Bus&, SensorRecord& sensor) {
        const CalibrationPoint point = DetectorCalibration(sensor.detector, path, dbm, freq_hz);
        *z = point.z;
        *a = point.a;
        *b = point.b;
        return QVSIM_OK;
    });
}

int qvsim_signal_set(int id, const qvsim_signal* signal) {
    if (signal == nullptr) return QVSIM_E_ARG;
    const qvsim_signal s = *signal;
    if (!ValidSignal(s)) return QVSIM_E_ARG;
    return WithSensor(id, [&s](Bus&, SensorRecord& sensor) {
        sensor.signal = SignalModel{s.kind,     s.seed,    s.cw_dbm,       s.period_us, s.width_us,
                                    s.on_dbm,   s.off_dbm, s.noise_db,     s.freq_hz,   s.rise_us,
                                    s.fall_us,  s.overshoot_db, s.droop_db, s.start_us};
        return QVSIM_OK;
    });
}

int qvsim_signal_get(int id, qvsim_signal* signal) {
    if (signal == nullptr) return QVSIM_E_ARG;
    return WithSensor(id, [signal](Bus&, SensorRecord& sensor) {
        const SignalModel& m = sensor.signal;
        *signal = qvsim_signal{m.kind,   m.cwDbm,   m.periodUs,    m.widthUs,  m.onDbm,
                               m.offDbm, m.noiseDb, m.seed,        m.freqHz,   m.riseUs,
                               m.fallUs, m.overshootDb, m.droopDb, m.startUs};
        return QVSIM_OK;
    });
}

int qvsim_set_cw_power(int id, double dbm) {
    if (!IsSignalPower(dbm)) return QVSIM_E_ARG;
    return WithSensor(id, [dbm](Bus&, SensorRecord& sensor) {
        sensor.signal.kind = kSignalCw;
        sensor.signal.cwDbm = dbm;
        return QVSIM_OK;
    });
}

int qvsim_trigger_fire(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) {
        if (sensor.plugged == 0) return QVSIM_E_STATE;
        if (sensor.acquisition.pendingTriggers >= 65535) return QVSIM_E_FULL;
        ++sensor.acquisition.pendingTriggers;
        return QVSIM_OK;
    });
}

int qvsim_trigger_periodic(int id, double period_us) {
    if (!std::isfinite(period_us) || period_us < 0.0 || period_us > 1.0e9) return QVSIM_E_ARG;
    return WithSensor(id, [period_us](Bus&, SensorRecord& sensor) {
        sensor.triggerPeriodUs = period_us;
        return QVSIM_OK;
    });
}

int qvsim_trigger_period_get(int id, double* period_us) {
    if (period_us == nullptr) return QVSIM_E_ARG;
    return WithSensor(id, [period_us](Bus&, SensorRecord& sensor) {
        *period_us = sensor.triggerPeriodUs;
        return QVSIM_OK;
    });
}

int qvsim_capture_start(int id, const char* path) {
    return WithSensor(id, [path](Bus&, SensorRecord& sensor) { return CaptureBegin(sensor, path); });
}

int qvsim_capture_stop(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) {
        if (sensor.files.capturePath[0] == '\0') return QVSIM_E_STATE;
        std::memset(sensor.files.capturePath, 0, sizeof sensor.files.capturePath);
        return QVSIM_OK;
    });
}

int qvsim_replay_start(int id, const char* path) {
    return WithSensor(id, [path](Bus&, SensorRecord& sensor) { return ReplayBegin(sensor, path); });
}

int qvsim_replay_stop(int id) {
    return WithSensor(id, [](Bus&, SensorRecord& sensor) {
        if (sensor.files.replayPath[0] == '\0') return QVSIM_E_STATE;
        std::memset(sensor.files.replayPath, 0, sizeof sensor.files.replayPath);
        return QVSIM_OK;
    });
}

const char* qvsim_strerror(int code) {
    switch (code) {
        case QVSIM_E_NO_BUS: return "no bus attached";
        case QVSIM_E_ARG: return "invalid argument";
        case QVSIM_E_NO_SENSOR: return "no such sensor";
        case QVSIM_E_FULL: return "no room left";
        case QVSIM_E_IO: return "bus file cannot be created or mapped";
        case QVSIM_E_BAD_FILE: return "not a bus file of this version";
        case QVSIM_E_STATE: return "sensor not in the required state";
        default: return code >= 0 ? "success" : "unknown error";
    }
}

}  // extern "C"
