#include "net/UdpSender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/CaptureTexts.h"
#include "support/Receiver.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kWrite = CUdpSender::kWriteSize;

/// A sender whose addresses are two receivers.
class CRig : public CUdpSender {
public:
    explicit CRig(std::int32_t nChunkKB) {
        m_on.nChunkKB = nChunkKB;
        AdoptSettings(&m_on);
        EXPECT_EQ(Open(), 0);
    }
    int Push(std::span<const std::uint8_t> data) {
        return CUdpSender::Push(data.data(), static_cast<std::int32_t>(data.size()));
    }
    std::uint64_t CountSent() { return GetSettingsPtr()->Get(&SEND_SETTINGS::llBytesSent); }

    CReceiver m_destination, m_localView;
    SEND_SETTINGS m_on{.nLocalPort = m_localView.GetPort(),
                       .bLocalView = 1,
                       .bSending = 1,
                       .nSendPort = m_destination.GetPort(),
                       .dwSendAddr = kThisMachine};
};

Bytes MakeStream(std::size_t nBytes) {
    Bytes stream(nBytes);
    std::ranges::generate(
        stream, [r = std::minstd_rand(7)]() mutable { return static_cast<std::uint8_t>(r() >> 8); });
    return stream;
}

TEST(UdpSender, SendsTheStreamInDatagramsOfTheChunkSize) {
    constexpr std::pair<std::int32_t, std::size_t> kCases[] = {
        {-3, 1024}, {0, 1024}, {1, 1024}, {8, 8192}, {48, 49152}, {49, 49152}, {0x7FFFFFFF, 49152}};
    for (const auto& [nChunkKB, nDatagram] : kCases) {
        SCOPED_TRACE(nChunkKB);
        CRig rig(nChunkKB);
        rig.Resume();
        const Bytes stream = MakeStream(3 * nDatagram);
        const auto whole = std::span(stream).first(2 * nDatagram), last = std::span(stream).last(nDatagram);
        EXPECT_EQ(rig.Push(std::span(stream).first(2 * nDatagram + 1000)), 2 * nDatagram + 1000);
        rig.m_destination.Expect(whole, nDatagram);
        rig.m_localView.Expect(whole, nDatagram);
        EXPECT_TRUE(rig.m_localView.IsIdle()) << "the tail waits";
        EXPECT_EQ(rig.Push(last.subspan(1000)), nDatagram - 1000);
        rig.m_destination.Expect(last, nDatagram);
        rig.m_localView.Expect(last, nDatagram);
        EXPECT_EQ(rig.CountSent(), stream.size());
    }
}

TEST(UdpSender, SendsOnlyWhatAndWhereItShould) {
    CCaptureTexts texts;
    CReceiver other;
    const Bytes chunk = MakeStream(1024);
    CRig rig(1);
    rig.Resume();
    CSendSettings& settings = *rig.GetSettingsPtr();
    settings.Set(&SEND_SETTINGS::nSendPort, 0x30000u + other.GetPort());  // the low 16 bits count
    rig.Push(chunk);
    rig.m_destination.Expect(chunk);
    rig.UpdateAddresses();
    rig.Push(chunk);
    other.Expect(chunk);
    settings.Set(&SEND_SETTINGS::nSendPort, 0);  // nothing can be sent there, which the other does not feel
    rig.UpdateAddresses();
    for (int i = 0; i < 2; ++i) rig.Push(chunk);
    for (int i = 0; i < 4; ++i) rig.m_localView.Expect(chunk);
    const std::string strTexts = texts.TraceTexts();
    EXPECT_EQ(std::count(strTexts.begin(), strTexts.end(), '\n'), 1) << strTexts;

    EXPECT_EQ(rig.Open(), UDP_E_ALREADY_OPEN);
    EXPECT_EQ(rig.Close() + rig.Open(), 0);
    rig.AdoptSettings(&rig.m_on);
    rig.HoldPush();
    EXPECT_EQ(rig.Push(chunk), 0);
    rig.ReleasePush();
    settings.Set(&SEND_SETTINGS::bLocalView, 0);
    settings.Set(&SEND_SETTINGS::bSending, 0);
    EXPECT_EQ(rig.Push(chunk), 0);
    EXPECT_EQ(rig.CountSent(), 0u);
    EXPECT_TRUE(rig.m_destination.IsIdle());
}

// No wake-up is lost that comes before the wait, and what is queued stays in its order.
TEST(UdpSender, HoldPushEndsAWaitingPushStress) {
    CRig rig(8);
    const Bytes stream = MakeStream(CUdpSender::kRingSize + 2 * kWrite);
    const auto begin = std::span(stream).first(3 * kWrite), last = std::span(stream).last(kWrite);
    EXPECT_EQ(rig.Push(begin), 3 * kWrite);
    {
        CTestThread first([&] { EXPECT_EQ(rig.Push(std::span(stream).subspan(3 * kWrite)), 0); });
        EXPECT_TRUE(Eventually([&] { return rig.CountSent() == stream.size(); }));
        SleepMs(kSettleMs);
        EXPECT_FALSE(first.HasEnded()) << "its first write alone has room";
        rig.HoldPush();
    }
    std::atomic<bool> bEnd{false};
    std::atomic<int> nEnded{0};
    CTestThread pusher([&] {
        for (; !bEnd; ++nEnded) EXPECT_EQ(rig.Push(last), 0);
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
        rig.ReleasePush();
        Spin(i % 500);
        rig.HoldPush();
        const int nBefore = nEnded;
        ASSERT_TRUE(Eventually([&] { return nEnded > nBefore; })) << "the wait sleeps on";
    }
    bEnd = true;
    pusher.Join();
    rig.ReleasePush();
    rig.Resume();
    EXPECT_EQ(rig.Push(last), kWrite);
    rig.m_localView.Expect(std::span(stream).first(CUdpSender::kRingSize), 8192);
    rig.m_localView.Expect(last, 8192);
}

}  // namespace
}  // namespace kest
