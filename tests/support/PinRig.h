// Both output pins on a made-up filter, connected to a sink that records what comes.
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <mutex>
#include <string>
#include <vector>

#include "graph/BaseInputPin.h"
#include "pins/AudioOutputPin.h"
#include "pins/DeliveryThread.h"
#include "pins/VideoOutputPin.h"
#include "support/TestThreads.h"

namespace kest {

using Texts = std::vector<std::string>;

/// The filter around the pins: every answer is a field, every request is counted or kept.
class CPinFilter final : public CBaseFilter, public IDemuxFilterSite {
public:
    CPinFilter() : CBaseFilter(L"Made up", nullptr, &m_csPins, CLSID{}) {
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
    bool IsFreeRun() const override { return m_bFreeRun; }
    REFERENCE_TIME GetStreamStart() const override { return m_rtStreamStart; }
    bool GetClockTime(REFERENCE_TIME& rtNow) override {
        rtNow = m_rtNow;
        return m_rtNow >= 0;
    }
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

    /// The hooks called so far, in order.
    Texts Hooks() {
        std::lock_guard lock(m_mutex);
        return m_hooks;
    }

    CCritSec m_csPins;
    std::atomic<std::uint32_t> m_nMode{4};
    std::atomic<std::uint32_t> m_nBitRate{0};
    std::atomic<bool> m_bInputConnected{true}, m_bPush{false}, m_bActive{true}, m_bFreeRun{false};
    std::atomic<bool> m_bResetting{false};
    std::atomic<REFERENCE_TIME> m_rtStreamStart{0};
    std::atomic<REFERENCE_TIME> m_rtNow{-1};  // of the graph's clock; negative: there is none
    std::atomic<int> m_nResets{0}, m_nKilled{0}, m_nSteps{0};
    CKestDemux2VideoOutputPin m_video{this, this, &m_csPins, nullptr};
    CKestDemux2AudioOutputPin m_audio{this, this, &m_csPins, nullptr};

private:
    HRESULT Note(std::string text) {
        std::lock_guard lock(m_mutex);
        m_hooks.push_back(std::move(text));
        return S_OK;
    }

    std::mutex m_mutex;  // guards m_hooks
    Texts m_hooks;
};

/// Writes down samples and events. A sample is its start time and, by letters, its marks: "400000 DS" is a
/// discontinuity and a sync point at 40 ms, P means preroll; "-" stands for no time.
class CRecordingPin final : public CBaseInputPin {
public:
    CRecordingPin(CBaseFilter* pFilter, CCritSec* pLock, LPCWSTR pszName)
        : CBaseInputPin(pFilter, pLock, nullptr, pszName) {}

    HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
    HRESULT GetMediaType(int, CMediaType&) override { return VFW_S_NO_MORE_ITEMS; }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override {
        const HRESULT hr = CBaseInputPin::Receive(pSample);
        if (hr != S_OK) return hr;
        ++m_nEntered;
        if (m_bHold) m_evGoOn.Wait();
        Add(m_samples, Describe(pSample), pSample->GetActualDataLength());
        return m_hrReceive;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override {
        Add(m_events, "begin flush");
        return CBaseInputPin::BeginFlush();
    }
    HRESULT STDMETHODCALLTYPE EndFlush() override {
        Add(m_events, "end flush");
        return CBaseInputPin::EndFlush();
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override {
        Add(m_events, "end of stream");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop,
                                         double dRate) override {
        EXPECT_EQ(rtStart, 0);
        EXPECT_EQ(rtStop, 0x7F00000000000000);
        Add(m_events, "segment " + std::to_string(static_cast<int>(dRate)));
        return S_OK;
    }

    /// Waits for the first n samples, and nothing but these must have come.
    Texts Samples(std::size_t n) { return Take(m_samples, n); }
    /// The same for samples and events.
    Texts All(std::size_t n) { return Take(m_all, n); }
    /// Sizes of the samples so far.
    std::vector<LONG> Sizes() {
        std::lock_guard lock(m_mutex);
        return m_sizes;
    }

    std::atomic<HRESULT> m_hrReceive{S_OK};
    std::atomic<bool> m_bHold{false};  // samples wait in Receive for m_evGoOn
    CEvent m_evGoOn;
    std::atomic<int> m_nEntered{0};  // samples that came as far

private:
    static std::string Describe(IMediaSample* pSample) {
        REFERENCE_TIME rtStart = 0, rtStop = 0;
        const bool bTimed = pSample->GetTime(&rtStart, &rtStop) == S_OK;
        std::string marks;
        if (pSample->IsDiscontinuity() == S_OK) marks += 'D';
        if (pSample->IsSyncPoint() == S_OK) marks += 'S';
        if (pSample->IsPreroll() == S_OK) marks += 'P';
        EXPECT_TRUE(!bTimed || rtStop == rtStart + 1) << rtStop;
        return (bTimed ? std::to_string(rtStart) : "-") + (marks.empty() ? "" : " " + marks);
    }
    void Add(Texts& list, const std::string& text, LONG nSize = 0) {
        std::lock_guard lock(m_mutex);
        list.push_back(text);
        m_all.push_back(text);
        if (&list == &m_samples) m_sizes.push_back(nSize);
    }
    Texts Take(const Texts& list, std::size_t n) {
        auto Size = [&] {
            std::lock_guard lock(m_mutex);
            return list.size();
        };
        EXPECT_TRUE(Eventually([&] { return SleepMs(1), Size() >= n; }));
        std::lock_guard lock(m_mutex);
        return list;
    }

    std::mutex m_mutex;  // guards the lists
    Texts m_samples, m_events, m_all;
    std::vector<LONG> m_sizes;
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
    std::int64_t llStamp = 0;  // the stamp that counts for the pin, 90 kHz
    bool bDiscontinuity = false, bSegmentMarker = false, bNoVideo = false, bEndOfStream = false;
    std::int64_t llFilePos = 0;
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(3);  // of no meaning
};

/// The two filters, connected and running; the pins' queues are open, their threads not yet started.
class CPinRig {
public:
    explicit CPinRig(std::uint32_t nMode) {
        filter.m_nMode = nMode;
        for (int n = 0; n < 2; ++n) {
            EXPECT_EQ(m_pFilter->GetPin(n)->Connect(m_pSink->GetPin(n), nullptr), S_OK);
        }
        m_pSink->Run(0);
        m_pFilter->Run(0);
        OpenQueue(video);
        OpenQueue(audio);
    }
    ~CPinRig() {
        filter.m_bResetting = false;
        for (auto* pPin : {static_cast<CDemuxOutputPin*>(&video), static_cast<CDemuxOutputPin*>(&audio)}) {
            Sink(*pPin).m_bHold = false;
            Sink(*pPin).m_evGoOn.Set();
            pPin->StopDelivery();
            pPin->Block(0, nullptr);
            pPin->CloseMemFiles();
            pPin->GetDeliveryThread().Stop();
        }
        m_pFilter->Stop();
        m_pSink->Stop();
        for (int n = 0; n < 2; ++n) {
            m_pFilter->GetPin(n)->Disconnect();
            m_pSink->GetPin(n)->Disconnect();
        }
    }

    CRecordingPin& Sink(CDemuxOutputPin& pin) { return pin.IsVideo() ? videoSink : audioSink; }
    void OpenQueue(CDemuxOutputPin& pin) {
        pin.ROpenMemFile();
        pin.WOpenMemFile();
    }
    void Start(CDemuxOutputPin& pin) {
        pin.GetDeliveryThread().Restart();
        pin.GetDeliveryThread().Resume();
    }
    void Put(CDemuxOutputPin& pin, const TestFrame& frame) {
        constexpr std::int64_t kOther = 5555555;  // distance of the stamp that does not count
        FRAME_INFO info{};
        info.llPts = frame.llStamp + (pin.IsVideo() ? 0 : kOther);
        info.llDts = frame.llStamp + (pin.IsVideo() ? kOther : 0);
        info.llFilePos = frame.llFilePos;
        info.bDiscontinuity = frame.bDiscontinuity;
        info.bSegmentMarker = frame.bSegmentMarker;
        info.bNoVideo = frame.bNoVideo;
        info.bEndOfStream = frame.bEndOfStream;
        pin.GetFrameQueue().WriteEx(frame.bytes, &info, kTooLongMs);
    }
    void Put(CDemuxOutputPin& pin, std::initializer_list<std::int64_t> stamps) {
        for (const std::int64_t llStamp : stamps) Put(pin, TestFrame{llStamp});
    }
    /// Puts frames and waits until n samples in all have come.
    Texts Play(CDemuxOutputPin& pin, std::initializer_list<std::int64_t> stamps, std::size_t n) {
        Put(pin, stamps);
        return Sink(pin).Samples(n);
    }
    /// As if the audio had set its time base and come to a start time.
    void PretendAudio(REFERENCE_TIME rtBase, REFERENCE_TIME rtStart) {
        audio.GetTiming().rtTimeBase = rtBase;
        audio.GetTiming().rtStart = rtStart;
        audio.GetTiming().rtLastStart = rtStart;
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
