#include "host/Pacer.h"

#include <chrono>

namespace kest {

void CPacer::Begin(EStream stream) { Note(stream, 0, false, true); }

void CPacer::End(EStream stream) { Note(stream, Of(stream).rtLatest, true, false); }

void CPacer::Note(EStream stream, REFERENCE_TIME rtLatest, bool bBegun, bool bAwaited) {
    Progress& own = Of(stream);
    own.rtLatest = rtLatest;
    own.bBegun = bBegun;
    own.bAwaited = bAwaited;
    own.evChanged.Set();
}

void CPacer::Pace(EStream stream, REFERENCE_TIME rtStart, CEvent& evLeave) {
    using namespace std::chrono;
    Note(stream, rtStart, true, true);
    Progress& other = Of(stream == EStream::Video ? EStream::Audio : EStream::Video);
    CEvent* const apEvents[] = {&evLeave, &other.evChanged};
    const auto deadline = steady_clock::now() + milliseconds(m_nMaxWaitMs);
    while (other.bAwaited && (!other.bBegun || rtStart - other.rtLatest > kLead)) {
        const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0) {
            other.bAwaited = false;
            return;
        }
        if (CEvent::WaitAny(apEvents, static_cast<std::uint32_t>(left)) == 0) return;
    }
}

}  // namespace kest
