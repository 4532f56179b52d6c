// The filter between a source that can be read and two sinks.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <string>

#include "filter/KestDemux2Filter.h"
#include "graph/MemAllocator.h"
#include "pins/DeliveryThread.h"
#include "platform/Time.h"
#include "support/CaptureTexts.h"
#include "support/MemoryReader.h"
#include "support/TestData.h"
#include "support/TestThreads.h"

namespace kest {

/// A filter with one pin.
template <class Pin>
class CRigFilter : public CBaseFilter {
public:
    CRigFilter() : CBaseFilter(L"Rig", nullptr, &m_csPins, CLSID{}) {}
    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int) override { return &m_pin; }

    CCritSec m_csPins;
    Pin m_pin{this, &m_csPins};
};

/// An output pin that offers two types and, when it has one, a reader.
class CReadPin final : public CBasePin {
public:
    CReadPin(CBaseFilter* pFilter, CCritSec* pLock)
        : CBasePin(pFilter, pLock, nullptr, L"Output", PINDIR_OUTPUT) {}
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IAsyncReader && m_pReader) return GetInterface(m_pReader, ppv);
        return CBasePin::NonDelegatingQueryInterface(riid, ppv);
    }
    HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
    HRESULT GetMediaType(int n, CMediaType& type) override {
        const GUID subtypes[] = {MEDIASUBTYPE_None, MEDIASUBTYPE_MPEG2_VIDEO};
        return n < 2 ? type.Set(CMediaType(MEDIATYPE_Stream, subtypes[n])) : VFW_S_NO_MORE_ITEMS;
    }
    HRESULT CompleteConnect(IPin*) override { return m_hrComplete; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_UNEXPECTED; }

    IAsyncReader* m_pReader = nullptr;  // not counted
    HRESULT m_hrComplete = S_OK;        // how the last step of a connection ends
};

/// An input pin that takes everything at once or, when told to, keeps each sample from the first on until a
/// flush has begun, and a while longer.
class CCountPin final : public CBaseInputPin {
public:
    CCountPin(CBaseFilter* pFilter, CCritSec* pLock) : CBaseInputPin(pFilter, pLock, nullptr, L"Input") {}
    HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample*) override {
        ++m_nSamples;
        if (!m_bLingers) return S_OK;
        m_bInside = true;
        m_evFlush.Wait();
        SleepMs(kLingerMs);
        m_bInside = false;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override {
        m_evEnd.Set();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override {
        ++m_nFlushes;
        m_evFlush.Set();
        return CBaseInputPin::BeginFlush();
    }
    HRESULT STDMETHODCALLTYPE EndFlush() override {
        if (m_bInside) ++m_nHasty;
        return CBaseInputPin::EndFlush();
    }

    std::atomic<int> m_nSamples{0};
    std::atomic<int> m_nFlushes{0};
    std::atomic<int> m_nHasty{0};         // flushes that ended while a sample was coming in
    std::atomic<bool> m_bLingers{false};  // see above
    std::atomic<bool> m_bInside{false};   // a sample is coming in, and lingers
    CEvent m_evFlush;                     // a flush has begun
    static constexpr std::uint32_t kLingerMs = 30;
    CEvent m_evEnd;
};

class FilterTest : public ::testing::Test {
protected:
    FilterTest() {
        HRESULT hr = S_OK;
        m_pFilter = static_cast<CKestDemux2Filter*>(CKestDemux2Filter::CreateInstance(nullptr, &hr));
        EXPECT_EQ(S_OK, hr);
        m_pInput = static_cast<CKestDemux2InputPin*>(m_pFilter->GetPin(0));
        m_pVideo = static_cast<CKestDemux2VideoOutputPin*>(m_pFilter->GetPin(1));
        m_pAudio = static_cast<CKestDemux2AudioOutputPin*>(m_pFilter->GetPin(2));
    }
    ~FilterTest() override {
        m_pFilter->Stop();
        for (CBasePin* pPin : std::initializer_list<CBasePin*>{&m_pSource->m_pin, m_pInput, m_pVideo,
                                                               m_pAudio, &VideoSink(), &AudioSink()}) {
            pPin->Disconnect();  // connected pins hold each other's filter
        }
    }

    /// A real stream to connect to; it lives as long as the test.
    IAsyncReader* Load(const char* pszFile) {
        m_bytes.push_back(ReadTestData(pszFile));
        m_readers.emplace_back(m_bytes.back());
        return &m_readers.back();
    }
    HRESULT Connect(IAsyncReader* pReader) {
        m_pSource->m_pin.m_pReader = pReader;
        return m_pSource->m_pin.Connect(m_pInput, nullptr);
    }
    void Disconnect() {
        EXPECT_EQ(S_OK, m_pSource->m_pin.Disconnect());
        EXPECT_EQ(S_OK, m_pInput->Disconnect());
    }
    void ConnectSinks() {
        ASSERT_EQ(S_OK, m_pVideo->Connect(&VideoSink(), nullptr));
        ASSERT_EQ(S_OK, m_pAudio->Connect(&AudioSink(), nullptr));
    }
    CCountPin& VideoSink() { return m_pVideoSink->m_pin; }
    CCountPin& AudioSink() { return m_pAudioSink->m_pin; }
    template <class Interface>
    CComPtr<Interface> Query(REFIID riid) {
        CComPtr<Interface> p;
        EXPECT_EQ(S_OK, m_pFilter->QueryInterface(riid, reinterpret_cast<void**>(p.Put())));
        return p;
    }

    std::deque<ByteVector> m_bytes;
    std::deque<CMemoryReader> m_readers;
    CComPtr<CKestDemux2Filter> m_pFilter;
    CKestDemux2InputPin* m_pInput;
    CKestDemux2VideoOutputPin* m_pVideo;
    CKestDemux2AudioOutputPin* m_pAudio;
    CComPtr<CRigFilter<CReadPin>> m_pSource{new CRigFilter<CReadPin>};
    CComPtr<CRigFilter<CCountPin>> m_pVideoSink{new CRigFilter<CCountPin>};
    CComPtr<CRigFilter<CCountPin>> m_pAudioSink{new CRigFilter<CCountPin>};
};

/// How often a text occurs in another.
inline int CountOf(const std::string& strText, const std::string& strPart) {
    int n = 0;
    for (auto i = strText.find(strPart); i != std::string::npos; i = strText.find(strPart, i + 1)) ++n;
    return n;
}

}  // namespace kest
