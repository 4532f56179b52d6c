#include "host/DemuxGraph.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <string>

#include "control/Identifiers.h"
#include "host/CommandError.h"
#include "host/DemuxModule.h"
#include "host/FileSource.h"
#include "host/Interrupts.h"
#include "host/Progress.h"
#include "host/PushSource.h"

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

// ---------------- building

CDemuxGraph::CDemuxGraph(const Input& input, const CSwitches& switches, ISinkHandler* pVideo,
                         ISinkHandler* pAudio, const Options& options)
    : m_input(input),
      m_options(options),
      m_pModule(LoadDemuxModule(options.strModule)),
      m_pacer(options.pace == EPace::Timed ? CPacer::kMaxWaitMs : 0) {
    Require(
        m_pModule->CreateInstance(kFilterClass, IID_IBaseFilter, reinterpret_cast<void**>(m_pDemux.Put())),
        "cannot create the filter");
    Require(m_pDemux->QueryInterface(IID_IKestDemux2Control, reinterpret_cast<void**>(m_pControl.Put())),
            "the filter has no control interface");
    MakeSource();
    Require(m_pGraph->AddFilter(m_pSource.Get(), L"source"), "cannot add the source");
    Require(m_pGraph->AddFilter(m_pDemux.Get(), L"demultiplexer"), "cannot add the filter");
    if (pVideo) SetPace();
    SetSwitches(switches);
    Require(m_pGraph->Connect(m_pSource->GetPin(0), FindPin(m_pDemux.Get(), L"Input").Get()),
            "cannot connect the filter's input");
    if (!pVideo) return;
    ConnectSink(m_pVideo, EStream::Video, pVideo, L"Video Output");
    ConnectSink(m_pAudio, EStream::Audio, pAudio, L"Audio Output");
}

/// A program stream is read by its demuxer, the others' demuxers take what is delivered.
bool CDemuxGraph::IsDelivered() const {
    return m_options.dBytesPerSecond || !m_input.pReader->IsSeekable() || !IsProgramStream(m_input);
}

void CDemuxGraph::MakeSource() {
    if (IsDelivered()) {
        m_pSource = new CPushSource(m_input.pReader, m_options.dBytesPerSecond.value_or(0), m_evNotice);
    } else {
        m_pSource = new CFileSource(CComPtr<IAsyncReader>(m_input.pReader.Get()));
    }
}

/// Nobody plays the streams in real time. A reset, which a queue that fills up brings about, would lose frames.
void CDemuxGraph::SetPace() {
    constexpr const char* kWhat = "cannot change the filter's settings";
    Require(m_pControl->put_EnableReset(0), kWhat);
    if (m_options.pace == EPace::FreeRun) {
        Require(m_pControl->put_DemuxOutput(kDemuxOutputFreeRun), kWhat);
    } else {
        if (m_options.bElementaryTiming) Require(m_pControl->put_DemuxOutput(kDemuxOutputAvEs), kWhat);
        Require(m_pGraph->SetDefaultSyncSource(), "no clock");
    }
}

/// Sets what differs from a new filter, so that a module that knows no other switches will do.
void CDemuxGraph::SetSwitches(const CSwitches& switches) {
    m_pDemux->QueryInterface(IID_IKestDemux2Control2, reinterpret_cast<void**>(m_pSwitches.Put()));
    for (std::size_t i = 0; i < kSwitchTable.size(); ++i) {
        const auto nSwitch = static_cast<ESwitch>(i);
        const std::int32_t nValue = switches.Get(nSwitch);
        if (nValue == kSwitchTable[i].nDefault) continue;
        Require(m_pSwitches ? m_pSwitches->put_Switch(nSwitch, nValue) : E_NOINTERFACE,
                ("the filter has no setting " + std::string(kSwitchTable[i].strName)).c_str());
    }
}

COUNTERS CDemuxGraph::GetCounters() const {
    COUNTERS counters;
    Require(m_pSwitches ? m_pSwitches->get_Counters(&counters) : E_NOINTERFACE, "the filter has no counters");
    return counters;
}

void CDemuxGraph::ConnectSink(CComPtr<CSink>& pSink, EStream stream, ISinkHandler* pHandler, LPCWSTR pszPin) {
    pSink = new CSink(stream, *pHandler, m_pacer, m_evNotice);
    const std::string strName = GetStreamName(stream);
    Require(m_pGraph->AddFilter(pSink.Get(), pszPin), "cannot add a sink");
    Require(m_pGraph->Connect(FindPin(m_pDemux.Get(), pszPin).Get(), pSink->GetPin(0)),
            ("cannot connect the " + strName + " output").c_str());
}

void CDemuxGraph::Require(HRESULT hr, const char* pszWhat) const {
    if (SUCCEEDED(hr)) return;
    std::array<char, 16> szCode{};
    std::snprintf(szCode.data(), szCode.size(), " (0x%08" PRIX32 ")", static_cast<std::uint32_t>(hr));
    throw CCommandError(kExitBadInput, m_input.path.string() + ": " + pszWhat + szCode.data());
}

// ---------------- running

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
    const HRESULT hrSource = m_pSource->GetResult();
    m_pGraph->Stop();
    if (m_pVideo) m_pVideo->RethrowError();
    if (m_pAudio) m_pAudio->RethrowError();
    if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
    CheckReadErrors(m_input);
    Require(hrSource, "the filter does not take the stream");
    if (!bDone && !m_bTrickPlay)
        throw CCommandError(kExitBadInput, m_input.path.string() + ": no end of stream received");
}

void CDemuxGraph::WaitForEnd() {
    CProgress progress(m_input.llLength, m_options.bQuiet);
    while (!IsDone() && !HasStalled()) {
        m_evNotice.Wait(kWatchMs);
        progress.Show(m_pSource->GetPosition());
    }
}

/// Whether the test is true of a sink that is connected.
template <class Test>
bool CDemuxGraph::AnySink(Test test) const {
    return (m_pVideo && test(*m_pVideo.Get())) || (m_pAudio && test(*m_pAudio.Get()));
}

bool CDemuxGraph::IsDone() const {
    if (IsInterrupted() || m_bEndRequested || FAILED(m_pSource->GetResult())) return true;
    if (AnySink([](const CSink& sink) { return sink.HasFailed(); })) return true;
    return (m_pSource->HasEnded() || !IsDelivered()) &&
           !AnySink([](const CSink& sink) { return !sink.HasEnded(); });
}

/// Whether nothing has moved for a while though the whole input has been taken. A handler at work, which may
/// wait for whoever reads its output, counts as movement. Trick play need not read the whole input.
bool CDemuxGraph::HasStalled() {
    bool bBusy = !m_bTrickPlay && !m_pSource->HasEnded();
    auto nActivity = static_cast<std::uint64_t>(m_pSource->GetPosition());
    AnySink([&](const CSink& sink) {
        nActivity += sink.GetActivity();
        bBusy = bBusy || sink.GetActivity() % 2 != 0;
        return false;
    });
    const auto now = std::chrono::steady_clock::now();
    if (bBusy || nActivity != m_nActivity) {
        m_nActivity = nActivity;
        m_lastActivity = now;
    }
    return now - m_lastActivity > (m_bTrickPlay ? kQuietTime : kStallTime);
}

}  // namespace kest
