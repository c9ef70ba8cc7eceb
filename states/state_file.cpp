#include "states/state_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "device/discovery.h"
#include "frame/frame.h"
#include "frame/lookups.h"
#include "platform/platform.h"

namespace qv {

namespace {

constexpr std::int32_t kFixedKeyFault = -2;
constexpr std::int32_t kResponsePointFault = -3;
constexpr std::int32_t kCurrStateNotWritten = -2;
constexpr std::int32_t kRegisterNotWritten = -3;
constexpr const char* kCurrStateSection = "CurrState";
constexpr const char* kStateFileExtension = ".ini";

struct ModelPrefix {
    std::int32_t modelIndex;
    const char* prefix;
};

constexpr ModelPrefix kModelPrefixes[] = {
    {-1, "QVUknwn_"},  {0, "QV2xxA_"},    {1, "QV221A_"},    {2, "QV222A_"},
    {3, "QV223A_"},    {4, "QV331A_"},    {5, "QV332A_"},    {6, "QV333A_"},
    {7, "QV441A_"},    {8, "QV442A_"},    {66, "RT7777A_"},  {67, "RT7701A_"},
    {68, "RT7702A_"},  {69, "RT7703A_"},  {70, "RT7704A_"},  {71, "RT7705A_"},
    {76, "RT7777B_"},  {77, "RT7701B_"},  {78, "RT7702B_"},  {79, "RT7703B_"},
    {80, "RT7704B_"},  {81, "RT7705B_"},  {95, "VRT2_"},     {101, "TKS7110_"},
    {102, "TKS7120_"}, {103, "TKS8110_"}, {104, "TKS8120_"}, {105, "TKS6110_"},
    {106, "TKS6120_"}, {107, "TKS6310_"}, {108, "TKS6320_"}, {109, "TKS6510_"},
    {110, "TKS7410_"}, {111, "TKS7320_"}, {112, "TKS8410_"}, {113, "TKS8320_"},
};

// One key of a state section: exactly one of the two fields is set.
struct StateKey {
    const char* name;
    std::int32_t InstrumentState::*integer;
    double InstrumentState::*real;
    const char* readDefault;
};

using S = InstrumentState;
// In the order written. Five read defaults differ from the reset defaults on
// purpose ("DutyeCycle", the three limits, "TriggerDelay_mSec"): a file that
// lacks them has always read this way.
constexpr StateKey kStateKeys[] = {
    {"MeasMode", &S::MeasMode, nullptr, "1"},
    {"Freq", nullptr, &S::Freq, "1.0e9"},
    {"CWRef", nullptr, &S::CWRef, "0.0"},
    {"PlsRefPulse", nullptr, &S::PlsRefPulse, "0.0"},
    {"PlsRefPeak", nullptr, &S::PlsRefPeak, "0.0"},
    {"PlsRefAvg", nullptr, &S::PlsRefAvg, "0.0"},
    {"PlsRefDC", nullptr, &S::PlsRefDC, "0.0"},
    {"PulseCriteria_DB", nullptr, &S::PulseCriteria_DB, "3.0"},
    {"Offset_DB", nullptr, &S::Offset_DB, "0.0"},
    {"DutyeCycle", nullptr, &S::DutyeCycle, "1.0"},
    {"RecorderOut_OV_Level", nullptr, &S::RecorderOut_OV_Level, "-20.0"},
    {"RecorderOut_1V_Level", nullptr, &S::RecorderOut_1V_Level, "10.0"},
    {"SingleSidedLimit", nullptr, &S::SingleSidedLimit, "-10.0"},
    {"DoubleSidedLowerLimit", nullptr, &S::DoubleSidedLowerLimit, "-20.0"},
    {"DoubleSidedUpperLimit", nullptr, &S::DoubleSidedUpperLimit, "-10.0"},
    {"Averages", &S::Averages, nullptr, "75"},
    {"TriggerDelay_mSec", &S::TriggerDelay_mSec, nullptr, "100"},
    {"PowerUnits", &S::PowerUnits, nullptr, "0"},
    {"CWRefUnits", &S::CWRefUnits, nullptr, "0"},
    {"PulseRefUnits", &S::PulseRefUnits, nullptr, "0"},
    {"SingleSideLimitUnits", &S::SingleSideLimitUnits, nullptr, "0"},
    {"DoubleSideLimitUnits", &S::DoubleSideLimitUnits, nullptr, "0"},
    {"RecorderOutUnits", &S::RecorderOutUnits, nullptr, "0"},
    {"AntiAliasingEnabled", &S::AntiAliasingEnabled, nullptr, "0"},
    {"OffsetEnabled", &S::OffsetEnabled, nullptr, "0"},
    {"ResponseEnabled", &S::ResponseEnabled, nullptr, "0"},
    {"DutyCycleEnabled", &S::DutyCycleEnabled, nullptr, "0"},
    {"AutoPulseCriteriaEnabled", &S::AutoPulseCriteriaEnabled, nullptr, "0"},
    {"TTL_TriggerInEnabled", &S::TTL_TriggerInEnabled, nullptr, "0"},
    {"TTL_TriggerInIvertedEnabled", &S::TTL_TriggerInIvertedEnabled, nullptr, "0"},
    {"TTL_TriggerOutEnabled", &S::TTL_TriggerOutEnabled, nullptr, "0"},
    {"TTL_TriggerOutInvertEnabled", &S::TTL_TriggerOutInvertEnabled, nullptr, "0"},
    {"RecorderOutEnabled", &S::RecorderOutEnabled, nullptr, "0"},
    {"LimitsEnabled", &S::LimitsEnabled, nullptr, "0"},
    {"SingleSidedLimitsRule", &S::SingleSidedLimitsRule, nullptr, "2"},
    {"DoubleSidedLimitsRule", &S::DoubleSidedLimitsRule, nullptr, "0"},
    {"NumberOfResponsePoints", &S::NumberOfResponsePoints, nullptr, "0"},
};
constexpr std::size_t kStateKeyCount = std::size(kStateKeys);
static_assert(kStateKeyCount == 37);

constexpr const char* kResponseFrequencyKey = "RespPtFrq_";
constexpr const char* kResponseAmplitudeKey = "RespPtAmp_";
constexpr const char* kResponsePointDefault = "0.0";

// Response points a section holds. The count can only leave the table's
// range in a file edited by hand; it is then held at the nearer end, in the
// state as well, so that no reader of the table ever runs past it.
std::int32_t ResponsePointsInUse(const InstrumentState& s) {
    return std::clamp<std::int32_t>(s.NumberOfResponsePoints, 0, QV_RESPONSE_POINTS);
}

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

const char* SkipSpace(const char* p) {
    while (IsSpace(*p)) ++p;
    return p;
}

// Decimal exponent of the first significant digit of a number's text ("120"
// gives 2, "0.05" -2, "1e300" 300); tells overflow from underflow.
long DecimalExponent(const char* p, const char* end) {
    long integerDigits = 0, fractionZeros = 0;
    bool fraction = false, significant = false;
    for (; p < end; ++p) {
        if (*p == '.' && !fraction) {
            fraction = true;
        } else if (*p >= '0' && *p <= '9') {
            if (*p != '0') significant = true;
            if (!fraction && significant) ++integerDigits;
            if (fraction && !significant) ++fractionZeros;
        } else {
            break;
        }
    }
    long exponent = integerDigits > 0 ? integerDigits - 1 : -(fractionZeros + 1);
    if (p < end && (*p == 'e' || *p == 'E')) {
        ++p;
        const bool negative = p < end && *p == '-';
        if (p < end && (*p == '-' || *p == '+')) ++p;
        long value = 0;
        for (; p < end && *p >= '0' && *p <= '9'; ++p) value = std::min(value * 10 + (*p - '0'), 100000L);
        exponent += negative ? -value : value;
    }
    return exponent;
}

// The texts of one section in the order they are written.
struct SectionTexts {
    std::vector<std::pair<std::string, std::string>> entries;

    void Add(std::string key, const char* value) { entries.emplace_back(std::move(key), value); }

    void AddFixedKeys(const InstrumentState& s) {
        char text[kStateValueBufferBytes];
        entries.reserve(kStateKeyCount + 2 * static_cast<std::size_t>(ResponsePointsInUse(s)));
        for (const StateKey& key : kStateKeys) {
            if (key.integer) FormatStateInteger(s.*key.integer, text);
            else FormatStateDouble(s.*key.real, text);
            Add(key.name, text);
        }
    }

    void AddResponsePoints(const InstrumentState& s) {
        char text[kStateValueBufferBytes];
        for (std::int32_t i = 0; i < ResponsePointsInUse(s); ++i) {
            FormatStateDouble(s.Response[i].Frequency, text);
            Add(kResponseFrequencyKey + std::to_string(i), text);
            FormatStateDouble(s.Response[i].Amplitude, text);
            Add(kResponseAmplitudeKey + std::to_string(i), text);
        }
    }

    // The keys as one section's writes; valid while this object lives.
    std::vector<platform::ProfileWrite> Writes() const {
        std::vector<platform::ProfileWrite> writes;
        writes.reserve(entries.size());
        for (const auto& [key, value] : entries) writes.push_back({key.c_str(), value.c_str()});
        return writes;
    }
};

// One section's keys formatted from `s`: 1, or the code of the formatting
// fault (the keys formatted before it are kept, to be written all the same).
std::int32_t FormatSection(const InstrumentState& s, SectionTexts& texts) {
    try {
        texts.AddFixedKeys(s);
    } catch (...) {
        return kFixedKeyFault;
    }
    try {
        texts.AddResponsePoints(s);
    } catch (...) {
        return kResponsePointFault;
    }
    return kSuccess;
}

// Writes the sections in one replacement of the file. The write's own success
// is not examined: a save reports faults of its own only (no permission or a
// full disk still gives 1).
void WriteSections(const std::string& path, const std::vector<std::string>& names,
                   const std::vector<SectionTexts>& texts) noexcept {
    try {
        std::vector<std::vector<platform::ProfileWrite>> writes;
        std::vector<platform::ProfileSectionWrite> sections;
        writes.reserve(texts.size());
        for (std::size_t i = 0; i < texts.size(); ++i) {
            writes.push_back(texts[i].Writes());
            sections.push_back({names[i].c_str(), writes.back().data(), writes.back().size()});
        }
        platform::ProfileWriteSections(path, sections.data(), sections.size());
    } catch (...) {
    }
}

std::int32_t WriteSection(const std::string& path, const char* section,
                          const InstrumentState& s) {
    std::vector<SectionTexts> texts(1);
    const std::int32_t result = FormatSection(s, texts[0]);
    WriteSections(path, {section}, texts);
    return result;
}

// Reads one section into `s`: every fixed key (stored as it converts, nothing
// validated), then as many response points as the count just read.
std::int32_t ReadSection(const std::string& path, const char* section, InstrumentState& s) {
    try {
        char values[kStateKeyCount][kStateValueBufferBytes];
        platform::ProfileRead reads[kStateKeyCount];
        for (std::size_t k = 0; k < kStateKeyCount; ++k)
            reads[k] = {kStateKeys[k].name, kStateKeys[k].readDefault, values[k],
                        static_cast<std::uint32_t>(kStateValueBufferBytes), 0};
        platform::ProfileReadStrings(path, section, reads, kStateKeyCount);
        for (std::size_t k = 0; k < kStateKeyCount; ++k) {
            if (kStateKeys[k].integer) s.*kStateKeys[k].integer = ConvertStateInteger(values[k]);
            else s.*kStateKeys[k].real = ConvertStateDouble(values[k]);
        }
        s.NumberOfResponsePoints = ResponsePointsInUse(s);
    } catch (...) {
        return kFixedKeyFault;
    }
    if (s.NumberOfResponsePoints == 0) return kSuccess;
    try {
        const auto points = static_cast<std::size_t>(s.NumberOfResponsePoints);
        std::vector<std::string> keys;
        std::vector<char> values(2 * points * kStateValueBufferBytes);
        std::vector<platform::ProfileRead> reads;
        keys.reserve(2 * points);
        reads.reserve(2 * points);
        for (std::size_t i = 0; i < points; ++i) {
            keys.push_back(kResponseFrequencyKey + std::to_string(i));
            keys.push_back(kResponseAmplitudeKey + std::to_string(i));
        }
        for (std::size_t k = 0; k < keys.size(); ++k)
            reads.push_back({keys[k].c_str(), kResponsePointDefault, &values[k * kStateValueBufferBytes],
                             static_cast<std::uint32_t>(kStateValueBufferBytes), 0});
        platform::ProfileReadStrings(path, section, reads.data(), reads.size());
        for (std::size_t i = 0; i < points; ++i) {
            s.Response[i].Frequency = ConvertStateDouble(reads[2 * i].buffer);
            s.Response[i].Amplitude = ConvertStateDouble(reads[2 * i + 1].buffer);
        }
    } catch (...) {
        return kResponsePointFault;
    }
    return kSuccess;
}

std::string RegisterSection(std::int32_t reg) { return "Reg_" + std::to_string(reg); }

bool IsValidRegisterInFile(std::int32_t reg) { return reg >= 0 && reg < kDefaultRegisters; }

// Length and characters of the name rule, apart: the saves test the
// characters only after the owner.
bool HasStateNameLength(const char* name) {
    if (!name) return false;
    const std::size_t length = strnlen(name, kStateNameMaxChars + 1);
    return length >= 1 && length <= kStateNameMaxChars;
}

bool HasStateNameCharacters(const char* name) {
    for (const char* p = name; *p; ++p) {
        const char c = *p;
        const bool allowed = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                             (c >= 'A' && c <= 'Z') || c == '_';
        if (!allowed) return false;
    }
    return true;
}

}  // namespace

// ---------------------------------------------------------------- names and texts

const char* ModelFilePrefix(std::int32_t modelIndex) {
    for (const ModelPrefix& m : kModelPrefixes)
        if (m.modelIndex == modelIndex) return m.prefix;
    return "Other_";
}

std::string NamedStateFilePrefix(std::int32_t slot) {
    const IdentityBlock& id = Slot(slot).identity;
    return ModelFilePrefix(id.ModelIndex) + std::to_string(id.address) + "_";
}

std::string StateFilePath(std::int32_t slot, const char* name) {
    // Checked here as well as by every operation: a caller's string becomes
    // part of a path only when it is letters, digits and '_'.
    if (name && !IsValidStateName(name)) return {};
    // The data directory: one fixed directory for every application on the
    // machine, as the system directory is on Windows.
    const IdentityBlock& id = Slot(slot).identity;
    std::string file = ModelFilePrefix(id.ModelIndex) + std::to_string(id.address);
    if (name) file += std::string("_") + name;
    return platform::JoinPath(platform::DataDirectory(), file + kStateFileExtension);
}

bool IsValidStateName(const char* name) {
    return HasStateNameLength(name) && HasStateNameCharacters(name);
}

std::string NamedStatePattern(std::int32_t slot) {
    std::string path = StateFilePath(slot);
    path.insert(path.size() - std::strlen(kStateFileExtension), "_*");
    return path;
}

std::int32_t StateSlot(std::int32_t address, bool withFallback) {
    std::int32_t devId = 0;
    std::int32_t slot = kNoSlot;
    char serial[kSerialChars + 1] = {};
    if (LookupSlot_Addr(address, &devId, &slot, serial) == 1) return slot;
    if (withFallback && ResolveSlot_Addr(address, &devId, &slot, serial) == 1) return slot;
    return kNoSlot;
}

void FormatStateInteger(std::int32_t value, char* text) {
    const auto end = std::to_chars(text, text + kStateValueBufferBytes - 1, value).ptr;
    *end = '\0';
}

void FormatStateDouble(double value, char* text) {
    // "%f" of the largest double: sign, 309 digits, point and six decimals.
    char fixed[330];
    const auto r = std::to_chars(fixed, fixed + sizeof fixed, value, std::chars_format::fixed, 6);
    const auto length = static_cast<std::size_t>(r.ptr - fixed);
    if (r.ec == std::errc() && length < kStateValueBufferBytes) {
        std::memcpy(text, fixed, length);
        text[length] = '\0';
        return;
    }
    // Beyond about 1e90 the "%f" text would be cut off when read back (a
    // value buffer holds 99 characters); the shortest exponent form reads back
    // to the same value, here and in any other reader of the file.
    const auto end =
        std::to_chars(text, text + kStateValueBufferBytes - 1, value, std::chars_format::scientific).ptr;
    *end = '\0';
}

std::int32_t ConvertStateInteger(const char* text) {
    const char* p = SkipSpace(text);
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    constexpr std::int64_t kBeyond32Bits = std::int64_t {1} << 32;
    std::int64_t magnitude = 0;
    for (; *p >= '0' && *p <= '9'; ++p) magnitude = std::min(magnitude * 10 + (*p - '0'), kBeyond32Bits);
    // Beyond 32 bits a value is held at the nearer end.
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(negative ? -magnitude : magnitude, INT32_MIN, INT32_MAX));
}

// Locale-independent, unlike strtod; a hexadecimal text reads as 0.
double ConvertStateDouble(const char* text) {
    const char* p = SkipSpace(text);
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    if (*p == '-' || *p == '+') return 0.0;  // from_chars would take a second sign
    const char* end = p + std::strlen(p);
    double value = 0.0;
    const auto r = std::from_chars(p, end, value);
    if (r.ec == std::errc::result_out_of_range) value = DecimalExponent(p, end) > 0 ? HUGE_VAL : 0.0;
    else if (r.ec != std::errc()) value = 0.0;
    return negative ? -value : value;
}

// ---------------------------------------------------------------- sections

std::int32_t WriteCurrStateSection(std::int32_t address, const char* name) {
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot) return kFailure;
    const std::string path = StateFilePath(slot, name);
    if (path.empty()) return kFailure;
    return WriteSection(path, kCurrStateSection, Slot(slot).current);
}

std::int32_t ReadCurrStateSection(std::int32_t address, const char* name) {
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot) return kFailure;
    const std::string path = StateFilePath(slot, name);
    if (path.empty()) return kFailure;
    return ReadSection(path, kCurrStateSection, Slot(slot).current);
}

std::int32_t WriteRegisterSection(std::int32_t address, std::int32_t reg) {
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot || !IsValidRegisterInFile(reg)) return kFailure;
    return WriteSection(StateFilePath(slot), RegisterSection(reg).c_str(), Slot(slot).registers[reg]);
}

std::int32_t ReadRegisterSection(std::int32_t address, std::int32_t reg) {
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot || !IsValidRegisterInFile(reg)) return kFailure;
    return ReadSection(StateFilePath(slot), RegisterSection(reg).c_str(), Slot(slot).registers[reg]);
}

// ---------------------------------------------------------------- operations

std::int32_t SaveCurrStateTo(std::int32_t address, const char* name) {
    if (!HasStateNameLength(name)) return kFailure;
    if (IsDeviceMine_Addr(address) != 1) return kFailure;
    if (!HasStateNameCharacters(name)) return kFailure;
    return WriteCurrStateSection(address, name);
}

std::int32_t RestoreCurrStateFrom(std::int32_t address, const char* name) {
    if (!HasStateNameLength(name)) return kFailure;
    if (IsDeviceMine_Addr(address) != 1) return kFailure;
    if (!HasStateNameCharacters(name)) return kFailure;
    const std::int32_t result = ReadCurrStateSection(address, name);
    if (result < 1) return result;
    return Slot(StateSlot(address, true)).current.MeasMode;
}

std::int32_t WriteStateToINI(std::int32_t address) {
    // Any process may write any sensor's file: there is no owner check.
    if (!IsValidAddress(address)) return kFailure;
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot) return kCurrStateNotWritten;
    // The current state and registers 0 to 9 in that order, up to the first
    // section that cannot be formatted (its keys formatted so far included),
    // written with one replacement of the file.
    const DeviceRecord& r = Slot(slot);
    std::vector<std::string> names {kCurrStateSection};
    std::vector<SectionTexts> texts(1);
    std::int32_t result = FormatSection(r.current, texts[0]) == kSuccess ? kSuccess
                                                                         : kCurrStateNotWritten;
    for (std::int32_t reg = 0; reg < kDefaultRegisters && result == kSuccess; ++reg) {
        names.push_back(RegisterSection(reg));
        texts.emplace_back();
        if (FormatSection(r.registers[reg], texts.back()) != kSuccess) result = kRegisterNotWritten;
    }
    WriteSections(StateFilePath(slot), names, texts);
    return result;
}

std::int32_t ReadStateFromINI(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return kFailure;
    const std::int32_t slot = StateSlot(address, false);
    if (slot == kNoSlot || !IsValidAddress(address)) return kFailure;
    if (ReadCurrStateSection(address, nullptr) >= 1) {
        for (std::int32_t r = 0; r < kDefaultRegisters; ++r)
            if (ReadRegisterSection(address, r) < 1) break;
    }
    return Slot(slot).current.MeasMode;
}

}  // namespace qv
