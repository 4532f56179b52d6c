// A relayed stream as others receive it: two programs that run, and receivers on this machine.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/Receiver.h"
#include "support/TestData.h"

namespace kest {
namespace {

constexpr const char* kStream = "ps_mpeg2_packs.mpg";
constexpr const char* kSpeed = "4";  // slow enough for the system's buffers, whoever else runs

using Arguments = std::vector<std::string>;

/// Runs the program; kills it at the end, if it is still there.
class CProgram {
public:
    explicit CProgram(const Arguments& arguments) {
        m_nProcess = fork();
        if (m_nProcess != 0) return;
        std::vector<char*> apArguments{const_cast<char*>(KEST_PROGRAM)};
        for (const std::string& str : arguments) apArguments.push_back(const_cast<char*>(str.c_str()));
        apArguments.push_back(nullptr);
        execv(KEST_PROGRAM, apArguments.data());
        _exit(127);
    }
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;
    ~CProgram() {
        if (m_nProcess < 0) return;
        kill(m_nProcess, SIGKILL);
        waitpid(m_nProcess, nullptr, 0);
    }
    /// @return its exit code.
    int Wait() {
        int nStatus = -1;
        waitpid(m_nProcess, &nStatus, 0);
        m_nProcess = -1;
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }

private:
    pid_t m_nProcess = -1;
};

/// Receives datagrams on a thread of its own.
class CCollector {
public:
    explicit CCollector(std::size_t nDatagram) : m_nDatagram(nDatagram) {}
    std::string GetPort() const { return std::to_string(m_receiver.GetPort()); }
    std::string GetAddress() const { return "127.0.0.1:" + GetPort(); }
    std::size_t Count() const { return m_nReceived; }
    /// What has come; nothing more is taken.
    ByteVector Finish() {
        m_bEnd = true;
        m_thread.Join();
        return m_bytes;
    }

private:
    void Run() {
        constexpr std::uint32_t kIdleMs = 20;
        for (ByteVector datagram(65536); !(m_bEnd && m_receiver.IsIdle());) {
            const int nBytes = m_receiver.Receive(datagram, kIdleMs);
            if (nBytes < 0) continue;
            EXPECT_EQ(static_cast<std::size_t>(nBytes), m_nDatagram);
            m_bytes.insert(m_bytes.end(), datagram.begin(), datagram.begin() + nBytes);
            m_nReceived = m_bytes.size();
        }
    }

    const std::size_t m_nDatagram;
    CReceiver m_receiver;
    ByteVector m_bytes;
    std::atomic<std::size_t> m_nReceived{0};  // m_bytes.size(), for other threads
    std::atomic<bool> m_bEnd{false};
    CTestThread m_thread{[this] { Run(); }};
};

/// The beginning of the stream that fills whole datagrams.
ByteVector WholeDatagrams(std::size_t nDatagram) {
    ByteVector bytes = ReadTestData(kStream);
    bytes.resize(bytes.size() / nDatagram * nDatagram);
    return bytes;
}

TEST(Relay, BringsTheStreamToTwoReceivers) {
    for (const std::size_t nChunkKB : {1, 8, 48}) {
        SCOPED_TRACE(nChunkKB);
        CCollector destination(nChunkKB * 1024), localView(nChunkKB * 1024);
        CProgram relay({"relay", TestDataPath(kStream), "--to", destination.GetAddress(), "--local-view",
                        localView.GetPort(), "--chunk", std::to_string(nChunkKB), "--speed", kSpeed,
                        "--module", KEST_MODULE});
        EXPECT_EQ(relay.Wait(), 0);
        const ByteVector expected = WholeDatagrams(nChunkKB * 1024);
        EXPECT_TRUE(destination.Finish() == expected);
        EXPECT_TRUE(localView.Finish() == expected);
    }
}

TEST(Relay, GoesOnAtAnotherPortWithoutLossOrRepetition) {
    CCollector first(1024), second(1024);
    CProgram relay({"relay", TestDataPath(kStream), "--to", first.GetAddress(), "--chunk", "1", "--speed",
                    kSpeed, "--demux", "--module", KEST_MODULE});
    EXPECT_TRUE(Eventually([&] { return first.Count() > 0; }));
    EXPECT_EQ(CProgram({"set", "--to", second.GetAddress()}).Wait(), 0);
    EXPECT_EQ(relay.Wait(), 0);
    ByteVector bytes = first.Finish();
    const ByteVector rest = second.Finish();
    EXPECT_FALSE(bytes.empty() || rest.empty());
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    EXPECT_TRUE(bytes == WholeDatagrams(1024));
}

}  // namespace
}  // namespace kest
