#include "platform/DebugText.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/CaptureTexts.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(DebugText, EachKindGoesToItsOwnSinkUntilItIsRemoved) {
    {
        CCaptureTexts texts;
        DebugText("%d of %s|", 3, "five");
        Trace("%s", std::string(5000, 'x').c_str());
        EXPECT_EQ(texts.DebugTexts(), "3 of five|");
        EXPECT_EQ(texts.TraceTexts(), std::string(1023, 'x'));
    }
    testing::internal::CaptureStderr();
    DebugText("hidden");
    Trace("nowhere");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DebugText, SinkMayWriteTextsAndReplaceItself) {
    CCaptureTexts texts;
    SetDebugSink([strText = std::string("kept")](const char*) {
        SetDebugSink(nullptr);
        Trace("%s", strText.c_str());  // the sink is alive until it returns
    });
    CTestThread writer([] { DebugText("text"); });
    writer.Join();
    EXPECT_EQ(texts.TraceTexts(), "kept");
}

TEST(DebugText, StressSinksAreExchangedWhileThreadsWrite) {
    std::atomic<bool> bEnd{false};
    CTestThread writer([&] {
        while (!bEnd) Trace("text");
    });
    for (int i = 0; i < 2000; ++i) {
        SetTraceSink(
            [strSeen = std::make_shared<std::string>()](const char* pszText) { *strSeen = pszText; });
        std::this_thread::yield();
    }
    bEnd = true;
    writer.Join();
    SetTraceSink(nullptr);
}

}  // namespace
}  // namespace kest
