// What the seeking object of the video pin asks for. Only a program stream can follow.
#include <limits>
#include <optional>
#include <utility>

#include "filter/KestDemux2Filter.h"
#include "pins/DeliveryThread.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr std::int64_t kTicksPerSecond = 10000000;  // of 100 ns
constexpr double kMaxTracedRate = 1e8;

/// The byte that a media time stands for. A time beyond what can be counted is the last that can.
std::int64_t BytePosition(REFERENCE_TIME rt, std::uint32_t nBitRate) {
    using Limits = std::numeric_limits<std::int64_t>;
    std::int64_t llBits = 0;
    if (__builtin_mul_overflow(rt, static_cast<std::int64_t>(nBitRate), &llBits)) {
        llBits = rt < 0 ? Limits::min() : Limits::max();
    }
    return llBits / 8 / kTicksPerSecond;
}

}  // namespace

HRESULT CKestDemux2Filter::SetPositionsHook(std::int64_t llPosition, std::int64_t llLength) {
    if (HasProgramCore()) m_pPsDemux->NewSegment(llPosition, llLength);
    return S_OK;
}

// The flush lets downstream drop what it holds, and lets a delivery that waits there come back; the core
// begins anew in between and empties the queues, which leaves behind what the delivery threads have in hand.
// What they were just delivering has come back by the end of the flush: nothing of the old place follows it.
HRESULT CKestDemux2Filter::SeekHook(REFERENCE_TIME rt) {
    if (!HasProgramCore()) return S_OK;
    Trace("SEEEKKKKKKKKKKKING!!!\n");
    if (IsStopped()) return S_OK;
    CAutoLock audioLock(m_pAudioPin->GetFlushLock());
    CAutoLock videoLock(m_pVideoPin->GetFlushLock());
    std::optional<CDemuxOutputPin::CFlushing> audio(std::in_place, *m_pAudioPin);
    std::optional<CDemuxOutputPin::CFlushing> video(std::in_place, *m_pVideoPin);
    m_pPsDemux->NewSegment(BytePosition(rt, GetBitRate()));
    m_pAudioPin->WaitForDelivery();
    m_pVideoPin->WaitForDelivery();
    audio.reset();  // in the order in which they began
    video.reset();
    return S_OK;
}

// The core plays at the stream's own rate so far: the rate is noted and goes no further.
HRESULT CKestDemux2Filter::RateHook(double dRate) {
    if (!HasProgramCore()) return S_OK;
    const double dShown = dRate >= -kMaxTracedRate && dRate <= kMaxTracedRate ? dRate : 0.0;
    Trace("Change Rate = %d\n", static_cast<int>(dShown * 10));
    return S_OK;
}

}  // namespace kest
