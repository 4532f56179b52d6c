#include "demux/SourceAnalyzer.h"

#include <gmock/gmock.h>

#include <array>
#include <random>
#include <sstream>

#include "demux/AudioHeaders.h"
#include "demux/VideoHeaders.h"
#include "support/MemoryReader.h"
#include "support/TestData.h"
#include "support/TransportStream.h"

namespace kest {
namespace {

// ---------------- headers

// 720 x 576, 4:3, 25 frames/s, 6 Mbit/s, 224 KiB of VBV; Main profile at main level, interlaced.
const std::string kMpeg2 = "00 00 01 B3 2D 02 40 23 0E A6 23 80 00 00 01 B5 14 82 00 01 00 00 ";
const std::string kPictureAt = "00 00 01 00 00 0F FF F8 ";  // vbv_delay FFFF

/// Size, aspects of sample and picture, rate, bit rate, bytes of the headers; v: variable rate, i: interlaced.
std::string Describe(const std::optional<VideoHeaders>& found) {
    if (!found) return "";
    const VideoFormat& f = found->format;
    std::ostringstream text;
    const auto Ratio = [](const Fraction& ratio) {
        return std::to_string(ratio.nNumerator) + "/" + std::to_string(ratio.nDenominator);
    };
    text << (found->codec == ECodec::Mpeg1Video ? "MPEG-1 " : "MPEG-2 ") << f.nWidth << "x" << f.nHeight
         << " " << Ratio(f.sampleAspect) << " " << Ratio(f.displayAspect) << " " << Ratio(f.frameRate) << " "
         << f.nBitRate << " " << f.abHeader.size() << (f.bVariableRate ? " v" : "")
         << (f.bProgressive ? "" : " i");
    return text.str();
}

TEST(VideoHeaders, AreThoseOfTheirStandard) {
    const std::pair<std::string, const char*> cases[] = {
        {kMpeg2 + kPictureAt, "MPEG-2 720x576 16/15 4/3 25/1 6000000 22 v i"},
        // Before its headers a stream may have slices, whose start codes are those of MPEG-4 headers.
        {"00 00 01 01 *9 00 00 01 1F *9 00 00 01 20 *9 " + kMpeg2 + "00 00 01 B8",
         "MPEG-2 720x576 16/15 4/3 25/1 6000000 22 i"},
        // Sizes, rate and bit rate beyond the sequence header's fields: 60000/1001 * 2 / 3.
        {"00 00 01 B3 01 00 10 17 FF FF E3 80 00 00 01 B5 14 8A A0 09 00 22 00 00 01 B8",
         "MPEG-2 4112x4112 1/1 1/1 40000/1001 524287600 22"},
        // MPEG-1 by a sequence header without extension: pixels of 525 lines, a rate of its own choice.
        {"00 00 01 B3 16 00 F0 C4 FF FF E0 A0 00 00 01 B8",
         "MPEG-1 352x240 200/219 880/657 30000/1001 0 12 v"},
        // A group of VOPs is no sequence header: the bytes behind its time code begin another start code.
        {"00 00 01 B3 00 10 07 00 00 01 B6 10 *20 00 00 01 B6 *9", ""},
        {"00 00 01 B3 16 00 F0 C0 FF FF E0 A0 00 00 01 B8", ""},  // no such frame rate
        {"00 00 01 B3 16 00 F0 C4 FF FF C0 A0 00 00 01 B8", ""},  // no marker bit
        {"00 00 01 B3 16 00 F0 C4 FF FF E0 A0 *40", ""},          // cut short
        {"00 00 01 B3 16 00 F0 C4 FF FF E0 A0 *1024 00 00 01 B8", ""},
    };
    for (const auto& [strBytes, pszFound] : cases)
        EXPECT_EQ(Describe(FindVideoHeaders(Stream(strBytes))), pszFound) << strBytes;
}

TEST(AudioHeaders, AreFoundAndConfirmedByTheNextFrame) {
    using Fields = std::array<std::uint32_t, 6>;  // sampling rate, channels, bit rate, layer, version, mode
    const std::pair<const char*, Fields> cases[] = {
        {"FF FD A4 C4 *572 FF FD A6 C4", {48000, 1, 192000, 2, 1, 3}},     // 576 bytes
        {"12 FF FD A4 C4 *572 FF FD A4 C4", {48000, 1, 192000, 2, 1, 3}},  // behind the end of another frame
        {"FF FD A2 44 *623 FF FD A2 44", {44100, 2, 192000, 2, 1, 1}},     // 626 bytes and a padding slot
        {"FF F3 80 C4 *204 FF F3 80 C4", {22050, 1, 64000, 3, 2, 3}},  // 208 bytes at half the sampling rate
        {"FF E3 80 C4 *413 FF E3 80 C4", {11025, 1, 64000, 3, 3, 3}},  // 417 bytes at a quarter
        {"FF FF 14 04 *28 FF FF 14 04", {48000, 2, 32000, 1, 1, 0}},   // layer I: 8 slots
        {"FF FD A4 C4", {48000, 1, 192000, 2, 1, 3}},                  // nothing contradicts it
        {"12 FF FD A4 C4", {}},                                        // nothing confirms it
        {"FF FD A4 C4 *572 12 FD A4 C4 *999", {}},                     // something contradicts it
        {"FF ED A4 C4 *999", {}},                                      // reserved version
        {"FF F9 A4 C4 *999", {}},                                      // layer
        {"FF FD AC C4 *999", {}},                                      // frequency
    };
    for (const auto& [pszBytes, fields] : cases) {
        const AudioFormat f = FindMpegAudioHeader(Stream(pszBytes)).value_or(AudioFormat());
        EXPECT_EQ((Fields{f.nSamplingRate, f.nChannels, f.nBitRate, f.nLayer, f.nVersion, f.nMode}), fields)
            << pszBytes;
    }
    // AC-3: 448 kbit/s, three channels in front, two behind, and the low-frequency one.
    const AudioFormat ac3 = FindAc3Header(Stream("77 0B 77 12 34 1E 40 E1 *1785 0B 77 12 34 1E 40 E1 00"))
                                .value_or(AudioFormat());
    EXPECT_EQ(std::tuple(ac3.nSamplingRate, ac3.nChannels, ac3.bLowFrequency, ac3.nBitRate),
              std::tuple(48000U, 5U, true, 448000U));
}

// ---------------- sources

/// Kind, id, codec, size or sampling rate, first and last PTS of each stream.
using Summary = std::vector<std::tuple<EStreamKind, int, ECodec, std::uint32_t, std::int64_t, std::int64_t>>;
Summary Summarise(const SourceDescription& description) {
    Summary summary;
    for (const StreamDescription& s : description.streams) {
        summary.emplace_back(s.kind, s.nSubstreamId ? s.nSubstreamId : s.nId, s.codec,
                             s.kind == EStreamKind::Video ? s.video.nWidth : s.audio.nSamplingRate,
                             s.llFirstPts, s.llLastPts);
    }
    return summary;
}

constexpr EStreamKind kVideo = EStreamKind::Video, kAudio = EStreamKind::Audio, kOther = EStreamKind::Other;

SourceDescription Describe(Bytes bytes) {
    CMemoryReader reader(bytes);
    return CSourceAnalyzer::Describe(&reader);
}

TEST(SourceAnalyzer, FindsStreamsWhateverTheMapSays) {
    const ByteVector video = Stream(kMpeg2 + kPictureAt + "*300"),
                     audio = Stream("FF FD A4 C4 *572 FF FD A4 C4 *572");
    const ByteVector ac3 = Stream("80 01 00 01 0B 77 12 34 14 40 E1 00 *60"), plain = Stream("20 *60");
    const auto Build = [&](bool bMap) {
        CProgramStreamBuilder b;
        b.Pack();
        if (bMap) b.Map({{0x1B, 0xE1}, {0x03, 0xC0}, {0x0F, 0xC5}});
        b.Pes(0xC0, audio, 8589934000).Pes(0xE0, video, 9000, 5400).Pes(0xE0, video, 5400);
        b.Pes(0xC9, plain).Pes(0xBD, ac3, 90000).Pes(0xBD, plain).Pes(0xE1, plain);
        b.Pes(0xE0, video, 180000).Pes(0xE0, video, 176400).Pes(0xC0, audio, 150000);
        return b.Get();
    };
    const Summary seen = {{kAudio, 0xC0, ECodec::MpegAudio, 48000, 8589934000, 150000},
                          {kVideo, 0xE0, ECodec::Mpeg2Video, 720, 5400, 180000},
                          {kAudio, 0xC9, ECodec::Unknown, 0, -1, -1},
                          {kAudio, 0x80, ECodec::Ac3Audio, 48000, 90000, 90000},
                          {kOther, 0xBD, ECodec::Unknown, 0, -1, -1},
                          {kVideo, 0xE1, ECodec::Unknown, 0, -1, -1}};
    const SourceDescription bare = Describe(Build(false));
    EXPECT_EQ(Summarise(bare), seen);
    EXPECT_EQ(std::tuple(bare.container, bare.bHasMap, bare.nMuxRate),
              std::tuple(EContainer::ProgramStream, false, 10080000U));
    // The counter wraps between the first audio and the first video; the last picture lasts 3600.
    EXPECT_EQ(bare.GetStart(), 8589934000);
    EXPECT_EQ(bare.GetDuration(), 8589934592 - 8589934000 + 180000 + 3600);
    EXPECT_EQ(bare.GetStreamClass(), 4);
    EXPECT_EQ(bare.FindStream(kVideo), &bare.streams[1]);
    EXPECT_EQ(bare.FindStream(kAudio, 0xC9), &bare.streams[2]);

    Summary listed = seen;
    std::get<ECodec>(listed.back()) = ECodec::H264Video;
    listed.emplace_back(kAudio, 0xC5, ECodec::AacAudio, 0, -1, -1);
    EXPECT_EQ(Summarise(Describe(Build(true))), listed);
}

TEST(SourceAnalyzer, TransportStreamsMayHaveLongTablesAndSeveralPrograms) {
    CTransportStreamBuilder b;
    const ByteVector video = Stream(kMpeg2 + kPictureAt + "*900"),
                     audio = Stream("FF FD A4 C4 *572 FF FD A4 C4 *572");
    b.Section(0, Stream("00 B0 15 00 01 C1 00 00 00 00 E0 10 00 01 E1 00 00 02 E1 10 01 02 03 04"));
    b.Section(0x110, Stream("02 B0 12 00 02 C1 00 00 E1 11 F0 00 02 E1 11 F0 00 01 02 03 04"));
    // A section of two packets: descriptors of 180 bytes are in front of its entries.
    ByteVector map =
        Stream("00 02 B0 CB 00 01 C1 00 00 E1 01 F0 B4 *180 02 E1 01 F0 00 03 E1 02 F0 00 01 02 03 04");
    const Bytes all = map;
    b.Packet(0x100, true, all.first(184)).Packet(0x100, false, all.subspan(184));
    b.Pes(0x101, video, 9000).Pes(0x102, audio, 8000).Pes(0x111, video, 7000).Pes(0x103, video, 1);
    b.Pes(0x101, video, 99000).Pes(0x102, audio, 98000);
    const SourceDescription description = Describe(b.Get());
    EXPECT_EQ(Summarise(description), (Summary{{kVideo, 0x101, ECodec::Mpeg2Video, 720, 9000, 99000},
                                               {kAudio, 0x102, ECodec::MpegAudio, 48000, 8000, 98000},
                                               {kVideo, 0x111, ECodec::Mpeg2Video, 720, 7000, 7000}}));
    EXPECT_EQ(description.FindStream(kVideo, 0), &description.streams[0]);
    EXPECT_EQ(description.FindStream(kVideo, -1), &description.streams[2]) << "as ever: the last one";
}

// A stream's headers are read where they are, up to 4 MiB of the beginning; a source of any length takes as many reads.
TEST(SourceAnalyzer, ReadsABoundedPartOfBothEnds) {
    struct CCountingReader final : CMemoryReader {
        using CMemoryReader::CMemoryReader;
        HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG ll, LONG n, BYTE* p) override {
            m_nRead += n;
            return CMemoryReader::SyncRead(ll, n, p);
        }
        int m_nRead = 0;
    };
    const ByteVector video = Stream(kMpeg2 + kPictureAt + "*300"), slices = Stream("00 00 01 01 *60000");
    // MiB in front of the headers, and whether they are found; bytes read.
    const std::tuple<int, bool, int> cases[] = {
        {0, true, 0x80000}, {1, true, 0x180000}, {5, false, 0x580000}};
    for (const auto& [nMiB, bFound, nMost] : cases) {
        CProgramStreamBuilder b;
        b.Pack();
        for (int i = 0; i < nMiB * 17; ++i) b.Pes(0xE0, slices, 9000);
        b.Pes(0xE0, video, 9000);
        for (int i = 0; i < 100; ++i) b.Pes(0xE0, slices, 90000 + i);
        CCountingReader reader(b.Get());
        const SourceDescription description = CSourceAnalyzer::Describe(&reader);
        EXPECT_EQ(Summarise(description),
                  (Summary{{kVideo, 0xE0, bFound ? ECodec::Mpeg2Video : ECodec::Unknown, bFound ? 720U : 0U,
                            9000, 90099}}));
        EXPECT_LE(reader.m_nRead, nMost);
    }
}

TEST(SourceAnalyzer, CutAndDamagedSourcesGiveNoMoreThanIsThere) {
    for (const char* pszFile :
         {"vob_mpeg2_nomap.mpg", "ps_mpeg4.mpg", "sys_mpeg1_vcd.mpg", "ts_mpeg4.ts", "es_mpeg4.m4v"}) {
        const ByteVector intact = ReadTestData(pszFile);
        const SourceDescription whole = Describe(intact);
        std::mt19937 random(7);
        for (int i = 0; i < 30; ++i) {
            SCOPED_TRACE(std::string(pszFile) + ", damage " + std::to_string(i));
            ByteVector bytes = intact;
            const auto from =
                bytes.begin() + static_cast<std::ptrdiff_t>(65536 + random() % (bytes.size() - 70000));
            i % 2 ? std::generate(from, from + 4096, std::ref(random))
                  : static_cast<void>(bytes.erase(from, bytes.end()));
            SourceDescription damaged = Describe(bytes);
            ASSERT_EQ(damaged.streams.size(), whole.streams.size());
            for (std::size_t n = 0; n < whole.streams.size(); ++n) {
                damaged.streams[n].llLastPts = whole.streams[n].llLastPts;
                EXPECT_EQ(damaged.streams[n], whole.streams[n]);
            }
        }
    }
    for (const char* pszText : {"", "00", "pack", "00 00 01 BA", "*9999", "47 *187 47 *187 47 *187 47"}) {
        EXPECT_TRUE(Describe(Stream(pszText)).streams.empty()) << pszText;
    }
}

}  // namespace
}  // namespace kest
