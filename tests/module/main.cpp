// Tests of the module as a host meets it: registered, found, connected and run by the system's own media
// graph. Nothing of the module's sources is used here.
//
//     module_tests CASE [ARGUMENT...]
//
// A case that passes prints what it reports and ends with 0; one that fails prints one line on standard error
// and ends with 1. A wrong call ends with 2.
#include <fcntl.h>
#include <io.h>
#include <objbase.h>

#include <cstdio>
#include <map>
#include <string_view>
#include <vector>

#include "Cases.h"
#include "Check.h"

namespace kest {

std::string ToText(HRESULT hr) {
    std::string strText = "0x12345678";
    std::snprintf(strText.data(), strText.size() + 1, "0x%08lx", static_cast<unsigned long>(hr));
    return strText;
}

namespace {

struct Case {
    std::string (*pRun)(Arguments);
    std::size_t nArguments;  // at least
};

const std::map<std::wstring_view, Case> kCases = {
    {L"registered", {CheckRegistered, 1}},
    {L"unregistered", {CheckUnregistered, 0}},
    {L"loading", {CheckLoading, 3}},
    {L"samples", {ListSamples, 1}},
    {L"starts", {CheckStarts, 1}},
    {L"states", {CheckStates, 1}},
    {L"intelligent", {CheckIntelligentConnection, 1}},
    {L"decoder", {CheckAudioDecoder, 1}},
};

int Run(std::span<const std::wstring> words) {
    const auto it = words.empty() ? kCases.end() : kCases.find(words[0]);
    if (it == kCases.end() || words.size() - 1 < it->second.nArguments) {
        std::fputs("module_tests CASE [ARGUMENT...]\n", stderr);
        return 2;
    }
    _setmode(_fileno(stdout), _O_BINARY);  // lines end as everywhere
    RequireOk(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "the system's objects cannot be used");
    const std::string strReport = it->second.pRun(words.subspan(1));
    if (!strReport.empty()) std::printf("%s\n", strReport.c_str());
    CoUninitialize();
    return 0;
}

}  // namespace
}  // namespace kest

int wmain(int argc, wchar_t** argv) {
    const std::vector<std::wstring> words(argv + 1, argv + argc);
    try {
        return kest::Run(words);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "module_tests: %ls: %s\n", words[0].c_str(), error.what());
        return 1;
    }
}
