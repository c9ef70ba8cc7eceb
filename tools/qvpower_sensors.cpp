// Sensors through the library's public exports: naming, listing, identity and
// readings.
#include "qvpower_sensors.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "qv_api2.h"
#include "qvpower_calls.h"

namespace qvpower {

// ---------------------------------------------------------------- models

namespace {

// The library keeps a model's range to itself until a sensor is initialised,
// and then only answers yes or no per frequency; the tool therefore carries
// the table of names and upper limits. MeasureRange tests in
// tests/tools/test_qvpower.cpp hold it against the library.
const std::vector<ModelInfo> kModels = {
    {0, "QV2xxA family", "QV2xxA", 1.0e10},
    {1, "QV221A", "QV221A", 1.0e10},
    {2, "QV222A", "QV222A", 1.0e10},
    {3, "QV223A", "QV223A", 1.0e10},
    {4, "QV331A", "QV331A", 1.25e10},
    {5, "QV332A", "QV332A", 1.8e10},
    {6, "QV333A", "QV333A", 2.65e10},
    {7, "QV441A", "QV441A", 2.0e10},
    {8, "QV442A", "QV442A", 2.0e10},
    {64, "OEMOEM", "OEMOEM", 1.0e10},
    {65, "RUNSET", "RUnset", 1.0e10},
    {66, "R7777A", "R7777A", 1.0e10},
    {67, "R7701A", "R7701A", 1.0e10},
    {68, "R7702A", "R7702A", 1.0e10},
    {69, "R7703A", "R7703A", 1.8e10},
    {70, "R7704A", "R7704A", 2.65e10},
    {71, "R7705A", "R7705A", 2.0e10},
    {76, "R7777B", "R7777B", 1.0e10},
    {77, "R7701B", "R7701B", 1.0e10},
    {78, "R7702B", "R7702B", 1.0e10},
    {79, "R7703B", "R7703B", 1.8e10},
    {80, "R7704B", "R7704B", 2.65e10},
    {81, "R7705B", "R7705B", 2.0e10},
    {95, "VRT2", "VRT2", 1.0e10},
    // The library cannot tell a TK model from its TKS twin: both carry the
    // same four digits.
    {101, "TK7110 or TKS7110", "TK7110", 1.0e10},
    {102, "TK7120 or TKS7120", "TK7120", 1.0e10},
    {103, "TK8110 or TKS8110", "TK8110", 1.0e10},
    {104, "TK8120 or TKS8120", "TK8120", 1.0e10},
    {105, "TK6110 or TKS6110", "TK6110", 1.25e10},
    {106, "TK6120 or TKS6120", "TK6120", 1.25e10},
    {107, "TK6310 or TKS6310", "TK6310", 1.8e10},
    {108, "TK6320 or TKS6320", "TK6320", 1.8e10},
    {109, "TK6510 or TKS6510", "TK6510", 2.65e10},
    {110, "TK7410 or TKS7410", "TK7410", 2.0e10},
    {111, "TK7320 or TKS7320", "TK7320", 2.0e10},
    {112, "TK8410 or TKS8410", "TK8410", 2.0e10},
    {113, "TK8320 or TKS8320", "TK8320", 2.0e10},
};

const ModelInfo kUnknownModel = {-1, "unknown", "", 1.0e10};

}  // namespace

const ModelInfo& Model(std::int32_t code) {
    for (const ModelInfo& m : kModels)
        if (m.code == code) return m;
    return kUnknownModel;
}

const std::vector<ModelInfo>& Models() { return kModels; }

// ---------------------------------------------------------------- units

const std::vector<std::pair<std::string, std::int32_t>>& UnitNames() {
    static const std::vector<std::pair<std::string, std::int32_t>> names = {
        {"dBm", QV_UNIT_DBM},   {"dBW", QV_UNIT_DBW}, {"dBkW", QV_UNIT_DBKW},
        {"dBuV", QV_UNIT_DBUV}, {"dBmV", QV_UNIT_DBMV}, {"dBV", QV_UNIT_DBV},
        {"W", QV_UNIT_W},       {"V", QV_UNIT_V},     {"dBr", QV_UNIT_DB_REL},
    };
    return names;
}

std::string UnitName(std::int32_t code) {
    for (const auto& [name, unit] : UnitNames())
        if (unit == code) return name;
    return "unit " + std::to_string(code);
}

// ---------------------------------------------------------------- naming

std::optional<std::int32_t> ParseAddress(const std::string& text) {
    if (text.empty() || text[0] != '@') return std::nullopt;
    const std::string digits = text.substr(1);
    errno = 0;
    char* end = nullptr;
    const long address = std::strtol(digits.c_str(), &end, 10);
    if (digits.empty() || *end != '\0' || errno != 0 || address < 1 || address > 255)
        throw std::invalid_argument("an address is @1 to @255, not " + text);
    return static_cast<std::int32_t>(address);
}

SensorName FindSensor(const std::string& text) {
    SensorName name;
    if (const std::optional<std::int32_t> address = ParseAddress(text)) {
        name.address = *address;
        name.index = QV_GetIndex_Addr(name.address);
        if (name.index < 1) throw ExportFailure{"QV_GetIndex_Addr", Arguments(name.address), name.index};
        char serial[8] = {};
        Expect("QV_GetSerNo_Addr", QV_GetSerNo_Addr(name.address, serial), Arguments(name.address));
        name.serial = serial;
        return name;
    }
    // The library matches serial numbers without regard to case; show them as it stores them.
    for (char c : text) name.serial += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    name.index = QV_GetIndex_SN(name.serial.c_str());
    if (name.index < 1) throw ExportFailure{"QV_GetIndex_SN", Arguments(name.serial), name.index};
    name.address = QV_GetAddress_SN(name.serial.c_str());
    if (name.address < 1) throw ExportFailure{"QV_GetAddress_SN", Arguments(name.serial), name.address};
    return name;
}

// ---------------------------------------------------------------- listing, identity

const char* OwnerText(Owner owner) {
    switch (owner) {
    case Owner::Free: return "free";
    case Owner::ThisProcess: return "this process";
    case Owner::AnotherProcess: return "another process";
    }
    return "?";
}

namespace {

Owner OwnerOf(std::int32_t index) {
    if (QV_IsDeviceMine_Idx(index) == 1) return Owner::ThisProcess;
    return QV_IsDeviceInUse_Idx(index) == 1 ? Owner::AnotherProcess : Owner::Free;
}

// The model code, -1 when the library does not know the model; other
// refusals throw.
std::int32_t ModelByIndex(std::int32_t index) {
    std::int32_t model = -1;
    const std::int32_t r = QV_GetModelNumber_Idx(index, &model);
    if (r != 1 && r != -1) throw ExportFailure{"QV_GetModelNumber_Idx", Arguments(index, Out{"model"}), r};
    return r == 1 ? model : -1;
}

}  // namespace

std::vector<ListedSensor> ListSensors() {
    const std::int32_t count = QV_SensorCnt();
    if (count < 0) throw ExportFailure{"QV_SensorCnt", "", count};
    std::vector<ListedSensor> sensors;
    if (count == 0) return sensors;
    std::vector<SensorListEntry> entries(static_cast<std::size_t>(count));
    Expect("QV_SensorList", QV_SensorList(entries.data(), count), Arguments(Out{"list"}, count));
    for (const SensorListEntry& e : entries) {
        // The list leaves the serial unterminated when it is six characters long.
        const char* end = std::find(e.SerialNumber, e.SerialNumber + sizeof e.SerialNumber, '\0');
        const std::string serial(e.SerialNumber, end);
        const Owner owner = e.DeviceIndex < 0 ? Owner::AnotherProcess : OwnerOf(e.DeviceIndex);
        sensors.push_back({e.DeviceIndex, serial, e.Address, ModelByIndex(e.DeviceIndex), owner});
    }
    return sensors;
}

SensorInfo ReadSensorInfo(const SensorName& name) {
    SensorInfo info;
    info.name = name;
    const auto keep = [&](const ExportFailure& failure) { info.failures.push_back(failure.Message()); };

    std::int32_t model = -1;
    const std::int32_t r = QV_GetModelNumber_SN(name.serial.c_str(), &model);
    if (r == 1) info.model = model;
    else if (r != -1) keep({"QV_GetModelNumber_SN", Arguments(name.serial, Out{"model"}), r});

    char firmware[16] = {};
    const std::int32_t f = QV_GetFirmwareVersion(name.address, firmware, sizeof firmware);
    if (f == 1) info.firmware = firmware;
    else keep({"QV_GetFirmwareVersion", Arguments(name.address, Out{"buffer"}, sizeof firmware), f});

    std::int32_t year = 0, month = 0, day = 0;
    const std::int32_t d = QV_GetCalDueDate(name.serial.c_str(), &year, &month, &day);
    // An erased date (0xFF bytes) or one out of range is no date: the field
    // says "not set" instead of inventing 2255-255-255.
    info.dueDateRead = d == 1;
    const bool dateSet = year >= 1 && year <= 99 && month >= 1 && month <= 12 && day >= 1 && day <= 31;
    if (d == 1 && dateSet) {
        info.dueYear = 2000 + year;
        info.dueMonth = month;
        info.dueDay = day;
    } else if (d != 1) {
        keep({"QV_GetCalDueDate", Arguments(name.serial, Out{"year"}, Out{"month"}, Out{"day"}), d});
    }
    info.owner = OwnerOf(name.index);
    return info;
}

// ---------------------------------------------------------------- readings

OwnedSensor::OwnedSensor(const SensorName& name) : name_(name) {
    const std::int32_t slot = QV_InitializeSensor_SN(name.serial.c_str());
    if (slot < 1) throw ExportFailure{"QV_InitializeSensor_SN", Arguments(name.serial), slot};
    held_ = true;
}

OwnedSensor::~OwnedSensor() {
    // On the way out of a failure: the failure is what the user must see.
    if (held_) (void)QV_UninitializeSensor_SN(name_.serial.c_str());
}

void OwnedSensor::Release() {
    held_ = false;
    Expect("QV_UninitializeSensor_SN", QV_UninitializeSensor_SN(name_.serial.c_str()),
           Arguments(name_.serial));
}

void OwnedSensor::Apply(const MeasureSettings& s) {
    const std::int32_t a = name_.address;
    if (s.frequencyHz)
        Expect("QV_SetFrequency", QV_SetFrequency(a, *s.frequencyHz), Arguments(a, *s.frequencyHz));
    if (s.averages) Expect("QV_SetAverages", QV_SetAverages(a, *s.averages), Arguments(a, *s.averages));
    if (s.offsetDb) {
        Expect("QV_SetOffset", QV_SetOffset(a, *s.offsetDb), Arguments(a, *s.offsetDb));
        Expect("QV_SetOffsetEnabled", QV_SetOffsetEnabled(a, 1), Arguments(a, 1));
    }
    if (s.unit)
        Expect("QV_SetMeasurementPowerUnits", QV_SetMeasurementPowerUnits(a, *s.unit), Arguments(a, *s.unit));
    if (s.referenceDbm) {
        const double ref = *s.referenceDbm;
        Expect("QV_SetCWReference", QV_SetCWReference(a, ref, QV_UNIT_DBM), Arguments(a, ref, QV_UNIT_DBM));
        // Pulse readings are relative to references of their own; the duty
        // cycle keeps its reference.
        double pulse = 0, peak = 0, average = 0, dutyCycle = 0;
        std::int32_t units = 0;
        Expect("QV_GetPulseReference", QV_GetPulseReference(a, &pulse, &peak, &average, &dutyCycle, &units),
               Arguments(a, Out{"pulse"}, Out{"peak"}, Out{"average"}, Out{"dutyCycle"}, Out{"units"}));
        Expect("QV_SetPulseReference", QV_SetPulseReference(a, ref, ref, ref, dutyCycle, QV_UNIT_DBM),
               Arguments(a, ref, ref, ref, dutyCycle, QV_UNIT_DBM));
    }
}

double OwnedSensor::FrequencyHz() const {
    double f = 0;
    Expect("QV_GetFrequency", QV_GetFrequency(name_.address, &f), Arguments(name_.address, Out{"frequency"}));
    return f;
}

std::int32_t OwnedSensor::Unit() const {
    std::int32_t unit = 0;
    Expect("QV_GetMeasurementPowerUnits", QV_GetMeasurementPowerUnits(name_.address, &unit),
           Arguments(name_.address, Out{"units"}));
    return unit;
}

CwReading OwnedSensor::MeasureCW() const {
    CwReading r{};
    Expect("QV_MeasureCW", QV_MeasureCW(name_.address, &r.power), Arguments(name_.address, Out{"reading"}));
    return r;
}

PulseReading OwnedSensor::MeasurePulse() const {
    PulseReading r{};
    Expect("QV_MeasurePulse", QV_MeasurePulse(name_.address, &r.pulse, &r.peak, &r.average, &r.dutyCycle),
           Arguments(name_.address, Out{"pulse"}, Out{"peak"}, Out{"average"}, Out{"dutyCycle"}));
    return r;
}

}  // namespace qvpower
