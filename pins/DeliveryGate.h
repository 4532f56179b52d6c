#pragma once

#include <atomic>

#include "pins/Flushing.h"
#include "platform/CritSec.h"
#include "platform/Event.h"

namespace kest {

/// Keeps what one output pin delivers and the flushes of the pin in order. Deliveries come from the pin's own
/// thread, flushes from there, from the other pin's thread when that begins anew, and from whoever seeks or
/// stops.
///
/// Who flushes holds the flush lock, the audio pin's before the video pin's; only a stop that ends the thread
/// by force does not, so that flushes may overlap.
class CDeliveryGate {
public:
    /// @param output  the pin.
    explicit CDeliveryGate(CBaseOutputPin& output) : m_output(output) {}

    /// Held around a flush. While it is held, no flush of others begins and no end of the stream goes out.
    CCritSec& GetFlushLock() { return m_csFlush; }

    // ---- called by the pin, around every flush

    /// @return whether it is the first of those that overlap.
    bool OnBeginFlush();
    /// @return whether it is the last of them.
    bool OnEndFlush();

    /// Counts the flushes that have begun.
    std::uint32_t CountFlushes() const { return m_nFlushesBegun; }

    // ---- called by those who flush

    /// Flushes downstream unless `isStale`, which is asked under the lock: a seek is over then, or has not
    /// begun.
    template <class IsStale>
    void Flush(IsStale isStale) {
        CAutoLock lock(m_csFlush);
        if (!isStale()) CFlushing flushing(m_output);
    }
    /// The same for the other pin: this pin's end of the stream, which comes but once, is not flushed away.
    template <class IsStale>
    void FlushUnlessEnded(IsStale isStale) {
        Flush([&] { return m_bEnded || isStale(); });
    }
    /// Waits until the delivery that is under way has come back, for a second at most. A seek does so in its
    /// flush, with the queue emptied: what is delivered from then on is of the new place.
    void WaitForDelivery();

    // ---- called by the delivery thread

    /// Waits until no flush is under way: what it would have downstream refuse is held back. Without this the
    /// whole queue would go by while the flushing thread has no processor.
    /// @param evStop  ends the wait.
    void WaitForFlush(CEvent& evStop);
    /// Something is being delivered, for the length of a block. It begins before the test whether that is
    /// stale, and a seek tests it after having emptied the queue: one sees the other.
    class CUnderWay {
    public:
        explicit CUnderWay(CDeliveryGate& gate) : m_event(gate.m_evNotDelivering) { m_event.Reset(); }
        CUnderWay(const CUnderWay&) = delete;
        CUnderWay& operator=(const CUnderWay&) = delete;
        ~CUnderWay() { m_event.Set(); }

    private:
        CEvent& m_event;
    };
    /// The end of the stream goes out (call with the lock held), or something else does.
    void SetEnded(bool bEnded) { m_bEnded = bEnded; }
    bool HasEnded() const { return m_bEnded; }

private:
    CBaseOutputPin& m_output;
    CCritSec m_csFlush;                             // see GetFlushLock
    CCritSec m_cs;                                  // guards m_nFlushes
    int m_nFlushes = 0;                             // flushes under way
    std::atomic<std::uint32_t> m_nFlushesBegun{0};  // see CountFlushes
    std::atomic<bool> m_bEnded{false};     // the end of the stream has gone out, and no flush or sample since
    CEvent m_evNotDelivering{true, true};  // nothing is being delivered
    CEvent m_evNotFlushing{true, true};    // no flush is under way
};

}  // namespace kest
