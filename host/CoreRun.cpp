#include "host/CoreRun.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>

#include "demux/Mpeg2PsPullDemux.h"
#include "demux/Mpeg4TsDemux.h"
#include "host/CommandError.h"
#include "host/Interrupts.h"
#include "host/Progress.h"
#include "platform/Event.h"
#include "platform/Thread.h"
#include "platform/Time.h"

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
    ~CStreamDrain() {
        m_thread.Terminate(0);
        m_queue.WClose();  // nobody makes room in it any more
    }

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
            m_queue.WClose();
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

/// Pushes the input into a demuxer, on a thread of its own.
class CPusher {
public:
    CPusher(const Input& input, CDemuxWorker& core) : m_input(input), m_core(core) {
        const bool bStarted = m_thread.Start([this] {
            Push();
            m_evDone.Set();
            return 0;
        });
        if (!bStarted) throw CCommandError(kExitBadInput, "cannot create a thread");
    }
    ~CPusher() { m_thread.Terminate(0); }

    /// Set when the demuxer has taken what it can.
    CEvent& GetDoneEvent() { return m_evDone; }
    /// Bytes pushed.
    std::int64_t GetPosition() const { return m_llPosition; }

private:
    void Push() {
        constexpr std::int64_t kChunk = 65536;
        constexpr std::uint32_t kPollMs = 2;
        const auto pChunk = std::make_unique_for_overwrite<std::uint8_t[]>(kChunk);
        while (m_llPosition < m_input.llLength) {
            const std::int64_t llChunk = std::min(kChunk, m_input.llLength - m_llPosition);
            if (m_input.pReader->SyncRead(m_llPosition, static_cast<LONG>(llChunk), pChunk.get()) != S_OK)
                break;
            if (m_core.PushData({pChunk.get(), static_cast<std::size_t>(llChunk)}) == 0) return;
            m_llPosition += llChunk;
        }
        while (!m_core.IsStarved()) SleepMs(kPollMs);
    }

    const Input& m_input;
    CDemuxWorker& m_core;
    std::atomic<std::int64_t> m_llPosition{0};  // see GetPosition
    CEvent m_evDone;
    CThread m_thread;  // last: it uses the others
};

[[noreturn]] void Fail(const Input& input, const char* pszWhy) {
    throw CCommandError(kExitBadInput, input.path.string() + ": " + pszWhy);
}

/// The streams of a demuxer that is open, being emptied into the handler, and the waits for them.
class CStreams {
public:
    CStreams(const Input& input, CDemuxWorker& core, const FrameHandler& handler)
        : m_input(input),
          m_video(EStream::Video, core.GetVideoQueue(), handler, m_evFailed),
          m_audio(EStream::Audio, core.GetAudioQueue(), handler, m_evFailed) {}

    /// Waits for an event, the handler's failure or an interrupt, and shows progress.
    /// @param getPosition  bytes of the input that are done; asked several times a second.
    template <class GetPosition>
    void WaitFor(CEvent& event, GetPosition getPosition) {
        CEvent* const apEvents[] = {&m_evFailed, &event};
        while (CEvent::WaitAny(apEvents, kWatchMs) < 0 && !IsInterrupted()) m_progress.Show(getPosition());
    }
    /// Waits for both ends.
    template <class GetPosition>
    void WaitForEnds(GetPosition getPosition) {
        for (CStreamDrain* pDrain : {&m_video, &m_audio}) WaitFor(pDrain->GetEndEvent(), getPosition);
    }
    /// File offset of the last frame.
    std::int64_t GetPosition() const { return std::max(m_video.GetPosition(), m_audio.GetPosition()); }
    /// Ends both threads; throws as RunCore says.
    void Finish() {
        for (CStreamDrain* pDrain : {&m_video, &m_audio}) pDrain->Finish();
        if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
        CheckReadErrors(m_input);
    }

private:
    const Input& m_input;
    CProgress m_progress{m_input.llLength};
    CEvent m_evFailed;  // set when the handler threw
    CStreamDrain m_video;
    CStreamDrain m_audio;
};

/// Runs a demuxer that reads the input itself and ends its streams.
void RunPulled(const Input& input, const FrameHandler& handler) {
    KestMpeg2PsPullDemux core;
    core.SetReader(input.pReader.Get());
    if (core.Open(nullptr, nullptr, nullptr) != 0 || !core.IsRunning())
        Fail(input, "cannot start the demuxer");
    core.NewSegment(0, input.llLength);
    CStreams streams(input, core, handler);
    core.Resume();
    streams.WaitForEnds([&] {
        if (!core.IsRunning()) Fail(input, "no end of stream received");
        return streams.GetPosition();
    });
    streams.Finish();
}

/// Runs a demuxer that is pushed to, and stops it when it has taken what it can. The queues are not the
/// demuxer's own: they stay open then, for the last frames.
/// @param prepare  what the demuxer wants before it runs. @return whether it could.
template <class Core, class Prepare>
void RunPushed(const Input& input, const FrameHandler& handler, Prepare prepare) {
    constexpr std::uint32_t kVideoBlock = 163840, kAudioBlock = 32768, kBlocks = 80;  // as the pins have them
    CBlockMemFileEx video(kVideoBlock, kBlocks, sizeof(FRAME_INFO));
    CBlockMemFileEx audio(kAudioBlock, kBlocks, sizeof(FRAME_INFO));
    for (CBlockMemFileEx* pQueue : {&video, &audio}) pQueue->WOpen(), pQueue->ROpen();
    const FrameHandler handleFrame = [&](EStream stream, const FRAME_INFO& info, auto payload) {
        if (!info.bEndOfStream) handler(stream, info, payload);  // that record is from below
    };
    Core core;
    if (core.Open(nullptr, &video, &audio) != 0 || !core.IsRunning() || !prepare(core))
        Fail(input, "cannot start the demuxer");
    CStreams streams(input, core, handleFrame);
    core.Resume();
    {
        CPusher pusher(input, core);
        streams.WaitFor(pusher.GetDoneEvent(), [&] { return pusher.GetPosition(); });
    }
    if (!IsInterrupted()) {
        core.Stop();
        FRAME_INFO end{};
        end.bEndOfStream = 1;
        for (CBlockMemFileEx* pQueue : {&video, &audio}) pQueue->WriteEx({}, &end, kInfinite);
        streams.WaitForEnds([&] { return input.llLength; });
    }
    streams.Finish();
    if (core.GetExitCode() != 0) Fail(input, "the demuxer cannot parse its beginning");
}

}  // namespace

void RunCore(const Input& input, ETsTiming timing, const FrameHandler& handler) {
    switch (input.nClass) {
        case kClassTransportMpeg4:
        case kClassTransportMpeg12:
            RunPushed<KestMpeg4TsDemux>(input, handler, [&](KestMpeg4TsDemux& core) {
                return 0 == (timing == ETsTiming::Pes ? core.UsePtsDtsTiming() : core.UseElementaryTiming());
            });
            return;
        default: RequireProgramStream(input); RunPulled(input, handler);
    }
}

}  // namespace kest
