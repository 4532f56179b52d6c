#include "pins/AvTiming.h"

namespace kest {

AvTimes CAvTiming::Get() const {
    CAutoLock lock(m_cs);
    return m_times;
}

void CAvTiming::Forget() {
    Update([](AvTimes& times) {
        times.line = {};
        times.seekTarget.reset();
        for (PinTiming* pTiming : {&times.video, &times.audio}) {
            pTiming->bFirstTime = true;
            pTiming->bRestartPending = false;
            pTiming->rtTimeBase = kNoTimeBase;
        }
    });
}

void CAvTiming::Restart() {
    Update([](AvTimes& times) {
        for (SharedLine::Stream& stream : times.line.aStreams) stream.llWaiting.reset();
        times.seekTarget.reset();
        for (PinTiming* pTiming : {&times.video, &times.audio}) {
            pTiming->bFirstTime = true;
            pTiming->bRestartPending = true;
            pTiming->rtTimeBase = kNoTimeBase;
        }
    });
}

}  // namespace kest
