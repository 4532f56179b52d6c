// What a source says of itself in its own headers: its container, its elementary streams and their formats. Records
// alone; CSourceAnalyzer fills them.
#pragma once

#include <cstdint>
#include <vector>

namespace kest {

/// A ratio in lowest terms.
struct Fraction {
    std::uint32_t nNumerator = 0;  // 0: the ratio is not known
    std::uint32_t nDenominator = 1;

    bool IsKnown() const { return nNumerator != 0; }
    friend bool operator==(const Fraction&, const Fraction&) = default;
};

/// How the elementary streams are put together.
enum class EContainer {
    None,              // not recognised
    ProgramStream,     // MPEG-2, with or without a program stream map
    SystemStream,      // MPEG-1
    TransportStream,   // packets of 188 bytes with PAT and PMT
    ElementaryStream,  // MPEG-4 video alone
};

enum class EStreamKind { Video, Audio, Other };

enum class ECodec {
    Unknown,
    Mpeg1Video,
    Mpeg2Video,
    Mpeg4Video,
    H264Video,
    HevcVideo,
    MpegAudio,
    AacAudio,
    Ac3Audio
};

/// What the first headers of a video stream say.
struct VideoFormat {
    std::uint32_t nWidth = 0;    // pixels; 0: no headers were found
    std::uint32_t nHeight = 0;   // pixels
    Fraction sampleAspect;       // width to height of a pixel
    Fraction displayAspect;      // width to height of the picture
    Fraction frameRate;          // frames a second; of MPEG-4 known when the rate is fixed
    std::uint32_t nBitRate = 0;  // bit/s, the highest one of a variable rate; 0: not said
    bool bVariableRate = false;  // MPEG-1/2: the first picture does not say when to decode it (vbv_delay)
    std::uint32_t nVbvBufferSize = 0;  // bytes; 0: not said
    std::uint8_t nProfileLevel = 0;    // profile_and_level_indication; 0: none
    bool bProgressive = true;          // there are no interlaced frames
    bool bLowDelay = false;            // there are no B pictures
    /// MPEG-1/2: the sequence header with its matrices and the extensions that follow it directly; MPEG-4: all headers
    /// up to the video object layer's.
    std::vector<std::uint8_t> abHeader;

    bool IsKnown() const { return nWidth != 0; }
    friend bool operator==(const VideoFormat&, const VideoFormat&) = default;
};

/// What the first header of an audio stream says.
struct AudioFormat {
    std::uint32_t nSamplingRate = 0;  // Hz; 0: no header was found
    std::uint32_t nChannels = 0;      // of AC-3 without the low-frequency channel
    bool bLowFrequency = false;       // AC-3: there is a low-frequency channel beside them
    std::uint32_t nBitRate = 0;       // bit/s; 0: free format
    std::uint32_t nFrameSamples = 0;  // samples of a channel in an audio frame
    // MPEG audio alone:
    std::uint8_t nLayer = 0;          // 1 to 3
    std::uint8_t nVersion = 0;        // 1: MPEG-1; 2: MPEG-2, low sampling rates; 3: "2.5", lower ones
    std::uint8_t nMode = 0;           // 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel
    std::uint8_t nModeExtension = 0;  // of joint stereo
    std::uint8_t nEmphasis = 0;       // 0 none, 1 50/15 us, 3 CCITT J.17
    bool bProtected = false;          // frames have a CRC
    bool bPrivate = false;
    bool bCopyright = false;
    bool bOriginal = false;

    bool IsKnown() const { return nSamplingRate != 0; }
    friend bool operator==(const AudioFormat&, const AudioFormat&) = default;
};

/// One elementary stream.
struct StreamDescription {
    std::uint16_t nId = 0;  // stream_id of a program or system stream, PID of a transport stream
    /// private_stream_1: the byte that its payload begins with, where that names one of several streams; else 0.
    std::uint8_t nSubstreamId = 0;
    std::uint8_t nStreamType = 0;  // stream_type of the map; 0: there is none, or it does not list the stream
    EStreamKind kind = EStreamKind::Other;
    ECodec codec = ECodec::Unknown;  // by the stream's own headers; without any by the map
    VideoFormat video{};             // of video
    AudioFormat audio{};             // of audio
    bool bSeen = false;              // a packet of it was found; else the map alone lists it
    std::int64_t llFirstPts = -1;    // 90 kHz, 33 bits; the earliest of the first ones; -1: none was found
    std::int64_t llFirstDts = -1;    // of the first packet with timestamps; its PTS where it has no DTS
    std::int64_t llLastPts = -1;     // the latest PTS near the end of the source

    /// How long one frame lasts, 90 kHz, rounded down; 0: not known.
    std::int64_t GetFrameTicks() const;
    /// From the first PTS to the end of the frame with the last one, 90 kHz; -1: not known. A wrap of the counter in
    /// between is taken into account; a difference of more than half its range is not a duration.
    std::int64_t GetDuration() const;

    friend bool operator==(const StreamDescription&, const StreamDescription&) = default;
};

/// A source.
struct SourceDescription {
    EContainer container = EContainer::None;
    bool bHasMap = false;                    // a program stream map or a program map section was found
    std::int64_t llLength = 0;               // bytes; 0: not known
    std::uint32_t nMuxRate = 0;              // bit/s, program_mux_rate of the first pack header; 0: none
    std::vector<StreamDescription> streams;  // as they were seen, then those that the map alone lists

    /// The stream that a demuxer takes.
    /// @param nChoice  the value of the switch VideoStream or AudioStream: an id; 0: the first stream of the kind that
    ///                 is MPEG-1, MPEG-2 or MPEG-4 video, or MPEG audio; -1: the same, but of a transport stream the
    ///                 last one.
    /// @return null: there is none.
    const StreamDescription* FindStream(EStreamKind kind, std::int32_t nChoice = -1) const;
    /// From the first PTS of all streams to the end of the last frame of all, 90 kHz; -1: not known.
    std::int64_t GetDuration() const;
    /// The earliest of the streams' first PTS, across a wrap of the counter; -1: none.
    std::int64_t GetStart() const;
    /// The class of the source by its container and its video, whether it has a map or not (EStreamClass of
    /// CStreamTypeProbe): a program stream with MPEG-4 video is of class 2, every other one of class 4.
    int GetStreamClass() const;

    friend bool operator==(const SourceDescription&, const SourceDescription&) = default;
};

}  // namespace kest
