#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "demux/PsStretch.h"
#include "platform/api/AsyncReader.h"

namespace kest {

/// The time that a program stream covers, in ticks of 90 kHz. Time 0 is the earliest of the first timestamps of
/// video and audio.
///
/// Timestamps have 33 bits: a time is known up to a multiple of 26.5 hours, and is taken to be within the 26.5 hours
/// that begin 10 seconds before time 0. A longer stream, or one whose timestamps jump, has only the times of its
/// beginning.
struct TimeExtent {
    std::int64_t llFirst = 0;     // the timestamp of time 0
    std::int64_t llDuration = 0;  // time of the last timestamp of the source

    /// The time of a timestamp.
    std::int64_t TimeOf(std::int64_t llTimestamp) const;
    bool operator==(const TimeExtent&) const = default;
};

/// Where to begin in order to see a picture.
struct AccessPoint {
    std::int64_t llPosition;   // file offset of a PES packet with timestamps; 0: the beginning
    std::int64_t llTimestamp;  // its PTS; at the beginning the timestamp of time 0

    bool operator==(const AccessPoint&) const = default;
};

/// Finds times in a program stream that can be read at any position: how long it lasts, and where decoding can begin in
/// order to show the picture of a time. It reads little of the source, some 20 times 64 KiB for the place and then back
/// to the access point, in reads of up to 4 MiB.
///
/// An access point is a picture that decoding can begin with, whose PES packet carries its PTS: an I picture of MPEG-1
/// or MPEG-2 behind a sequence header or group_of_pictures_header, an I-VOP of MPEG-4; without such headers near it,
/// any I picture. A stream without video has one in each audio packet with a PTS.
///
/// A stream that jumps in time, as recordings that were put together do, is searched as far as its times go on from the
/// beginning, when the jump shows at a few places in between. Whatever the timestamps, every search ends. Used by one
/// thread at a time.
class CTimeSearch {
public:
    /// @param pReader   the source; borrowed for as long as it is searched.
    /// @param llLength  of the source, bytes.
    /// @param nVideoId  stream id of the video; 0: the first in the source.
    CTimeSearch(IAsyncReader* pReader, std::int64_t llLength, EVideoCoding coding, std::uint8_t nVideoId)
        : m_pReader(pReader),
          m_llLength(llLength),
          m_coding(coding),
          m_nVideoId(nVideoId),
          m_stretch(nVideoId) {}

    /// Reads beginning and end of the source. @return nothing when it cannot be read or has no timestamps there.
    std::optional<TimeExtent> Measure();
    /// The last access point whose time is not after `llTime`; without one the beginning of the source.
    /// @param llTime  ticks; a time outside the extent is that of its nearer end.
    /// @return nothing when the source cannot be read, or has not been measured.
    std::optional<AccessPoint> FindAccessPoint(std::int64_t llTime);
    /// It was made with the same values, and has measured the source.
    bool HasMeasured(std::int64_t llLength, EVideoCoding coding, std::uint8_t nVideoId) const {
        return m_extent && llLength == m_llLength && coding == m_coding && nVideoId == m_nVideoId;
    }
    /// What `Measure` has found.
    const std::optional<TimeExtent>& GetExtent() const { return m_extent; }

private:
    using Packets = std::vector<CPsStretch::Packet>;

    bool Load(std::int64_t llBegin, std::int64_t llEnd);
    bool FindFirst();
    bool FindLast();
    std::optional<bool> HasJump();
    bool FindEndOfFirstPart();
    bool IsPlausible(std::int64_t llTime, std::int64_t llPosition) const;
    const Packets& KeyPackets() const { return m_bVideo ? m_stretch.GetVideo() : m_stretch.GetAudio(); }
    std::optional<std::int64_t> FindPacket(std::int64_t llBegin, std::int64_t llEnd);
    std::optional<std::int64_t> FindUpperBound(std::int64_t llTime);
    std::vector<TimedPicture> FindPictures() const;

    IAsyncReader* const m_pReader;      // the source
    const std::int64_t m_llLength;      // of it
    std::int64_t m_llEnd = 0;           // what is behind is not searched: the source's end, or a jump in time
    const EVideoCoding m_coding;        // see the constructor
    const std::uint8_t m_nVideoId;      // see the constructor
    CPsStretch m_stretch;               // what was read last
    std::vector<std::uint8_t> m_bytes;  // the same, as bytes
    std::optional<TimeExtent> m_extent;       // see GetExtent
    bool m_bVideo = false, m_bAudio = false;  // the source has such packets with timestamps
    PesTimestamps m_found{};                  // of the packet that FindPacket found
};

}  // namespace kest
