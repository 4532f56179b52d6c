// A filter with one output and one input pin, for the tests of the base classes.
#pragma once

#include <vector>

#include "graph/BaseFilter.h"
#include "graph/BaseInputPin.h"
#include "graph/BaseOutputPin.h"
#include "graph/MemAllocator.h"

namespace kest {

class CSourcePin : public CBaseOutputPin {
public:
    CSourcePin(CBaseFilter* pFilter, CCritSec* pLock) : CBaseOutputPin(pFilter, pLock, nullptr, L"Output") {}
    HRESULT CheckMediaType(const CMediaType& type) override {
        return type.Type() == MEDIATYPE_Video ? S_OK : m_hrNotAcceptable;
    }
    HRESULT GetMediaType(int n, CMediaType& type) override {
        const auto nIndex = static_cast<std::size_t>(n);
        return nIndex < m_types.size() ? type.Set(m_types[nIndex]) : VFW_S_NO_MORE_ITEMS;
    }
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) override {
        props.cBuffers = 2;
        props.cbBuffer = 100;
        return SUCCEEDED(m_hrBufferSize) ? pAlloc->SetProperties(&props, &props) : m_hrBufferSize;
    }
    HRESULT Active() override { return FAILED(m_hrActive) ? m_hrActive : CBaseOutputPin::Active(); }
    IMemAllocator* Allocator() const { return m_pAllocator.Get(); }

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
    IMemAllocator* Allocator() const { return m_pAllocator.Get(); }

    GUID m_accepted = MEDIASUBTYPE_MPEG2_VIDEO;  // the one subtype that it accepts
};

class CPinFilter : public CBaseFilter {
public:
    CPinFilter() : CBaseFilter(L"Filter", nullptr, &m_csPins, GUID_NULL) {}
    int GetPinCount() override { return 2; }
    CBasePin* GetPin(int n) override { return n == 0 ? static_cast<CBasePin*>(&m_source) : &m_sink; }
    bool MayChangeConnections() const override { return !m_bStarting && CBaseFilter::MayChangeConnections(); }

    CCritSec m_csPins;
    CSourcePin m_source{this, &m_csPins};
    CSinkPin m_sink{this, &m_csPins};
    bool m_bStarting = false;  // no changes, although the state is still stopped
};

/// Two such filters, apart at first and at the end.
struct PinPair {
    ~PinPair() {
        pUp->Stop();
        pDown->Stop();
        Disconnect();  // connected pins hold each other's filter
    }
    HRESULT Connect(const AM_MEDIA_TYPE* pType = nullptr) { return source.Connect(&sink, pType); }
    void Disconnect() { source.Disconnect(), sink.Disconnect(); }
    bool AreApart() const {
        return !source.IsConnected() && !sink.IsConnected() && !source.Allocator() && !sink.Allocator();
    }

    CComPtr<CPinFilter> pUp{new CPinFilter}, pDown{new CPinFilter};
    CSourcePin& source = pUp->m_source;
    CSinkPin& sink = pDown->m_sink;
};

/// A committed allocator of samples of 100 bytes.
inline CComPtr<IMemAllocator> MakeAllocator(LONG nBuffers) {
    CComPtr<IMemAllocator> pAllocator(new CMemAllocator);
    ALLOCATOR_PROPERTIES props{nBuffers, 100, 1, 0};
    pAllocator->SetProperties(&props, &props);
    pAllocator->Commit();
    return pAllocator;
}

/// A sample of it, without a wait; null when none is free.
inline CComPtr<IMediaSample> TakeSample(IMemAllocator* pAllocator) {
    CComPtr<IMediaSample> pSample;
    pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, AM_GBF_NOWAIT);
    return pSample;
}

}  // namespace kest
