#include "host/CoreRun.h"

#include <algorithm>
#include <array>
#include <atomic>
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

}  // namespace

void RunCore(const Input& input, const FrameHandler& handler) {
    CProgress progress(input.llLength);
    KestMpeg2PsPullDemux core;
    core.SetReader(input.pReader.Get());
    if (core.Open(nullptr, nullptr, nullptr) != 0 || !core.IsRunning())
        throw CCommandError(kExitBadInput, input.path.string() + ": cannot start the demuxer");
    core.NewSegment(0, input.llLength);
    CEvent evFailed;
    CStreamDrain video(EStream::Video, core.GetVideoQueue(), handler, evFailed);
    CStreamDrain audio(EStream::Audio, core.GetAudioQueue(), handler, evFailed);
    core.Resume();
    for (CStreamDrain* pDrain : {&video, &audio}) {
        CEvent* const apEvents[] = {&evFailed, &pDrain->GetEndEvent()};
        while (CEvent::WaitAny(apEvents, kWatchMs) < 0 && !IsInterrupted()) {
            if (!core.IsRunning())
                throw CCommandError(kExitBadInput, input.path.string() + ": no end of stream received");
            progress.Show(std::max(video.GetPosition(), audio.GetPosition()));
        }
    }
    for (CStreamDrain* pDrain : {&video, &audio}) pDrain->Finish();
    if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
    CheckReadErrors(input);
}

}  // namespace kest
