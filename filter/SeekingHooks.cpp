// What the seeking object of the video pin asks for. Only a program stream can follow.
#include <limits>
#include <mutex>

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
    std::unique_lock audioLock(m_pAudioPin->GetFlushLock());
    std::unique_lock videoLock(m_pVideoPin->GetFlushLock());
    m_pAudioPin->DeliverBeginFlush();
    m_pVideoPin->DeliverBeginFlush();
    m_pPsDemux->NewSegment(BytePosition(rt, GetBitRate()));
    m_pAudioPin->WaitForDelivery();
    m_pVideoPin->WaitForDelivery();
    m_pAudioPin->DeliverEndFlush();
    m_pVideoPin->DeliverEndFlush();
    audioLock.unlock();
    videoLock.unlock();
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
