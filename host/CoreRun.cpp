#include "host/CoreRun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>

#include "demux/ElementaryStreamFramer.h"
#include "demux/Mpeg1PsDemux.h"
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
            if (read.status == BlockRead::EStatus::Nothing) continue;  // emptied: a new segment begins
            if (!read.IsTaken()) break;                                // closed
            bEnd = info.bEndOfStream;
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

/// What takes an input that is pushed.
struct PushTarget {
    std::function<bool(Bytes)> push;  // takes the next bytes. @return false: nothing more is taken
    std::function<void()> end;        // there are no more
    std::function<bool()> isStarved;  // everything has been taken as far as it can be
    std::function<void()> stop;       // afterwards it has queued its last frame
};

/// Pushes the input, on a thread of its own.
class CPusher {
public:
    CPusher(const Input& input, const PushTarget& target) : m_input(input), m_target(target) {
        const bool bStarted = m_thread.Start([this] {
            Push();
            m_evDone.Set();
            return 0;
        });
        if (!bStarted) throw CCommandError(kExitBadInput, "cannot create a thread");
    }
    ~CPusher() { m_thread.Terminate(0); }

    /// Set when what can be taken has been.
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
            if (!m_target.push({pChunk.get(), static_cast<std::size_t>(llChunk)})) return;
            m_llPosition += llChunk;
        }
        m_target.end();
        while (!m_target.isStarved()) SleepMs(kPollMs);
    }

    const Input& m_input;
    const PushTarget& m_target;
    std::atomic<std::int64_t> m_llPosition{0};  // see GetPosition
    CEvent m_evDone;
    CThread m_thread;  // last: it uses the others
};

[[noreturn]] void Fail(const Input& input, const char* pszWhy) {
    throw CCommandError(kExitBadInput, input.path.string() + ": " + pszWhy);
}

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

/// The two queues of a demuxer that is open, being emptied into the handler, and the waits for them.
class CStreams {
public:
    CStreams(const Input& input, bool bQuiet, CBlockMemFileEx& video, CBlockMemFileEx& audio,
             CFrameCounter& frames)
        : m_input(input),
          m_frames(frames),
          m_handler([&frames](EStream stream, const FRAME_INFO& info, std::span<const std::uint8_t> payload) {
              frames.Handle(stream, info, payload);
          }),
          m_progress(input.llLength, bQuiet),
          m_video(EStream::Video, video, m_handler, m_evFailed),
          m_audio(EStream::Audio, audio, m_handler, m_evFailed) {}

    /// Waits for an event, enough frames, the handler's failure or an interrupt, and shows progress.
    /// @param getPosition  bytes of the input that are done, nothing: the wait is over; asked several times a
    ///                     second.
    template <class GetPosition>
    void WaitFor(CEvent& event, GetPosition getPosition) {
        CEvent* const apEvents[] = {&m_evFailed, &m_frames.GetEnoughEvent(), &event};
        while (CEvent::WaitAny(apEvents, kWatchMs) < 0 && !IsInterrupted()) {
            const std::optional<std::int64_t> position = getPosition();
            if (!position) return;
            m_progress.Show(*position);
        }
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
    CFrameCounter& m_frames;
    const FrameHandler m_handler;  // passes to m_frames
    CProgress m_progress;
    CEvent m_evFailed;  // set when the handler threw
    CStreamDrain m_video;
    CStreamDrain m_audio;
};

/// Runs a demuxer that reads the input itself, and ends its streams at the rate 1.0.
void RunPulled(const Input& input, const CoreOptions& options, CFrameCounter& frames) {
    KestMpeg2PsPullDemux core;
    core.SetSettings(options.settings);
    core.SetReader(input.pReader.Get());
    if (core.Open(nullptr, nullptr, nullptr) != 0 || !core.IsRunning())
        Fail(input, "cannot start the demuxer");
    core.NewSegment(options.llFrom, input.llLength);
    core.SetRate(options.dRate);
    CStreams streams(input, options.bQuiet, core.GetVideoQueue(), core.GetAudioQueue(), frames);
    core.Resume();
    streams.WaitForEnds([&]() -> std::optional<std::int64_t> {
        if (!core.IsRunning()) Fail(input, "no end of stream received");
        if (!core.IsTrickPlayIdle()) frames.KeepAwake();
        if (core.IsTrickPlay() && frames.IsQuiet()) return std::nullopt;
        return streams.GetPosition();
    });
    streams.Finish();
}

/// The queues of a run that is pushed to, as the pins have them. They are not a demuxer's own, so that they
/// stay open for the last frames when it is stopped.
struct Queues {
    static constexpr std::uint32_t kVideoBlockSize = 163840, kAudioBlockSize = 32768, kBlocks = 80;

    explicit Queues(const ParseSettings& settings)
        : video(std::max(settings.nVideoBlockSize, kVideoBlockSize), kBlocks, sizeof(FRAME_INFO)) {
        for (CBlockMemFileEx* pQueue : {&video, &audio}) pQueue->WOpen(), pQueue->ROpen();
    }

    CBlockMemFileEx video;
    CBlockMemFileEx audio{kAudioBlockSize, kBlocks, sizeof(FRAME_INFO)};
};

/// Pushes the whole input to a target that fills the queues, and stops it when it has taken what it can.
void RunPushed(const Input& input, bool bQuiet, CFrameCounter& frames, Queues& queues,
               const PushTarget& target) {
    CStreams streams(input, bQuiet, queues.video, queues.audio, frames);
    {
        CPusher pusher(input, target);
        streams.WaitFor(pusher.GetDoneEvent(), [&] { return pusher.GetPosition(); });
    }
    if (!IsInterrupted()) {
        target.stop();
        FRAME_INFO end{};
        end.bEndOfStream = 1;
        for (CBlockMemFileEx* pQueue : {&queues.video, &queues.audio}) pQueue->WriteEx({}, &end, kInfinite);
        streams.WaitForEnds([&] { return input.llLength; });
    }
    streams.Finish();
}

/// Runs a demuxer that is pushed to.
/// @param prepare  what the demuxer wants before it runs. @return whether it could.
template <class Core, class Prepare>
void RunPushedCore(const Input& input, const CoreOptions& options, CFrameCounter& frames, Prepare prepare) {
    Queues queues(options.settings);
    Core core;
    core.SetSettings(options.settings);
    if (core.Open(nullptr, &queues.video, &queues.audio) != 0 || !core.IsRunning() || !prepare(core))
        Fail(input, "cannot start the demuxer");
    core.Resume();
    RunPushed(input, options.bQuiet, frames, queues,
              {.push = [&](Bytes data) { return core.PushData(data) > 0; },
               .end =
                   [&] {
                       if (options.settings.bDrain) core.EndInput();
                   },
               .isStarved = [&] { return core.HasTakenAll(); },
               .stop = [&] { core.Stop(); }});
    if (core.GetExitCode() != 0) Fail(input, "the demuxer cannot parse its beginning");
}

/// Runs the framer of elementary streams.
void RunFramer(const Input& input, const CoreOptions& options, CFrameCounter& frames) {
    Queues queues(options.settings);
    CElementaryStreamFramer framer;
    framer.SetDrain(options.settings.bDrain);
    RunPushed(input, options.bQuiet, frames, queues,
              {.push =
                   [&](Bytes data) {
                       framer.Push(data, queues.video);  // the queue stays open
                       return true;
                   },
               .end =
                   [&] {
                       if (options.settings.bDrain) framer.Flush(queues.video);
                   },
               .isStarved = [] { return true; },
               .stop = [] {}});
}

}  // namespace

void RunCore(const Input& input, const CoreOptions& options, const FrameHandler& handler) {
    const bool bPulled = IsProgramStream(input);
    const FrameHandler handleFrame = [&](EStream stream, const FRAME_INFO& info, auto payload) {
        if (bPulled || !info.bEndOfStream) handler(stream, info, payload);  // a pushed stream's is from below
    };
    CFrameCounter frames(handleFrame, options.nCount);
    if (bPulled) return RunPulled(input, options, frames);
    if (options.dRate != 1.0 || options.llFrom != 0) {
        Fail(input, "only a program stream is played at another rate or from another byte");
    }
    switch (input.nClass) {
        case kClassTransportMpeg4:
        case kClassTransportMpeg12:
            RunPushedCore<KestMpeg4TsDemux>(input, options, frames, [&](KestMpeg4TsDemux& core) {
                return 0 == (options.timing == ETsTiming::Pes ? core.UsePtsDtsTiming()
                                                              : core.UseElementaryTiming());
            });
            return;
        case kClassMpeg1System:
            RunPushedCore<KestMpeg1PsDemux>(input, options, frames, [](KestMpeg1PsDemux&) { return true; });
            return;
        default: RunFramer(input, options, frames);
    }
}

}  // namespace kest
