// What becomes of samples that a source pushes: played, counted, dumped, forwarded; and the supervision.
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "FilterRig.h"
#include "demux/FrameInfo.h"
#include "support/Receiver.h"

namespace kest {
namespace {

constexpr std::size_t kSampleSize = 65536;

struct Intake : FilterTest {
    /// Pushes bytes in samples until one is not taken. @return whether all were.
    bool PushAll(std::span<const std::uint8_t> bytes, std::size_t nSample = kSampleSize,
                 std::uint32_t nPauseMs = 0) {
        for (; !bytes.empty(); bytes = bytes.subspan(std::min(bytes.size(), nSample))) {
            if (Push(bytes.first(std::min(bytes.size(), nSample))) != S_OK) return false;
            if (nPauseMs > 0) SleepMs(nPauseMs);
        }
        return true;
    }
    std::uint64_t CountReceived() {
        std::uint64_t llBytes = 0;
        Control()->get_BytesReceived(&llBytes);
        return llBytes;
    }
    /// Sends to two receivers.
    void BeginSending() {
        auto pControl = Control();
        pControl->put_SendAddress(kThisMachine);
        pControl->put_SendPort(m_destination.GetPort());
        pControl->put_LocalPort(m_localView.GetPort());
        pControl->put_Sending(1);
        pControl->put_LocalView(2);
        EXPECT_EQ(S_OK, pControl->ApplySendSettings());  // last: the first sample adopts what is posted here
    }
    void Start() {
        ASSERT_EQ(S_OK, m_pFilter->Pause());
        ASSERT_EQ(S_OK, m_pFilter->Run(0));
    }
    /// A delivery thread that gets no processor for a moment fills its queue while the other empties its own: that
    /// would ask for a reset.
    void PlayWithoutResets() {
        Control()->put_EnableReset(0);
        Start();
    }
    /// Holds what the sinks receive, until `Release`.
    void HoldSinks() {
        m_evGo.Reset();
        for (CCountPin* pSink : m_apSinks) pSink->m_onReceive = [this] { m_evGo.Wait(kTooLongMs); };
    }
    void Release() { m_evGo.Set(); }
    void PushThroughResets(int nClass);

    const ByteVector m_stream = ReadTestData("ps_mpeg2_packs.mpg");
    CReceiver m_destination, m_localView;
    CEvent m_evGo;
};

TEST_F(Intake, PushedStreamIsPlayedCountedDumpedAndForwarded) {
    const std::string strDump = testing::TempDir() + "kest_intake.dump";
    SetOutput(kDemuxOutputFreeRun);
    ConnectPushed(kClassProgramMpeg12);
    EXPECT_EQ(VFW_E_WRONG_STATE, Push(m_stream)) << "not while it is stopped";
    EXPECT_EQ("*****************Demxu is not ready yet!!!*************", m_texts.DebugTexts());
    BeginSending();
    ASSERT_EQ(0, Control()->put_DumpFileName(strDump.c_str()));
    Control()->put_EnableDump(1);
    PlayWithoutResets();
    EXPECT_TRUE(PushAll(m_stream));
    EXPECT_EQ(S_OK, Input().EndOfStream());
    EXPECT_EQ(89, m_apSinks[0]->WaitForEnd()) << "as many as the reading demuxer queues";
    EXPECT_EQ(35, m_apSinks[1]->WaitForEnd());
    EXPECT_EQ(m_stream.size(), CountReceived());
    EXPECT_EQ(S_OK, m_pFilter->Stop());
    std::ifstream dump(strDump, std::ios::binary);
    const ByteVector dumped(std::istreambuf_iterator<char>(dump), {});
    EXPECT_TRUE(dumped == m_stream) << dumped.size() << " bytes in " << strDump;
    const auto sent = std::span(m_stream).first(m_stream.size() / 8192 * 8192);
    m_destination.Expect(sent, 8192);
    m_localView.Expect(sent, 8192);
    SHARED_STATUS status;
    CNamedMemFile reader;
    EXPECT_EQ(1, reader.Open(MEMFILE_OPEN, nullptr, kSharedStatusName, nullptr, sizeof status, 0));
    EXPECT_EQ(1, reader.Read(&status, sizeof status));
    EXPECT_EQ(m_stream.size(), status.settings.llBytesSent);
}

TEST_F(Intake, FullDiskDoesNotDisturbThePlaying) {
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "this system has no device that is always full";
    SetOutput(kDemuxOutputFreeRun);
    ConnectPushed(kClassProgramMpeg12);
    ASSERT_EQ(0, Control()->put_DumpFileName("/dev/full"));
    Control()->put_EnableDump(1);
    PlayWithoutResets();
    EXPECT_TRUE(PushAll(m_stream));
    EXPECT_EQ(S_OK, Input().EndOfStream());
    EXPECT_EQ(89, m_apSinks[0]->WaitForEnd());
    EXPECT_EQ(35, m_apSinks[1]->WaitForEnd());
    EXPECT_EQ("dump: the file cannot be written, error 28\n", m_texts.DebugTexts())
        << "only the first failure";
}

TEST_F(Intake, EveryClassOfStreamIsPlayed) {
    // File, class, samples of video and audio: what the demuxer queues before it is stopped. The audio of the
    // system stream is mono, which its framing does not lock to.
    const std::tuple<const char*, int, int, int> cases[] = {{"ps_mpeg4.mpg", kClassProgramMpeg4, 89, 123},
                                                            {"ts_mpeg2.ts", kClassTransportMpeg12, 88, 114},
                                                            {"ts_mpeg4.ts", kClassTransportMpeg4, 88, 109},
                                                            {"sys_mpeg1.mpg", kClassMpeg1System, 89, 0},
                                                            {"es_mpeg4.m4v", kClassMpeg4VideoEs, 89, 0}};
    for (const auto& [pszFile, nClass, nVideo, nAudio] : cases) {
        SetOutput(kDemuxOutputFreeRun);
        ConnectPushed(nClass);
        for (int i = 0; i < 2; ++i) {  // a pin without samples ends in the second run too
            PlayWithoutResets();
            EXPECT_TRUE(PushAll(ReadTestData(pszFile)));
            EXPECT_EQ(S_OK, Input().EndOfStream());
            EXPECT_EQ(nVideo, m_apSinks[0]->WaitForEnd()) << pszFile;
            if (nClass != kClassMpeg4VideoEs) {
                EXPECT_EQ(nAudio, m_apSinks[1]->WaitForEnd()) << pszFile;
            }
            EXPECT_EQ(S_OK, m_pFilter->Stop());
        }
        Disconnect();
    }
}

// The video pin offers the picture size of the MPEG-1 stream that was played last.
TEST_F(Intake, PictureSizeShowsInTheTypeOfTheNextConnection) {
    ByteVector stream = ReadTestData("sys_mpeg1.mpg");
    const auto header = std::ranges::search(stream, std::to_array<std::uint8_t>({0, 0, 1, 0xB3, 22, 0, 240}));
    ASSERT_FALSE(header.empty()) << "352 x 240";
    ConnectPushed(kClassMpeg1System);
    for (const LONG nHeight : {240, 288}) {
        header[5] = static_cast<std::uint8_t>(nHeight >> 8);
        header[6] = static_cast<std::uint8_t>(nHeight);
        Start();
        EXPECT_TRUE(PushAll(std::span(stream).first(100000)));
        EXPECT_EQ(S_OK, Input().EndOfStream());
        EXPECT_EQ(S_OK, m_pFilter->Stop());
        CMediaType type;
        MPEG1VIDEOINFO format{};
        ASSERT_EQ(S_OK, m_pFilter->GetPin(1)->GetMediaType(0, type));
        std::memcpy(&format, type.pbFormat, sizeof format);
        EXPECT_EQ(nHeight, format.hdr.bmiHeader.biHeight);
        EXPECT_EQ(nHeight, format.hdr.rcSource.bottom);
    }
}

TEST_F(Intake, WithoutDemultiplexingTheBytesAreOnlyForwarded) {
    ConnectPushed(kClassProgramMpeg12);
    Control()->put_DisableDemux(1);
    BeginSending();
    Start();
    EXPECT_TRUE(PushAll(m_stream));
    m_destination.Expect(std::span(m_stream).first(8192), 8192);
    EXPECT_EQ(S_OK, Input().EndOfStream());
    for (CCountPin* pSink : m_apSinks) EXPECT_EQ(0, pSink->WaitForEnd());
}

TEST_F(Intake, SettingsOfAnotherProcessAreAdoptedWithTheNextSample) {
    ConnectPushed(kClassProgramMpeg12);
    BeginSending();
    Start();
    CNamedMemFile poster;
    SHARED_STATUS status;
    ASSERT_EQ(1, poster.Open(MEMFILE_OPEN, nullptr, kSharedStatusName, nullptr, sizeof status, 0));
    EXPECT_TRUE(PushAll(std::span(m_stream).first(1024)));  // takes what ApplySendSettings has posted
    status = {.nWorkingMode = 1, .settings = {.bSending = 1, .nChunkKB = 1}};
    status.settings.dwSendAddr = kThisMachine;
    status.settings.nSendPort = m_localView.GetPort();
    ASSERT_EQ(1, poster.WriteSignal(&status, sizeof status));
    EXPECT_TRUE(PushAll(std::span(m_stream).subspan(1024, 8192)));
    m_destination.Expect({});
    EXPECT_EQ(EWorkingMode::ProgramMpeg12, m_pFilter->GetWorkingMode());
    std::uint32_t nPort = 0;
    EXPECT_TRUE(Control()->get_SendPort(&nPort) == S_OK && nPort == m_localView.GetPort());
}

// ---------------- waits

TEST_F(Intake, EndOfStreamWaitsForTheSamplesAndEndsByStopAndFlush) {
    SetOutput(kDemuxOutputFreeRun);
    ConnectPushed(kClassProgramMpeg12);
    for (const bool bStop : {false, true}) {
        HoldSinks();
        Start();
        EXPECT_TRUE(PushAll(std::span(m_stream).first(200000)));
        ExpectWaitEnds([&] { EXPECT_EQ(S_OK, Input().EndOfStream()); },
                       [&] {
                           if (bStop) Release();
                           bStop ? m_pFilter->Stop() : Input().BeginFlush();
                       });
        Release();
        for (CCountPin* pSink : m_apSinks)
            EXPECT_TRUE(bStop ||
                        !pSink->m_evEnd.IsSignalled());  // the released sinks may be as fast as a stop
        Input().EndFlush();
        m_pFilter->Stop();
    }
}

TEST_F(Intake, AFlushLetsASampleGoThatWaitsForRoom) {
    SetOutput(kDemuxOutputFreeRun);
    ConnectPushed(kClassProgramMpeg12);
    HoldSinks();
    Start();
    const ByteVector endless = [this] {
        ByteVector bytes;
        const auto beginning = std::span(m_stream).first(500000);  // without the end code, which would reset
        while (bytes.size() < 6000000) bytes.insert(bytes.end(), beginning.begin(), beginning.end());
        return bytes;
    }();
    ExpectWaitEnds([&] { EXPECT_FALSE(PushAll(endless)); }, [&] { EXPECT_EQ(S_OK, Input().BeginFlush()); });
    EXPECT_EQ(S_FALSE, Push(m_stream));
    EXPECT_EQ(S_OK, Input().EndFlush());
    Release();
    EXPECT_EQ(S_OK, Push(std::span(m_stream).first(1000)));
}

TEST_F(Intake, EachStepLetsOneSampleGo) {
    SetOutput(kDemuxOutputFreeRun);
    CHookedReader* pReader = Load("ps_mpeg2_packs.mpg");
    ConnectAll(pReader);
    auto pControl = Control();
    auto CountSettled = [&] {
        SleepMs(10 * kSettleMs);
        return m_apSinks[0]->m_nSamples.load();
    };
    pControl->put_EnableSingleStep(1);
    Start();
    EXPECT_TRUE(Eventually([&] { return m_apSinks[0]->m_nSamples == 2; }))
        << "a step is free, and the next waits";
    for (int n = 2; n < 5; ++n) {
        EXPECT_EQ(n, CountSettled());
        pControl->put_EnableSingleStep(1);
    }
    EXPECT_EQ(5, CountSettled());
    EXPECT_EQ(S_OK, Seek(0));
    EXPECT_TRUE(Eventually([&] { return m_apSinks[0]->m_nSamples == 6; }));
    EXPECT_EQ(6, CountSettled()) << "a seek ends the wait, and the next sample waits";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(S_OK, m_pFilter->Stop());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900)) << "not by force";
    Start();
    pControl->put_EnableSingleStep(0);
    EXPECT_LT(50, m_apSinks[0]->WaitForEnd());
}

// ---------------- supervision

TEST_F(Intake, ResetIsDecidedByRequestsEndCodeAndFillLevels) {
    ConnectPushed(kClassProgramMpeg12);
    EXPECT_EQ(0, m_pFilter->CheckNeedReset());
    m_pFilter->RequestReset();
    EXPECT_EQ(-1, m_pFilter->CheckNeedReset()) << "also while it is stopped";
    HoldSinks();
    Start();
    const FRAME_INFO info{};
    const std::uint8_t byte = 0;
    // Video, audio, decision: frames that wait in the queues.
    for (const auto& [nVideo, nAudio, nDecision] :
         {std::tuple{8, 72, -2}, {9, 72, 0}, {72, 8, -2}, {72, 9, 0}}) {
        const int anPending[] = {nVideo, nAudio};
        for (int n : {0, 1}) {
            CDemuxOutputPin& pin = Output(n);
            pin.GetFrameQueue().Reset();
            while (static_cast<int>(pin.GetFramesPending()) < anPending[n]) {
                pin.GetFrameQueue().WriteEx({&byte, 1}, &info, kInfinite);
                SleepMs(1);  // the delivery thread takes the first
            }
        }
        EXPECT_EQ(nDecision, m_pFilter->CheckNeedReset()) << nVideo << ' ' << nAudio;
        EXPECT_EQ(nDecision != 0, m_pFilter->GetResetState().bNeeded);
        m_pFilter->ResetDemux();
        EXPECT_FALSE(m_pFilter->GetResetState().bNeeded);
        EXPECT_EQ(0, m_pFilter->CheckNeedReset()) << "the old frames are still to be dropped";
        m_pFilter->GetAvTiming().Update(
            [](AvTimes& times) { times.video.bRestartPending = times.audio.bRestartPending = false; });
    }
    for (int n : {0, 1}) Output(n).GetFrameQueue().Reset();
    Release();
    ByteVector endCode(4000);
    std::ranges::copy(std::initializer_list<std::uint8_t>{0, 0, 1, 0xB9}, endCode.begin());
    EXPECT_EQ(S_OK, Push(endCode));
    EXPECT_TRUE(Eventually([&] { return m_pFilter->CheckNeedReset() == -1; }));
    EXPECT_EQ(S_OK, Push(std::span(m_stream).first(100)));
    EXPECT_EQ(0, m_pFilter->CheckNeedReset()) << "once, also before the demuxer has carried it out";
    EXPECT_LT(0, CountOf(" Do reset demux filter here!!!!! \n"));
    EXPECT_TRUE(Eventually([&] { return m_pFilter->CheckNeedReset() == 0; }));
}

// Its audio stops for longer than the queues hold, while the video goes out at a renderer's pace.
TEST_F(Intake, AStreamWithoutAudioForAWhileGoesThroughAResetAndPlaysOn) {
    constexpr int kFrames = 600, kGapBegin = 150, kGapEnd = 400, kTicks = 3003;
    CProgramStreamBuilder stream;
    stream.Pack().Map({{0x02, 0xE0}, {0x03, 0xC0}});
    const ByteVector payload(500, 1);
    for (int i = 1; i <= kFrames; ++i) {
        stream.Pes(0xE0, payload, i * kTicks);
        if (i < kGapBegin || i >= kGapEnd) stream.Pes(0xC0, payload, i * kTicks);
    }
    m_apSinks[0]->m_onReceive = [] { SleepMs(1); };
    ConnectPushed(kClassProgramMpeg12);
    Start();
    EXPECT_TRUE(PushAll(stream.Get(), 3000, 1));
    const int nAtReset = CountOf("losted sync a lot");
    EXPECT_LT(0, nAtReset);
    EXPECT_EQ(S_OK, Input().EndOfStream());
    for (CCountPin* pSink : m_apSinks) EXPECT_LT(50, pSink->WaitForEnd());
    EXPECT_NE(std::string::npos, m_texts.TraceTexts().find("PTS=" + std::to_string((kFrames - 1) * kTicks)))
        << "to the end";
}

// The second time its timestamps jump back by three seconds: the pins ask for a reset, which restarts every thread.
TEST_F(Intake, ATransportStreamWhoseTimestampsJumpGoesThroughAFullResetAndPlaysOn) {
    const ByteVector stream = ReadTestData("ts_mpeg2.ts");
    ConnectPushed(kClassTransportMpeg12);
    Start();
    for (const bool bSecond : {false, true}) {
        EXPECT_TRUE(PushAll(stream, 20000, 1));
        EXPECT_EQ(bSecond, CountOf(" Do reset demux filter here!!!!! \n") > 0);
        EXPECT_EQ(S_OK, Input().EndOfStream());
        for (CCountPin* pSink : m_apSinks) EXPECT_LT(bSecond ? 20 : 80, pSink->WaitForEnd());
    }
    EXPECT_FALSE(m_pFilter->GetResetState().bResetting);
}

// Resets, stops and flushes at random moments of an endless stream: a reset in place, and one of all threads.
TEST_F(Intake, ResetsStopsAndFlushesStress) {
    for (const int nClass : {kClassProgramMpeg12, kClassTransportMpeg12}) PushThroughResets(nClass);
}

void Intake::PushThroughResets(int nClass) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1000);
    const ByteVector stream = nClass == kClassProgramMpeg12 ? m_stream : ReadTestData("ts_mpeg2.ts");
    std::mt19937 random(7);
    ConnectPushed(nClass);
    std::atomic<bool> bEnd{false};
    std::atomic<int> nPushed{0};
    Start();
    {
        CTestThread pusher([&] {
            for (std::size_t n = 0; !bEnd; n = (n + kSampleSize) % (stream.size() - kSampleSize)) {
                Push(std::span(stream).subspan(n, kSampleSize));
                ++nPushed;
            }
        });
        for (int nRound = 0; std::chrono::steady_clock::now() < end; ++nRound) {
            const int nBefore = nPushed;
            EXPECT_TRUE(Eventually([&] { return nPushed > nBefore; })) << "it hangs";
            Spin(static_cast<int>(random() % 200000));
            switch (random() % 8) {
                case 0: m_pFilter->Stop(), Start(); break;
                case 1: Input().BeginFlush(), Input().EndFlush(); break;
                default: m_pFilter->RequestReset();
            }
        }
        bEnd = true;
        m_pFilter->Stop();
    }
    EXPECT_LT(0, nPushed);
    Disconnect();
}

}  // namespace
}  // namespace kest
