// A filter with one output and one input pin, for the tests of the base classes.
#pragma once

#include <string>
#include <vector>

#include "graph/BaseFilter.h"
#include "graph/BaseInputPin.h"
#include "graph/BaseOutputPin.h"
#include "graph/MemAllocator.h"

namespace kest {

/// What the pins of one test do, in order.
using Log = std::vector<std::string>;

class CSourcePin : public CBaseOutputPin {
public:
    CSourcePin(CBaseFilter* pFilter, CCritSec* pLock, Log& log)
        : CBaseOutputPin(pFilter, pLock, nullptr, L"Output"), m_log(log) {}

    HRESULT CheckMediaType(const CMediaType& type) override {
        m_log.push_back("source checks");
        return type.Type() == MEDIATYPE_Video ? S_OK : m_hrNotAcceptable;
    }
    HRESULT GetMediaType(int n, CMediaType& type) override {
        if (n >= static_cast<int>(m_types.size())) return VFW_S_NO_MORE_ITEMS;
        return type.Set(m_types[static_cast<std::size_t>(n)]);
    }
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) override {
        props.cBuffers = 2;
        props.cbBuffer = 100;
        ALLOCATOR_PROPERTIES actual;
        const HRESULT hr = pAlloc->SetProperties(&props, &actual);
        return SUCCEEDED(hr) ? m_hrBufferSize : hr;
    }
    HRESULT Active() override {
        m_log.push_back("source active");
        return SUCCEEDED(m_hrActive) ? CBaseOutputPin::Active() : m_hrActive;
    }
    HRESULT Inactive() override {
        m_log.push_back("source inactive");
        return CBaseOutputPin::Inactive();
    }
    HRESULT Run(REFERENCE_TIME) override {
        m_log.push_back("source runs");
        return S_OK;
    }
    IMemAllocator* Allocator() const { return m_pAllocator.Get(); }

    Log& m_log;
    std::vector<CMediaType> m_types{CMediaType(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO)};
    HRESULT m_hrNotAcceptable = S_FALSE;  // CheckMediaType's, for anything but video
    HRESULT m_hrBufferSize = S_OK;        // DecideBufferSize's
    HRESULT m_hrActive = S_OK;            // Active's
};

class CSinkPin : public CBaseInputPin {
public:
    CSinkPin(CBaseFilter* pFilter, CCritSec* pLock) : CBaseInputPin(pFilter, pLock, nullptr, L"Input") {}

    HRESULT CheckMediaType(const CMediaType& type) override {
        return type.Subtype() == m_accepted ? S_OK : S_FALSE;
    }
    HRESULT GetMediaType(int n, CMediaType& type) override {
        if (n >= static_cast<int>(m_types.size())) return VFW_S_NO_MORE_ITEMS;
        return type.Set(m_types[static_cast<std::size_t>(n)]);
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override {
        ++m_nEnds;
        return S_OK;
    }
    IMemAllocator* Allocator() const { return m_pAllocator.Get(); }

    GUID m_accepted = MEDIASUBTYPE_MPEG2_VIDEO;  // the one subtype that it accepts
    std::vector<CMediaType> m_types;             // the types that it offers
    int m_nEnds = 0;                             // ends of stream so far
};

class CPinFilter : public CBaseFilter {
public:
    CPinFilter() : CBaseFilter(L"Filter", nullptr, &m_csPins, kClass) {}
    int GetPinCount() override { return 2; }
    CBasePin* GetPin(int n) override { return n == 0 ? static_cast<CBasePin*>(&m_source) : &m_sink; }
    bool MayChangeConnections() const override { return !m_bStarting && CBaseFilter::MayChangeConnections(); }

    static constexpr CLSID kClass = {0x4B657374, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    CCritSec m_csPins;
    Log m_log;
    CSourcePin m_source{this, &m_csPins, m_log};
    CSinkPin m_sink{this, &m_csPins};
    bool m_bStarting = false;  // no changes, although the state is still stopped
};

/// Two such filters, apart at first and at the end.
struct PinPair {
    ~PinPair() {
        pUp->m_bStarting = false;
        pUp->Stop();
        pDown->Stop();
        Disconnect();  // connected pins hold each other's filter
    }
    HRESULT Connect(const AM_MEDIA_TYPE* pType = nullptr) { return Source().Connect(&Sink(), pType); }
    void Disconnect() {
        Source().Disconnect();
        Sink().Disconnect();
    }
    bool AreApart() {
        return !Source().IsConnected() && !Sink().IsConnected() && !Source().Allocator() &&
               !Sink().Allocator();
    }
    CSourcePin& Source() { return pUp->m_source; }
    CSinkPin& Sink() { return pDown->m_sink; }

    CComPtr<CPinFilter> pUp{new CPinFilter}, pDown{new CPinFilter};
};

}  // namespace kest
