#pragma once

#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"
#include "demux/MapEntries.h"
#include "demux/StartCodeScanner.h"

namespace kest {

/// What a source is; the numbers are those of the working modes.
enum EStreamClass : int {
    kClassMpeg4VideoEs = 0,     // MPEG-4 video elementary stream
    kClassTransportMpeg4 = 1,   // transport stream whose map lists MPEG-4 video or MPEG-2 audio first
    kClassProgramMpeg4 = 2,     // MPEG-2 program stream whose map lists MPEG-4 video
    kClassTransportMpeg12 = 3,  // transport stream with MPEG-1 or MPEG-2 video
    kClassProgramMpeg12 = 4,    // MPEG-2 program stream whose map lists MPEG-1 or MPEG-2 video
    kClassMpeg1System = 5,      // MPEG-1 system stream
    kClassNotRecognised = 6,
};

/// Decides from the start of a pull source which working mode the stream needs, and for program streams
/// derives the bit rate from program_mux_rate of the first pack header.
///
/// All searches are byte by byte and no CRC is checked. A header that would run past the bytes at hand counts
/// as absent. Used by one thread; probing may be repeated.
class CStreamTypeProbe {
public:
    /// The source; borrowed for the duration of `Probe`.
    void SetReader(IAsyncReader* pReader);
    /// Classifies the source by its first 262144 bytes. @return one of EStreamClass.
    int Probe();
    /// Classifies a block in memory. @return one of EStreamClass.
    int ClassifyHeader(Bytes data);

    /// Bits per second, from the last program stream that was probed; 0 before.
    std::uint32_t GetBitRate() const { return m_nBitRate; }
    /// Total length of the source in bytes, as its reader reported it to the last `Probe`; never negative.
    std::int64_t GetTotalLength() const { return m_llTotalLength; }
    /// stream_type of the video entry that made the last classified block a program stream; else 0.
    std::uint8_t GetVideoStreamType() const { return m_nVideoStreamType; }
    /// What was missing when the last classification gave kClassNotRecognised: half a sentence for an error
    /// message; else an empty text.
    const char* GetMissing() const { return m_pszMissing; }

private:
    int ReadBitRate(int nClass);
    std::optional<int> ClassifyProgramStream(Bytes data);
    std::optional<int> ClassifyMap(Bytes map);
    std::optional<int> ClassifyMapEntry(const MapEntry& entry);
    std::optional<int> ClassifyTransportStream(Bytes data);
    std::optional<int> ClassifyProgramMap(Bytes packet);
    int Reject(const char* pszMissing);

    std::uint32_t m_nBitRate = 0;         // written by `Probe` for program streams only
    std::int64_t m_llTotalLength = 0;     // as the reader reports it
    IAsyncReader* m_pReader = nullptr;    // the source, borrowed
    CStartCodeScanner m_scanner;          // finds the first pack header
    std::uint8_t m_nVideoStreamType = 0;  // see GetVideoStreamType
    const char* m_pszMissing = "";        // see GetMissing
};

}  // namespace kest
