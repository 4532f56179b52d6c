#include "demux/StreamInput.h"

#include <algorithm>

namespace kest {

CStreamInput::CStreamInput() : m_pStorage(std::make_unique_for_overwrite<std::uint8_t[]>(kCapacity)) {}

void CStreamInput::SetSource(CByteSource* pSource, bool bPositioned) {
    m_pSource = pSource;
    m_bPositioned = bPositioned;
    SeekTo(0);
}

void CStreamInput::SeekTo(std::int64_t llPosition) {
    Drop();
    m_llEnd = llPosition;
}

void CStreamInput::Drop() {
    if (m_bPadded) m_llEnd = m_llOwnEnd;
    m_bPadded = false;
    m_nBegin = m_nEnd = 0;
}

bool CStreamInput::SkipSection() {
    const Bytes length = Read(2);
    if (length.empty()) return false;
    const unsigned nLength = Read16(length, 0);
    return nLength == 0 || !Read(nLength).empty();
}

/// Fetches until n bytes are unread. @return whether they are.
bool CStreamInput::Fill(std::uint32_t n) {
    if (!m_pSource || n > kMaxPeek) return false;
    while (m_nEnd - m_nBegin < n) {
        MakeRoom();
        if (m_bPadded) {
            FillWithPadding();
            continue;
        }
        const std::uint32_t nFetched =
            m_pSource->Fetch({.room = {m_pStorage.get() + m_nEnd, kCapacity - m_nEnd},
                              .llPosition = m_llEnd,
                              .nMissing = n - (m_nEnd - m_nBegin),
                              .nWanted = n});
        if (nFetched == 0) return false;
        m_nEnd += nFetched;
        m_llEnd += nFetched;
    }
    return true;
}

void CStreamInput::FillWithPadding() {
    constexpr std::uint8_t kStuffingByte = 0xFF;
    std::fill_n(m_pStorage.get() + m_nEnd, kCapacity - m_nEnd, kStuffingByte);
    m_llEnd += kCapacity - m_nEnd;
    m_nEnd = kCapacity;
}

bool CStreamInput::Pad() {
    if (m_bPadded) return true;
    for (std::uint32_t nFetched = m_pSource ? 1 : 0; nFetched > 0;) {
        MakeRoom();
        if (kCapacity - m_nEnd < kLeastRoom) return false;
        nFetched = m_pSource->Fetch({.room = {m_pStorage.get() + m_nEnd, kCapacity - m_nEnd},
                                     .llPosition = m_llEnd,
                                     .nMissing = 1,
                                     .nWanted = 1});
        m_nEnd += nFetched;
        m_llEnd += nFetched;
    }
    m_bPadded = true;
    m_nOwnEnd = m_nEnd;
    m_llOwnEnd = m_llEnd;
    return true;
}

Bytes CStreamInput::TrimPadding(Bytes bytes) const {
    if (!m_bPadded) return bytes;
    const std::uint8_t* pOwnEnd = m_pStorage.get() + m_nOwnEnd;
    const auto nOwn = std::max<std::ptrdiff_t>(pOwnEnd - bytes.data(), 0);
    return bytes.first(std::min(bytes.size(), static_cast<std::size_t>(nOwn)));
}

/// Moves what is unread to the front when there is little room behind it.
void CStreamInput::MakeRoom() {
    if (m_nBegin < m_nEnd && kCapacity - m_nEnd >= kLeastRoom) return;
    std::copy(m_pStorage.get() + m_nBegin, m_pStorage.get() + m_nEnd, m_pStorage.get());
    m_nEnd -= m_nBegin;
    m_nOwnEnd -= std::min(m_nOwnEnd, m_nBegin);
    m_nBegin = 0;
}

}  // namespace kest
