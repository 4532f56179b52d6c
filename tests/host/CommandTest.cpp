// The program, run as a user runs it. Expected numbers come from other tools: sizes and CRC-32 of what ffmpeg
// extracts from each stream, cut where the last frame is left behind; stamps as ffprobe lists them.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/ProgramStreamBuilder.h"
#include "support/TestData.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

struct Result {
    int nExit = -1;
    std::string strOut;
    std::string strErr;
};

std::uint32_t Crc(const std::string& strBytes) {
    return static_cast<std::uint32_t>(
        crc32_z(0, reinterpret_cast<const Bytef*>(strBytes.data()), strBytes.size()));
}

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Command : public testing::Test {
protected:
    Command() { fs::create_directories(m_dir); }
    ~Command() override { fs::remove_all(m_dir); }

    /// Runs the program through the shell; a hang ends it after 60 seconds with exit code 124.
    Result Run(const std::string& strArguments, const std::string& strBefore = "") const {
        const std::string strCommand = "cd " + m_dir.string() + " && " + strBefore +
                                       " timeout 60 " KEST_PROGRAM " " + strArguments + " >out.txt 2>err.txt";
        const int nStatus = std::system(strCommand.c_str());
        return {WEXITSTATUS(nStatus), ReadFile(m_dir / "out.txt"), ReadFile(m_dir / "err.txt")};
    }
    /// Runs a script in which $P is the program and $F a stream; what it prints.
    std::string Script(const std::string& strText) const {
        std::ofstream(m_dir / "script.sh") << "P=" KEST_PROGRAM " F=" << TestDataPath("ps_mpeg2.mpg") << '\n'
                                           << strText;
        const std::string strCommand =
            "cd " + m_dir.string() + " && timeout 60 bash script.sh >out.txt 2>err.txt; rm script.sh";
        EXPECT_EQ(std::system(strCommand.c_str()), 0);
        return ReadFile(m_dir / "out.txt");
    }
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(m_dir)) {
            const std::string strName = entry.path().filename();
            if (strName != "out.txt" && strName != "err.txt") names.push_back(strName);
        }
        return names;
    }

    const fs::path m_dir = fs::temp_directory_path() / ("kest_command_test." + std::to_string(getpid()));
};

std::vector<nlohmann::json> Lines(const std::string& strText) {
    std::vector<nlohmann::json> lines;
    std::istringstream stream(strText);
    for (std::string strLine; std::getline(stream, strLine);) lines.push_back(nlohmann::json::parse(strLine));
    return lines;
}

TEST_F(Command, FramesAndDemuxGiveWhatOtherToolsExtract) {
    struct Stream {
        std::size_t nFrames;
        std::size_t nBytes;
        std::uint32_t nCrc;        // of the payload
        std::uint32_t nStampsCrc;  // of a line "pts dts" for each frame but the first; 0: not comparable
    };
    const struct {
        const char* pszFile;
        const char* pszVideoName;
        std::array<Stream, 2> streams;  // video, audio
    } cases[] = {
        {"ps_mpeg1",
         "ps_mpeg1.m1v",
         {{{88, 489391, 0x7242bac0, 0xae695341}, {123, 70848, 0x2cdad925, 0x9217a983}}}},
        {"ps_mpeg2",
         "ps_mpeg2.m2v",
         {{{89, 527088, 0x21f1cf4a, 0xa937d7fe}, {123, 70848, 0x2cdad925, 0x9217a983}}}},
        {"ps_mpeg2_early_audio",
         "ps_mpeg2_early_audio.m2v",
         {{{89, 527088, 0x21f1cf4a, 0xa937d7fe}, {122, 70272, 0xc60a866b, 0x025cdbdd}}}},
        {"ps_mpeg4",
         "ps_mpeg4.m4v",
         {{{88, 502217, 0x0143515c, 0xae695341}, {123, 70848, 0x2cdad925, 0x9217a983}}}},
        {"ps_mpeg2_packs",
         "ps_mpeg2_packs.m2v",
         {{{89, 525493, 0x3e3fb534, 0x0b6547d5}, {35, 70662, 0x15a376c7, 0}}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pszFile);
        const std::string strPath = TestDataPath(std::string(c.pszFile) + ".mpg");
        const std::string strBytes = ReadFile(strPath);
        fs::copy(strPath, m_dir);
        const Result frames = Run("frames --json " + strPath);
        ASSERT_EQ(frames.nExit, 0) << frames.strErr;
        ASSERT_EQ(Run("demux " + std::string(c.pszFile) + ".mpg").nExit, 0);
        const std::array<std::string, 2> written = {ReadFile(m_dir / c.pszVideoName),
                                                    ReadFile(m_dir / (std::string(c.pszFile) + ".mp2"))};
        std::array<std::size_t, 2> anFrames{}, anBytes{}, anEnds{};
        std::array<std::string, 2> stamps;
        for (const auto& line : Lines(frames.strOut)) {
            const std::size_t s = line["stream"] == "video" ? 0 : 1;
            ASSERT_EQ(anEnds[s], 0u) << "the end-of-stream record is the last";
            ASSERT_EQ(line["index"], anFrames[s]);
            EXPECT_EQ(line["discontinuity"], anFrames[s] == 0);
            if (line["endOfStream"]) {
                ++anEnds[s];
                EXPECT_EQ(line["crc32"], "00000000");
                continue;
            }
            const std::size_t nPosition = line["position"];
            ASSERT_EQ(strBytes.substr(nPosition, 4), std::string("\0\0\1", 3) + (s == 0 ? "\xE0" : "\xC0"));
            const std::size_t nSize = line["size"];
            std::array<char, 9> szCrc{};
            std::snprintf(szCrc.data(), szCrc.size(), "%08x", Crc(written[s].substr(anBytes[s], nSize)));
            EXPECT_EQ(line["crc32"], szCrc.data());
            if (anFrames[s] > 0) stamps[s] += line["pts"].dump() + " " + line["dts"].dump() + "\n";
            anBytes[s] += nSize;
            ++anFrames[s];
        }
        for (const std::size_t s : {0u, 1u}) {
            EXPECT_EQ(anEnds[s], 1u);
            EXPECT_EQ(anFrames[s], c.streams[s].nFrames);
            EXPECT_EQ(anBytes[s], c.streams[s].nBytes);
            EXPECT_EQ(written[s].size(), c.streams[s].nBytes);
            EXPECT_EQ(Crc(written[s]), c.streams[s].nCrc);
            if (c.streams[s].nStampsCrc) {
                EXPECT_EQ(Crc(stamps[s]), c.streams[s].nStampsCrc);
            }
        }
    }
}

TEST_F(Command, FrameLinesHaveTheirExactForm) {
    const Result result = Run("frames --json " + TestDataPath("ps_mpeg2.mpg"));
    const std::string strLine =
        R"({"stream":"video","index":1,"size":13085,"pts":9009,"dts":0,"position":11531,"discontinuity":false,)"
        R"("segmentMarker":false,"noVideo":false,"endOfStream":false,"crc32":"a48fc16f"})";
    EXPECT_NE(result.strOut.find(strLine + "\n"), std::string::npos);
}

/// The lines of one stream or pin of a listing that are frames or samples.
std::vector<nlohmann::json> Payloads(const std::string& strText, const char* pszStream) {
    std::vector<nlohmann::json> payloads;
    for (const auto& line : Lines(strText)) {
        const bool bFrame = line.contains("stream") && line["stream"] == pszStream && !line["endOfStream"];
        const bool bSample = line.contains("pin") && line["pin"] == pszStream && line["event"] == "sample";
        if (bFrame || bSample) payloads.push_back(line);
    }
    return payloads;
}

TEST_F(Command, SamplesAreTheFramesOnTheTimeAxisOfTheAudio) {
    for (const char* pszFile : {"ps_mpeg2.mpg", "ps_mpeg2_packs.mpg"}) {
        SCOPED_TRACE(pszFile);
        const std::string strFrames = Run("frames --json " + TestDataPath(pszFile)).strOut;
        const Result result = Run("samples --json " + TestDataPath(pszFile));
        ASSERT_EQ(result.nExit, 0) << result.strErr;
        const auto base = Payloads(strFrames, "audio").at(0)["dts"].get<std::int64_t>() * 1000 / 9;
        for (const char* pszPin : {"video", "audio"}) {
            SCOPED_TRACE(pszPin);
            const auto frames = Payloads(strFrames, pszPin), samples = Payloads(result.strOut, pszPin);
            ASSERT_EQ(samples.size(), frames.size());
            const char* pszStamp = std::string(pszPin) == "video" ? "pts" : "dts";
            for (std::size_t n = 0; n < samples.size(); ++n) {
                const auto start = frames[n][pszStamp].get<std::int64_t>() * 1000 / 9 - base;
                EXPECT_EQ(samples[n]["start"], start) << n;
                EXPECT_EQ(samples[n]["stop"], start + 1) << n;
                EXPECT_EQ(samples[n]["size"], frames[n]["size"]) << n;
                EXPECT_EQ(samples[n]["crc32"], frames[n]["crc32"]) << n;
                EXPECT_EQ(samples[n]["discontinuity"], n == 0) << n;
                EXPECT_EQ(samples[n]["preroll"], false) << n;
            }
            std::string strLast;
            for (const auto& line : Lines(result.strOut)) {
                if (line["pin"] == pszPin) strLast = line["event"];
            }
            EXPECT_EQ(strLast, "endOfStream");
        }
    }
}

TEST_F(Command, StampsThatWrapInTheMiddlePlayThrough) {
    constexpr std::int64_t kWrap = std::int64_t{1} << 33, kTicks = 3003;
    constexpr int kFrames = 120;
    CProgramStreamBuilder builder;
    builder.Pack().Map({{0x02, 0xE0}, {0x03, 0xC0}});
    for (int i = 0; i <= kFrames; ++i) {
        const std::int64_t llStamp = (kWrap + (i - kFrames / 2) * kTicks) % kWrap;
        builder.Pes(0xE0, ByteVector(700, 1), llStamp).Pes(0xC0, ByteVector(500, 2), llStamp);
    }
    builder.Section(0xBE, 2000);
    std::ofstream(m_dir / "wrap.mpg", std::ios::binary)
        .write(reinterpret_cast<const char*>(builder.Get().data()),
               static_cast<std::streamsize>(builder.Size()));
    const Result result = Run("samples --json wrap.mpg");
    ASSERT_EQ(result.nExit, 0) << result.strErr;
    for (const char* pszPin : {"video", "audio"}) {
        const auto samples = Payloads(result.strOut, pszPin);
        ASSERT_EQ(samples.size(), static_cast<std::size_t>(kFrames)) << pszPin;
        for (std::size_t n = 1; n < samples.size(); ++n) {
            const auto step =
                samples[n]["start"].get<std::int64_t>() - samples[n - 1]["start"].get<std::int64_t>();
            EXPECT_NEAR(static_cast<double>(step), kTicks * 1000 / 9.0, 120) << pszPin << " " << n;
        }
    }
}

TEST_F(Command, SampleLinesHaveTheirExactForm) {
    const std::string strOut = Run("samples --json " + TestDataPath("ps_mpeg2_packs.mpg")).strOut;
    for (
        const char* pszLine : {
            R"({"pin":"video","event":"sample","start":101222,"stop":101223,"size":14158,"crc32":"488a3f0d",)"
            R"("syncPoint":true,"discontinuity":false,"preroll":false})",
            R"({"pin":"audio","event":"newSegment","start":0,"stop":9151314442816847872,"rate":1.0})",
            R"({"pin":"video","event":"beginFlush"})",
        }) {
        EXPECT_NE(strOut.find(std::string(pszLine) + "\n"), std::string::npos) << pszLine;
    }
}

TEST_F(Command, ASeekListsTheRestOfTheFile) {
    const std::string strPath = TestDataPath("ps_mpeg2_packs.mpg");
    const std::string strFrames = Run("frames --json " + strPath).strOut;
    const struct {
        const char* pszSeconds;
        std::int64_t llPosition;  // seconds * 1800000 / 8
    } cases[] = {{"0", 0}, {"1", 225000}, {"2", 450000}, {"100", 22500000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pszSeconds);
        const Result result = Run("samples --json --seek " + std::string(c.pszSeconds) + " " + strPath);
        ASSERT_EQ(result.nExit, 0) << result.strErr;
        for (const char* pszPin : {"video", "audio"}) {
            std::vector<std::string> expected, found;
            for (const auto& frame : Payloads(strFrames, pszPin)) {
                if (frame["position"] >= c.llPosition) expected.push_back(frame["crc32"]);
            }
            for (const auto& sample : Payloads(result.strOut, pszPin)) found.push_back(sample["crc32"]);
            // A sample from before the seek may be on its way, and up to two go by until both streams have
            // begun anew: what comes behind them is the rest of the file.
            ASSERT_LE(found.size(), expected.size() + 1) << pszPin;
            EXPECT_GE(found.size() + 2, expected.size()) << pszPin;
            const auto nSame =
                std::min(expected.size(), found.size() - std::min<std::size_t>(found.size(), 2));
            found.erase(found.begin(), found.end() - static_cast<std::ptrdiff_t>(nSame));
            expected.erase(expected.begin(), expected.end() - static_cast<std::ptrdiff_t>(nSame));
            EXPECT_EQ(found, expected) << pszPin;
        }
    }
}

TEST_F(Command, ProbeTellsWhatAFileIs) {
    const Result result = Run("probe --json " + TestDataPath("ps_mpeg2_packs.mpg"));
    EXPECT_EQ(result.nExit, 0);
    const auto line = Lines(result.strOut).at(0);
    EXPECT_EQ(line["class"], 4);
    EXPECT_EQ(line["bitRate"], 1800000);
    EXPECT_EQ(line["length"], 612376);
    EXPECT_NEAR(line["duration"].get<double>(), 612376 * 8 / 1800000.0, 1e-9);
    EXPECT_EQ(Lines(Run("probe --json " + TestDataPath("ts_mpeg2.ts")).strOut).at(0)["class"], 3);
}

TEST_F(Command, BadInputIsOneLineAndLeavesNothing) {
    std::ofstream(m_dir / "empty.mpg");
    std::ofstream(m_dir / "noise.mpg") << std::string(100000, 'x');
    const struct {
        std::string strInput;
        const char* pszReason;
    } cases[] = {
        {TestDataPath("vob_mpeg2_nomap.mpg"),
         "vob_mpeg2_nomap.mpg: class 6, not recognised; missing: a program stream map"},
        {TestDataPath("ts_mpeg2.ts"), "ts_mpeg2.ts: class 3, transport stream"},
        {TestDataPath("ts_mpeg4.ts"), "ts_mpeg4.ts: class 1, transport stream"},
        {TestDataPath("sys_mpeg1.mpg"), "sys_mpeg1.mpg: class 5, MPEG-1 system stream"},
        {TestDataPath("es_mpeg4.m4v"), "es_mpeg4.m4v: class 0, MPEG-4 video elementary stream"},
        {"noise.mpg", "noise.mpg: class 6, not recognised; missing: a pack header, transport packets"},
        {"empty.mpg", "empty.mpg: the file is empty"},
        {"absent.mpg", "absent.mpg: No such file or directory"},
        {".", ".: Is a directory"},
        {"/dev/stdin", "/dev/stdin: cannot be read at any position"},
    };
    for (const auto& c : cases) {
        for (const char* pszCommand : {"demux ", "frames ", "samples "}) {
            const Result result = Run(pszCommand + c.strInput, "echo |");
            EXPECT_EQ(result.nExit, 1) << c.strInput;
            EXPECT_EQ(result.strOut, "");
            EXPECT_NE(result.strErr.find(c.pszReason), std::string::npos) << result.strErr;
            EXPECT_EQ(std::count(result.strErr.begin(), result.strErr.end(), '\n'), 1) << result.strErr;
        }
    }
    EXPECT_EQ(Files().size(), 2u) << "no output was left behind";
}

TEST_F(Command, OutputsAreNeverOverwrittenUnasked) {
    fs::copy(TestDataPath("ps_mpeg2.mpg"), m_dir / "a.mpg");
    std::ofstream(m_dir / "a.mp2") << "mine";
    Result result = Run("demux a.mpg");
    EXPECT_EQ(result.nExit, 3);
    EXPECT_NE(result.strErr.find("a.mp2: exists already; --force overwrites it"), std::string::npos);
    EXPECT_EQ(ReadFile(m_dir / "a.mp2"), "mine");
    EXPECT_FALSE(fs::exists(m_dir / "a.m2v")) << "what was begun is removed";
    EXPECT_EQ(Run("demux a.mpg --force").nExit, 0);
    EXPECT_EQ(fs::file_size(m_dir / "a.mp2"), 70848u);
    EXPECT_EQ(Run("demux a.mpg --force --video a.mpg").nExit, 2) << "never the input itself";
    EXPECT_EQ(Run("demux a.mpg --force --video ./a.mp2").nExit, 2) << "never both into one file";
    EXPECT_EQ(fs::file_size(m_dir / "a.mpg"), fs::file_size(TestDataPath("ps_mpeg2.mpg")));
}

TEST_F(Command, OutputsTakeTheirPlaceTogetherAndFollowLinks) {
    const std::string strFile = TestDataPath("ps_mpeg2.mpg");
    fs::create_directory(m_dir / "sub");
    fs::create_symlink("sub/new.m2v", m_dir / "link.m2v");
    std::ofstream(m_dir / "sub" / "old.mp2") << "mine";
    fs::permissions(m_dir / "sub" / "old.mp2", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(m_dir / "sub" / "old.mp2", m_dir / "link.mp2");
    EXPECT_EQ(Run("demux " + strFile + " --force --audio link.mp2 --video /dev/full").nExit, 3);
    EXPECT_EQ(ReadFile(m_dir / "sub" / "old.mp2"), "mine") << "it stays when the other output fails";
    EXPECT_EQ(Run("demux " + strFile + " --force --video link.m2v --audio link.mp2").nExit, 0);
    EXPECT_TRUE(fs::is_symlink(m_dir / "link.m2v") && fs::is_symlink(m_dir / "link.mp2"));
    EXPECT_EQ(fs::file_size(m_dir / "sub" / "new.m2v"), 527088u);
    EXPECT_EQ(fs::file_size(m_dir / "sub" / "old.mp2"), 70848u);
    EXPECT_EQ(fs::status(m_dir / "sub" / "old.mp2").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_dir / "sub"), {}), 2);
}

TEST_F(Command, BothOutputsInOnePlaceAreRefused) {
    fs::create_symlink("new", m_dir / "link");
    for (const char* pszOutputs :
         {"--video - --audio /dev/stdout", "--video new --audio ./new", "--video link --audio new",
          "--video - --audio out.txt --force", "--video pipe --audio ./pipe"}) {
        const std::string strText = "mkfifo pipe; $P demux $F " + std::string(pszOutputs) +
                                    " 2>message | cat; echo ${PIPESTATUS[0]}; cat message; rm pipe message\n";
        const bool bToFile = std::string(pszOutputs).find("out.txt") != std::string::npos;
        const std::string strPrinted =
            Script(bToFile ? "$P demux $F " + std::string(pszOutputs) + " 2>&1; echo $?" : strText);
        EXPECT_NE(strPrinted.find("both streams cannot go into one file\n"), std::string::npos) << strPrinted;
        EXPECT_NE(("\n" + strPrinted).find("\n2\n"), std::string::npos) << strPrinted;
    }
    EXPECT_EQ(Run("demux " + TestDataPath("ps_mpeg2.mpg") + " --video /dev/null --audio /dev/null").nExit, 0);
}

TEST_F(Command, TheModuleIsGivenOrBesideTheProgramOrRegisteredLast) {
    const auto Try = [this](const std::string& strScript) {
        return Script("exec 2>&1; export XDG_DATA_HOME=$PWD/data; cp $P alone\n" + strScript + "\necho $?");
    };
    const std::string strNone =
        "kestdemux: no KestDemux2Filter.so beside the program and none registered; give --module\n2\n";
    const std::string strRun = "./alone samples $F | grep -c sample";
    EXPECT_EQ(Try("./alone samples $F"), strNone);
    EXPECT_EQ(Try("./alone samples $F --module gone.so"),
              "kestdemux: " + (m_dir / "gone.so").string() +
                  ": cannot open shared object file: No such file or directory\n2\n");
    EXPECT_EQ(Try("./alone samples $F --module " KEST_FAILING_READ),
              "kestdemux: " KEST_FAILING_READ ": is not a module of the media graph\n2\n");
    EXPECT_EQ(Try(KEST_PROGRAM " register && mkdir old && cp " KEST_MODULE
                               " old && ./alone register --module old/KestDemux2Filter.so && rm -r old\n" +
                  strRun),
              "212\n0\n")
        << "the one that was registered last has gone since; the one before it serves";
    EXPECT_EQ(Try("./alone unregister --module old/KestDemux2Filter.so && grep -c ^module data/*/modules"),
              "1\n0\n");
    EXPECT_EQ(Try("./alone unregister && ./alone samples $F"), strNone);
    EXPECT_EQ(Try("export XDG_DATA_HOME=$PWD/alone; " KEST_PROGRAM " register"),
              "kestdemux: the list of modules: cannot enter the module (0x80004005); -v tells more\n3\n");
}

TEST_F(Command, VerboseShowsTheTextsOfProgramAndModule) {
    EXPECT_EQ(Script("$P samples $F 2>&1 >/dev/null"), "");
    const std::string strDebug = Script("$P -v samples $F 2>&1 >/dev/null");
    EXPECT_NE(strDebug.find("END OF FILE"), std::string::npos);
    EXPECT_EQ(strDebug.find("SetWorkingMode"), std::string::npos);
    EXPECT_NE(Script("$P -vv samples $F 2>&1 >/dev/null").find("SetWorkingMode"), std::string::npos);
}

TEST_F(Command, ReadErrorInTheMiddleIsNoEnd) {
    const std::string strPath = TestDataPath("ps_mpeg2.mpg");
    const std::string strBefore =
        "KEST_FAIL_FROM=400000 ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" KEST_FAILING_READ;
    for (const char* pszCommand : {"frames ", "demux --video a --audio b "}) {
        const Result result = Run(pszCommand + strPath, strBefore);
        EXPECT_EQ(result.nExit, 1);
        EXPECT_EQ(result.strErr, "kestdemux: " + strPath + ": cannot be read beyond byte 400000\n");
    }
    EXPECT_EQ(Files(), std::vector<std::string>());
}

TEST_F(Command, SignalsBreakOffWhateverItWaitsFor) {
    const struct {
        const char* pszWhat;
        const char* pszScript;
        const char* pszExpected;
    } cases[] = {
        {"a pipe that nobody opens",
         "$P demux $F --video pipe --audio b & sleep 0.3; kill -HUP $!; wait $!; echo $?", "130\n"},
        {"a pipe that nobody reads",
         "$P demux $F --video pipe --audio b & exec 3<pipe; sleep 0.5; kill -TERM $!; wait $!; echo $?",
         "130\n"},
        {"an ignored signal",
         "trap '' TERM; $P demux $F --video pipe --audio /dev/null & sleep 0.3; kill -TERM $!; cat pipe | wc "
         "-c; wait $!; "
         "echo $?",
         "527088\n0\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Script("mkfifo pipe\n" + std::string(c.pszScript) + "\nrm pipe"), c.pszExpected)
            << c.pszWhat;
        EXPECT_EQ(Files(), std::vector<std::string>()) << c.pszWhat;
    }
}

TEST_F(Command, OutputThatFailsEndsWithCode3) {
    const std::string strFile = TestDataPath("ps_mpeg2.mpg");
    Result result = Run("demux " + strFile + " --video /dev/full --audio b.mp2");
    EXPECT_EQ(result.nExit, 3);
    EXPECT_EQ(result.strErr, "kestdemux: /dev/full: No space left on device\n");
    EXPECT_FALSE(fs::exists(m_dir / "b.mp2"));
    EXPECT_EQ(Run("demux " + strFile + " --video no/such/dir.m2v --audio b.mp2").nExit, 3);
    EXPECT_EQ(Run("frames " + strFile + " >/dev/full; exit $?; :").nExit, 3);
    EXPECT_EQ(Script("$P demux $F --video - --audio b.mp2 | true; echo ${PIPESTATUS[0]}"), "3\n")
        << "closed pipe";
    EXPECT_EQ(Files(), std::vector<std::string>());
    EXPECT_EQ(Run("demux " + strFile + " --video - --audio /dev/null").strOut.size(), 527088u);
}

TEST_F(Command, WrongUsageEndsWithCode2AndHelpShowsAnExample) {
    for (const char* pszArguments :
         {"", "frobnicate", "demux", "frames --nonsense x", "probe a b", "samples a --seek -1"}) {
        const Result result = Run(pszArguments);
        EXPECT_EQ(result.nExit, 2) << pszArguments;
        EXPECT_EQ(std::count(result.strErr.begin(), result.strErr.end(), '\n'), 1) << result.strErr;
    }
    Result result = Run("frames -");
    EXPECT_EQ(result.nExit, 2);
    EXPECT_EQ(result.strErr, "kestdemux: -: standard input is not taken; give a file\n");
    result = Run("demux /dev/stdin <" + TestDataPath("ps_mpeg2.mpg"));
    EXPECT_EQ(result.nExit, 2);
    EXPECT_EQ(result.strErr, "kestdemux: /dev/stdin: give --video and --audio\n");
    for (const char* pszCommand : {"probe", "frames", "samples", "demux"}) {
        result = Run(std::string(pszCommand) + " --help");
        EXPECT_EQ(result.nExit, 0);
        EXPECT_NE(result.strOut.find("Example:\n  kestdemux " + std::string(pszCommand)), std::string::npos);
    }
}

}  // namespace
}  // namespace kest
