#include "graph/MediaType.h"

#include <algorithm>
#include <new>
#include <utility>

namespace kest {
namespace {

/// A copy of a block in task memory; null for an empty block, and when memory is short.
BYTE* CopyBlock(std::span<const BYTE> block) {
    if (block.empty()) return nullptr;
    auto* pCopy = static_cast<BYTE*>(CoTaskMemAlloc(block.size()));
    if (pCopy) std::copy(block.begin(), block.end(), pCopy);
    return pCopy;
}

std::span<const BYTE> FormatOf(const AM_MEDIA_TYPE& type) {
    return {type.pbFormat, type.pbFormat ? type.cbFormat : 0};
}

bool SameFormat(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b) {
    return a.formattype == b.formattype && std::ranges::equal(FormatOf(a), FormatOf(b));
}

AM_MEDIA_TYPE EmptyType() {
    AM_MEDIA_TYPE type{};
    type.bFixedSizeSamples = TRUE;
    type.lSampleSize = 1;
    return type;
}

}  // namespace

HRESULT CopyMediaType(AM_MEDIA_TYPE& target, const AM_MEDIA_TYPE& source) {
    const auto format = FormatOf(source);
    BYTE* pbFormat = CopyBlock(format);
    if (!pbFormat && !format.empty()) {
        target = EmptyType();
        return E_OUTOFMEMORY;
    }
    target = source;
    target.pbFormat = pbFormat;
    target.cbFormat = static_cast<ULONG>(format.size());
    if (target.pUnk) target.pUnk->AddRef();
    return S_OK;
}

void FreeMediaType(AM_MEDIA_TYPE& type) {
    CoTaskMemFree(std::exchange(type.pbFormat, nullptr));
    type.cbFormat = 0;
    if (IUnknown* pUnk = std::exchange(type.pUnk, nullptr)) pUnk->Release();
}

AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE& source) {
    auto* pType = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (!pType) return nullptr;
    if (SUCCEEDED(CopyMediaType(*new (pType) AM_MEDIA_TYPE, source))) return pType;
    CoTaskMemFree(pType);
    return nullptr;
}

void DeleteMediaType(AM_MEDIA_TYPE* pType) {
    if (!pType) return;
    FreeMediaType(*pType);
    CoTaskMemFree(pType);
}

LPWSTR CopyText(std::wstring_view text) {
    auto* pszCopy = static_cast<WCHAR*>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
    if (pszCopy) *std::copy(text.begin(), text.end(), pszCopy) = L'\0';
    return pszCopy;
}

CMediaType::CMediaType() : AM_MEDIA_TYPE(EmptyType()) {}

CMediaType::CMediaType(const GUID& major, const GUID& sub) : CMediaType() {
    majortype = major;
    subtype = sub;
}

CMediaType::CMediaType(const AM_MEDIA_TYPE& other) : CMediaType() { *this = other; }
CMediaType::CMediaType(const CMediaType& other) : CMediaType(static_cast<const AM_MEDIA_TYPE&>(other)) {}

CMediaType& CMediaType::operator=(const AM_MEDIA_TYPE& other) {
    if (FAILED(Set(other))) throw std::bad_alloc();
    return *this;
}

CMediaType& CMediaType::operator=(const CMediaType& other) {
    return *this = static_cast<const AM_MEDIA_TYPE&>(other);
}

CMediaType::~CMediaType() { FreeMediaType(*this); }

HRESULT CMediaType::Set(const AM_MEDIA_TYPE& other) {
    AM_MEDIA_TYPE copy;
    if (const HRESULT hr = CopyMediaType(copy, other); FAILED(hr)) return hr;
    FreeMediaType(*this);
    static_cast<AM_MEDIA_TYPE&>(*this) = copy;
    return S_OK;
}

bool CMediaType::operator==(const AM_MEDIA_TYPE& other) const {
    return majortype == other.majortype && subtype == other.subtype && SameFormat(*this, other);
}

bool CMediaType::MatchesPartial(const AM_MEDIA_TYPE& pattern) const {
    return (pattern.majortype == GUID_NULL || majortype == pattern.majortype) &&
           (pattern.subtype == GUID_NULL || subtype == pattern.subtype) &&
           (pattern.formattype == GUID_NULL || SameFormat(*this, pattern));
}

void CMediaType::SetSampleSize(ULONG nBytes) {
    bFixedSizeSamples = nBytes != 0 ? TRUE : FALSE;
    if (nBytes != 0) lSampleSize = nBytes;
}

bool CMediaType::SetFormat(std::span<const BYTE> block) {
    BYTE* pCopy = CopyBlock(block);
    if (!pCopy && !block.empty()) return false;
    CoTaskMemFree(pbFormat);
    pbFormat = pCopy;
    cbFormat = static_cast<ULONG>(block.size());
    return true;
}

}  // namespace kest
