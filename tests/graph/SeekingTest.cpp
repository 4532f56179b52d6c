// How positions are set, and what the derived class is notified of.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "graph/SourceSeeking.h"

namespace kest {
namespace {

using Log = std::vector<std::string>;

/// Writes down the notifications.
class CTestSeeking : public CSourceSeeking {
public:
    CTestSeeking() : CSourceSeeking(nullptr, &m_csSeeking) {}
    HRESULT ChangeStart(REFERENCE_TIME rt) override {
        return m_changes.push_back("start " + std::to_string(rt)), S_OK;
    }
    HRESULT ChangeStop(REFERENCE_TIME rt) override {
        return m_changes.push_back("stop " + std::to_string(rt)), S_FALSE;
    }
    HRESULT ChangeRate(double) override { return m_changes.push_back("rate"), S_OK; }
    CCritSec m_csSeeking;
    Log m_changes;
};

TEST(GraphSeeking, SetPositionsByFlags) {
    struct {
        const char* name;
        DWORD dwCurrentFlags, dwStopFlags;
        HRESULT hr;
        LONGLONG llStart, llStop;  // from 100 and 1000, given 10 and 20
        Log changes;
    } const cases[] = {
        {"none", 0, 0, S_OK, 100, 1000, {}},
        {"absolute", 1, 1, S_OK, 10, 20, {"stop 20", "start 10"}},
        {"relative", 2, 2, S_OK, 110, 1020, {"stop 1020", "start 110"}},
        {"stop from the new start", 2, 3, S_OK, 110, 130, {"stop 130", "start 110"}},
        {"stop alone", 0, 1, S_FALSE, 100, 20, {"stop 20"}},
        {"key frame for the start", 1 | AM_SEEKING_SeekToKeyFrame, 0, S_OK, 10, 1000, {"start 10"}},
        {"key frame for the stop", 0, 1 | AM_SEEKING_SeekToKeyFrame, E_INVALIDARG, 100, 1000, {}},
        {"incremental start", 3, 1, E_INVALIDARG, 100, 1000, {}},
        {"flags without positioning", AM_SEEKING_SeekToKeyFrame, 0, E_INVALIDARG, 100, 1000, {}},
    };
    for (const auto& c : cases) {
        CTestSeeking seeking;
        LONGLONG llStart = 100, llStop = 1000;
        seeking.SetPositions(&llStart, 1, &llStop, 1);
        seeking.m_changes.clear();
        llStart = 10, llStop = 20;
        EXPECT_EQ(c.hr, seeking.SetPositions(&llStart, c.dwCurrentFlags, &llStop, c.dwStopFlags)) << c.name;
        seeking.GetPositions(&llStart, &llStop);
        EXPECT_EQ(c.llStart, llStart) << c.name;
        EXPECT_EQ(c.llStop, llStop) << c.name;
        EXPECT_EQ(c.changes, seeking.m_changes) << c.name;
    }
    CTestSeeking seeking;
    LONGLONG llPosition = 0;
    EXPECT_EQ(E_POINTER, seeking.SetPositions(nullptr, 1, nullptr, 0));
    EXPECT_EQ(E_POINTER, seeking.SetPositions(&llPosition, 1, nullptr, 1));
    EXPECT_TRUE(seeking.m_changes.empty());
    LONGLONG llFar = std::numeric_limits<LONGLONG>::max();
    for (int i = 0; i < 2; ++i) seeking.SetPositions(&llFar, 2, &llFar, 3);
    EXPECT_EQ("start " + std::to_string(llFar), seeking.m_changes.back()) << "clamped";
}

}  // namespace
}  // namespace kest
