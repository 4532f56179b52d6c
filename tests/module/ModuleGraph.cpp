#include "ModuleGraph.h"

namespace kest {
namespace {

constexpr DWORD kStateTimeoutMs = 10'000;
constexpr LONG kEndTimeoutMs = 30'000;
constexpr CLSID kSampleGrabber = {0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0, 0x60, 0x08, 0x03, 0x9E, 0x37}};
constexpr CLSID kNullRenderer = {0xC1F400A4, 0x3F08, 0x11D3, {0x9F, 0x0B, 0, 0x60, 0x08, 0x03, 0x9E, 0x37}};

/// A pin by its name.
CRef<IPin> FindPin(const CRef<IBaseFilter>& pFilter, LPCWSTR pszName) {
    CRef<IPin> pPin;
    RequireOk(pFilter->FindPin(pszName, pPin.Put()), "a pin is missing");
    return pPin;
}

/// The first pin that points this way.
CRef<IPin> FindPin(const CRef<IBaseFilter>& pFilter, PIN_DIRECTION direction) {
    CRef<IEnumPins> pPins;
    RequireOk(pFilter->EnumPins(pPins.Put()), "the pins cannot be enumerated");
    CRef<IPin> pPin;
    while (pPins->Next(1, pPin.Put(), nullptr) == S_OK) {
        PIN_DIRECTION own = PINDIR_INPUT;
        if (SUCCEEDED(pPin->QueryDirection(&own)) && own == direction) return pPin;
    }
    throw CFailure("a filter has no such pin");
}

}  // namespace

// ---------------- making and connecting

CModuleGraph::CModuleGraph()
    : m_pGraph(Create<IGraphBuilder>(CLSID_FilterGraph, "the graph")),
      m_pControl(Query<IMediaControl>(m_pGraph)),
      m_pEvents(Query<IMediaEvent>(m_pGraph, IID_IMediaEvent)),
      m_pSeeking(Query<IMediaSeeking>(m_pGraph)) {
    for (const EStream stream : kStreams) GetBranch(stream) = AddBranch(stream);
}

CModuleGraph::~CModuleGraph() {
    m_recorder.SetPacing(false);
    m_pControl->Stop();
}

CModuleGraph::Branch CModuleGraph::AddBranch(EStream stream) {
    Branch branch{Create<IBaseFilter>(kSampleGrabber, "a grabber"),
                  Create<IBaseFilter>(kNullRenderer, "a null renderer")};
    RequireOk(Query<ISampleGrabber>(branch.pGrabber)->SetCallback(m_recorder.GetCallback(stream), 0),
              "a grabber takes no callback");
    RequireOk(m_pGraph->AddFilter(branch.pGrabber.Get(), nullptr), "a grabber does not join");
    RequireOk(m_pGraph->AddFilter(branch.pRenderer.Get(), nullptr), "a null renderer does not join");
    return branch;
}

HRESULT CModuleGraph::Open(const std::wstring& wszFile) {
    const auto pSource = Create<IBaseFilter>(CLSID_AsyncReader, "the file source");
    m_pFilter = Create<IBaseFilter>(kFilterClass, "the filter");
    RequireOk(m_pGraph->AddFilter(pSource.Get(), L"source"), "the source does not join");
    RequireOk(m_pGraph->AddFilter(m_pFilter.Get(), L"demultiplexer"), "the filter does not join");
    RequireOk(Query<IFileSourceFilter>(pSource)->Load(wszFile.c_str(), nullptr), "the file is not loaded");
    return m_pGraph->ConnectDirect(FindPin(pSource, PINDIR_OUTPUT).Get(), FindPin(m_pFilter, L"Input").Get(),
                                   nullptr);
}

void CModuleGraph::Build(const std::wstring& wszFile) {
    RequireOk(Open(wszFile), "the source is not connected with the filter");
    ConnectBranch(EStream::Audio, FindPin(m_pFilter, L"Audio Output"));
    ConnectBranch(EStream::Video, FindPin(m_pFilter, L"Video Output"));
}

void CModuleGraph::BuildWithDecoder(const std::wstring& wszFile, const CRef<IBaseFilter>& pDecoder) {
    RequireOk(Open(wszFile), "the source is not connected with the filter");
    RequireOk(m_pGraph->AddFilter(pDecoder.Get(), L"decoder"), "the decoder does not join");
    RequireOk(m_pGraph->ConnectDirect(FindPin(m_pFilter, L"Audio Output").Get(),
                                      FindPin(pDecoder, PINDIR_INPUT).Get(), nullptr),
              "the decoder does not take the audio");
    ConnectBranch(EStream::Audio, FindPin(pDecoder, PINDIR_OUTPUT));
    ConnectBranch(EStream::Video, FindPin(m_pFilter, L"Video Output"));
}

void CModuleGraph::ConnectBranch(EStream stream, const CRef<IPin>& pFrom) {
    RequireOk(m_pGraph->ConnectDirect(pFrom.Get(), FindPin(GetBranch(stream).pGrabber, PINDIR_INPUT).Get(),
                                      nullptr),
              "an output is not connected with its grabber");
    ConnectRenderer(stream);
}

void CModuleGraph::ConnectRenderer(EStream stream) {
    const auto& [pGrabber, pRenderer] = GetBranch(stream);
    RequireOk(m_pGraph->ConnectDirect(FindPin(pGrabber, PINDIR_OUTPUT).Get(),
                                      FindPin(pRenderer, PINDIR_INPUT).Get(), nullptr),
              "a grabber is not connected with its renderer");
}

CLSID CModuleGraph::BuildByHost(const std::wstring& wszFile) {
    AM_MEDIA_TYPE type{};
    type.majortype = MEDIATYPE_Video;  // or the grabber would take the file as it is
    const CRef<IBaseFilter>& pGrabber = GetBranch(EStream::Video).pGrabber;
    RequireOk(Query<ISampleGrabber>(pGrabber)->SetMediaType(&type), "a grabber is not told its type");
    CRef<IBaseFilter> pSource;
    RequireOk(m_pGraph->AddSourceFilter(wszFile.c_str(), L"source", pSource.Put()), "the file is not loaded");
    const CRef<IPin> pInput = FindPin(pGrabber, PINDIR_INPUT);
    RequireOk(m_pGraph->Connect(FindPin(pSource, PINDIR_OUTPUT).Get(), pInput.Get()),
              "the host does not connect the file with a grabber of video");

    CRef<IPin> pOutput;
    PIN_INFO info{};
    RequireOk(pInput->ConnectedTo(pOutput.Put()), "a grabber is not connected");
    RequireOk(pOutput->QueryPinInfo(&info), "a pin does not say whose it is");
    *m_pFilter.Put() = info.pFilter;
    CLSID clsid{};
    RequireOk(m_pFilter->GetClassID(&clsid), "a filter does not tell its class");
    if (clsid != kFilterClass) return clsid;
    ConnectBranch(EStream::Audio, FindPin(m_pFilter, L"Audio Output"));
    ConnectRenderer(EStream::Video);
    return clsid;
}

WAVEFORMATEX CModuleGraph::GetWaveFormat(EStream stream) {
    AM_MEDIA_TYPE type{};
    RequireOk(Query<ISampleGrabber>(GetBranch(stream).pGrabber)->GetConnectedMediaType(&type),
              "a grabber is not connected");
    WAVEFORMATEX format{};
    const bool bWave = type.formattype == FORMAT_WaveFormatEx && type.cbFormat >= sizeof(format);
    if (bWave) format = *reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat);
    CoTaskMemFree(type.pbFormat);
    Require(bWave, "a format is no sound's");
    return format;
}

// ---------------- states

void CModuleGraph::Run() {
    m_recorder.SetPacing(true);
    RequireOk(m_pControl->Run(), "the graph does not run");
}

void CModuleGraph::Pause() {
    RequireOk(m_pControl->Pause(), "the graph does not pause");
    OAFilterState state = State_Stopped;
    RequireResult(m_pControl->GetState(kStateTimeoutMs, &state), S_OK, "the pause is not complete");
    Require(state == State_Paused, "the graph is not paused");
}

void CModuleGraph::Stop() {
    m_recorder.SetPacing(false);
    RequireOk(m_pControl->Stop(), "the graph does not stop");
}

void CModuleGraph::Seek(REFERENCE_TIME rt) {
    m_recorder.SetPacing(false);
    RequireOk(
        m_pSeeking->SetPositions(&rt, AM_SEEKING_AbsolutePositioning, nullptr, AM_SEEKING_NoPositioning),
        "the graph does not seek");
}

REFERENCE_TIME CModuleGraph::GetPosition() {
    REFERENCE_TIME rt = 0;
    RequireOk(m_pSeeking->GetCurrentPosition(&rt), "the graph has no position");
    return rt;
}

REFERENCE_TIME CModuleGraph::GetDuration() {
    REFERENCE_TIME rt = 0;
    RequireOk(m_pSeeking->GetDuration(&rt), "the graph has no length");
    return rt;
}

void CModuleGraph::WaitForEnd() {
    LONG nCode = 0;
    RequireOk(m_pEvents->WaitForCompletion(kEndTimeoutMs, &nCode), "the streams do not end");
    Require(nCode == EC_COMPLETE, "the streams end with event " + std::to_string(nCode));
}

}  // namespace kest
