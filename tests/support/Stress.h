// One writer and five readers of different speed on one ring or queue, with and without somebody who empties,
// closes and reopens it.
#pragma once

#include <algorithm>
#include <list>
#include <random>
#include <vector>

#include "support/Records.h"
#include "support/TestThreads.h"

namespace kest {

/// What the stress does to the class under test. It carries records (support/Records.h).
class CStressed {
public:
    virtual void OpenAll() = 0;
    virtual void CloseAll() = 0;
    /// Opens and closes reader after reader, empties, closes all: one of these, by chance. In a third thread.
    virtual void Disturb(std::minstd_rand& random) = 0;
    /// Writes up to nMost records from a sequence number on. @return how many were written.
    virtual std::uint64_t Write(std::uint64_t nSequence, std::uint64_t nMost, std::minstd_rand& random) = 0;
    /// Reads some records. @return their sequence numbers, 0 for a record that is torn.
    virtual std::vector<std::uint64_t> Read(int nReader) = 0;

protected:
    ~CStressed() = default;
};

/// First disturbed for half a second: nothing may be torn, twice or out of order. Then undisturbed: every
/// reader gets every one of nRecords (an even number), or of as many as the readers have got before when
/// those were less (a slow machine). No wait may hang in either.
inline void RunStress(CStressed& stressed, std::uint64_t nRecords) {
    constexpr int kReaders = 5;
    constexpr std::uint64_t kLeastTaken = 100, kLeastRecords = 1000;
    std::uint64_t nNext = 1;  // the writer's next record
    for (const bool bDisturbed : {true, false}) {
        const std::uint64_t nFirst = nNext, nEnd = bDisturbed ? ~std::uint64_t{0} : nFirst + nRecords;
        std::atomic<bool> bEnd{false};
        std::atomic<std::uint64_t> nTaken{0};
        stressed.OpenAll();
        std::list<CTestThread> threads;
        threads.emplace_back([&, nEnd] {
            std::minstd_rand random(1);
            while (!bEnd && nNext <= nEnd) {  // one record more: looking for a code needs bytes behind it
                const std::uint64_t nWritten = stressed.Write(nNext, nEnd + 1 - nNext, random);
                if (nWritten == 0) std::this_thread::yield();
                nNext += nWritten;
            }
        });
        for (int nReader = 0; nReader < kReaders; ++nReader) {
            threads.emplace_back([&, nReader, nFirst, nEnd, bDisturbed] {
                std::uint64_t nLast = nFirst - 1;
                while (!bEnd && nLast < nEnd - 1) {
                    const auto anSequence = stressed.Read(nReader);
                    if (anSequence.empty()) std::this_thread::yield();
                    for (std::size_t i = 0; i < anSequence.size(); ++i) {
                        ASSERT_NE(anSequence[i], 0u) << "torn";
                        ASSERT_GT(anSequence[i], nLast) << "delivered twice or out of order";
                        ASSERT_TRUE((bDisturbed && i == 0) || anSequence[i] == nLast + 1) << "lost";
                        nLast = anSequence[i];
                    }
                    nTaken += anSequence.size();
                    Spin(100 * nReader);
                }
            });
        }
        if (bDisturbed) {
            std::minstd_rand random(2);
            const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
            while (std::chrono::steady_clock::now() < end) {
                stressed.Disturb(random);
                std::this_thread::sleep_for(std::chrono::microseconds(random() % 200));
            }
            bEnd = true;
            stressed.CloseAll();
        }
        threads.clear();
        stressed.CloseAll();
        EXPECT_GE(nTaken, bDisturbed ? kLeastTaken : kReaders * nRecords);
        if (bDisturbed) nRecords = std::min(nRecords, std::max(nTaken / 2 * 2, kLeastRecords));
    }
}

}  // namespace kest
