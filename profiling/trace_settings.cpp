#include "profiling/trace_settings.h"

namespace qv {

void ResetProfilingDefaults(DeviceRecord& record) {
    TraceSettings& t = record.trace;
    t.sweepTimeIdx = 6;
    t.sweepTimeUsec = 1000;
    t.sweepDelayMode = 0;
    t.sweepDelayUsec = 0;
    t.trgSource = 0;
    t.trgEdge = 0;
    t.trgLevel = -30.0;
    t.trgLevelEff = -30.0;
    t.autoTrgLevel = -30.0;
    t.autoTrgLevelSet = 0;
    t.trgAdcHi = 0;
    t.trgAdcLo = 0;
    t.trgOut = 0;
    t.avgMode = 0;
    t.traceAvgs = 1;
    t.avgResetSens = 0.05;
    t.avgRestart = 1;
    t.avgCount = 0;
    t.filter = 9;
    t.poles = 0;
    t.timeOutUsec = 100000;
    t.autoTimeOutMode = 1;
    t.undersampling = 0;
    t.lastTmpRowHi = -1;
    t.lastTmpRowLo = -1;

    GatesAndMarkers& g = record.analysisSetup;
    for (GateRecord& gate : g.gates) {
        gate.startPos = -1;
        gate.endPos = -1;
        gate.startTime = -1.0;
        gate.endTime = -1.0;
        gate.startPosTime = -1.0;
        gate.endPosTime = -1.0;
    }
    for (MarkerRecord& marker : g.markers) {
        marker.mode = 0;
        marker.pos = -1;
        marker.deltaPos = -1;
        marker.posTime = -1.0;
        marker.time = -1.0;
        marker.deltaTime = -1.0;
        marker.deltaPosTime = -1.0;
        marker.amp = 0.0;
        marker.deltaAmp = 0.0;
    }
    g.measThreshold = -55.0;
    record.analysis.analysisValid = 0;
}

}  // namespace qv
