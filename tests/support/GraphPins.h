// A filter with one output and one input pin, made up for the tests of the base classes.
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
        return type.Type() == MEDIATYPE_Video ? S_OK : m_hrRefusal;
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
    void TryOwnTypesFirst() { m_bTryMyTypesFirst = true; }

    Log& m_log;
    std::vector<CMediaType> m_types{CMediaType(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO)};
    HRESULT m_hrRefusal = S_FALSE;  // what a type is refused with
    HRESULT m_hrBufferSize = S_OK;  // what the choice of buffers ends with
    HRESULT m_hrActive = S_OK;      // what becoming active fails with
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

    GUID m_accepted = MEDIASUBTYPE_MPEG2_VIDEO;  // the one subtype it takes
    std::vector<CMediaType> m_types;             // what it offers
    int m_nEnds = 0;                             // ends of stream seen
};

class CPinFilter : public CBaseFilter {
public:
    explicit CPinFilter(IUnknown* pOuter = nullptr) : CBaseFilter(L"Made up", pOuter, &m_csPins, kClass) {}
    int GetPinCount() override { return m_nPins; }
    CBasePin* GetPin(int n) override {
        if (n == 0) return &m_source;
        return n == 1 ? static_cast<CBasePin*>(&m_sink) : nullptr;
    }

    static constexpr CLSID kClass = {0x4B657374, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    CCritSec m_csPins;
    Log m_log;
    CSourcePin m_source{this, &m_csPins, m_log};
    CSinkPin m_sink{this, &m_csPins};
    int m_nPins = 2;
};

}  // namespace kest
