#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "control/KestDemux2Control.h"
#include "filter/Switches.h"
#include "host/Graph.h"
#include "host/Input.h"
#include "host/Sink.h"
#include "host/SourceFilter.h"
#include "registration/LoadedModule.h"

namespace kest {

/// The graph behind a command: a file or pipe, the demultiplexer, and a sink for each of its two streams.
/// Operations throw CCommandError when a step of the graph fails.
class CDemuxGraph {
public:
    enum class EPace {
        Timed,    // samples have times, and the stream that is ahead waits for the other
        FreeRun,  // as fast as they are taken, without times where the demultiplexer can leave them out
    };
    struct Options {
        EPace pace = EPace::FreeRun;
        /// Makes the demultiplexer; empty: see LoadDemuxModule.
        std::string strModule = {};
        /// Bytes a second that the source delivers, 0: as fast as they are taken. Nothing: the file of a program
        /// stream is only read, everything else is delivered as fast as it is taken.
        std::optional<double> dBytesPerSecond = {};
        /// A transport stream has the times of its elementary streams. Only with EPace::Timed.
        bool bElementaryTiming = false;
        /// Shows no progress.
        bool bQuiet = false;
    };

    /// Builds the graph, stopped.
    /// @param input           outlives it.
    /// @param switches        those of the demultiplexer.
    /// @param pVideo, pAudio  take what leaves the two pins, on the threads of the graph; outlive it. Null,
    ///                        both of them: the pins are not connected.
    CDemuxGraph(const Input& input, const CSwitches& switches, ISinkHandler* pVideo, ISinkHandler* pAudio,
                const Options& options);

    /// The demultiplexer's settings.
    IKestDemux2Control& GetControl() { return *m_pControl.Get(); }
    /// What became of the input so far. Only with a switch on that the filter does not have by itself.
    COUNTERS GetCounters() const;
    /// Pauses, and while paused sets the rate and seeks.
    /// @param dSeconds  media time.
    /// @param dRate     at another than 1.0 there is no end of the streams: `RunToEnd` ends when nothing has
    ///                  come for half a second.
    void Seek(double dSeconds, double dRate);
    /// Makes `RunToEnd` end as if both streams had ended. Any thread.
    void End() { m_bEndRequested = true, m_evNotice.Set(); }
    /// Runs until both streams have ended, and what the source delivers has, and stops. Shows progress on a
    /// terminal. Throws what a handler threw, and CCommandError when the user interrupted it or a stream did
    /// not end.
    void RunToEnd();
    /// Throws CCommandError, naming the input, for a result code that is a failure.
    void Require(HRESULT hr, const char* pszWhat) const;

private:
    bool IsDelivered() const;
    void MakeSource();
    void SetPace();
    void ConnectSink(CComPtr<CSink>& pSink, EStream stream, ISinkHandler* pHandler, LPCWSTR pszPin);
    void SetSwitches(const CSwitches& switches);
    void WaitForEnd();
    bool IsDone() const;
    bool HasStalled();
    template <class Test>
    bool AnySink(Test test) const;

    const Input& m_input;
    const Options m_options;
    const std::unique_ptr<CLoadedModule> m_pModule;          // first: what it made goes before it
    CPacer m_pacer;                                          // waits for nothing in EPace::FreeRun
    bool m_bTrickPlay = false;                               // the rate is not 1.0
    std::atomic<bool> m_bEndRequested{false};                // see End
    std::uint64_t m_nActivity = 0;                           // of source and sinks, when it last changed
    std::chrono::steady_clock::time_point m_lastActivity{};  // when that was
    CEvent m_evNotice{false};                                // auto-reset: a stream has ended or failed
    CComPtr<CSourceFilter> m_pSource;
    CComPtr<IBaseFilter> m_pDemux;
    CComPtr<IKestDemux2Control> m_pControl;    // of m_pDemux
    CComPtr<IKestDemux2Control2> m_pSwitches;  // the same; null: it has none
    CComPtr<CSink> m_pVideo;                   // null: not connected, as m_pAudio
    CComPtr<CSink> m_pAudio;
    CComPtr<CGraph> m_pGraph{new CGraph};  // last: it stops before the others go
};

/// The bytes of a sample, valid as long as it is held.
std::span<const std::uint8_t> GetPayload(IMediaSample& sample);

}  // namespace kest
