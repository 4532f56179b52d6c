#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "filter/DemuxPath.h"
#include "filter/DumpFile.h"
#include "filter/StatusPublisher.h"
#include "net/UdpSender.h"
#include "platform/Time.h"

namespace kest {

/// What becomes of the bytes that come in through the input pin: they are counted, written to the dump file,
/// forwarded over the network, and go into the path. A record that another process has posted is adopted on the
/// way.
///
/// `Take` belongs to the thread that delivers to the input pin; the rest may come from any.
class CIntake {
public:
    CIntake(CDemuxPath& path, CUdpSender& sender, CStatusPublisher& publisher, CDumpFile& dump)
        : m_path(path), m_sender(sender), m_publisher(publisher), m_dump(dump) {}

    /// Takes the bytes of a sample. Waits while network or path have no room. What a path that has ended does not
    /// take is dropped.
    /// @return false when a CHold came before or meanwhile: the rest of the bytes is dropped.
    bool Take(std::span<const std::uint8_t> data);
    /// Waits until all that came in has left the output pins and has been sent, as far as it can without more.
    /// @return false: `isOver` said so before, or a CHold began.
    template <class IsOver>
    bool WaitUntilDelivered(IsOver isOver);
    /// Bytes that have come in.
    std::uint64_t GetBytesReceived() const { return m_llBytesReceived; }

    /// Counts the CHolds so far.
    std::uint32_t CountHolds() const { return m_gate.CountHolds(); }

    /// Ends the operations above that are under way, and lets none begin, for the length of a block. Not for the
    /// thread that delivers; with the pin lock held, or while connections cannot change.
    class CHold {
    public:
        explicit CHold(CIntake& intake);
        CHold(const CHold&) = delete;
        CHold& operator=(const CHold&) = delete;
        ~CHold();

    private:
        CIntake& m_intake;
    };

private:
    void Forward(std::span<const std::uint8_t> data);

    CDemuxPath& m_path;                               // where the bytes go
    CUdpSender& m_sender;                             // the filter's
    CStatusPublisher& m_publisher;                    // the filter's
    CDumpFile& m_dump;                                // the filter's
    std::atomic<std::uint64_t> m_llBytesReceived{0};  // see GetBytesReceived
    CPushGate m_gate;                                 // of Take
};

template <class IsOver>
bool CIntake::WaitUntilDelivered(IsOver isOver) {
    constexpr std::uint32_t kPollMs = 10;
    const std::uint32_t nHolds = CountHolds();
    auto IsHeld = [&] { return m_gate.IsHeld() || CountHolds() != nHolds; };
    m_path.EndInput();
    while (!m_path.IsDelivered() || !m_sender.IsDrained()) {
        if (IsHeld() || isOver()) return false;
        SleepMs(kPollMs);
    }
    return !IsHeld() && !isOver();
}

}  // namespace kest
