#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "host/Stream.h"
#include "platform/Event.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// Keeps two streams together that nobody plays: the one that is ahead waits for the other, by the start
/// times of their samples. Without it a stream may come seconds before the other, which the demultiplexer
/// takes for a broken stream.
///
/// Streams that begin, or begin anew after a flush, begin together: the first sample of one waits for the
/// first of the other. A stream without samples for a while is not waited for until a sample of it comes
/// again. Each stream is paced on its own thread; everything else may be called from any thread.
class CPacer {
public:
    static constexpr REFERENCE_TIME kLead = 5'000'000;  // 100 ns that a stream may be ahead
    static constexpr std::uint32_t kMaxWaitMs = 300;

    /// @param nMaxWaitMs  how long a stream is waited for; 0: no stream waits.
    explicit CPacer(std::uint32_t nMaxWaitMs = kMaxWaitMs) : m_nMaxWaitMs(nMaxWaitMs) {}

    /// A stream begins, or begins anew, at time 0: nothing of it has come yet.
    void Begin(EStream stream);
    /// Nothing more comes of a stream: it is not waited for.
    void End(EStream stream);
    /// A sample of a stream has come: waits while it is too far ahead of the other stream's last one.
    /// @param rtStart  its start time, 100 ns.
    /// @param evLeave  ends the wait.
    void Pace(EStream stream, REFERENCE_TIME rtStart, CEvent& evLeave);

private:
    struct Progress {
        std::atomic<bool> bBegun{false};          // a sample has come since the last beginning
        std::atomic<REFERENCE_TIME> rtLatest{0};  // start of the last sample, 100 ns
        std::atomic<bool> bAwaited{true};         // the other stream waits for this one
        CEvent evChanged{false};                  // auto-reset; set after each change, for the other's wait
    };
    Progress& Of(EStream stream) { return m_aProgress[static_cast<std::size_t>(stream)]; }
    void Note(EStream stream, REFERENCE_TIME rtLatest, bool bBegun, bool bAwaited);

    const std::uint32_t m_nMaxWaitMs;
    std::array<Progress, 2> m_aProgress;  // by stream
};

}  // namespace kest
