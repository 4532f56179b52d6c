#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "demux/BigEndian.h"
#include "demux/PesHeader.h"
#include "demux/ProgramStreamWalk.h"

namespace kest {

/// How the pictures of a video stream are coded: which start codes they begin with.
enum class EVideoCoding { Mpeg12, Mpeg4 };

/// A picture that has timestamps.
struct TimedPicture {
    std::int64_t llPosition;   // file offset of the PES packet that carries them
    std::int64_t llTimestamp;  // PTS
    bool bIntra;               // decoding may begin here: an I picture, or an I-VOP
    /// A sequence header or group_of_pictures_header stands between the packet's header and it; of a VOP: always.
    bool bHeader;

    bool operator==(const TimedPicture&) const = default;
};

/// The PES packets of one video stream and of all audio streams in a stretch of a program stream, which may begin and
/// end anywhere. What counts as a packet is as in WalkProgramStream, so that a start code in a payload does not.
class CPsStretch {
public:
    struct Packet {
        std::int64_t llPosition;                  // file offset of its start code
        std::size_t nPayload;                     // index of its payload in that of all video packets
        std::optional<PesTimestamps> timestamps;  // none: it carries none
    };

    /// @param nVideoId  stream id of the video, 0xE0 to 0xEF; 0: that of the first video packet.
    explicit CPsStretch(std::uint8_t nVideoId = 0) : m_nVideoId(nVideoId) {}

    /// Replaces the packets by those of other bytes. @param llPosition  file offset of the first byte.
    void Parse(Bytes bytes, std::int64_t llPosition);

    /// The stream id of the video; 0: not known yet.
    std::uint8_t GetVideoId() const { return m_nVideoId; }
    const std::vector<Packet>& GetVideo() const { return m_video; }
    /// Packets of all audio streams; they have no payload here.
    const std::vector<Packet>& GetAudio() const { return m_audio; }
    /// The pictures that have timestamps, in the order of the stream: the first picture whose start code begins in a
    /// packet with timestamps (ISO/IEC 13818-1 2.4.3.7) or, since muxers count a sequence header as part of the picture,
    /// behind it and before the next such packet. One whose header is not whole here is left out.
    std::vector<TimedPicture> FindPictures(EVideoCoding coding) const;

private:
    void TakePacket(const SystemStructure& structure, std::int64_t llPosition);

    std::uint8_t m_nVideoId;              // see GetVideoId
    std::vector<Packet> m_video;          // see GetVideo
    std::vector<Packet> m_audio;          // see GetAudio
    std::vector<std::uint8_t> m_payload;  // of the video packets, one behind the other
};

}  // namespace kest
