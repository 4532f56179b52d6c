#include "platform/DebugText.h"

#include <gtest/gtest.h>

#include <string>

#include "support/CaptureTexts.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(DebugText, EachKindGoesToItsOwnSinkUntilItIsRemoved) {
    {
        CCaptureTexts texts;
        DebugText("%d of %s|", 3, "five");
        Trace("%u|", 7u);
        DebugText("100%%|");
        EXPECT_EQ(texts.DebugTexts(), "3 of five|100%|");
        EXPECT_EQ(texts.TraceTexts(), "7|");
    }
    testing::internal::CaptureStderr();
    DebugText("hidden");
    Trace("nowhere");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DebugText, CutsATextThatIsTooLong) {
    CCaptureTexts texts;
    const std::string strLong(5000, 'x');
    DebugText("%s", strLong.c_str());
    Trace("%s", strLong.c_str());
    EXPECT_EQ(texts.DebugTexts(), std::string(1023, 'x'));
    EXPECT_EQ(texts.TraceTexts(), std::string(1023, 'x'));
}

TEST(DebugText, SinksMayBeExchangedWhileThreadsWrite) {
    std::atomic<bool> bEnd{false};
    CTestThread writer([&] {
        while (!bEnd) Trace("text");
    });
    for (int i = 0; i < 200; ++i) {
        std::string strSeen;  // dies with the sink; a text that came later would write into the dead
        SetTraceSink([&strSeen](const char* pszText) { strSeen = pszText; });
        std::this_thread::yield();
        SetTraceSink(nullptr);
        EXPECT_TRUE(strSeen.empty() || strSeen == "text");
    }
    bEnd = true;
}

}  // namespace
}  // namespace kest
