// Both output pins on a fake filter, connected to sinks that record what comes.
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "control/SwitchTable.h"
#include "demux/ParseSettings.h"
#include "graph/BaseFilter.h"
#include "graph/BaseInputPin.h"
#include "pins/AudioOutputPin.h"
#include "pins/VideoOutputPin.h"
#include "support/TestThreads.h"

namespace kest {

using Texts = std::vector<std::string>;

/// A list of texts that one thread fills and another waits for.
class CTextList {
public:
    void Add(const std::string& text) {
        std::lock_guard lock(m_mutex);
        m_texts.push_back(text);
    }
    Texts Get() const {
        std::lock_guard lock(m_mutex);
        return m_texts;
    }
    Texts WaitFor(std::size_t n) const {
        EXPECT_TRUE(Eventually([&] { return SleepMs(1), Get().size() >= n; }));
        return Get();
    }

private:
    mutable std::mutex m_mutex;  // guards m_texts
    Texts m_texts;
};

/// Writes down samples and events. A sample is its start time and, by letters, its flags: "400000 DS" is a
/// discontinuity and a sync point at 40 ms, P means preroll; "-" stands for no time.
class CRecordingPin final : public CBaseInputPin {
public:
    CRecordingPin(CBaseFilter* pFilter, CCritSec* pLock) : CBaseInputPin(pFilter, pLock, nullptr, L"Sink") {}

    HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
    HRESULT GetMediaType(int, CMediaType&) override { return VFW_S_NO_MORE_ITEMS; }
    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override {
        if (!m_pForeign) return CBaseInputPin::GetAllocator(ppAllocator);
        *ppAllocator = m_pForeign;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override {
        if (const HRESULT hr = CBaseInputPin::Receive(pSample); hr != S_OK) return hr;
        if (m_onCall) m_onCall("receive");
        m_samples.Add(Describe(pSample));
        m_all.Add(Describe(pSample));
        m_nLastSize = pSample->GetActualDataLength();
        return m_hrReceive;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override {
        return Note("begin flush"), CBaseInputPin::BeginFlush();
    }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return Note("end flush"), CBaseInputPin::EndFlush(); }
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return Note("end of stream"), S_OK; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double dRate) override {
        return Note("segment " + std::to_string(static_cast<int>(dRate))), S_OK;
    }
    /// Waits for the first n samples, and nothing but these must have come; the same for samples and events.
    Texts Samples(std::size_t n) { return m_samples.WaitFor(n); }
    Texts All(std::size_t n) { return m_all.WaitFor(n); }

    std::function<void(const std::string&)>
        m_onCall;  // what happens in "receive" and in each event; may wait
    std::atomic<HRESULT> m_hrReceive{S_OK};
    std::atomic<LONG> m_nLastSize{0};     // bytes of the last sample
    IMemAllocator* m_pForeign = nullptr;  // offered to the other pin; null: the usual one

private:
    static std::string Describe(IMediaSample* pSample) {
        REFERENCE_TIME rtStart = 0, rtStop = 0;
        std::string text = pSample->GetTime(&rtStart, &rtStop) == S_OK ? std::to_string(rtStart) + " " : "- ";
        if (pSample->IsDiscontinuity() == S_OK) text += 'D';
        if (pSample->IsSyncPoint() == S_OK) text += 'S';
        if (pSample->IsPreroll() == S_OK) text += 'P';
        if (text.back() == ' ') text.pop_back();
        return text;
    }

    void Note(const std::string& text) {
        m_all.Add(text);
        if (m_onCall) m_onCall(text);
    }

    CTextList m_samples, m_all;
};

/// The filter around the pins, and their sinks: every answer is a field, every request is counted or kept.
class CPinFilter final : public CBaseFilter, public IDemuxFilterSite {
public:
    CPinFilter() : CBaseFilter(L"Fake", nullptr, &m_csPins, CLSID{}) {
        m_video.SetPeer(m_audio);
        m_audio.SetPeer(m_video);
    }
    int GetPinCount() override { return 4; }
    CBasePin* GetPin(int n) override {
        return std::array<CBasePin*, 4>{&m_video, &m_audio, &m_videoSink,
                                        &m_audioSink}[static_cast<std::size_t>(n)];
    }

    std::int32_t GetSwitch(ESwitch nSwitch) const override {
        return m_anSwitches[static_cast<std::size_t>(nSwitch)];
    }
    EWorkingMode GetWorkingMode() const override { return static_cast<EWorkingMode>(m_nMode.load()); }
    bool IsInputConnected() const override { return m_bInputConnected; }
    bool IsPushSource() const override { return m_bPush; }
    std::uint32_t GetBitRate() const override { return m_nBitRate; }
    const StreamDescription* GetDescription(EStreamKind kind) const override {
        return m_description.FindStream(kind);
    }
    int GetDefaultWidth() const override { return 640; }
    int GetDefaultHeight() const override { return 360; }
    bool IsActive() const override { return m_bActive; }
    std::uint32_t GetStopBoundMs() const override { return 30; }
    bool IsFreeRun() const override { return m_bFreeRun; }
    REFERENCE_TIME GetStreamStart() const override { return m_rtStreamStart; }
    bool GetClockTime(REFERENCE_TIME& rtNow) override { return rtNow = m_rtNow, m_rtNow >= 0; }
    bool IsResetting() const override { return m_bResetting; }
    void RequestReset() override { ++m_nResets; }
    void OnThreadKilled() override { ++m_nKilled; }
    HRESULT SetPositionsHook(std::int64_t llPosition, REFERENCE_TIME, std::int64_t llLength) override {
        return Note("positions " + std::to_string(llPosition) + " " + std::to_string(llLength));
    }
    HRESULT StopHook(REFERENCE_TIME rt) override { return Note("stop " + std::to_string(rt)); }
    HRESULT SeekHook(REFERENCE_TIME rt) override { return Note("seek " + std::to_string(rt)); }
    HRESULT RateHook(double dRate) override { return Note("rate " + std::to_string(dRate)); }
    Mpeg1SequenceHeader GetSequenceHeader() const override { return kDefaultSequenceHeader; }
    void DoSingleStep(const std::function<bool()>&) override { ++m_nSteps; }

    CCritSec m_csPins;
    SourceDescription m_description;
    std::array<std::int32_t, kSwitchTable.size()> m_anSwitches = [] {
        std::array<std::int32_t, kSwitchTable.size()> an;
        for (std::size_t i = 0; i < an.size(); ++i) an[i] = kSwitchTable[i].nDefault;
        return an;
    }();
    std::atomic<std::uint32_t> m_nMode{4};
    std::atomic<std::uint32_t> m_nBitRate{1500000};
    std::atomic<bool> m_bInputConnected{true}, m_bPush{false}, m_bActive{false}, m_bFreeRun{false};
    std::atomic<bool> m_bResetting{false};
    std::atomic<REFERENCE_TIME> m_rtStreamStart{0};
    std::atomic<REFERENCE_TIME> m_rtNow{-1};  // of the graph's clock; negative: there is none
    std::atomic<int> m_nResets{0}, m_nKilled{0}, m_nSteps{0};
    CTextList m_hooks;               // the hooks called so far
    std::function<void()> m_onHook;  // what a hook does
    CAvTiming m_timing;
    CKestDemux2VideoOutputPin m_video{this, this, m_timing, &m_csPins, nullptr};
    CKestDemux2AudioOutputPin m_audio{this, this, m_timing, &m_csPins, nullptr};
    CRecordingPin m_videoSink{this, &m_csPins}, m_audioSink{this, &m_csPins};

private:
    HRESULT Note(std::string text) {
        m_hooks.Add(std::move(text));
        if (m_onHook) m_onHook();
        return S_OK;
    }
};

/// One frame for a pin's queue.
struct TestFrame {
    std::int64_t llTimestamp = 0;  // the one that counts for the pin, 90 kHz
    bool bDiscontinuity = false, bSegmentMarker = false, bNoVideo = false, bEndOfStream = false;
    std::int64_t llFilePos = 0;
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(3);  // of no meaning
};

/// The pins, connected and running; their queues are open, their threads not yet started.
class CPinRig {
public:
    /// @param pForeign  allocator of the video sink; null: the usual one.
    explicit CPinRig(std::uint32_t nMode, IMemAllocator* pForeign = nullptr) {
        filter.m_nMode = nMode;
        videoSink.m_pForeign = pForeign;
        for (int n = 0; n < 2; ++n) EXPECT_EQ(filter.GetPin(n)->Connect(filter.GetPin(n + 2), nullptr), S_OK);
        filter.Run(0);
        for (CDemuxOutputPin* pPin : Pins()) {
            pPin->ROpenMemFile();
            pPin->WOpenMemFile();
        }
    }
    ~CPinRig() {
        filter.m_bResetting = false;
        for (CDemuxOutputPin* pPin : Pins()) {
            evGoOn.Set();
            pPin->StopDelivery();
            pPin->Block(0, nullptr);
            pPin->CloseMemFiles();
            pPin->GetDeliveryThread().Stop();
        }
        filter.Stop();
        for (int n = 0; n < 4; ++n) filter.GetPin(n)->Disconnect();
    }

    std::array<CDemuxOutputPin*, 2> Pins() { return {&video, &audio}; }
    CDemuxOutputPin& Pin(bool bVideo) { return *Pins()[bVideo ? 0 : 1]; }
    CRecordingPin& Sink(CDemuxOutputPin& pin) { return pin.IsVideo() ? videoSink : audioSink; }
    std::int32_t& Switch(ESwitch nSwitch) { return filter.m_anSwitches[static_cast<std::size_t>(nSwitch)]; }
    bool IsOn(ESwitch nSwitch) const { return filter.GetSwitch(nSwitch) != 0; }
    void Start(CDemuxOutputPin& pin) {
        pin.GetDeliveryThread().Restart();
        pin.GetDeliveryThread().Resume();
    }
    void Put(CDemuxOutputPin& pin, const TestFrame& frame) {
        const bool bBothCount = IsOn(ESwitch::RobustTiming) || frame.llTimestamp == kNoFrameTime;
        const std::int64_t llOther =
            bBothCount ? 0 : 5555555;  // distance of the timestamp that does not count
        FRAME_INFO info{};
        info.llPts = frame.llTimestamp + (pin.IsVideo() ? 0 : llOther);
        info.llDts = frame.llTimestamp + (pin.IsVideo() ? llOther : 0);
        info.llFilePos = frame.llFilePos;
        info.bDiscontinuity = frame.bDiscontinuity;
        info.bSegmentMarker = frame.bSegmentMarker;
        info.bNoVideo = frame.bNoVideo;
        info.bEndOfStream = frame.bEndOfStream;
        pin.GetFrameQueue().WriteEx(frame.bytes, &info, kTooLongMs);
    }
    /// Puts frames and waits until n samples in all have come.
    Texts Play(CDemuxOutputPin& pin, std::initializer_list<std::int64_t> timestamps, std::size_t n) {
        for (const std::int64_t llTimestamp : timestamps) Put(pin, TestFrame{llTimestamp});
        return Sink(pin).Samples(n);
    }
    /// As if the audio had set its time base and come to a start time.
    void PretendAudio(REFERENCE_TIME rtBase, REFERENCE_TIME rtStart) {
        filter.m_timing.Update([&](AvTimes& times) {
            times.audio.rtTimeBase = rtBase;
            times.audio.rtStart = times.audio.rtLastStart = rtStart;
        });
    }
    PinTiming Timing(CDemuxOutputPin& pin) {
        return filter.m_timing.Get(pin.IsVideo() ? EPin::Video : EPin::Audio);
    }

private:
    const CComPtr<CPinFilter> m_pFilter{new CPinFilter};

public:
    CEvent evGoOn;  // for what waits in a sink
    CPinFilter& filter = *m_pFilter.Get();
    CKestDemux2VideoOutputPin& video = filter.m_video;
    CKestDemux2AudioOutputPin& audio = filter.m_audio;
    CRecordingPin& videoSink = filter.m_videoSink;
    CRecordingPin& audioSink = filter.m_audioSink;
};

}  // namespace kest
