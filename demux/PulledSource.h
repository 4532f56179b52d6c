#pragma once

#include <atomic>
#include <cstdint>

#include "demux/ByteSource.h"
#include "platform/api/AsyncReader.h"
#include "plumbing/Count.h"

namespace kest {

/// A source that the demuxer reads itself, in blocks of 16384 bytes.
///
/// As long as an end position says that they are there, several blocks are read at once, and one by one when
/// that fails. The last, partial block of a source is read only as far as an end position says, and only when
/// it has all that the parser asked for. `Fetch` and `Read` belong to the demuxer's thread, the rest may come from any.
class CPulledSource final : public CByteSource {
public:
    /// The reader, or none. Borrowed; it must outlive the run that reads it.
    void SetReader(IAsyncReader* pReader) { m_pReader = pReader; }
    bool HasReader() const { return m_pReader != nullptr; }
    /// The byte after the last one of the source; 0 or below: not known.
    void SetEnd(std::int64_t llEnd) { m_llEnd = llEnd; }
    std::int64_t GetEnd() const { return m_llEnd; }

    /// While it is closed, nothing is read and every fetch brings nothing.
    void Open() { m_bOpen = true; }
    void Close() { m_bOpen = false; }
    /// Makes the reader give up a read that it is in, until `EndFlush`. Only when it has one.
    void BeginFlush() { m_pReader.load()->BeginFlush(); }
    void EndFlush() { m_pReader.load()->EndFlush(); }

    std::uint32_t Fetch(const FetchRequest& request) override;
    /// Reads all bytes of `room` from a file offset on; only when it has a reader. @return whether it could.
    bool Read(std::int64_t llPosition, std::span<std::uint8_t> room);
    /// Bytes that it has read so far. Any thread.
    std::uint64_t CountBytesRead() const { return m_llBytesRead; }

private:
    std::atomic<IAsyncReader*> m_pReader{nullptr};  // borrowed; none: the demuxer does not read itself
    std::atomic<std::int64_t> m_llEnd{0};           // see SetEnd
    std::atomic<bool> m_bOpen{false};               // see Open
    CCount m_llBytesRead;                           // see CountBytesRead
};

}  // namespace kest
