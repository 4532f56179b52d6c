#include "graph/BasePin.h"

#include <iterator>

#include "graph/Enumerator.h"
#include "graph/Guard.h"

namespace kest {

CBasePin::CBasePin(CPinOwner* pFilter, CCritSec* pLock, HRESULT*, LPCWSTR pszName, PIN_DIRECTION dir)
    : m_wszName(pszName ? pszName : L""), m_dir(dir), m_pFilter(pFilter), m_pLock(pLock) {}

HRESULT CBasePin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IPin) return GetInterface(static_cast<IPin*>(this), ppv);
    if (riid == IID_IQualityControl) return GetInterface(static_cast<IQualityControl*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBasePin::GetMediaType(int, CMediaType&) { return E_UNEXPECTED; }

HRESULT CBasePin::CheckConnect(IPin* pPin) {
    PIN_DIRECTION dir;
    if (const HRESULT hr = pPin->QueryDirection(&dir); FAILED(hr)) return hr;
    return dir == m_dir ? VFW_E_INVALID_DIRECTION : S_OK;
}

HRESULT CBasePin::CompleteConnect(IPin*) { return S_OK; }

HRESULT CBasePin::Inactive() {
    m_bRunTimeError = false;
    return S_OK;
}

// ---------------- connection

HRESULT CBasePin::CheckMayConnect() const {
    if (m_Connected) return VFW_E_ALREADY_CONNECTED;
    return m_pFilter->MayChangeConnections() ? S_OK : VFW_E_NOT_STOPPED;
}

HRESULT CBasePin::Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) {
    if (!pReceivePin) return E_POINTER;
    return Guard([&] {
        CAutoLock lock(*m_pLock);
        const HRESULT hr = CheckMayConnect();
        return FAILED(hr) ? hr : AgreeMediaType(pReceivePin, pmt ? CMediaType(*pmt) : CMediaType());
    });
}

HRESULT CBasePin::AgreeMediaType(IPin* pReceivePin, const CMediaType& pattern) {
    if (!pattern.IsPartiallySpecified()) return AttemptConnection(pReceivePin, pattern);
    HRESULT hrFirst = VFW_E_NO_ACCEPTABLE_TYPES;
    for (IPin* pOffering : {pReceivePin, static_cast<IPin*>(this)}) {
        const HRESULT hr = TryMediaTypes(pReceivePin, pattern, pOffering);
        if (SUCCEEDED(hr)) return hr;
        if (hrFirst == VFW_E_NO_ACCEPTABLE_TYPES) hrFirst = hr;
    }
    return hrFirst;
}

/// Tries the types that one of the two pins offers, as far as they match the pattern.
HRESULT CBasePin::TryMediaTypes(IPin* pReceivePin, const CMediaType& pattern, IPin* pOffering) {
    HRESULT hrFirst = VFW_E_NO_ACCEPTABLE_TYPES;
    CComPtr<IEnumMediaTypes> pTypes;
    HRESULT hr = pOffering->EnumMediaTypes(pTypes.Put());
    while (SUCCEEDED(hr) && pTypes) {
        AM_MEDIA_TYPE* pNext = nullptr;
        hr = pTypes->Next(1, &pNext, nullptr);
        if (hr != S_OK || !pNext) break;
        const MediaTypePtr pOffered(pNext);
        const CMediaType type(*pOffered);
        if (!type.MatchesPartial(pattern)) continue;
        const HRESULT hrAttempt = AttemptConnection(pReceivePin, type);
        if (SUCCEEDED(hrAttempt)) return hrAttempt;
        if (hrFirst == VFW_E_NO_ACCEPTABLE_TYPES && hrAttempt != VFW_E_TYPE_NOT_ACCEPTED) hrFirst = hrAttempt;
    }
    return hr == E_OUTOFMEMORY ? hr : hrFirst;  // a pin that lists no types may say so with other errors
}

HRESULT CBasePin::AttemptConnection(IPin* pReceivePin, const CMediaType& type) {
    HRESULT hr = PrepareConnection(pReceivePin, type);
    if (FAILED(hr)) return Abandon(hr);
    m_Connected = pReceivePin;
    hr = pReceivePin->ReceiveConnection(this, &type);
    if (FAILED(hr)) return Abandon(hr);
    hr = Guard([&] { return CompleteConnect(pReceivePin); });
    if (SUCCEEDED(hr)) return S_OK;
    pReceivePin->Disconnect();
    return Abandon(hr);
}

HRESULT CBasePin::ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) {
    if (!pConnector || !pmt) return E_POINTER;
    return Guard([&] {
        const CMediaType type(*pmt);
        CAutoLock lock(*m_pLock);
        HRESULT hr = CheckMayConnect();
        if (FAILED(hr)) return hr;
        hr = PrepareConnection(pConnector, type);
        if (FAILED(hr)) return Abandon(hr);
        m_Connected = pConnector;
        hr = Guard([&] { return CompleteConnect(pConnector); });
        return SUCCEEDED(hr) ? S_OK : Abandon(hr);
    });
}

/// The steps before the other pin is asked. A type that is not acceptable, whatever code a derived class has for that,
/// is VFW_E_TYPE_NOT_ACCEPTED.
HRESULT CBasePin::PrepareConnection(IPin* pPin, const CMediaType& type) {
    return Guard([&] {
        HRESULT hr = CheckConnect(pPin);
        if (FAILED(hr)) return hr;
        hr = CheckMediaType(type);
        if (hr == S_OK) return SetMediaType(type);
        return SUCCEEDED(hr) || hr == E_FAIL || hr == E_INVALIDARG ? VFW_E_TYPE_NOT_ACCEPTED : hr;
    });
}

/// Undoes the steps of a connection that failed for the reason `hr`.
HRESULT CBasePin::Abandon(HRESULT hr) {
    Guard([&] { return BreakConnect(); });
    m_Connected = nullptr;
    return hr;
}

HRESULT CBasePin::Disconnect() {
    return Guard([&] {
        CAutoLock lock(*m_pLock);
        if (!m_pFilter->MayChangeConnections()) return VFW_E_NOT_STOPPED;
        if (!m_Connected) return S_FALSE;
        const HRESULT hr = BreakConnect();
        if (FAILED(hr)) return hr;
        m_Connected = nullptr;
        return S_OK;
    });
}

// ---------------- queries

HRESULT CBasePin::ConnectedTo(IPin** pPin) {
    if (!pPin) return E_POINTER;
    CAutoLock lock(*m_pLock);
    *pPin = CComPtr(m_Connected).Detach();
    return *pPin ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT CBasePin::ConnectionMediaType(AM_MEDIA_TYPE* pmt) {
    if (!pmt) return E_POINTER;
    CAutoLock lock(*m_pLock);
    if (IsConnected()) return CopyMediaType(*pmt, m_mt);
    CopyMediaType(*pmt, CMediaType());
    return VFW_E_NOT_CONNECTED;
}

HRESULT CBasePin::QueryPinInfo(PIN_INFO* pInfo) {
    if (!pInfo) return E_POINTER;
    pInfo->pFilter = CComPtr<IBaseFilter>(m_pFilter->GetFilter()).Detach();
    pInfo->dir = m_dir;
    const std::size_t nLength = m_wszName.copy(pInfo->achName, std::size(pInfo->achName) - 1);
    pInfo->achName[nLength] = L'\0';
    return S_OK;
}

HRESULT CBasePin::QueryDirection(PIN_DIRECTION* pPinDir) {
    if (!pPinDir) return E_POINTER;
    *pPinDir = m_dir;
    return S_OK;
}

HRESULT CBasePin::QueryId(LPWSTR* Id) {
    if (!Id) return E_POINTER;
    *Id = CopyText(m_wszName);
    return *Id ? S_OK : E_OUTOFMEMORY;
}

HRESULT CBasePin::QueryAccept(const AM_MEDIA_TYPE* pmt) {
    if (!pmt) return E_POINTER;
    return Guard([&] { return CheckMediaType(CMediaType(*pmt)) == S_OK ? S_OK : S_FALSE; });
}

HRESULT CBasePin::EnumMediaTypes(IEnumMediaTypes** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    return Guard([&] {
        const CComPtr<CBasePin> pThis(this);
        CEnumMediaTypes::Source source{[pThis](int n, AM_MEDIA_TYPE** ppType) {
                                           CMediaType type;
                                           const HRESULT hr = pThis->GetMediaType(n, type);
                                           if (hr != S_OK) return hr == E_OUTOFMEMORY ? hr : S_FALSE;
                                           *ppType = CreateMediaType(type);
                                           return *ppType ? S_OK : E_OUTOFMEMORY;
                                       },
                                       [pThis] { return pThis->m_nTypeVersion.load(); }};
        *ppEnum =
            CComPtr<IEnumMediaTypes>(new CEnumMediaTypes(IID_IEnumMediaTypes, std::move(source))).Detach();
        return S_OK;
    });
}

HRESULT CBasePin::QueryInternalConnections(IPin**, ULONG*) { return E_NOTIMPL; }

// ---------------- streaming

HRESULT CBasePin::NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) { return S_OK; }
HRESULT CBasePin::Notify(IBaseFilter*, Quality) { return E_NOTIMPL; }
HRESULT CBasePin::SetSink(IQualityControl*) { return E_NOTIMPL; }

}  // namespace kest
