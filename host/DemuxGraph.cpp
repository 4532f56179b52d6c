#include "host/DemuxGraph.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <string>

#include "control/Identifiers.h"
#include "filter/DemuxSettings.h"
#include "host/CommandError.h"
#include "host/DemuxModule.h"
#include "host/Interrupts.h"
#include "host/Progress.h"

namespace kest {
namespace {

constexpr std::uint32_t kWatchMs = 100;  // how often progress is shown and interrupts are checked
constexpr double kTicksPerSecond = 1e7;
constexpr auto kQuietTime = std::chrono::milliseconds(500);  // without a sample of trick play
constexpr auto kStallTime = std::chrono::milliseconds(900);  // between the last byte and giving up

CComPtr<IPin> FindPin(IBaseFilter* pFilter, LPCWSTR pszName) {
    CComPtr<IPin> pPin;
    pFilter->FindPin(pszName, pPin.Put());
    return pPin;
}

}  // namespace

std::span<const std::uint8_t> GetPayload(IMediaSample& sample) {
    BYTE* pBytes = nullptr;
    if (FAILED(sample.GetPointer(&pBytes))) return {};
    return {pBytes, static_cast<std::size_t>(sample.GetActualDataLength())};
}

CDemuxGraph::CDemuxGraph(const Input& input, ISinkHandler& video, ISinkHandler& audio, EPace pace,
                         const std::string& strModule)
    : m_input(input),
      m_pModule(LoadDemuxModule(strModule)),
      m_pSource(new CFileSource(CComPtr<IAsyncReader>(input.pReader.Get()))),
      m_pVideo(new CSink(EStream::Video, video, m_pacer, m_evNotice)),
      m_pAudio(new CSink(EStream::Audio, audio, m_pacer, m_evNotice)) {
    Build(pace);
}

void CDemuxGraph::Build(EPace pace) {
    CComPtr<IBaseFilter> pDemux;
    Require(m_pModule->CreateInstance(kFilterClass, IID_IBaseFilter, reinterpret_cast<void**>(pDemux.Put())),
            "cannot create the filter");
    Require(m_pGraph->AddFilter(m_pSource.Get(), L"source"), "cannot add the source");
    Require(m_pGraph->AddFilter(pDemux.Get(), L"demultiplexer"), "cannot add the filter");
    Require(m_pGraph->AddFilter(m_pVideo.Get(), L"video"), "cannot add a sink");
    Require(m_pGraph->AddFilter(m_pAudio.Get(), L"audio"), "cannot add a sink");
    if (pace == EPace::FreeRun) {
        SetFreeRun(pDemux.Get());
    } else {
        Require(m_pGraph->SetDefaultSyncSource(), "no clock");
    }
    Require(m_pGraph->Connect(m_pSource->GetPin(0), FindPin(pDemux.Get(), L"Input").Get()),
            "cannot connect the filter's input");
    Require(m_pGraph->Connect(FindPin(pDemux.Get(), L"Video Output").Get(), m_pVideo->GetPin(0)),
            "cannot connect the video output");
    Require(m_pGraph->Connect(FindPin(pDemux.Get(), L"Audio Output").Get(), m_pAudio->GetPin(0)),
            "cannot connect the audio output");
}

void CDemuxGraph::SetFreeRun(IBaseFilter* pDemux) {
    constexpr const char* kWhat = "cannot change the filter's settings";
    CComPtr<IDemuxSettings> pSettings;
    SEND_SETTINGS settings;
    Require(pDemux->QueryInterface(kDemuxSettingsId, reinterpret_cast<void**>(pSettings.Put())), kWhat);
    Require(pSettings->get_SendSettings(&settings), kWhat);
    settings.nDemuxOutput = kDemuxOutputFreeRun;
    Require(pSettings->put_SendSettings(&settings), kWhat);
}

// The rate first: it would take effect wherever the demuxer has come to after the seek.
void CDemuxGraph::Seek(double dSeconds, double dRate) {
    Require(m_pGraph->Pause(), "cannot pause the graph");
    m_bTrickPlay = dRate != 1.0;
    if (m_bTrickPlay) Require(m_pGraph->SetRate(dRate), "cannot change the rate");
    Require(m_pGraph->Seek(static_cast<REFERENCE_TIME>(dSeconds * kTicksPerSecond)), "not seekable");
}

void CDemuxGraph::RunToEnd() {
    Require(m_pGraph->Run(), "cannot run the graph");
    WaitForEnd();
    const bool bDone = IsDone();
    m_pGraph->Stop();
    m_pVideo->RethrowError();
    m_pAudio->RethrowError();
    if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
    CheckReadErrors(m_input);
    if (!bDone && !m_bTrickPlay)
        throw CCommandError(kExitBadInput, m_input.path.string() + ": no end of stream received");
}

void CDemuxGraph::WaitForEnd() {
    CProgress progress(m_input.llLength);
    while (!IsDone() && !HasStalled()) {
        m_evNotice.Wait(kWatchMs);
        progress.Show(m_pSource->GetPosition());
    }
}

bool CDemuxGraph::IsDone() const {
    return IsInterrupted() || m_bEndRequested || m_pVideo->HasFailed() || m_pAudio->HasFailed() ||
           (m_pVideo->HasEnded() && m_pAudio->HasEnded());
}

/// Whether nothing has moved for a while though the whole file has been read. A handler at work, which may
/// wait for whoever reads its output, counts as movement. Trick play need not read the whole file.
bool CDemuxGraph::HasStalled() {
    const std::uint32_t nVideo = m_pVideo->GetActivity(), nAudio = m_pAudio->GetActivity();
    const LONGLONG llPosition = m_pSource->GetPosition();
    const std::uint64_t nActivity = static_cast<std::uint64_t>(llPosition) + nVideo + nAudio;
    const auto now = std::chrono::steady_clock::now();
    const bool bBusy = nVideo % 2 != 0 || nAudio % 2 != 0 || (!m_bTrickPlay && llPosition < m_input.llLength);
    if (bBusy || nActivity != m_nActivity) {
        m_nActivity = nActivity;
        m_lastActivity = now;
    }
    return now - m_lastActivity > (m_bTrickPlay ? kQuietTime : kStallTime);
}

void CDemuxGraph::Require(HRESULT hr, const char* pszWhat) const {
    if (SUCCEEDED(hr)) return;
    std::array<char, 16> szCode{};
    std::snprintf(szCode.data(), szCode.size(), " (0x%08" PRIX32 ")", static_cast<std::uint32_t>(hr));
    throw CCommandError(kExitBadInput, m_input.path.string() + ": " + pszWhat + szCode.data());
}

}  // namespace kest
