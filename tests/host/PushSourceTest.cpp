// The source that delivers: its bytes, its rate, and what ends its waits.
#include "host/PushSource.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "graph/BaseInputPin.h"
#include "host/FileReader.h"
#include "host/PipeReader.h"
#include "support/Records.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// Takes samples and keeps their bytes.
class CTaker final : public CBaseFilter {
public:
    CTaker() : CBaseFilter(nullptr, nullptr, &m_csPins, GUID_NULL) {}
    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int) override { return &m_input; }

    struct CInput final : CBaseInputPin {
        CInput(CTaker* pFilter, CCritSec* pLock) : CBaseInputPin(pFilter, pLock, nullptr, L"Input") {}
        HRESULT CheckMediaType(const CMediaType&) override { return S_OK; }
        HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override {
            BYTE* pBytes = nullptr;
            pSample->GetPointer(&pBytes);
            m_bytes.insert(m_bytes.end(), pBytes, pBytes + pSample->GetActualDataLength());
            m_nTaken = m_bytes.size();
            return m_hrReceive;
        }
        HRESULT STDMETHODCALLTYPE EndOfStream() override {
            ++m_nEnds;
            return S_OK;
        }
        std::vector<std::uint8_t> m_bytes;
        std::atomic<std::size_t> m_nTaken{0};  // m_bytes.size(), for other threads
        std::atomic<int> m_nEnds{0};
        HRESULT m_hrReceive = S_OK;
    };

    CCritSec m_csPins;
    CInput m_input{this, &m_csPins};
};

class PushSource : public testing::Test {
protected:
    ~PushSource() override {
        if (m_pSource) Disconnect();
        fs::remove_all(m_dir);
    }
    void Disconnect() {
        m_pSource->Stop();
        m_pSource->GetPin(0)->Disconnect();
        m_pTaker->m_input.Disconnect();
    }
    void Connect(CComPtr<CInputReader> pReader, double dBytesPerSecond = 0) {
        m_pSource = new CPushSource(std::move(pReader), dBytesPerSecond, m_evNotice);
        ASSERT_EQ(m_pSource->GetPin(0)->Connect(&m_pTaker->m_input, nullptr), S_OK);
    }
    bool IsReadable() {
        CComPtr<IAsyncReader> pReader;
        return m_pSource->GetPin(0)->QueryInterface(IID_IAsyncReader,
                                                    reinterpret_cast<void**>(pReader.Put())) == S_OK;
    }
    CComPtr<CInputReader> OpenFile(std::size_t nBytes) {
        m_content = Counting(nBytes);
        for (std::size_t i = 0; i < nBytes; i += 1000) m_content[i] = static_cast<std::uint8_t>(i >> 10);
        std::ofstream(m_dir / "file", std::ios::binary)
            .write(reinterpret_cast<char*>(m_content.data()), nBytes);
        return CComPtr<CInputReader>(CFileReader::Open(m_dir / "file", m_error).Get());
    }

    std::string m_strTemplate = fs::temp_directory_path() / "kestXXXXXX";
    const fs::path m_dir = mkdtemp(m_strTemplate.data());
    std::error_code m_error;
    std::vector<std::uint8_t> m_content;
    CEvent m_evNotice{false};
    CComPtr<CTaker> m_pTaker{new CTaker};
    CComPtr<CPushSource> m_pSource;
};

TEST_F(PushSource, DeliversAFileOnceForEachStart) {
    Connect(OpenFile(3 * CPushSource::kSampleSize + 777));
    EXPECT_TRUE(IsReadable());
    for (int nStart = 1; nStart <= 2; ++nStart) {
        m_pTaker->m_input.m_bytes.clear();
        ASSERT_EQ(m_pSource->Pause(), S_OK);
        EXPECT_TRUE(m_evNotice.Wait(kTooLongMs));
        EXPECT_TRUE(m_pSource->HasEnded() && m_pSource->GetResult() == S_OK);
        m_pSource->Stop();
        EXPECT_EQ(m_pTaker->m_input.m_bytes, m_content);
        EXPECT_EQ(m_pTaker->m_input.m_nEnds, nStart);
    }
}

TEST_F(PushSource, KeepsItsRateAndAStopEndsTheWaitForIt) {
    Connect(OpenFile(3 * CPushSource::kSampleSize), 50.0 * CPushSource::kSampleSize);
    const auto begin = Clock::now();
    ASSERT_EQ(m_pSource->Pause(), S_OK);
    EXPECT_TRUE(m_evNotice.Wait(kTooLongMs));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(60));
    Disconnect();
    Connect(OpenFile(3 * CPushSource::kSampleSize), 1);  // the second sample would come after 18 hours
    ASSERT_EQ(m_pSource->Pause(), S_OK);
    EXPECT_TRUE(Eventually([&] { return m_pSource->GetPosition() == CPushSource::kSampleSize; }));
    m_pSource->Stop();
    EXPECT_EQ(m_pTaker->m_input.m_nEnds, 1);
}

TEST_F(PushSource, EndsWhenNobodyTakesTheBytes) {
    for (const HRESULT hr : {S_FALSE, E_OUTOFMEMORY}) {  // a flush, a failure
        Connect(OpenFile(3 * CPushSource::kSampleSize));
        m_pTaker->m_input.m_hrReceive = hr;
        ASSERT_EQ(m_pSource->Pause(), S_OK);
        EXPECT_TRUE(m_evNotice.Wait(kTooLongMs));
        EXPECT_TRUE(m_pSource->HasEnded());
        EXPECT_EQ(m_pSource->GetResult(), hr == S_FALSE ? VFW_E_WRONG_STATE : hr);
        EXPECT_EQ(m_pSource->GetPosition() + m_pTaker->m_input.m_nEnds, 0);
        Disconnect();
    }
}

// What was fetched ahead, then what comes; a stop ends the wait for a writer, and the next start goes on there.
TEST_F(PushSource, DeliversAPipeAsItComes) {
    const fs::path fifo = m_dir / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const auto pPipe = CPipeReader::Open(fifo, m_error);
    ASSERT_TRUE(pPipe);
    Connect(CComPtr<CInputReader>(pPipe.Get()));
    EXPECT_FALSE(IsReadable());
    ASSERT_EQ(m_pSource->Pause(), S_OK);
    SleepMs(kSettleMs);
    EXPECT_EQ(m_pSource->Stop(), S_OK);  // nobody has opened it

    const int hWriter = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    const auto Write = [&](const char* pszText) {
        EXPECT_EQ(write(hWriter, pszText, strlen(pszText)), static_cast<ssize_t>(strlen(pszText)));
    };
    const auto HasTaken = [&](std::size_t n) {
        return Eventually([&] { return m_pTaker->m_input.m_nTaken == n; });
    };
    const auto no = [] { return false; };
    Write("begin");
    pPipe->FetchBeginning(3, no);
    BYTE bytes[4] = "???";
    EXPECT_TRUE(pPipe->SyncRead(1, 3, bytes) == S_FALSE && bytes[0] == 'e' && bytes[1] == 'g' &&
                bytes[2] == '?');
    ASSERT_EQ(m_pSource->Pause(), S_OK);
    EXPECT_TRUE(HasTaken(5)) << "it does not wait for a whole sample";
    m_pSource->Stop();
    Write(", end");
    close(hWriter);
    ASSERT_EQ(m_pSource->Pause(), S_OK);
    EXPECT_TRUE(Eventually([&] { return m_pSource->HasEnded(); }));
    const auto& taken = m_pTaker->m_input.m_bytes;
    EXPECT_EQ(std::string(taken.begin(), taken.end()), "begin, end");
    EXPECT_EQ(m_pTaker->m_input.m_nEnds, 1);
}

}  // namespace
}  // namespace kest
