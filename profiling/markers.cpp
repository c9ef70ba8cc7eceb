// Markers on the analysis trace: a reference point (mode 1) and, in delta
// mode (2), a second point reported against it; moves to peaks.
#include <cmath>
#include <cstdint>
#include <vector>

#include "profiling/analysis.h"

namespace qv {

namespace {

struct MarkerRef {
    const AnalysisTrace* trace = nullptr;
    MarkerRecord* marker = nullptr;
    explicit operator bool() const { return marker != nullptr; }
    std::int32_t last() const { return trace->analysisLastIdx; }
    bool InRange(std::int32_t p) const { return p >= 0 && p <= last(); }
    // Seconds, as the marker record keeps them.
    double TimeOf(std::int32_t p) const {
        if (last() <= 0) return 0.0;
        return static_cast<double>(p) / last() * trace->analysisSweepTime / 1e6;
    }
    std::int32_t IndexOf(double usec) const {
        if (trace->analysisSweepTime <= 0) return 0;
        const double i = usec / trace->analysisSweepTime * last() + 0.5;
        if (!(i >= 0.0)) return 0;
        return i >= last() ? last() : static_cast<std::int32_t>(i);
    }
    // dBm at a point; a point of 0 W reads as -infinity.
    double AmpAt(std::int32_t p) const { return AnalysisDbm(trace->analysisTrace[p]); }
};

enum class Need { kAny, kValidTrace, kActive };

MarkerRef FindMarker(std::int32_t address, std::int32_t marker, Need need) {
    if (marker < 0 || marker >= kMarkerCount) return {};
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return {};
    DeviceRecord& r = Slot(slot);
    MarkerRecord& m = r.analysisSetup.markers[marker];
    if (need != Need::kAny && r.analysis.analysisValid != 1) return {};
    if (need == Need::kActive && m.mode == 0) return {};
    return {&r.analysis, &m};
}

// Puts the acted-on side (reference in mode 1, delta in mode 2) on point p.
void PlaceOn(MarkerRef m, std::int32_t p, double amp) {
    MarkerRecord& r = *m.marker;
    const double t = m.TimeOf(p);
    if (r.mode == 1) {
        r.pos = p;
        r.time = r.posTime = t;
        r.amp = amp;
    } else {
        r.deltaPos = p;
        r.deltaTime = r.deltaPosTime = t;
        r.deltaAmp = amp;
    }
}

}  // namespace

std::int32_t SetMarkerMode(std::int32_t address, std::int32_t marker, std::int32_t mode) {
    if (mode < 0 || mode > 2) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kAny);
    if (!m) return -1;
    m.marker->mode = mode;
    return 1;
}

std::int32_t GetMarkerMode(std::int32_t address, std::int32_t marker, std::int32_t* mode) {
    if (!mode) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kAny);
    if (!m) return -1;
    *mode = m.marker->mode;
    return 1;
}

std::int32_t SetMarkerPosition(std::int32_t address, std::int32_t marker, std::int32_t index) {
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m || index < 0) return -1;
    MarkerRecord& r = *m.marker;
    if (index > m.last()) {
        r.pos = r.deltaPos = -1;
        return -1;
    }
    PlaceOn(m, index, m.AmpAt(index));
    if (r.mode == 2 && !m.InRange(r.pos)) {
        r.pos = -1;
        return 0;
    }
    return 1;
}

std::int32_t GetMarkerPosition(std::int32_t address, std::int32_t marker, std::int32_t* index) {
    if (!index) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m) return -1;
    MarkerRecord& r = *m.marker;
    *index = -1;
    if (r.mode == 1) {
        if (!m.InRange(r.pos)) {
            r.pos = -1;
            return -1;
        }
        *index = r.pos;
        return 1;
    }
    if (!m.InRange(r.pos)) {
        r.pos = r.deltaPos = -1;
        return -1;
    }
    if (!m.InRange(r.deltaPos)) {
        r.deltaPos = -1;
        r.deltaTime = -1.0;
        return -1;
    }
    *index = r.deltaPos;
    return 1;
}

std::int32_t SetMarkerPositionTime(std::int32_t address, std::int32_t marker, double usec) {
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m || !(0.0 <= usec && usec <= m.trace->analysisSweepTime)) return -1;
    MarkerRecord& r = *m.marker;
    const std::int32_t p = m.IndexOf(usec);
    // The amplitude is not refreshed: only the operations that set a point by index do.
    if (r.mode == 1) {
        r.pos = p;
        r.time = usec / 1e6;
        r.posTime = m.TimeOf(p);
    } else {
        r.deltaPos = p;
        r.deltaTime = usec / 1e6;
        r.deltaPosTime = m.TimeOf(p);
    }
    return 1;
}

std::int32_t GetMarkerPositionTime(std::int32_t address, std::int32_t marker, double* usec) {
    if (!usec) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m) return -1;
    *usec = (m.marker->mode == 1 ? m.marker->posTime : m.marker->deltaPosTime) * 1e6;
    return 1;
}

std::int32_t SetMarkerDeltaTime(std::int32_t address, std::int32_t marker, double usec) {
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m || m.marker->mode != 2) return -1;
    MarkerRecord& r = *m.marker;
    const double end = (r.time + usec / 1e6) * 1e6;
    if (!(0.0 <= end && end <= m.trace->analysisSweepTime)) return -1;
    const std::int32_t p = m.IndexOf(r.posTime * 1e6 + usec);
    PlaceOn(m, p, m.AmpAt(p));
    return 1;
}

std::int32_t GetMarkerDeltaTime(std::int32_t address, std::int32_t marker, double* usec) {
    if (!usec) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m || m.marker->mode != 2) return -1;
    *usec = (m.marker->deltaTime - m.marker->time) * 1e6;
    return 1;
}

// The last point is not taken: a marker there has no amplitude (nor is it
// valid), and neither has one that sits on no point at all.
std::int32_t GetMarkerAmp(std::int32_t address, std::int32_t marker, double* dbm) {
    if (!dbm) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m) return -1;
    const MarkerRecord& r = *m.marker;
    if (!(r.pos >= 0 && r.pos < m.last())) return -1;
    const std::int32_t p = r.mode == 1 ? r.pos : r.deltaPos;
    if (!m.InRange(p)) return -1;
    *dbm = m.AmpAt(p);
    return 1;
}

std::int32_t GetMarkerDeltaAmp(std::int32_t address, std::int32_t marker, double* db) {
    if (!db) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m) return -1;
    const MarkerRecord& r = *m.marker;
    if (r.mode != 2 || !m.InRange(r.pos) || !m.InRange(r.deltaPos)) return -1;
    *db = m.AmpAt(r.deltaPos) - m.AmpAt(r.pos);
    return 1;
}

std::int32_t MarkerPosIsValid(std::int32_t address, std::int32_t marker, std::int32_t* valid) {
    if (!valid) return -1;
    MarkerRef m = FindMarker(address, marker, Need::kValidTrace);
    if (!m) return -1;
    const MarkerRecord& r = *m.marker;
    if (r.mode == 0) return 1;
    const std::int32_t p = r.mode == 1 ? r.pos : r.deltaPos;
    *valid = (p >= 0 && p < m.last()) ? 1 : 0;
    return 1;
}

// ---------------------------------------------------------------- moves

int PickMarkerPeak(MarkerMove move, const std::vector<PP_Peak>& peaks, std::int32_t current,
                   double currentAmp) {
    if (peaks.empty()) return -1;
    const int last = static_cast<int>(peaks.size()) - 1;
    const bool one = last == 0;
    switch (move) {
        case MarkerMove::kPk:
        case MarkerMove::kFirstPk:
            return 0;
        case MarkerMove::kLowestPk:
        case MarkerMove::kLastPk:
            return last;
        case MarkerMove::kNextPk:
            if (one || current < peaks[0].Index) return 0;
            for (int i = 0; i <= last; ++i)
                if (peaks[i].Index > current) return i;
            return last;
        case MarkerMove::kPrevPk:
            if (one || current <= peaks[0].Index) return 0;
            for (int i = last; i >= 0; --i)
                if (peaks[i].Index < current) return i;
            return 0;
        case MarkerMove::kPkHigher:
            if (one) return 0;
            for (int i = last; i >= 0; --i)
                if (peaks[i].Value > currentAmp) return i;
            return 0;
        case MarkerMove::kPkLower:
            if (one) return 0;
            for (int i = 0; i <= last; ++i)
                if (peaks[i].Value < currentAmp) return i;
            return last;
    }
    return -1;
}

std::int32_t MoveMarker(std::int32_t address, std::int32_t marker, MarkerMove move) {
    MarkerRef m = FindMarker(address, marker, Need::kActive);
    if (!m) return -1;
    const bool byIndex = move == MarkerMove::kFirstPk || move == MarkerMove::kLastPk ||
                         move == MarkerMove::kNextPk || move == MarkerMove::kPrevPk;
    std::vector<PP_Peak> peaks(kMarkerPeakLimit);
    std::int32_t count = 0;
    if (GetPeaks(address, byIndex ? PeakOrder::kIndex : PeakOrder::kValue, peaks.data(),
                 kMarkerPeakLimit, &count) < 0)
        return -1;
    peaks.resize(static_cast<std::size_t>(count));
    const MarkerRecord& r = *m.marker;
    const int at = PickMarkerPeak(move, peaks, r.mode == 1 ? r.pos : r.deltaPos,
                                  r.mode == 1 ? r.amp : r.deltaAmp);
    if (at < 0) return -1;
    PlaceOn(m, peaks[at].Index, peaks[at].Value);
    return peaks[at].Index;
}

}  // namespace qv
