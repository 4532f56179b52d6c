#pragma once

#include <memory>
#include <span>
#include <type_traits>
#include <string_view>

#include "platform/api/MediaRecords.h"

namespace kest {

/// Makes `target`, which owns nothing yet, a deep copy. @return S_OK or E_OUTOFMEMORY (target then empty).
HRESULT CopyMediaType(AM_MEDIA_TYPE& target, const AM_MEDIA_TYPE& source);
/// Frees what the record owns and leaves it without a format block.
void FreeMediaType(AM_MEDIA_TYPE& type);
/// A deep copy in task memory, for a receiver that calls `DeleteMediaType`; null when memory is short.
AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE& source);
/// Frees what `CreateMediaType` made; null is allowed.
void DeleteMediaType(AM_MEDIA_TYPE* pType);

/// Owns a record in task memory, as a receiver gets it.
struct MediaTypeDeleter {
    void operator()(AM_MEDIA_TYPE* pType) const { DeleteMediaType(pType); }
};
using MediaTypePtr = std::unique_ptr<AM_MEDIA_TYPE, MediaTypeDeleter>;

/// A copy of a text in task memory, for a receiver that frees it; null when memory is short.
LPWSTR CopyText(std::wstring_view text);

/// An AM_MEDIA_TYPE that owns its format block.
///
/// A new one has GUID_NULL everywhere, fixed-size samples of 1 byte and no format block. Copies are deep and throw
/// std::bad_alloc; `Set` returns a code instead, for use at interfaces. Not for concurrent use.
class CMediaType : public AM_MEDIA_TYPE {
public:
    CMediaType();
    explicit CMediaType(const GUID& major, const GUID& sub = GUID_NULL);
    CMediaType(const AM_MEDIA_TYPE& other);
    CMediaType(const CMediaType& other);
    CMediaType& operator=(const AM_MEDIA_TYPE& other);
    CMediaType& operator=(const CMediaType& other);
    ~CMediaType();

    /// Deep copy. @return S_OK or E_OUTOFMEMORY with nothing changed.
    HRESULT Set(const AM_MEDIA_TYPE& other);

    /// Equal in major type, subtype, format type and format block.
    bool operator==(const AM_MEDIA_TYPE& other) const;
    bool operator==(const CMediaType& other) const {
        return *this == static_cast<const AM_MEDIA_TYPE&>(other);
    }
    /// Major type or format type is GUID_NULL.
    bool IsPartiallySpecified() const { return majortype == GUID_NULL || formattype == GUID_NULL; }
    /// Where the pattern has a major type, a subtype or a format type other than GUID_NULL, this type has the same (the
    /// last with the same format block).
    bool MatchesPartial(const AM_MEDIA_TYPE& pattern) const;

    const GUID& Type() const { return majortype; }
    const GUID& Subtype() const { return subtype; }
    const GUID& FormatType() const { return formattype; }
    void SetSubtype(const GUID& guid) { subtype = guid; }
    void SetFormatType(const GUID& guid) { formattype = guid; }

    /// Samples have nBytes each; 0: their size varies.
    void SetSampleSize(ULONG nBytes);
    /// Sample size in bytes, 0 when it varies.
    ULONG GetSampleSize() const { return bFixedSizeSamples ? lSampleSize : 0; }
    void SetTemporalCompression(bool bCompressed) { bTemporalCompression = bCompressed ? TRUE : FALSE; }

    std::span<const BYTE> Format() const { return {pbFormat, cbFormat}; }
    /// Replaces the format block by a copy of `block`. @return false, with nothing changed, when memory is short.
    bool SetFormat(std::span<const BYTE> block);
    /// Replaces the format block by a copy of a record such as VIDEOINFOHEADER.
    template <class Record>
        requires std::is_trivially_copyable_v<Record>
    bool SetFormat(const Record& record) {
        return SetFormat({reinterpret_cast<const BYTE*>(&record), sizeof record});
    }
};

}  // namespace kest
