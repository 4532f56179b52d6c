// What platform/ declares of the host system where there is no Windows is what Windows declares.
#include "SystemNames.h"

#include <gtest/gtest.h>

#include <map>

namespace kest {
namespace {

TEST(SystemNames, MeanOnEverySystemWhatTheyMeanOnWindows) {
    const SystemNames windows = WindowsNames(), portable = PortableNames();
    ASSERT_EQ(windows.size(), portable.size());
    for (std::size_t i = 0; i < windows.size(); ++i) {
        EXPECT_EQ(portable[i].strMeaning, windows[i].strMeaning)
            << portable[i].strHeader << ": " << portable[i].strName;
    }
}

// A list that has lost names, or words that say nothing, would let every error pass.
TEST(SystemNames, AreListedFromEveryHeaderWithTheirMeaning) {
    std::map<std::string, std::string> meanings;
    std::map<std::string, int> headers, kinds;
    for (const SystemName& name : PortableNames()) {
        meanings[name.strName] = name.strMeaning;
        ++headers[name.strHeader];
        ++kinds[name.strName.substr(0, name.strName.find(' '))];
    }
    for (const char* pszHeader : {"AsyncReader.h", "Types.h", "Unknown.h", "graph/Interfaces.h",
                                  "graph/MediaRecords.h", "graph/ResultCodes.h"}) {
        EXPECT_GE(headers[std::string("platform/") + pszHeader], 5) << pszHeader;
    }
    const std::map<std::string, int> least = {{"constant", 110}, {"type", 30}, {"record", 15}, {"field", 80},
                                              {"interface", 20}, {"base", 20}, {"method", 130}};
    for (const auto& [strKind, nLeast] : least) EXPECT_GE(kinds[strKind], nLeast) << strKind;

    const std::map<std::string, std::string> samples = {
        {"constant E_NOTIMPL", "-2147467263"},
        {"constant PINDIR_OUTPUT", "1"},
        {"constant IID_IUnknown", "0000000000000000C000000000000046"},
        {"type DWORD", "unsigned integer of 4 bytes in 4 bytes"},
        {"record AM_MEDIA_TYPE", "88 bytes"},
        {"field AM_MEDIA_TYPE.pbFormat", "80: pointer to unsigned integer of 1 bytes in 8 bytes"},
        {"interface IMediaPosition", "18 methods"},
        {"base IMediaFilter of IBaseFilter", "1"},
        {"method IMediaSeeking::SetRate",
         "slot 17, gives signed integer of 4 bytes in 4 bytes, takes (floating point of 8 bytes in 8 bytes)"},
    };
    for (const auto& [strName, strMeaning] : samples) EXPECT_EQ(meanings[strName], strMeaning) << strName;
}

}  // namespace
}  // namespace kest
