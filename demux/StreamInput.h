#pragma once

#include <cstdint>
#include <memory>

#include "demux/BigEndian.h"
#include "demux/ByteSource.h"

namespace kest {

/// The bytes of a stream as a parser takes them: in order, as many at a time as it asks for, in place. They
/// are fetched from a source into a linear buffer, which is neither refilled nor moved before it has too few.
///
/// Used by one thread.
class CStreamInput {
public:
    /// Most bytes that can be asked for at a time: a PES packet of any length, with its stream_id.
    static constexpr std::uint32_t kMaxPeek = 65552;

    CStreamInput();

    /// The source to fetch from; borrowed. What is unread is dropped.
    /// @param bPositioned  the source's positions have a meaning.
    void SetSource(CByteSource* pSource, bool bPositioned);
    /// Drops what is unread and goes on at this offset of the source.
    void SeekTo(std::int64_t llPosition);
    /// Drops what is unread, padding included, and goes on behind it.
    void Drop();

    /// The next n bytes, 1 to kMaxPeek, without taking them; valid until the next call of another operation
    /// but `Skip`. None when they cannot be had: then nothing changes but that more may have been fetched.
    Bytes Peek(std::uint32_t n) {
        if (m_nEnd - m_nBegin < n && !Fill(n)) return {};
        return {m_pStorage.get() + m_nBegin, n};
    }
    /// The next n bytes and those behind them that have been fetched already; otherwise as `Peek`.
    Bytes PeekFetched(std::uint32_t n) {
        return Peek(n).empty() ? Bytes{} : Bytes{m_pStorage.get() + m_nBegin, m_nEnd - m_nBegin};
    }
    /// Takes n bytes; no more than were peeked at.
    void Skip(std::uint32_t n) { m_nBegin += n; }
    /// Takes the next n bytes; otherwise as `Peek`.
    Bytes Read(std::uint32_t n) {
        const Bytes bytes = Peek(n);
        m_nBegin += static_cast<std::uint32_t>(bytes.size());
        return bytes;
    }
    /// Takes a structure that begins with its length, 16 bits. @return whether all of it could be had.
    bool SkipSection();
    /// Lets parsers come to the end of the source: what is left is fetched, whatever its length, and behind it
    /// everything can be peeked at as if the stream went on with stuffing bytes, until the next `Drop` or `SeekTo`.
    /// @return false, with nothing padded: the source has more than the input holds.
    bool Pad();
    /// Those of the bytes, which were peeked at last, that are the source's own.
    Bytes TrimPadding(Bytes bytes) const;
    /// The next byte is padding: the source has been parsed to its end.
    bool IsAtPadding() const { return m_bPadded && m_nBegin >= m_nOwnEnd; }
    /// None of the source has been passed over: not by `SeekTo`, `Skip` or `Drop`.
    bool IsAtBeginning() const { return m_llEnd - (m_nEnd - m_nBegin) == 0; }
    /// Offset in the source of the byte nBefore bytes before the next one; 0 in a source without positions.
    std::int64_t GetPosition(std::uint32_t nBefore) const {
        return m_bPositioned ? m_llEnd - (m_nEnd - m_nBegin) - nBefore : 0;  // also of padding
    }

private:
    static constexpr std::uint32_t kCapacity = 4 * kMaxPeek;
    static constexpr std::uint32_t kLeastRoom = kMaxPeek;  // of a fetch

    bool Fill(std::uint32_t n);
    void MakeRoom();
    void FillWithPadding();

    std::unique_ptr<std::uint8_t[]> m_pStorage;  // kCapacity bytes
    std::uint32_t m_nBegin = 0;                  // index of the first unread byte
    std::uint32_t m_nEnd = 0;                    // index behind the last one
    std::int64_t m_llEnd = 0;                    // offset in the source of the byte to be fetched next
    CByteSource* m_pSource = nullptr;            // borrowed
    bool m_bPositioned = false;                  // see SetSource
    bool m_bPadded = false;                      // see Pad
    std::uint32_t m_nOwnEnd = 0;                 // index behind the source's last byte when padded
    std::int64_t m_llOwnEnd = 0;                 // its offset in the source, the same
};

}  // namespace kest
