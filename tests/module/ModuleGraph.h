#pragma once

#include <dshow.h>

#include <string>

#include "Check.h"
#include "Recorder.h"

namespace kest {

/// The class of the filter under test, and what its registration says.
constexpr CLSID kFilterClass = {0xF7DB4970, 0x3AB8, 0x8BC1, {0x2F, 0xD6, 0xD8, 0x23, 0x31, 0xF2, 0x00, 0x00}};
constexpr WCHAR kFilterName[] = L"Kest Mpeg Demux2 Filter";
constexpr DWORD kFilterMerit = 0x800200;

/// The system's graph with the file source, the filter, and behind each of its outputs a grabber and a null
/// renderer. Every step fails with a message when the host refuses it.
class CModuleGraph {
public:
    /// Only the grabbers and renderers are there, and not connected.
    CModuleGraph();
    ~CModuleGraph();
    CModuleGraph(const CModuleGraph&) = delete;
    CModuleGraph& operator=(const CModuleGraph&) = delete;

    /// Loads a file and connects the source with the filter. @return what the host says of the connection.
    HRESULT Open(const std::wstring& wszFile);
    /// Opens a file and connects both outputs with their grabbers.
    void Build(const std::wstring& wszFile);
    /// The same, with the host's decoder in front of the audio's grabber.
    void BuildWithDecoder(const std::wstring& wszFile, const CRef<IBaseFilter>& pDecoder);
    /// Has the host connect a file with the video's grabber, by whatever filter it finds, and connects the
    /// audio output of that. @return its class.
    CLSID BuildByHost(const std::wstring& wszFile);

    void Run();
    /// Pauses and waits until both renderers hold a sample.
    void Pause();
    void Stop();
    /// Seeks through the graph to a media time, 100 ns.
    void Seek(REFERENCE_TIME rt);
    /// The graph's position, 100 ns.
    REFERENCE_TIME GetPosition();
    /// Its length, 100 ns.
    REFERENCE_TIME GetDuration();
    /// Waits until both streams have ended.
    void WaitForEnd();

    /// The format that comes to a stream's grabber; fails when it is no WAVEFORMATEX.
    WAVEFORMATEX GetWaveFormat(EStream stream);
    CRecorder& GetRecorder() { return m_recorder; }

private:
    struct Branch {
        CRef<IBaseFilter> pGrabber;
        CRef<IBaseFilter> pRenderer;
    };
    Branch AddBranch(EStream stream);
    Branch& GetBranch(EStream stream) { return m_aBranches[static_cast<std::size_t>(stream)]; }
    void ConnectBranch(EStream stream, const CRef<IPin>& pFrom);
    void ConnectRenderer(EStream stream);

    CRecorder m_recorder;
    CRef<IGraphBuilder> m_pGraph;
    CRef<IMediaControl> m_pControl;
    CRef<IMediaEvent> m_pEvents;
    CRef<IMediaSeeking> m_pSeeking;
    CRef<IBaseFilter> m_pFilter;        // the one under test
    std::array<Branch, 2> m_aBranches;  // by stream
};

}  // namespace kest
