// Two doubles that the processor adds, compares and selects at once, for the
// loops that run over whole traces.
#pragma once

#include <cstring>

namespace qv {

typedef double Pair __attribute__((vector_size(16)));
// What comparing two Pairs gives: -1 where it holds, 0 where not.
typedef long long PairMask __attribute__((vector_size(16)));

inline Pair LoadPair(const double* p) {
    Pair v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline Pair Both(double v) { return Pair {v, v}; }

}  // namespace qv
