#pragma once

#include <optional>

#include "PushSource.h"
#include "control/KestDemux2Control.h"

namespace kest {

/// Fails the case when the host has not done what the text says.
inline void RequireOk(HRESULT hr, const std::string& strWhat) {
    std::array<char, 16> szCode{};
    std::snprintf(szCode.data(), szCode.size(), ": 0x%08lx", static_cast<unsigned long>(hr));
    Require(SUCCEEDED(hr), strWhat + szCode.data());
}

template <class T>
CComPtr<T> Create(REFCLSID clsid) {
    CComPtr<T> pNew;
    RequireOk(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(pNew.Put())),
              "creating an object");
    return pNew;
}

template <class T, class From>
CComPtr<T> Query(const CComPtr<From>& pFrom, REFIID riid = __uuidof(T)) {
    CComPtr<T> pTo;
    RequireOk(pFrom->QueryInterface(riid, reinterpret_cast<void**>(pTo.Put())), "an interface of the host");
    return pTo;
}

/// The system's graph with the file source, the filter, and behind each of its outputs a sample grabber and a null
/// renderer. An operation that the host refuses fails the case.
class CModuleGraph {
public:
    ~CModuleGraph() {
        m_recorder.SetPacing(false);
        m_pControl->Stop();
    }

    // ---------------- making and connecting

    /// Whether the output pins of a filter that is opened say what their streams are.
    void SetTrueTypes(bool bOn) { m_bTrueTypes = bOn; }

    /// Loads a file and connects the source with the filter. @return the result of the connection.
    HRESULT Open(const std::wstring& wszFile) {
        const auto pSource = Add(CLSID_AsyncReader);
        m_pFilter = Add(kFilterClass);
        const auto pSwitches = Query<IKestDemux2Control2>(m_pFilter, IID_IKestDemux2Control2);
        RequireOk(pSwitches->put_Switch(ESwitch::TrueTypes, m_bTrueTypes), "true types");
        RequireOk(Query<IFileSourceFilter>(pSource)->Load(wszFile.c_str(), nullptr), "the file");
        return m_pGraph->ConnectDirect(GetPin(pSource, kSourceOutput).Get(), GetPin(m_pFilter, kInput).Get(),
                                       nullptr);
    }

    /// Opens a file of whatever class, which a source delivers, and connects both outputs. A queue that fills up, since
    /// nobody plays the streams in real time, brings about no reset.
    void BuildPushed(const std::wstring& wszFile) {
        m_pFilter = Add(kFilterClass);
        const auto pControl = Query<IKestDemux2Control>(m_pFilter, IID_IKestDemux2Control);
        const auto pSwitches = Query<IKestDemux2Control2>(m_pFilter, IID_IKestDemux2Control2);
        RequireOk(pControl->put_EnableReset(0), "no resets");
        RequireOk(pSwitches->put_Switch(ESwitch::AdmitAll, 1), "every class");
        RequireOk(m_pGraph->AddFilter(&m_pushSource.emplace(wszFile), nullptr), "adding the source");
        RequireOk(m_pGraph->ConnectDirect(&*m_pushSource, GetPin(m_pFilter, kInput).Get(), nullptr),
                  "connecting the source with the filter");
        ConnectRecorder(AddGrabber(kAudio), m_pFilter, kAudioOutput);
        m_pVideoRenderer = ConnectRecorder(AddGrabber(kVideo), m_pFilter, kVideoOutput);
    }

    /// Opens a file and connects both outputs, the audio's through a decoder if one is given, which must give PCM.
    void Build(const std::wstring& wszFile, const CComPtr<IBaseFilter>& pDecoder = {}) {
        RequireOk(Open(wszFile), "connecting the source with the filter");
        if (pDecoder) {
            RequireOk(m_pGraph->AddFilter(pDecoder.Get(), nullptr), "adding the decoder");
            Connect(m_pFilter, kAudioOutput, pDecoder);
            ConnectRecorder(AddGrabber(kAudio, MEDIASUBTYPE_PCM), pDecoder, kOutput);
        } else {
            ConnectRecorder(AddGrabber(kAudio), m_pFilter, kAudioOutput);
        }
        m_pVideoRenderer = ConnectRecorder(AddGrabber(kVideo), m_pFilter, kVideoOutput);
    }

    /// Has the host connect a file with the video's grabber, through whatever filter it finds, which must be the one
    /// under test; then connects the audio.
    void BuildByHost(const std::wstring& wszFile) {
        const auto pGrabber = AddGrabber(kVideo);
        const auto pInput = GetPin(pGrabber, kInput);
        CComPtr<IBaseFilter> pSource;
        RequireOk(m_pGraph->AddSourceFilter(wszFile.c_str(), L"source", pSource.Put()), "the file");
        RequireOk(m_pGraph->Connect(GetPin(pSource, kSourceOutput).Get(), pInput.Get()),
                  "a filter for the file");
        CComPtr<IPin> pOutput;
        PIN_INFO info{};
        CLSID clsid{};
        RequireOk(pInput->ConnectedTo(pOutput.Put()), "the pin that the host has found");
        RequireOk(pOutput->QueryPinInfo(&info), "the filter that the host has found");
        m_pFilter = CComPtr<IBaseFilter>::Attach(info.pFilter);
        RequireOk(m_pFilter->GetClassID(&clsid), "the class of that filter");
        Require(clsid == kFilterClass, "the host takes another filter for the file");
        Connect(pGrabber, kOutput, Add(kNullRenderer));
        ConnectRecorder(AddGrabber(kAudio), m_pFilter, kAudioOutput);
    }

    // ---------------- states

    void Run() {
        m_recorder.SetPacing(true);
        RequireOk(m_pControl->Run(), "running");
    }

    /// Pauses and waits until both renderers hold a sample.
    void Pause() {
        OAFilterState state = State_Stopped;
        RequireOk(m_pControl->Pause(), "pausing");
        Require(m_pControl->GetState(kTimeoutMs, &state) == S_OK && state == State_Paused,
                "the pause is not complete");
    }

    void Stop() {
        m_recorder.SetPacing(false);
        RequireOk(m_pControl->Stop(), "stopping");
    }

    /// Seeks to a media time, 100 ns; the recorder begins anew.
    void Seek(REFERENCE_TIME rt) {
        m_recorder.SetPacing(false);
        m_recorder.Begin();
        constexpr DWORD kTo = AM_SEEKING_AbsolutePositioning, kUnchanged = AM_SEEKING_NoPositioning;
        RequireOk(m_pSeeking->SetPositions(&rt, kTo, nullptr, kUnchanged), "seeking");
    }

    /// Changes the rate, through the video's renderer: the graph of Wine takes a rate and does nothing with it.
    void SetRate(double dRate) {
        RequireOk(Query<IMediaSeeking>(m_pVideoRenderer)->SetRate(dRate), "the rate");
    }

    /// Runs and waits until both streams have ended.
    void RunToEnd() {
        LONG nCode = 0;
        Run();
        RequireOk(Query<IMediaEvent>(m_pGraph, IID_IMediaEvent)->WaitForCompletion(kTimeoutMs, &nCode),
                  "waiting for the end");
        Require(nCode == EC_COMPLETE, "the streams end with event " + std::to_string(nCode));
    }

    IMediaSeeking& GetSeeking() { return *m_pSeeking; }
    CRecorder& GetRecorder() { return m_recorder; }

private:
    static constexpr LONG kTimeoutMs = 30'000;
    static constexpr CLSID kFilterClass = {
        0xF7DB4970, 0x3AB8, 0x8BC1, {0x2F, 0xD6, 0xD8, 0x23, 0x31, 0xF2, 0x00, 0x00}};
    static constexpr CLSID kSampleGrabber = {
        0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};
    static constexpr CLSID kNullRenderer = {
        0xC1F400A4, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};

    /// Pins by the order in which their filters list them.
    enum : ULONG { kSourceOutput = 0, kInput = 0, kOutput = 1, kVideoOutput = 1, kAudioOutput = 2 };

    static CComPtr<IPin> GetPin(const CComPtr<IBaseFilter>& pFilter, ULONG nPin) {
        CComPtr<IEnumPins> pPins;
        CComPtr<IPin> pPin;
        RequireOk(pFilter->EnumPins(pPins.Put()), "the pins of a filter");
        for (ULONG i = 0; i <= nPin; ++i) {
            Require(pPins->Next(1, pPin.Put(), nullptr) == S_OK, "a filter has too few pins");
        }
        return pPin;
    }

    CComPtr<IBaseFilter> Add(REFCLSID clsid) {
        auto pFilter = Create<IBaseFilter>(clsid);
        RequireOk(m_pGraph->AddFilter(pFilter.Get(), nullptr), "adding a filter");
        return pFilter;
    }

    /// Adds a grabber that takes only its stream's major type and this subtype; GUID_NULL: any.
    CComPtr<IBaseFilter> AddGrabber(EStream stream, const GUID& subtype = GUID_NULL) {
        auto pFilter = Add(kSampleGrabber);
        const auto pGrabber = Query<ISampleGrabber>(pFilter);
        AM_MEDIA_TYPE type{};
        type.majortype = stream == kAudio ? MEDIATYPE_Audio : MEDIATYPE_Video;
        type.subtype = subtype;
        RequireOk(pGrabber->SetMediaType(&type), "the type of a grabber");
        RequireOk(pGrabber->SetCallback(m_recorder.GetCallback(stream), 0), "the callback of a grabber");
        return pFilter;
    }

    void Connect(const CComPtr<IBaseFilter>& pFrom, ULONG nPin, const CComPtr<IBaseFilter>& pTo) {
        RequireOk(m_pGraph->ConnectDirect(GetPin(pFrom, nPin).Get(), GetPin(pTo, kInput).Get(), nullptr),
                  "connecting pin " + std::to_string(nPin));
    }

    /// @return the renderer.
    CComPtr<IBaseFilter> ConnectRecorder(const CComPtr<IBaseFilter>& pGrabber,
                                         const CComPtr<IBaseFilter>& pFrom, ULONG nPin) {
        Connect(pFrom, nPin, pGrabber);
        const auto pRenderer = Add(kNullRenderer);
        Connect(pGrabber, kOutput, pRenderer);
        return pRenderer;
    }

    CRecorder m_recorder;
    std::optional<CPushSource> m_pushSource;
    const CComPtr<IGraphBuilder> m_pGraph = Create<IGraphBuilder>(CLSID_FilterGraph);
    const CComPtr<IMediaControl> m_pControl = Query<IMediaControl>(m_pGraph);
    const CComPtr<IMediaSeeking> m_pSeeking = Query<IMediaSeeking>(m_pGraph);
    CComPtr<IBaseFilter> m_pFilter;         // the one under test
    bool m_bTrueTypes = false;  // see SetTrueTypes
    CComPtr<IBaseFilter> m_pVideoRenderer;  // behind the video's grabber
};

}  // namespace kest
