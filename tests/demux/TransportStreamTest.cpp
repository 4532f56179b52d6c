// The parsers of transport streams, bytes in and frames out, and their demuxer.
#include <gtest/gtest.h>

#include "demux/Mpeg4TsDemux.h"
#include "support/CaptureTexts.h"
#include "support/TestThreads.h"
#include "support/TransportStream.h"

namespace kest {
namespace {

using Builder = CTransportStreamBuilder;

/// Timestamps of the frames, the DTS where it differs, and what `describe` makes of each.
template <class Describe>
std::string List(const std::vector<Frame>& frames, Describe describe) {
    std::string text;
    for (const Frame& frame : frames) {
        text += std::to_string(frame.info.llPts);
        if (frame.info.llDts != frame.info.llPts) text += "/" + std::to_string(frame.info.llDts);
        text += ":" + describe(frame.payload) + " ";
    }
    return text;
}

std::string ListSizes(const std::vector<Frame>& frames) {
    return List(frames, [](const ByteVector& payload) { return std::to_string(payload.size()); });
}

/// The letters in a payload.
std::string GetLetters(const ByteVector& payload) {
    std::string text;
    std::copy_if(payload.begin(), payload.end(), std::back_inserter(text), [](char c) { return c >= 'A'; });
    return text;
}

/// A structure for each letter: P is a picture, S and G the headers above it, L the layer of an MPEG-4 stream,
/// U and other letters are none; small letters are bytes.
ByteVector Structures(const std::string& strLetters, bool bMpeg4) {
    ByteVector bytes;
    for (const char c : strLetters) {
        const int nCode = c == 'P'   ? (bMpeg4 ? 0xB6 : 0x00)
                          : c == 'S' ? 0xB3
                          : c == 'G' ? 0xB8
                          : c == 'L' ? 0x20
                                     : 0xB2;
        if (c < 'a')
            bytes.insert(bytes.end(), {0, 0, 1, static_cast<std::uint8_t>(nCode & 0x7F ? nCode : 0)});
        bytes.push_back(static_cast<std::uint8_t>(c));
    }
    return bytes;
}

/// Parses video packets "PTS letters", without timestamps "- letters".
std::string ParseVideo(const std::string& strPackets, bool bMpeg4, bool bDrain = false) {
    Builder b;
    b.Tables(bMpeg4);
    std::istringstream words(strPackets);
    for (std::string strPts, strLetters; words >> strPts >> strLetters;) {
        std::optional<std::int64_t> llPts;
        if (strPts != "-") llPts = std::stoll(strPts);
        b.Pes(Builder::kVideoPid, Structures(strLetters, bMpeg4), llPts);
    }
    b.Pes(Builder::kVideoPid, ByteVector(1));  // so that the last one is complete
    CTsRig rig;
    rig.SetSettings({.bDrain = bDrain});
    return List(rig.Run(b.Get()).video, GetLetters);
}

TEST(TransportStream, SplitsVideoIntoPicturesAtEqualDistances) {
    const struct {
        const char* pszPackets;
        const char* pszMpeg2;
        const char* pszMpeg4;
    } cases[] = {
        {"0 PPP 9009 P 9009 PP 9000 P", "0:P 3003:P 6006:P 9009:P 9009:P 9009:P 9000:P ", nullptr},
        {"0 xxSPx 3000 yPz 6000 PP", "0:SPxy 3000:Pz 6000:PP ", nullptr},  // what is left is one frame
        {"- xP 3000 uP 6000 xx 9000 P", "9000:P ", nullptr},               // no start at the beginning
        {"- x 0 UxSP 3000 SP - ab - P 6000 SGP", "3000:SPab 4500:P 6000:SGP ", nullptr},
        {"0 SPU 3000 USPU 6000 GP", "0:SPUU 3000:SPU 6000:GP ", "0:SP 3000:UUSP 6000:UGP "},
        {"0 S 3000 G 6000 P", "0:S 3000:G 6000:P ", "3000:SG 6000:P "},  // no picture: all is one frame
        {"0 LSP 3000 LP", "0:SPL 3000:P ", "0:LSP 3000:LP "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ParseVideo(c.pszPackets, false), c.pszMpeg2) << c.pszPackets;
        EXPECT_EQ(ParseVideo(c.pszPackets, true), c.pszMpeg4 ? c.pszMpeg4 : c.pszMpeg2) << c.pszPackets;
    }
}

/// Audio frames of layer 2, 192 kbit/s, 48 kHz: 576 bytes, 2160 ticks.
ByteVector Audio(int nFrames) {
    ByteVector bytes;
    for (; nFrames > 0; --nFrames) {
        bytes.insert(bytes.end(), {0xFF, 0xFD, 0xA4, 0x00});
        bytes.resize(bytes.size() + 572, 0x11);
    }
    return bytes;
}

TEST(TransportStream, SplitsAudioWhereItsTimesAndSyncsSay) {
    using Packets = std::initializer_list<std::pair<std::int64_t, ByteVector>>;
    const auto Parse = [](Packets packets, bool bDrain = false) {
        Builder b;
        b.Tables(false);
        for (const auto& [llPts, payload] : packets) b.Pes(Builder::kAudioPid, payload, llPts);
        b.Pes(Builder::kAudioPid, ByteVector(1));  // so that the last one is complete
        CTsRig rig;
        rig.SetSettings({.bDrain = bDrain});
        return ListSizes(rig.Run(b.Get()).audio);
    };
    ByteVector padded = Audio(2), cut = Audio(1), rest(276, 0x11);
    padded.insert(padded.begin() + 576, 4, 0x22);
    cut.resize(300);
    rest[100] = rest[101] = 0xFF;
    for (const std::uint8_t n : Audio(1)) rest.push_back(n);
    EXPECT_EQ(Parse({{0, Audio(2)}, {4320, Audio(2)}, {8640, Audio(2)}}),
              "0:576 4320:576 6480:576 8640:1729 ");
    EXPECT_EQ(Parse({{0, Audio(1)}, {2160, Audio(1)}, {4319, Audio(1)}}), "0:576 2160:576 4319:577 ");
    EXPECT_EQ(Parse({{0, Audio(2)}, {1079, Audio(1)}, {0, Audio(1)}}), "0:1152 1079:576 0:577 ");
    EXPECT_EQ(Parse({{0, padded}, {4320, Audio(1)}}), "0:580 4320:1153 ") << "a sync 4 bytes on";
    EXPECT_EQ(Parse({{0, cut}, {2160, rest}}), "0:576 2160:577 ") << "a false sync in front of the true one";
    EXPECT_EQ(Parse({{0, ByteVector(10, 0x11)}, {2160, Audio(1)}}), "2160:577 ") << "no header";
    // Draining, a jump and a wrap change neither frames nor times.
    ByteVector two = Audio(2), end(two.end() - 574, two.end());
    two.resize(578);  // and half a syncword
    EXPECT_EQ(Parse({{0, Audio(2)}, {900000, cut}, {90, rest}, {8589933592, two}, {60, end}}, true),
              "0:576 2160:576 900000:576 90:576 8589933592:576 1160:576 60:1 ");
    EXPECT_EQ(Parse({{0, padded}, {4319, Audio(1)}}, true), "0:580 2160:576 4319:577 ");
}

TEST(TransportStream, KeepsTheDistanceOfPicturesAtAJump) {
    const struct {
        const char *pszPackets, *pszFrames;
    } cases[] = {
        {"0 PP 7200 PP 912000 PP 900 P", "0:P 3600:P 7200:P 10800:P 912000:P 915600:P 900:P "},
        {"0 PP 900000 PP 907200 P", "0:P -1:P 900000:P 903600:P 907200:P "},  // of no known distance
        {"8589931392 PP 4000 P", "8589931392:P 400:P 4000:P "},               // a wrap
        {"0 P 3600 P 453600 P 457200 PP 464400 P", "0:P 3600:P 453600:P 457200:P 460800:P 464400:P "},
    };
    for (const auto& c : cases) EXPECT_EQ(ParseVideo(c.pszPackets, false, true), c.pszFrames);
}

TEST(TransportStream, CountsWhatBecomesOfTheInput) {
    Builder b;
    b.Packet(Builder::kVideoPid, false, ByteVector(184)).Tables(false);
    b.Pes(Builder::kVideoPid, Structures("xxP", false), 0).Pes(Builder::kVideoPid, Structures("P", false), 9);
    b.Add(ByteVector(100));
    b.Pes(Builder::kAudioPid, ByteVector(7), 0).Pes(0x200, ByteVector(5), 0);
    for (int i = 0; i < 2; ++i) b.Pes(Builder::kAudioPid, Audio(1), i * 2160);
    const ByteVector bytes = b.Add({0x47, 0}).Add(ByteVector(20)).GetAsItIs();
    const ByteVector longer = b.Get();
    const struct {
        bool bDrain;
        Numbers parser, video, audio;
    } cases[] = {
        {true, {15, 2, 3, 1, 2, 100 + 22}, {3, 0, 0, 0, 184}, {3, 0, 0, 0, 0}},
        {false, {21, 2, 3, 1, 2, 100 + 22}, {1, 0, 0, 0, 2}, {1, 0, 0, 0, 7}},
    };
    for (const auto& c : cases) {
        CTsRig rig;
        rig.SetSettings({.bDrain = c.bDrain});
        rig.Run(c.bDrain ? bytes : longer);
        EXPECT_EQ(NumbersOf(rig.GetCounters()), c.parser);
        EXPECT_EQ(NumbersOf(rig.GetVideoCounters()), c.video);
        EXPECT_EQ(NumbersOf(rig.GetAudioCounters()), c.audio);
    }
}

TEST(TransportStream, ExaminesItsTables) {
    const ByteVector intact = Builder().Tables(true).Get();
    constexpr std::size_t kPat = 5, kPmt = 188 + 5;  // where the sections are
    const struct {
        std::size_t nIndex;
        int nValue;
        const char* pszTrace;
    } cases[] = {{3, 0x00, "PAT adaptation field control error\n"},
                 {4, 183, "PAT syntax error\n"},
                 {kPat, 2, "PAT table ID error\n"},
                 {kPat + 1, 0x90, "PAT syntax error\n"},
                 {kPat + 5, 0x41, "PAT syntax error\n"},
                 {kPat + 10, 0xC1, "PAT syntax error\n"},
                 {kPat + 11, 0x0F, "Can not find MAP\n"},
                 {kPmt, 0, "MAP table ID error\n"},
                 {kPmt + 2, 180, "MAP syntax error\n"},
                 {kPmt + 8, 0xC1, "MAP syntax error\n"},
                 {kPmt + 15, 0xE0, "MAP syntax error\n"},
                 {kPmt + 13, 0xC1, "MAP syntax error\n"},
                 {kPat + 2, 179, "PAT syntax error\n"}};
    for (const auto& c : cases) {
        ByteVector bytes = intact;
        bytes[c.nIndex] = static_cast<std::uint8_t>(c.nValue);
        CCaptureTexts texts;
        CTsRig().Run(bytes);
        EXPECT_NE(texts.TraceTexts().find(c.pszTrace), std::string::npos) << c.nIndex << texts.TraceTexts();
        EXPECT_TRUE(texts.TraceTexts().ends_with("KestMpeg4TsDemux pin Exited!!!\n")) << c.nIndex;
    }
    const struct {
        std::vector<std::pair<std::size_t, int>> bytes;
        const char* pszTrace;
    } pids[] = {{{{kPat + 10, 0xE0}, {kPat + 11, 15}}, "program map PID error\n"},
                {{{kPat + 10, 0xFF}, {kPat + 11, 0xFF}}, "program map PID error\n"},
                {{{kPmt + 8, 0xE0}, {kPmt + 9, 15}}, "pcr PID error\n"},
                {{{kPmt + 13, 0xFF}, {kPmt + 14, 0xFF}}, "video stream PID error\n"},
                {{{kPmt + 18, 0xE0}, {kPmt + 19, 15}}, "audio stream PID error\n"}};
    for (const auto& c : pids) {
        ByteVector bytes = intact;
        for (const auto& [nIndex, nValue] : c.bytes) bytes[nIndex] = static_cast<std::uint8_t>(nValue);
        CCaptureTexts texts;
        CTsRig().Run(bytes);
        EXPECT_NE(texts.TraceTexts().find(c.pszTrace), std::string::npos) << c.pszTrace << texts.TraceTexts();
    }
}

TEST(TransportStream, TakesTheLastProgramAndStream) {
    Builder b;
    b.Section(0, Stream("00 B0 15 00 01 C1 00 00 00 01 E0 20 00 02 E1 00 00 00 E0 21 01 02 03 04"));
    b.Section(Builder::kPmtPid,
              Stream("02 B0 25 00 01 C1 00 00 E1 01 F0 02 AA BB 10 E0 30 F0 00 02 E1 01 F0 03 "
                     "01 02 03 01 E0 31 F0 00 06 E0 32 F0 00 01 02 03 04"));
    for (int i = 1; i <= 3; ++i) b.Pes(Builder::kVideoPid, Structures("GP", false), i);
    EXPECT_EQ(List(CTsRig().Run(b.Get()).video, GetLetters), "1:GP 2:GPGP ");
}

TEST(TransportStream, ResynchronisesAndReadsInWindows) {
    Builder b;
    b.Tables(false);
    for (int i = 0; i < 100; ++i) b.Pes(Builder::kVideoPid, Structures("P", false), i);
    const ByteVector intact = b.Get();
    const struct {
        std::size_t nPlace, nErased, nInserted, nSize, nFrames;
    } cases[] = {
        {0, 0, 100, 0, 99},   {0, 0, 2255, 0, 99},  {0, 0, 2256, 0, 0},    // before the first packet
        {0, 100, 0, 0, 0},    {40, 0, 0, 8043, 18}, {40, 0, 0, 8044, 39},  // without the PAT; the end
        {50, 0, 2255, 0, 99}, {50, 0, 2256, 0, 47}, {50, 188, 0, 0, 98},   // between two packets
        {50, 100, 0, 0, 98},  {50, 1, 0, 0, 98},                           // in one
    };
    for (const auto& c : cases) {
        ByteVector bytes = intact;
        const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(c.nPlace * 188);
        bytes.insert(bytes.erase(place, place + static_cast<std::ptrdiff_t>(c.nErased)), c.nInserted, 0);
        if (c.nSize > 0) bytes.resize(c.nSize);
        EXPECT_EQ(CTsRig().Run(bytes).video.size(), c.nFrames)
            << c.nPlace << " -" << c.nErased << " +" << c.nInserted << " =" << c.nSize;
    }
}

TEST(TransportStream, LimitsBuffersAndHeaders) {
    Builder b;
    b.Tables(false);
    const auto Picture = [](std::size_t n) {
        ByteVector bytes = Structures("P", false);
        bytes.resize(n, 0x11);
        return bytes;
    };
    b.Pes(Builder::kVideoPid, Picture(65000), 0);
    for (int i = 0; i < 17; ++i) b.Pes(Builder::kVideoPid, ByteVector(65000, 0x22));  // 15 fit into 1 MiB
    b.Pes(Builder::kVideoPid, Picture(100), 3000);
    // A header that is longer than its packet leaves three bytes; timestamps are read where they should be.
    b.Packet(Builder::kVideoPid, true, Stream("00 00 01 E0 00 00 80 80 FF 21 00 01 2E E1 00 00 01"));
    b.Packet(Builder::kVideoPid, true, Stream("00 00 01 E0 00 00 80 00 00 00 41 42"));
    b.Pes(Builder::kVideoPid, Picture(100), 9000);
    b.Pes(Builder::kVideoPid, Picture(100), 12000);
    CCaptureTexts texts;
    EXPECT_EQ(ListSizes(CTsRig().Run(b.Get()).video), "0:65536 6000:100 7500:6 9000:200 ");
    EXPECT_NE(texts.TraceTexts().find("Frame of 1040000 bytes is cut"), std::string::npos);
}

// ---------------- draining

/// The payloads of a PID's PES packets that begin in the stream, as far as whole packets hold them.
ByteVector ExtractPayload(Bytes bytes, std::uint16_t nPid) {
    ByteVector payload, pes;
    bool bBegun = false;
    const auto EndPes = [&] {
        const std::size_t nHeader =
            pes.size() < 9 ? pes.size() : std::min<std::size_t>(9U + pes[8], pes.size());
        payload.insert(payload.end(), pes.begin() + static_cast<std::ptrdiff_t>(nHeader), pes.end());
        pes.clear();
    };
    for (std::size_t i = 0; i + 188 <= bytes.size();) {
        const Bytes packet = bytes.subspan(i, 188);
        i += packet[0] == 0x47 ? 188 : 1;
        if (packet[0] != 0x47 || (Read16(packet, 1) & 0x1FFF) != nPid || !(packet[3] & 0x10)) continue;
        if (packet[1] & 0x40) EndPes(), bBegun = true;
        const Bytes rest = packet.subspan(packet[3] & 0x20 ? 5U + packet[4] : 4U);
        if (bBegun) pes.insert(pes.end(), rest.begin(), rest.end());
    }
    EndPes();
    return payload;
}

/// Audio and video with whatever a stream may have: no timestamps at first, bytes that belong to no frame, several
/// frames a PES packet, a packet without payload, frames over several packets.
Builder& AddMixed(Builder& b, std::int64_t llPts) {
    const std::string strLong(400, 'x');
    const ByteVector audio = Stream("FF FD A4 00 *2 11 22 33");
    b.Pes(Builder::kVideoPid, Structures("xP", false)).Pes(Builder::kAudioPid, Stream("01 02 03"));
    b.Pes(Builder::kVideoPid, Structures("yyS" + strLong + "P", false), llPts);
    b.Pes(Builder::kAudioPid, audio, llPts).Pes(Builder::kAudioPid, Stream("05 06"), llPts + 2160);
    b.Pes(Builder::kVideoPid, Structures("PP" + strLong + "P", false), llPts + 3000);
    b.Add({0x47, 0x01, 0x01, 0x20, 183, 0}).Add(ByteVector(182, 0xFF));
    b.Pes(Builder::kVideoPid, Structures("xSP" + strLong + "P", false), llPts + 12000);
    return b.Pes(Builder::kAudioPid, audio, llPts + 4320);
}

TEST(TransportStream, DrainsTheWholePayloadOfAnyPartOfAStream) {
    Builder b;
    AddMixed(b, 9000).Tables(false);
    const std::size_t nTables = b.Size();
    AddMixed(b, 90000).Add(ByteVector(2300, 0));  // more than three searches
    const std::size_t nSecond = b.Size();
    const ByteVector bytes = AddMixed(b, 200000).Add({0x47, 1, 1}).GetAsItIs();
    CTsRig rig;
    ParseSettings settings{.bDrain = true};
    const auto ExpectAll = [&](Bytes part, ETsTiming timing, bool bFound) {
        rig.SetSettings(settings);
        const Frames frames = rig.Run(part, timing);
        ASSERT_EQ(Join(frames.video), bFound ? ExtractPayload(part, Builder::kVideoPid) : ByteVector());
        ASSERT_EQ(Join(frames.audio), bFound ? ExtractPayload(part, Builder::kAudioPid) : ByteVector());
    };
    for (std::size_t n = 0; n <= bytes.size(); n += 7) {
        SCOPED_TRACE(n);
        settings.nVideoStream = settings.nAudioStream = kAllStreams;
        ExpectAll(Bytes(bytes).first(n), n % 2 ? ETsTiming::Pes : ETsTiming::Elementary, n >= nTables);
        settings.nVideoStream = Builder::kVideoPid, settings.nAudioStream = Builder::kAudioPid;
        if (n >= nSecond) ExpectAll(Bytes(bytes).subspan(n), ETsTiming::Pes, true);
    }
}

TEST(TransportStream, DrainsFramesWithTheirTimes) {
    Builder b;
    const Frames frames = [&] {
        CTsRig rig;
        rig.SetSettings({.bDrain = true});
        return rig.Run(AddMixed(b, 9000).Tables(false).GetAsItIs());
    }();
    // untimed, then as if each PES packet had another one behind it
    const auto describe = [](const ByteVector& payload) {
        std::string strLetters = GetLetters(payload);
        std::erase(strLetters, 'x');
        return strLetters;
    };
    EXPECT_EQ(List(frames.video, describe), "-1:Pyy 9000:SP 12000:P 15000:P 18000:P 21000:SP 24000:P ");
    EXPECT_EQ(ListSizes(frames.audio), "-1:3 9000:11 13320:9 ");
}

TEST(TransportStream, DrainsFramesThatNoBufferHolds) {
    const auto Pictures = [](std::initializer_list<std::size_t> sizes) {
        ByteVector bytes;
        for (const std::size_t nSize : sizes) {
            bytes.insert(bytes.end(), {0, 0, 1, 0});
            bytes.resize(bytes.size() + nSize - 4, 0x11);
        }
        return bytes;
    };
    Builder b;
    b.Tables(false);
    b.Pes(Builder::kVideoPid, Pictures({400000, 400000, 400000, 400000}), 0);  // of no known distance
    b.Pes(Builder::kVideoPid, Pictures({2200000}), 14400);
    b.Pes(Builder::kVideoPid, Pictures({1000}), 18000);
    CTsRig rig(/*bRead=*/true, 1048576, 16);
    rig.SetSettings({.bDrain = true});
    const ByteVector bytes = b.GetAsItIs();
    const Frames frames = rig.Run(bytes);
    EXPECT_EQ(Join(frames.video), ExtractPayload(bytes, Builder::kVideoPid));
    EXPECT_EQ(
        List(frames.video,
             [](const ByteVector& payload) { return std::string(payload.size() > 300000 ? "L" : "s"); }),
        "0:L -1:L -1:L -1:L 14400:L -1:L -1:s 18000:s ");

    CTsRig large(/*bRead=*/true, 65536, 4);  // a PES packet and a frame as long as a block
    large.SetSettings({.bDrain = true, .nVideoBlockSize = 2097152});
    const ByteVector twice = Builder()
                                 .Tables(false)
                                 .Pes(Builder::kVideoPid, Pictures({2097152}), 0)
                                 .Pes(Builder::kVideoPid, Pictures({2097152}), 3600)
                                 .GetAsItIs();
    EXPECT_EQ(ListSizes(large.Run(twice).video), "0:2097152 3600:2097152 ");
}

TEST(TransportStream, TakesTheChosenStreams) {
    Builder b;
    b.Section(0, Stream("00 B0 0D 00 01 C1 00 00 00 01 E1 00 01 02 03 04"));
    b.Section(Builder::kPmtPid,
              Stream("02 B0 26 00 01 C1 00 00 E1 01 F0 00 01 E0 30 F0 00 10 E0 31 F0 00 02 E0 32 "
                     "F0 00 03 E0 41 F0 00 04 E0 42 F0 00 01 02 03 04"));
    const ByteVector tables = b.GetAsItIs();
    const struct {
        std::int32_t nChoice;      // of the video; the audio's is 16 higher
        std::array<int, 3> taken;  // video PID, audio PID, whether the video is MPEG-4
    } cases[] = {{0, {0x30, 0x41, 0}}, {0x31, {0x31, 0x41, 1}}, {0x35, {0x35, 0x45, 0}}};
    for (const auto& c : cases) {
        CTsTables parsed({.nVideoStream = c.nChoice, .nAudioStream = c.nChoice + (c.nChoice > 0 ? 16 : 0)});
        EXPECT_TRUE(parsed.ParsePmt(Bytes(tables).subspan(188, 188)));
        EXPECT_EQ((std::array<int, 3>{parsed.GetVideoPid(), parsed.GetAudioPid(), parsed.IsVideoMpeg4()}),
                  c.taken)
            << c.nChoice;
    }
}

// ---------------- elementary timing

/// The bytes of a text of bits, and of hexadecimal bytes in front of a colon.
ByteVector Coded(const std::string& strText) {
    const std::size_t nColon = strText.find(':');
    ByteVector bytes = Stream(strText.substr(0, nColon));
    std::string strBits;
    for (const char c : strText.substr(nColon + 1))
        if (c == '0' || c == '1') strBits += c;
    strBits.resize((strBits.size() + 7) / 8 * 8, '0');
    for (std::size_t i = 0; i < strBits.size(); i += 8) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(strBits.substr(i, 8), nullptr, 2)));
    }
    return bytes;
}

std::string Bits(unsigned n, int nBits) {
    std::string strBits;
    for (int i = nBits - 1; i >= 0; --i) strBits += n >> i & 1 ? '1' : '0';
    return strBits;
}

std::string TimeCode(unsigned nSeconds) {
    return Bits(nSeconds / 3600, 5) + Bits(nSeconds / 60 % 60, 6) + "1" + Bits(nSeconds % 60, 6);
}

std::string Gov(unsigned nSeconds) { return "00 00 01 B3:" + TimeCode(nSeconds) + "00"; }
std::string Vop(const std::string& strTime) { return "00 00 01 B6:00" + strTime + std::string(32, '0'); }
std::string Vol(unsigned nResolution) {
    return "00 00 01 20:0 00000001 0 0001 0 00 1 " + Bits(nResolution, 16) +
           "1 0 1 0000101100000 1 0000100100000 1";
}
/// Sequence header and extension.
std::string Sequence(unsigned nRateCode) {
    return "00 00 01 B3:" + std::string(28, '0') + Bits(nRateCode, 4) + std::string(18, '0') + "1" +
           std::string(11, '0');
}
std::string Extension(unsigned nN, unsigned nD) {
    return "00 00 01 B5:0001" + std::string(37, '0') + Bits(nN, 2) + Bits(nD, 5);
}
std::string Group(unsigned nSeconds, unsigned nPictures, bool bDrop = false) {
    return "00 00 01 B8:" + std::string(bDrop ? "1" : "0") + TimeCode(nSeconds) + Bits(nPictures, 6) + "00";
}
std::string Picture(unsigned nReference, unsigned nType) {
    return "00 00 01 00:" + Bits(nReference, 10) + Bits(nType, 3) + std::string(32, '0');
}

TEST(TsVideoClock, KnowsTheTimesOfPictures) {
    using Frames = std::vector<std::vector<std::string>>;
    const std::string strUser = "00 00 01 B2:0100 1100";
    const struct {
        bool bMpeg4;
        Frames frames;
        const char* pszTimes;  // PTS/DTS; a - is a frame that is dropped
        std::int64_t llBase;   // of the audio, in units of a timestamp; -1: there is none
    } cases[] = {
        {true,
         {{Vol(30), Gov(10), Vop("0 1 01111 1")}, {Vop("0 1 10000 1")}, {Vop("0 0")}, {Vop("110 1 00000 1")}},
         "945945 948948 951948 1081080 ",
         945945},
        {true,
         {{Gov(86399), Vop("0 1 000000 1")}, {Gov(1), Vop("0 1 000000 1")}},
         "7783685910 7783866090 ",
         -1},
        {true,
         {{"00 00 01 05:", Vol(1), Vop("0 1 1")},
          {"00 00 01 05:", Gov(1)},
          {Vol(30), strUser, Vop("0 1 11111 1")}},
         "0 3000 6000 ",
         0},  // what follows the layer is read as a VOP
        {true,
         {{Vop("0 1 011110 1")}, {Vol(0), Vop("0 1 0 1")}, {Vol(60), Vop("10 1 000000 1")}},
         "45045 - 90090 ",
         90090},
        {true, {{"00 00 01 B0:"}, {"00 00 01 B6:"}}, "3000/2999 6000/5999 ", -1},
        {false,
         {{Sequence(3), Extension(0, 0), Group(0, 0), Picture(2, 1)},
          {Picture(0, 3)},
          {Picture(1, 3)},
          {Picture(5, 2)},
          {Picture(5, 4)},
          {"00 00 01 B2:"}},
         "10800/7200 3600 7200 21600/10800 25200/14400 28800/18000 ",
         10800},
        {false, {{Sequence(4), Extension(0, 0), Group(1, 15), Picture(0, 1)}}, "138138/135135 ", 138138},
        {false,
         {{Sequence(4), Extension(0, 0), Group(1, 15, true), Picture(0, 1)}},
         "138003/135000 ",
         138003},
        {false,
         {{Sequence(4), Extension(1, 0), strUser, Group(1, 15), Picture(0, 1)}},
         "114024/112522 ",
         114024},
        {false,
         {{Group(0, 0), Picture(0, 1)},
          {Sequence(9), Extension(0, 0), Group(0, 0), Picture(0, 1)},
          {Sequence(3), Group(0, 0), Picture(0, 1)}},
         "- - - ",
         -1},
        {false,
         {{Sequence(3), Extension(0, 0), Group(86399, 0), Picture(0, 1)}, {Group(1, 0), Picture(0, 3)}},
         "7775913600/7775910000 7776093600 ",
         7775913600},
        {false,
         {{Sequence(4), Extension(0, 0), Group(86399, 0), Picture(0, 1)}, {Group(1, 0), Picture(0, 3)}},
         "7783688913/7783685910 7783869093 ",
         7783688913},
    };
    for (const auto& c : cases) {
        CTsVideoClock clock;
        clock.Begin(ETsTiming::Elementary);
        std::string strTimes;
        for (const auto& structures : c.frames) {
            ByteVector frame;
            for (const std::string& strCoded : structures)
                for (const std::uint8_t n : Coded(strCoded)) frame.push_back(n);
            const auto timestamps = clock.Advance(frame, c.bMpeg4);
            strTimes += timestamps ? std::to_string(timestamps->llPts) : "-";
            if (timestamps && timestamps->llDts != timestamps->llPts)
                strTimes += "/" + std::to_string(timestamps->llDts);
            strTimes += " ";
        }
        EXPECT_EQ(strTimes, c.pszTimes);
        const auto base = clock.GetAudioBase();
        EXPECT_EQ(base ? static_cast<std::int64_t>(*base / 300) : -1, c.llBase) << c.pszTimes;
    }
}

// ---------------- the demuxer

TEST(Mpeg4TsDemux, RunsAsOftenAsItIsPrepared) {
    Builder b;
    b.Tables(false);
    for (int i = 0; i < 20; ++i) b.Pes(Builder::kVideoPid, Structures("P", false), i);
    const ByteVector bytes = b.Get();
    KestMpeg4TsDemux core;
    ASSERT_EQ(core.Open(nullptr, nullptr, nullptr), 0);
    for (const bool bPrepared : {true, true, false, true}) {
        if (bPrepared) core.UsePtsDtsTiming();
        core.Resume();
        core.PushData(bytes);
        for (int i = 0; i < 18 && bPrepared; ++i) {
            ASSERT_EQ(TakeFrame(core.GetVideoQueue(), kTooLongMs).value().info.llPts, i);
        }
        ASSERT_TRUE(Eventually([&] { return core.HasTakenAll(); }));
        core.Stop();  // the last pictures are lost with the queue
        EXPECT_EQ(core.GetExitCode(), bPrepared ? 0 : -1);
        core.Restart();
    }
    core.SetSettings({.bDrain = true});
    core.UsePtsDtsTiming();
    core.Resume();
    core.PushData(b.GetAsItIs());
    core.EndInput();
    ASSERT_TRUE(Eventually([&] { return core.HasTakenAll(); }));
    EXPECT_EQ(core.GetVideoQueue().GetPending(0), 20u);
    core.Stop();
    core.Restart();
    core.UsePtsDtsTiming();
    core.Resume();
    for (int i = 0; i < 3; ++i) core.PushData(bytes);
    ASSERT_TRUE(Eventually([&] { return core.GetVideoQueue().GetFreeBlocks() == 0; }));
    core.Stop();
    EXPECT_EQ(core.GetExitCode(), 0);
}

}  // namespace
}  // namespace kest
