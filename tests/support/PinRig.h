// Both output pins on a fake filter, connected to sinks that record what comes.
#pragma once

#include <gmock/gmock.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "graph/BaseInputPin.h"
#include "pins/AudioOutputPin.h"
#include "pins/VideoOutputPin.h"
#include "support/TestThreads.h"

namespace kest {

using Texts = std::vector<std::string>;

/// A list of texts that one thread fills and another waits for.
class CTextList {
public:
    void Add(std::string text) {
        std::lock_guard lock(m_mutex);
        m_texts.push_back(std::move(text));
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

/// The filter around the pins: every answer is a field, every request is counted or kept.
class CPinFilter final : public CBaseFilter, public IDemuxFilterSite {
public:
    CPinFilter() : CBaseFilter(L"Fake", nullptr, &m_csPins, CLSID{}) {
        m_video.SetPeer(m_audio);
        m_audio.SetPeer(m_video);
    }
    int GetPinCount() override { return 2; }
    CBasePin* GetPin(int n) override { return n == 0 ? static_cast<CBasePin*>(&m_video) : &m_audio; }

    EWorkingMode GetWorkingMode() const override { return static_cast<EWorkingMode>(m_nMode.load()); }
    bool IsInputConnected() const override { return m_bInputConnected; }
    bool IsPushSource() const override { return m_bPush; }
    std::uint32_t GetBitRate() const override { return m_nBitRate; }
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
    HRESULT SetPositionsHook(std::int64_t llPosition, std::int64_t llLength) override {
        return Note("positions " + std::to_string(llPosition) + " " + std::to_string(llLength));
    }
    HRESULT StopHook(REFERENCE_TIME rt) override { return Note("stop " + std::to_string(rt)); }
    HRESULT SeekHook(REFERENCE_TIME rt) override { return Note("seek " + std::to_string(rt)); }
    HRESULT RateHook(double dRate) override { return Note("rate " + std::to_string(dRate)); }
    void DoSingleStep() override { ++m_nSteps; }

    CCritSec m_csPins;
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

private:
    HRESULT Note(std::string text) {
        m_hooks.Add(std::move(text));
        if (m_onHook) m_onHook();
        return S_OK;
    }
};

/// Writes down samples and events. A sample is its start time and, by letters, its flags: "400000 DS" is a
/// discontinuity and a sync point at 40 ms, P means preroll; "-" stands for no time.
class CRecordingPin final : public CBaseInputPin {
public:
    CRecordingPin(CBaseFilter* pFilter, CCritSec* pLock, LPCWSTR pszName)
        : CBaseInputPin(pFilter, pLock, nullptr, pszName) {}

    HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
    HRESULT GetMediaType(int, CMediaType&) override { return VFW_S_NO_MORE_ITEMS; }
    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override {
        if (!m_pAllocator) return CBaseInputPin::GetAllocator(ppAllocator);
        *ppAllocator = m_pAllocator;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override {
        const HRESULT hr = CBaseInputPin::Receive(pSample);
        if (hr != S_OK) return hr;
        ++m_nEntered;
        if (m_bHold) m_evGoOn.Wait();
        if (m_bHoldForeign) {  // as a system's renderer: until a flush, and no force ends it
            std::unique_lock lock(m_mutex);
            m_flushed.wait(lock, [this] { return !m_bHoldForeign; });
        }
        m_samples.Add(Describe(pSample));
        m_all.Add(Describe(pSample));
        m_nLastSize = pSample->GetActualDataLength();
        return m_hrReceive;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override {
        m_all.Add("begin flush");
        {
            std::lock_guard lock(m_mutex);
            m_bHoldForeign = false;
        }
        m_flushed.notify_all();
        if (m_bHoldFlush.exchange(false)) m_evGoOn.Wait();
        return CBaseInputPin::BeginFlush();
    }
    HRESULT STDMETHODCALLTYPE EndFlush() override {
        if (m_bHoldFlushEnd.exchange(false)) m_evGoOn.Wait();
        m_all.Add("end flush");
        return CBaseInputPin::EndFlush();
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override {
        m_all.Add("end of stream");
        if (m_bHold) m_evGoOn.Wait();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double dRate) override {
        m_all.Add("segment " + std::to_string(static_cast<int>(dRate)));
        return S_OK;
    }

    /// Waits for the first n samples, and nothing but these must have come.
    Texts Samples(std::size_t n) { return m_samples.WaitFor(n); }
    /// The same for samples and events.
    Texts All(std::size_t n) { return m_all.WaitFor(n); }

    std::atomic<HRESULT> m_hrReceive{S_OK};
    std::atomic<bool> m_bHold{false};         // samples and the end of the stream wait for m_evGoOn
    std::atomic<bool> m_bHoldForeign{false};  // samples wait for a flush
    std::atomic<bool> m_bHoldFlush{false},
        m_bHoldFlushEnd{false};  // a call of the next flush waits for m_evGoOn
    CEvent m_evGoOn;
    std::atomic<int> m_nEntered{0};         // samples that came as far
    std::atomic<LONG> m_nLastSize{0};       // bytes of the last sample
    IMemAllocator* m_pAllocator = nullptr;  // offered to the other pin; null: the usual one

private:
    static std::string Describe(IMediaSample* pSample) {
        REFERENCE_TIME rtStart = 0, rtStop = 0;
        const bool bTimed = pSample->GetTime(&rtStart, &rtStop) == S_OK;
        std::string flags;
        if (pSample->IsDiscontinuity() == S_OK) flags += 'D';
        if (pSample->IsSyncPoint() == S_OK) flags += 'S';
        if (pSample->IsPreroll() == S_OK) flags += 'P';
        EXPECT_TRUE(!bTimed || rtStop == rtStart + 1) << rtStop;
        return (bTimed ? std::to_string(rtStart) : "-") + (flags.empty() ? "" : " " + flags);
    }

    std::mutex m_mutex;  // guards m_bHoldForeign
    std::condition_variable m_flushed;
    CTextList m_samples, m_all;
};

class CRecordingFilter final : public CBaseFilter {
public:
    CRecordingFilter() : CBaseFilter(L"Sink", nullptr, &m_csPins, CLSID{}) {}
    int GetPinCount() override { return 2; }
    CBasePin* GetPin(int n) override { return n == 0 ? &m_video : &m_audio; }

    CCritSec m_csPins;
    CRecordingPin m_video{this, &m_csPins, L"Video"}, m_audio{this, &m_csPins, L"Audio"};
};

/// One frame for a pin's queue.
struct TestFrame {
    std::int64_t llTimestamp = 0;  // the one that counts for the pin, 90 kHz
    bool bDiscontinuity = false, bSegmentMarker = false, bNoVideo = false, bEndOfStream = false;
    std::int64_t llFilePos = 0;
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(3);  // of no meaning
};

/// The two filters, connected and running; the pins' queues are open, their threads not yet started.
class CPinRig {
public:
    /// @param pAllocator  what the video sink offers; null: the usual one.
    explicit CPinRig(std::uint32_t nMode, IMemAllocator* pAllocator = nullptr) {
        filter.m_nMode = nMode;
        videoSink.m_pAllocator = pAllocator;
        for (int n = 0; n < 2; ++n) EXPECT_EQ(filter.GetPin(n)->Connect(m_pSink->GetPin(n), nullptr), S_OK);
        m_pSink->Run(0);
        filter.Run(0);
        for (CDemuxOutputPin* pPin : Pins()) OpenQueue(*pPin);
    }
    ~CPinRig() {
        filter.m_bResetting = false;
        for (CDemuxOutputPin* pPin : Pins()) {
            Release(Sink(*pPin));
            pPin->StopDelivery();
            pPin->Block(0, nullptr);
            pPin->CloseMemFiles();
            pPin->GetDeliveryThread().Stop();
        }
        filter.Stop();
        m_pSink->Stop();
        for (int n = 0; n < 2; ++n) {
            filter.GetPin(n)->Disconnect();
            m_pSink->GetPin(n)->Disconnect();
        }
    }

    std::array<CDemuxOutputPin*, 2> Pins() { return {&video, &audio}; }
    CRecordingPin& Sink(CDemuxOutputPin& pin) { return pin.IsVideo() ? videoSink : audioSink; }
    static void Release(CRecordingPin& sink) {
        sink.m_bHold = sink.m_bHoldFlush = sink.m_bHoldFlushEnd = false;
        sink.m_evGoOn.Set();
    }
    void OpenQueue(CDemuxOutputPin& pin) {
        pin.ROpenMemFile();
        pin.WOpenMemFile();
    }
    void Start(CDemuxOutputPin& pin) {
        pin.GetDeliveryThread().Restart();
        pin.GetDeliveryThread().Resume();
    }
    int Put(CDemuxOutputPin& pin, const TestFrame& frame, std::uint32_t nTimeoutMs = kTooLongMs) {
        constexpr std::int64_t kOther = 5555555;  // distance of the timestamp that does not count
        FRAME_INFO info{};
        info.llPts = frame.llTimestamp + (pin.IsVideo() ? 0 : kOther);
        info.llDts = frame.llTimestamp + (pin.IsVideo() ? kOther : 0);
        info.llFilePos = frame.llFilePos;
        info.bDiscontinuity = frame.bDiscontinuity;
        info.bSegmentMarker = frame.bSegmentMarker;
        info.bNoVideo = frame.bNoVideo;
        info.bEndOfStream = frame.bEndOfStream;
        return pin.GetFrameQueue().WriteEx(frame.bytes, &info, nTimeoutMs);
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
    const CComPtr<CRecordingFilter> m_pSink{new CRecordingFilter};

public:
    CPinFilter& filter = *m_pFilter.Get();
    CKestDemux2VideoOutputPin& video = filter.m_video;
    CKestDemux2AudioOutputPin& audio = filter.m_audio;
    CRecordingPin& videoSink = m_pSink->m_video;
    CRecordingPin& audioSink = m_pSink->m_audio;
};

}  // namespace kest
