// The filter between a source that can be read and two sinks.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>

#include "filter/KestDemux2Filter.h"
#include "graph/BaseFilter.h"
#include "graph/MemAllocator.h"
#include "pins/DeliveryThread.h"
#include "platform/Time.h"
#include "support/CaptureTexts.h"
#include "support/MemoryReader.h"
#include "support/TestData.h"
#include "support/TestThreads.h"

namespace kest {

/// A source in memory that calls the test when it is asked for its length: by a probe, and when the path starts.
struct CHookedReader final : CMemoryReader {
    using CMemoryReader::CMemoryReader;
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override {
        if (m_onLength) m_onLength();
        return CMemoryReader::Length(pTotal, pAvailable);
    }
    std::function<void()> m_onLength;
};

/// A filter with one pin.
template <class Pin>
struct CRigFilter final : CBaseFilter {
    CRigFilter() : CBaseFilter(L"Rig", nullptr, &m_csPins, CLSID{}) {}
    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int) override { return &m_pin; }

    CCritSec m_csPins;
    Pin m_pin{this, &m_csPins};
};

/// An output pin that offers a stream and, when it has one, a reader.
struct CReadPin final : CBasePin {
    CReadPin(CBaseFilter* pFilter, CCritSec* pLock)
        : CBasePin(pFilter, pLock, nullptr, L"Output", PINDIR_OUTPUT) {}
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IAsyncReader && m_pReader) return GetInterface(m_pReader, ppv);
        return CBasePin::NonDelegatingQueryInterface(riid, ppv);
    }
    HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
    HRESULT GetMediaType(int n, CMediaType& type) override {
        return n == 0 ? type.Set(CMediaType(MEDIATYPE_Stream)) : VFW_S_NO_MORE_ITEMS;
    }
    HRESULT CompleteConnect(IPin*) override { return m_hrComplete; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_UNEXPECTED; }

    IAsyncReader* m_pReader = nullptr;  // not counted
    HRESULT m_hrComplete = S_OK;        // how the last step of a connection ends
};

/// An input pin that counts, and calls the test with every sample.
struct CCountPin final : CBaseInputPin {
    CCountPin(CBaseFilter* pFilter, CCritSec* pLock) : CBaseInputPin(pFilter, pLock, nullptr, L"Input") {}
    HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop,
                                         double dRate) override {
        m_segment = {rtStart, std::nullopt};
        return CBaseInputPin::NewSegment(rtStart, rtStop, dRate);
    }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override {
        ++m_nSamples;
        REFERENCE_TIME rtStart = 0, rtStop = 0;
        if (!m_segment.second && pSample->GetTime(&rtStart, &rtStop) == S_OK) m_segment.second = rtStart;
        m_llBytes += pSample->GetActualDataLength();
        if (m_onReceive) m_onReceive();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override {
        m_evEnd.Set();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndFlush() override {
        ++m_nFlushes;
        if (m_bInside) ++m_nHasty;
        return CBaseInputPin::EndFlush();
    }
    /// Waits for the end of the stream. @return the samples since the last time.
    int WaitForEnd() {
        EXPECT_TRUE(m_evEnd.Wait(kTooLongMs)) << "no end of stream";
        m_evEnd.Reset();
        return m_nSamples.exchange(0);
    }

    std::function<void()> m_onReceive;                           // set while nothing is delivered
    std::atomic<int> m_nSamples{0}, m_nFlushes{0}, m_nHasty{0};  // hasty: flushes that ended while m_bInside
    std::atomic<bool> m_bInside{false};                          // m_onReceive says so
    std::atomic<std::int64_t> m_llBytes{0};                      // of all samples
    CEvent m_evEnd;
    /// The start of the last segment, and of its first sample. Read behind `WaitForEnd`.
    std::pair<REFERENCE_TIME, std::optional<REFERENCE_TIME>> m_segment;
};

/// The neighbours, and the filter once it is created.
struct CRig {
    ~CRig() {
        if (m_pFilter) m_pFilter->Stop(), Disconnect();
    }
    HRESULT Create() {
        HRESULT hr = S_OK;
        m_pFilter = static_cast<CKestDemux2Filter*>(CKestDemux2Filter::CreateInstance(nullptr, &hr));
        return hr;
    }
    /// A real stream to connect to; it lives as long as the rig.
    CHookedReader* Load(ByteVector bytes) {
        return &m_readers.emplace_back(m_bytes.emplace_back(std::move(bytes)));
    }
    CHookedReader* Load(const char* pszFile) { return Load(ReadTestData(pszFile)); }
    /// A program stream without frames. @param nMuxRate  of 400 bit/s.
    CHookedReader* MakeStream(std::uint32_t nMuxRate) {
        return Load(CProgramStreamBuilder().Pack(nMuxRate).Map({{0x02, 0xE0}}).Fill(40000).Get());
    }
    HRESULT Connect(IAsyncReader* pReader) {
        m_pSource->m_pin.m_pReader = pReader;
        return m_pSource->m_pin.Connect(m_pFilter->GetPin(0), nullptr);
    }
    HRESULT ConnectSink(int n) { return m_pFilter->GetPin(n + 1)->Connect(m_apSinks[n], nullptr); }
    void ConnectAll(IAsyncReader* pReader) {
        ASSERT_EQ(S_OK, Connect(pReader));
        for (int n : {0, 1}) ASSERT_EQ(S_OK, ConnectSink(n));
        StartSinks();
    }
    void StartSinks() {
        for (auto& pFilter : m_apSinkFilters) pFilter->Pause();
    }
    /// Connected pins hold each other's filter.
    void Disconnect() {
        for (auto& pFilter : m_apSinkFilters) pFilter->Stop();
        m_pSource->m_pin.Disconnect();
        for (CBasePin* pPin : m_apSinks) pPin->Disconnect();
        for (int n = 0; n < 3; ++n) m_pFilter->GetPin(n)->Disconnect();
    }
    HRESULT SetOutput(int nDemuxOutput) {
        return Control()->put_DemuxOutput(static_cast<std::uint32_t>(nDemuxOutput));
    }
    template <class Interface>
    CComPtr<Interface> Query(REFIID riid) {
        CComPtr<Interface> p;
        EXPECT_EQ(S_OK, m_pFilter->QueryInterface(riid, reinterpret_cast<void**>(p.Put())));
        return p;
    }
    CComPtr<IKestDemux2Control> Control() { return Query<IKestDemux2Control>(IID_IKestDemux2Control); }
    HRESULT SetSwitch(ESwitch nSwitch, std::int32_t nValue) {
        return Query<IKestDemux2Control2>(IID_IKestDemux2Control2)->put_Switch(nSwitch, nValue);
    }
    /// Connects all pins to a source that pushes a stream of this class and cannot be read.
    void ConnectPushed(int nClass) {
        EXPECT_EQ(S_OK, SetSwitch(ESwitch::PushStreamClass, nClass));
        ConnectAll(nullptr);
        CComPtr<IMemAllocator> pAllocator;  // the pin keeps it
        EXPECT_EQ(S_OK, Input().GetAllocator(pAllocator.Put()));
    }
    /// Delivers bytes to the input pin as one sample.
    HRESULT Push(std::span<const std::uint8_t> bytes) {
        CComPtr<IMemAllocator> pAllocator(new CMemAllocator);
        ALLOCATOR_PROPERTIES props{1, std::max<LONG>(1, static_cast<LONG>(bytes.size())), 1, 0};
        CComPtr<IMediaSample> pSample;
        BYTE* pBuffer = nullptr;
        if (FAILED(pAllocator->SetProperties(&props, &props)) || FAILED(pAllocator->Commit()) ||
            FAILED(pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0)) ||
            FAILED(pSample->GetPointer(&pBuffer)) ||
            FAILED(pSample->SetActualDataLength(static_cast<LONG>(bytes.size())))) {
            return E_UNEXPECTED;
        }
        std::ranges::copy(bytes, pBuffer);
        return Input().Receive(pSample.Get());
    }
    HRESULT Seek(LONGLONG llTime) {
        return Query<IMediaSeeking>(IID_IMediaSeeking)->SetPositions(&llTime, 1, nullptr, 0);  // absolute
    }
    CKestDemux2InputPin& Input() { return static_cast<CKestDemux2InputPin&>(*m_pFilter->GetPin(0)); }
    /// 0: video, 1: audio.
    CDemuxOutputPin& Output(int n) { return static_cast<CDemuxOutputPin&>(*m_pFilter->GetPin(n + 1)); }
    bool HasThread(int n) { return Output(n).GetDeliveryThread().IsRunning(); }

    std::deque<ByteVector> m_bytes;
    std::deque<CHookedReader> m_readers;
    CComPtr<CKestDemux2Filter> m_pFilter;
    CComPtr<CRigFilter<CReadPin>> m_pSource{new CRigFilter<CReadPin>};
    CComPtr<CRigFilter<CCountPin>> m_apSinkFilters[2]{CComPtr(new CRigFilter<CCountPin>),
                                                      CComPtr(new CRigFilter<CCountPin>)};
    CCountPin* const m_apSinks[2]{&m_apSinkFilters[0]->m_pin, &m_apSinkFilters[1]->m_pin};
};

struct FilterTest : ::testing::Test, CRig {
    FilterTest() { EXPECT_EQ(S_OK, Create()); }
    /// How often a text has been traced, over the life of the test.
    int CountOf(const std::string& strPart) const {
        const std::string strTexts = m_texts.TraceTexts();
        int n = 0;
        for (auto i = strTexts.find(strPart); i != std::string::npos; i = strTexts.find(strPart, i + 1)) ++n;
        return n;
    }
    CCaptureTexts m_texts;
};

}  // namespace kest
