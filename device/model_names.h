// The texts by which product strings name the sensor models. Header-only so
// that the simulated sensors, which must name their models the same way,
// share it.
#pragma once

#include <cstdint>
#include <cstring>

namespace qv {

struct ModelName {
    const char* text;
    std::int32_t model;
};

// Searched first, in this order, by both lists.
inline constexpr ModelName kCommonModelNames[] = {
    {"2xx", 0},     {"2XX", 0},     {"221", 1},     {"222", 2},     {"223", 3},
    {"331", 4},     {"332", 5},     {"333", 6},     {"441", 7},     {"442", 8},
    {"VRT2", 95},   {"OEM", 64},    {"RUnse", 65},  {"R7777A", 66}, {"R7701A", 67},
    {"R7702A", 68}, {"R7703A", 69}, {"R7704A", 70}, {"R7705A", 71}, {"R7777B", 76},
    {"R7701B", 77}, {"R7702B", 78}, {"R7703B", 79}, {"R7704B", 80}, {"R7705B", 81},
};

// Then, for the model itself: the four digits, which TK and TKS models share.
inline constexpr ModelName kDigitModelNames[] = {
    {"7110", 101}, {"7120", 102}, {"8110", 103}, {"8120", 104}, {"6110", 105},
    {"6120", 106}, {"6310", 107}, {"6320", 108}, {"6510", 109}, {"7410", 110},
    {"7320", 111}, {"8410", 112}, {"8320", 113},
};

// Or, for the trace-capability test: the full TK names, which no TKS model matches.
inline constexpr ModelName kFullModelNames[] = {
    {"TK6110", 105}, {"TK6120", 106}, {"TK6310", 107}, {"TK6320", 108}, {"TK6510", 109},
    {"TK7110", 101}, {"TK7120", 102}, {"TK7410", 110}, {"TK7320", 111}, {"TK8110", 103},
    {"TK8120", 104}, {"TK8410", 112}, {"TK8320", 113},
};

// The model of the first listed text found anywhere in `product` (case
// matters); -1 when none is found.
inline std::int32_t FindModelName(const char* product, bool fullNames) {
    if (!product) return -1;
    for (const ModelName& m : kCommonModelNames)
        if (std::strstr(product, m.text)) return m.model;
    if (fullNames) {
        for (const ModelName& m : kFullModelNames)
            if (std::strstr(product, m.text)) return m.model;
    } else {
        for (const ModelName& m : kDigitModelNames)
            if (std::strstr(product, m.text)) return m.model;
    }
    return -1;
}

}  // namespace qv
