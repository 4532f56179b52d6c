#pragma once

#include <cstdint>
#include <optional>

#include "demux/FrameOutput.h"
#include "demux/Mpeg1AudioFramer.h"
#include "demux/Mpeg1SequenceHeader.h"
#include "demux/MpegAudioCutter.h"
#include "demux/PesHeader.h"
#include "demux/StreamInput.h"
#include "demux/StreamParser.h"
#include "plumbing/FrameAccumulator.h"

namespace kest {

/// Parses an MPEG-1 system stream (ISO/IEC 11172-1): walks its packs and packets and assembles the frames of
/// its video; the payloads of its audio go to a CMpeg1AudioFramer.
///
/// All video stream ids are taken for one stream, and all audio stream ids. A frame of the video is the
/// payload from one packet with timestamps up to the next such packet, and is queued when that packet's header
/// has been read. Timestamps are the low 32 bits of the coded ones, as a signed number. Broken input is
/// skipped: a structure ends where its length says, and parsing goes on at the next start code.
///
/// The settings choose one stream id of each kind, the first of a kind being the one that comes first; and the audio
/// with any header, by a CMpegAudioCutter. With `bDrain` all payload is queued: what comes before the first timestamp,
/// and what has no room in its frame, as frames without times; and the unfinished frames at the end of the input.
class CMpeg1SystemParser final : public CStreamParser {
public:
    /// All of these are borrowed.
    CMpeg1SystemParser(CStreamInput& input, CFrameOutput& video, CFrameOutput& audio)
        : m_input(input), m_video(video), m_audio(audio), m_audioFramer(audio), m_audioCutter(audio) {}

    void Begin() override;
    EParsed ParseUnit() override;
    void Drain() override;
    /// What is being assembled is lost.
    void End() override;
    /// Drops what the stream said about itself too.
    void Reset() override;

    /// The sequence header of the video.
    const CSequenceHeaderCapture& GetSequenceHeader() const { return m_sequenceHeader; }

private:
    struct PacketHeader {
        std::int64_t nSize = 0;                   // bytes behind the packet's length
        std::optional<PesTimestamps> timestamps;  // none: the packet has none
    };

    EParsed FindStartCode();
    void CountSkipped(Bytes passed);
    Bytes Read(std::uint32_t n);
    bool SkipSection();
    bool IsTaken(bool bVideo, std::uint8_t nStreamId);
    bool ParseStructure(std::uint8_t nStreamId);
    bool SkipPacket(std::uint8_t nStreamId);
    bool ParsePacket(bool bVideo);
    std::optional<PacketHeader> ReadPacketHeader();
    bool OnVideoPayload(std::uint32_t n, const PesTimestamps* pEnded);
    void EndVideoFrame(const PesTimestamps& timestamps);
    bool OnAudioPayload(std::uint32_t n, const PesTimestamps* pEnded);
    void EndAudioPayload(std::int64_t llPts);

    CStreamInput& m_input;
    CFrameOutput& m_video;
    CFrameOutput& m_audio;
    CMpeg1AudioFramer m_audioFramer;
    CMpegAudioCutter m_audioCutter;                   // in its place with bAnyAudioHeader
    CFrameAccumulator m_audioPackets{65600};          // the payload since the audio's last timestamp
    PesTimestamps m_videoTimestamps = kNoTimestamps;  // of the last video packet that had any
    PesTimestamps m_audioTimestamps = kNoTimestamps;  // the same of the audio
    bool m_bVideoContinues = false;                   // the frame goes on with one that has been queued
    bool m_bAudioContinues = false;                   // the same of the audio's payload
    std::uint8_t m_nVideoId = 0;                      // the stream id that came first; 0: none has
    std::uint8_t m_nAudioId = 0;                      // the same of the audio
    CSequenceHeaderCapture m_sequenceHeader;          // see GetSequenceHeader
    std::uint32_t m_nSkipped = 0;                     // bytes passed in the present search for a start code
    bool m_bSearching = false;                        // that have been counted as skipped
};

}  // namespace kest
