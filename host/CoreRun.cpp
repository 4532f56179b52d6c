#include "host/CoreRun.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <vector>

#include "demux/Mpeg2PsPullDemux.h"
#include "host/CommandError.h"
#include "host/Interrupts.h"
#include "host/Progress.h"
#include "platform/Event.h"
#include "platform/Thread.h"

namespace kest {
namespace {

constexpr std::uint32_t kWatchMs = 100;  // how often progress is shown and interrupts are checked
constexpr int kReader = 0;               // the reader of a queue that the demuxer made

/// Empties one queue into the handler, on a thread of its own.
class CStreamDrain {
public:
    CStreamDrain(EStream stream, CBlockMemFileEx& queue, const FrameHandler& handler, CEvent& evFailed)
        : m_stream(stream), m_queue(queue), m_handler(handler), m_evFailed(evFailed) {
        const bool bStarted = m_thread.Start([this] {
            Run();
            return 0;
        });
        if (!bStarted) throw CCommandError(kExitBadInput, "cannot create a thread");
    }
    ~CStreamDrain() { m_thread.Terminate(0); }

    /// Set when the stream has ended.
    CEvent& GetEndEvent() { return m_evEnd; }
    /// File offset of the last frame.
    std::int64_t GetPosition() const { return m_llPosition; }
    /// Ends the thread and throws what the handler threw.
    void Finish() {
        m_thread.Terminate(0);
        if (m_error) std::rethrow_exception(m_error);
    }

private:
    void Run() {
        try {
            Drain();
        } catch (const std::exception&) {
            m_error = std::current_exception();
            m_evFailed.Set();
        }
    }
    void Drain() {
        const std::uint32_t nBlockSize = m_queue.GetBlockSize();
        const auto pBlock = std::make_unique_for_overwrite<std::uint8_t[]>(nBlockSize);
        for (bool bEnd = false; !bEnd;) {
            FRAME_INFO info{};
            const BlockRead read = m_queue.ReadEx(kReader, {pBlock.get(), nBlockSize}, &info, kInfinite);
            bEnd = info.bEndOfStream;
            if (read.nLength == 0 && !bEnd) continue;
            m_handler(m_stream, info, {pBlock.get(), read.nLength});
            if (!bEnd) m_llPosition = info.llFilePos;
        }
        m_evEnd.Set();
    }

    const EStream m_stream;
    CBlockMemFileEx& m_queue;
    const FrameHandler& m_handler;
    CEvent& m_evFailed;  // set when the handler threw
    std::atomic<std::int64_t> m_llPosition{0};
    std::exception_ptr m_error;  // what the handler threw; valid once the thread has ended
    CEvent m_evEnd;
    CThread m_thread;  // last: it uses the others
};

/// Passes frames to a handler until there have been enough.
class CFrameCounter {
public:
    CFrameCounter(const FrameHandler& handler, std::uint64_t nCount) : m_handler(handler), m_nCount(nCount) {}

    void Handle(EStream stream, const FRAME_INFO& info, std::span<const std::uint8_t> payload) {
        const std::uint64_t nBegun = ++m_nBegun;
        if (nBegun > m_nCount) return;
        m_handler(stream, info, payload);
        if (++m_nDone == m_nCount) m_evEnough.Set();
    }
    /// Set when there have been enough.
    CEvent& GetEnoughEvent() { return m_evEnough; }
    /// @return whether no frame has been handled for a while, nor is now.
    bool IsQuiet() {
        constexpr auto kQuietTime = std::chrono::milliseconds(500);
        const auto now = std::chrono::steady_clock::now();
        const std::uint64_t nDone = m_nDone;
        if (nDone != m_nWatched || nDone != m_nBegun) KeepAwake();
        m_nWatched = nDone;
        return now - m_lastMove >= kQuietTime;
    }
    /// Something moves though no frame comes: the while begins now.
    void KeepAwake() { m_lastMove = std::chrono::steady_clock::now(); }

private:
    const FrameHandler& m_handler;
    const std::uint64_t m_nCount;
    std::atomic<std::uint64_t> m_nBegun{0}, m_nDone{0};
    CEvent m_evEnough;
    std::uint64_t m_nWatched = 0;  // m_nDone when IsQuiet was asked last
    std::chrono::steady_clock::time_point m_lastMove = std::chrono::steady_clock::now();
};

}  // namespace

void RunCore(const Input& input, const FrameHandler& handler, const PlayRange& range) {
    CProgress progress(input.llLength);
    KestMpeg2PsPullDemux core;
    core.SetReader(input.pReader.Get());
    if (core.Open(nullptr, nullptr, nullptr) != 0 || !core.IsRunning())
        throw CCommandError(kExitBadInput, input.path.string() + ": cannot start the demuxer");
    core.NewSegment(range.llFrom, input.llLength);
    core.SetRate(range.dRate);
    CFrameCounter counter(handler, range.nCount);
    const FrameHandler counted = [&](EStream stream, const FRAME_INFO& info,
                                     std::span<const std::uint8_t> payload) {
        counter.Handle(stream, info, payload);
    };
    CEvent evFailed;
    CStreamDrain video(EStream::Video, core.GetVideoQueue(), counted, evFailed);
    CStreamDrain audio(EStream::Audio, core.GetAudioQueue(), counted, evFailed);
    core.Resume();
    for (CStreamDrain* pDrain : {&video, &audio}) {
        CEvent* const apEvents[] = {&evFailed, &counter.GetEnoughEvent(), &pDrain->GetEndEvent()};
        while (CEvent::WaitAny(apEvents, kWatchMs) < 0 && !IsInterrupted()) {
            if (!core.IsRunning())
                throw CCommandError(kExitBadInput, input.path.string() + ": no end of stream received");
            if (!core.IsTrickPlayIdle()) counter.KeepAwake();
            if (core.IsTrickPlay() && counter.IsQuiet()) break;
            progress.Show(std::max(video.GetPosition(), audio.GetPosition()));
        }
    }
    for (CStreamDrain* pDrain : {&video, &audio}) pDrain->Finish();
    if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
    CheckReadErrors(input);
}

}  // namespace kest
