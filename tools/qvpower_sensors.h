// What qvpower asks the library about sensors, through its public exports
// only: naming a sensor, the bus listing, a sensor's identity, and readings of
// a sensor initialised for the run. Every refused call throws ExportFailure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qvpower {

// ---------------------------------------------------------------- models

struct ModelInfo {
    std::int32_t code;        // the model code (ModelIndex) the library reports
    const char* name;         // for people: "QV442A", "TK8410 or TKS8410"
    const char* product;      // a product string that names the model
    double maxFrequencyHz;    // top of the measurement range; the bottom is 10 MHz
};

inline constexpr double kMinFrequencyHz = 1.0e7;

// The model with this code; unknown codes (-1 among them) get the library's
// default range of 10 GHz and the name "unknown".
const ModelInfo& Model(std::int32_t code);
// Every model the library knows.
const std::vector<ModelInfo>& Models();

// ---------------------------------------------------------------- units

// The unit codes of results by name ("dBm", ..., "V", "dBr"), and back.
const std::vector<std::pair<std::string, std::int32_t>>& UnitNames();
std::string UnitName(std::int32_t code);

// ---------------------------------------------------------------- naming

// A sensor on the bus, named on the command line by its serial number or by
// its address as "@5".
struct SensorName {
    std::string serial;
    std::int32_t address = 0;
    std::int32_t index = 0;  // device index, 1-based
};

// Parses "@N" (1..255); nullopt for anything that is not of that form. Throws
// std::invalid_argument for "@" followed by something else than an address.
std::optional<std::int32_t> ParseAddress(const std::string& text);
SensorName FindSensor(const std::string& text);

// ---------------------------------------------------------------- listing, identity

enum class Owner { Free, ThisProcess, AnotherProcess };
const char* OwnerText(Owner owner);

struct ListedSensor {
    std::int32_t index;  // as listed: negative when another process holds it
    std::string serial;
    std::int32_t address;
    std::int32_t model;
    Owner owner;
};
std::vector<ListedSensor> ListSensors();

// One field of an identity that could not be read: the field stays empty and
// the failure is kept, so that the rest can still be shown.
struct SensorInfo {
    SensorName name;
    std::int32_t model = -1;
    std::string firmware;
    bool dueDateRead = false;
    std::optional<int> dueYear, dueMonth, dueDay;  // 2027, 3, 31; none when not set
    Owner owner = Owner::Free;
    std::vector<std::string> failures;  // ExportFailure messages
};
SensorInfo ReadSensorInfo(const SensorName& name);

// ---------------------------------------------------------------- readings

struct MeasureSettings {
    std::optional<double> frequencyHz;
    std::optional<std::int32_t> averages;
    std::optional<double> offsetDb;
    std::optional<std::int32_t> unit;
    std::optional<double> referenceDbm;  // for unit 8 (dB relative)
};

struct CwReading {
    double power;
};
struct PulseReading {
    double pulse, peak, average, dutyCycle;
};

// A sensor initialised by this process for as long as the object lives.
class OwnedSensor {
public:
    explicit OwnedSensor(const SensorName& name);
    ~OwnedSensor();  // releases it if Release was not reached
    OwnedSensor(const OwnedSensor&) = delete;
    OwnedSensor& operator=(const OwnedSensor&) = delete;

    // Applies the settings given; the others keep the defaults initialisation set.
    void Apply(const MeasureSettings& settings);
    double FrequencyHz() const;
    std::int32_t Unit() const;

    CwReading MeasureCW() const;
    PulseReading MeasurePulse() const;

    // Releases the sensor, throwing when the library refuses.
    void Release();

private:
    SensorName name_;
    bool held_ = false;
};

}  // namespace qvpower
