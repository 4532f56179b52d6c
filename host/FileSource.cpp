#include "host/FileSource.h"

namespace kest {
namespace {

constexpr CLSID kFileSourceClass = {
    0x8D1E5A30, 0x52B7, 0x4C0E, {0x9B, 0x61, 0x3E, 0x0F, 0x7C, 0x24, 0xD9, 0x15}};

}  // namespace

CFileSource::CFileSource(CComPtr<IAsyncReader> pReader)
    : CBaseFilter(nullptr, nullptr, &m_csPins, kFileSourceClass), m_output(this, std::move(pReader)) {}

CFileSource::COutput::COutput(CFileSource* pFilter, CComPtr<IAsyncReader> pReader)
    : CImplements(pFilter, &pFilter->m_csPins, nullptr, L"Output", PINDIR_OUTPUT),
      m_pReader(std::move(pReader)) {}

HRESULT CFileSource::COutput::CheckMediaType(const CMediaType& type) {
    return type.Type() == MEDIATYPE_Stream ? S_OK : S_FALSE;
}

HRESULT CFileSource::COutput::GetMediaType(int n, CMediaType& type) {
    return n == 0 ? type.Set(CMediaType(MEDIATYPE_Stream)) : VFW_S_NO_MORE_ITEMS;
}

HRESULT CFileSource::COutput::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IAsyncReader) return GetInterface(static_cast<IAsyncReader*>(this), ppv);
    return CBasePin::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CFileSource::COutput::RequestAllocator(IMemAllocator* pPreferred, ALLOCATOR_PROPERTIES* pProps,
                                               IMemAllocator** ppActual) {
    return m_pReader->RequestAllocator(pPreferred, pProps, ppActual);
}

HRESULT CFileSource::COutput::Request(IMediaSample* pSample, DWORD_PTR dwUser) {
    return m_pReader->Request(pSample, dwUser);
}

HRESULT CFileSource::COutput::WaitForNext(DWORD dwTimeout, IMediaSample** ppSample, DWORD_PTR* pdwUser) {
    return m_pReader->WaitForNext(dwTimeout, ppSample, pdwUser);
}

HRESULT CFileSource::COutput::SyncReadAligned(IMediaSample* pSample) {
    return m_pReader->SyncReadAligned(pSample);
}

HRESULT CFileSource::COutput::SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) {
    const HRESULT hr = m_pReader->SyncRead(llPosition, lLength, pBuffer);
    if (SUCCEEDED(hr)) m_llPosition = llPosition + lLength;
    return hr;
}

HRESULT CFileSource::COutput::Length(LONGLONG* pTotal, LONGLONG* pAvailable) {
    return m_pReader->Length(pTotal, pAvailable);
}

}  // namespace kest
