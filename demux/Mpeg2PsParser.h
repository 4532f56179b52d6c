#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "demux/FrameOutput.h"
#include "demux/PesHeader.h"
#include "demux/StreamInput.h"
#include "demux/StreamMaps.h"
#include "demux/StreamParser.h"

namespace kest {

/// Parses an MPEG-2 program stream: walks its system layer (ISO/IEC 13818-1 2.5) and assembles the frames of
/// the video and of the audio stream.
///
/// A frame is the payload from one PES packet with a PTS up to the next such packet, and is queued when that
/// packet arrives. Broken input is skipped: a structure that does not fit is abandoned, and parsing goes on
/// at the next start code. At least 1024 bytes are wanted to look for one.
///
/// With `bDrain`, nothing of a stream that is taken is lost: payload in front of the first timestamp of the input is
/// queued without times; a structure is parsed when all of it is there, or when the input has ended. After a jump
/// nobody can use what comes before a timestamp, and it is dropped. With any of the extensions, PES packets of other
/// streams are skipped by their length, so that nothing in them is taken for a start code.
class CMpeg2PsParser final : public CStreamParser {
public:
    /// All of these are borrowed.
    CMpeg2PsParser(CStreamInput& input, CFrameOutput& video, CFrameOutput& audio)
        : m_input(input), m_video(video), m_audio(audio) {}

    void Begin() override;
    EParsed ParseUnit() override;
    void Drain() override;
    void Reset() override;

    /// An MPEG_program_end_code was met since the beginning or the last reset. Any thread.
    bool HasMetEndCode() const { return m_bEndCode; }

private:
    /// "No timestamp": a 64-bit field whose low word is all ones and whose high word is 0.
    static constexpr std::int64_t kNoTimestamp = 0xFFFFFFFF;
    static constexpr std::uint32_t kSearchSize = 1024;  // bytes that are searched at a time

    /// One elementary stream and the frame of it that is being assembled.
    struct ElementaryStream {
        explicit ElementaryStream(CFrameOutput& frameOutput) : output(frameOutput) {}

        FRAME_INFO MakeInfo() const;

        CFrameOutput& output;
        std::int64_t llPrevPts = kNoTimestamp;  // of the frame
        std::int64_t llPrevDts = kNoTimestamp;
        std::int64_t llStartPos = 0;         // offset in the source of the packet that began it
        bool bDiscontinuity = false;         // frames were lost before the next one that is queued
        std::int32_t nChosen = kAllStreams;  // stream_id that is taken, or as in the settings
    };
    enum class ESync { NoData, Searching, StartCode, PatPacket };

    ESync Resync();
    void CountSkipped(Bytes skipped, bool bNewSearch);
    bool HasStructure();
    void ParseStructure(std::uint8_t nStreamId);
    void ParseIfTaken(ElementaryStream& stream, std::uint8_t nStreamId);
    void SkipPacket();
    void ParsePackHeader();
    void ParsePsm();
    void ParsePes(ElementaryStream& stream);
    void BeginFrame(ElementaryStream& stream, const PesTimestamps& timestamps, std::int64_t llStart);
    void Append(ElementaryStream& stream, Bytes payload, std::int64_t llStart);
    bool HasTimes(const ElementaryStream& stream) const;
    bool EndFrame(ElementaryStream& stream);
    /// Times of a frame that has none.
    std::int64_t NoTime() const { return m_settings.bDrain ? kNoFrameTime : kNoTimestamp; }

    CStreamInput& m_input;
    ElementaryStream m_video;
    ElementaryStream m_audio;
    CStreamMaps m_maps;
    std::array<std::uint8_t, 2> m_abTail = {0xFF, 0xFF};  // the last bytes searched, while a search goes on
    bool m_bSearching = false;                            // the last search found no start code, and goes on
    bool m_bPrefixTaken = false;   // a start code prefix, behind which not all is there yet
    bool m_bKeepsUntimed = false;  // payload without timestamps is queued: none of it has been passed over
    std::atomic<bool> m_bEndCode{false};  // see HasMetEndCode
};

}  // namespace kest
