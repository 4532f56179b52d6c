#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <span>
#include <string>

#include "host/FileSource.h"
#include "host/Graph.h"
#include "host/Input.h"
#include "host/Sink.h"
#include "registration/LoadedModule.h"

namespace kest {

/// The graph behind a command: a file, the demultiplexer, and a sink for each of its two streams. Operations
/// throw CCommandError when a step of the graph fails.
class CDemuxGraph {
public:
    enum class EPace {
        Timed,    // samples have times, and the stream that is ahead waits for the other
        FreeRun,  // samples without times, as fast as they are taken
    };

    /// Builds the graph, stopped.
    /// @param input         has been recognised as a program stream.
    /// @param video, audio  take what leaves the two pins, on the threads of the graph; outlive it.
    /// @param strModule     the module that makes the demultiplexer; empty: see LoadDemuxModule.
    CDemuxGraph(const Input& input, ISinkHandler& video, ISinkHandler& audio, EPace pace,
                const std::string& strModule);

    /// Pauses, and while paused sets the rate and seeks.
    /// @param dSeconds  media time.
    /// @param dRate     at another than 1.0 there is no end of the streams: `RunToEnd` ends when nothing has
    ///                  come for half a second.
    void Seek(double dSeconds, double dRate);
    /// Makes `RunToEnd` end as if both streams had ended. Any thread.
    void End() { m_bEndRequested = true, m_evNotice.Set(); }
    /// Runs until both streams have ended, and stops. Shows progress on a terminal. Throws what a handler
    /// threw, and CCommandError when the user interrupted it or a stream did not end.
    void RunToEnd();

private:
    void Build(EPace pace);
    void SetFreeRun(IBaseFilter* pDemux);
    void WaitForEnd();
    bool IsDone() const;
    bool HasStalled();
    void Require(HRESULT hr, const char* pszWhat) const;

    const Input& m_input;
    const std::unique_ptr<CLoadedModule> m_pModule;  // first: what it made goes before it
    CPacer m_pacer;
    bool m_bTrickPlay = false;                               // the rate is not 1.0
    std::atomic<bool> m_bEndRequested{false};                // see End
    std::uint64_t m_nActivity = 0;                           // of source and sinks, when it last changed
    std::chrono::steady_clock::time_point m_lastActivity{};  // when that was
    CEvent m_evNotice{false};                                // auto-reset: a sink has ended or failed
    CComPtr<CFileSource> m_pSource;
    CComPtr<CSink> m_pVideo;
    CComPtr<CSink> m_pAudio;
    CComPtr<CGraph> m_pGraph{new CGraph};  // last: it stops before the others go
};

/// The bytes of a sample, valid as long as it is held.
std::span<const std::uint8_t> GetPayload(IMediaSample& sample);

}  // namespace kest
