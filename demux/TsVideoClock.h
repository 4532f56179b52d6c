#pragma once

#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"
#include "demux/BitReader.h"
#include "demux/PesHeader.h"

namespace kest {

/// Where the timestamps of a transport stream's frames come from.
enum class ETsTiming {
    Pes,         // the PES packets; interpolated where one has several pictures or audio frames
    Elementary,  // the video's own headers, and the count of audio frames from the first of these times on
};

/// Knows the time of each picture of a video elementary stream, MPEG-4 or MPEG-2, from its own headers. All
/// times are counts of a 27 MHz clock, and wrap in 64 bits.
///
/// A header that is damaged keeps what was read of it. The seconds of an MPEG-4 stream, the time of an MPEG-2
/// stream's group of pictures and the days that have passed belong to the object and go on in the next run.
class CTsVideoClock {
public:
    /// A run begins.
    void Begin(ETsTiming timing);
    /// Reads the headers of a frame and moves to its time; a frame whose headers cannot be read comes one
    /// picture after the one before it.
    /// @return its timestamps, 90 kHz; none while the stream has not said how long a picture lasts.
    std::optional<PesTimestamps> Advance(Bytes frame, bool bMpeg4);
    /// The time that the audio begins with: that of the first frame with a video object layer or a sequence
    /// header; 0 with the timing of PES packets.
    std::optional<std::uint64_t> GetAudioBase() const { return m_audioBase; }

private:
    static constexpr std::uint64_t kNone = ~std::uint64_t{0};

    bool AdvanceMpeg4(Bytes frame);
    bool ParseMpeg4Headers(Bytes& rest, std::uint8_t nCode);
    bool ParseVol(CBitReader& reader);
    bool ParseGov(CBitReader& reader);
    bool ParseVop(Bytes vop);
    bool AdvanceMpeg2(Bytes frame);
    bool ParseSequence(Bytes& rest);
    bool ParseGroup(Bytes& rest);
    bool ParsePicture(Bytes picture);

    // Of the object, not of a run.
    std::uint64_t m_nSeconds = 0;    // whole seconds of the MPEG-4 stream's clock
    std::uint64_t m_nDayOffset = 0;  // ticks of the days that have passed
    std::uint64_t m_nGroupTime = 0;  // of the MPEG-2 group of pictures

    std::uint64_t m_nDecode = kNone;           // decoding time of the last frame
    std::uint64_t m_nPresentation = 0;         // and its presentation time
    std::optional<std::uint64_t> m_audioBase;  // see GetAudioBase
    std::uint32_t m_nResolution = 60;          // vop_time_increment_resolution
    unsigned m_nIncrementBits = 6;             // width of vop_time_increment
    std::uint64_t m_nFrameTicks = 0;           // how long an MPEG-2 picture lasts; 0: not known yet
    bool m_b2997 = false;                      // the MPEG-2 stream has 30000 pictures in 1001 seconds
};

}  // namespace kest
