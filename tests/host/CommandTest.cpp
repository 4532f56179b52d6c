// The program as a user runs it. The files in tests/data/golden are transcripts of sessions in a shell: lines
// with "$ " are commands, lines with "> " go on with one, comments begin with "#", all other lines are what
// the commands print on both outputs, and "[N]" is an exit code other than 0.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/TestData.h"

namespace kest {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

Lines ReadLines(const fs::path& path) {
    Lines lines;
    std::ifstream file(path);
    for (std::string strLine; std::getline(file, strLine);) lines.push_back(strLine);
    return lines;
}

/// What every session begins with: a folder of its own, in memory where the system has that (such a file
/// system has files without names), the program as $P and as a command that cannot hang, the module as $M,
/// the streams in the folder in/, what filters publish in a folder of its own too.
constexpr const char* kBeginning = R"(umask 022; unset KEST_DEBUG KEST_TRACE
folder=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
export XDG_RUNTIME_DIR=$(mktemp -d)
trap 'rm -rf "$folder" "$XDG_RUNTIME_DIR"' EXIT
cd "$folder" && ln -s ")" KEST_TEST_DATA R"(" in || exit
export LC_ALL=C XDG_DATA_HOME=$PWD/data
P=")" KEST_PROGRAM R"(" M=")" KEST_MODULE R"(" FAILING=")" KEST_FAILING_READ R"("
kestdemux() { timeout 60 $P "$@"; }
)";

std::string Quote(std::string strText) {
    for (std::size_t n = 0; (n = strText.find('\'', n)) != std::string::npos; n += 4) {
        strText.replace(n, 1, "'\\''");
    }
    return "'" + strText + "'";
}

/// A script that goes through a transcript's commands and prints a transcript of its own.
std::string MakeScript(const Lines& golden) {
    std::string strScript = kBeginning, strCommand;
    const auto EndCommand = [&] {
        if (!strCommand.empty()) strScript += strCommand + "} 2>&1; s=$?; [ $s = 0 ] || echo [$s]\n";
        strCommand.clear();
    };
    for (const std::string& strLine : golden) {
        const bool bCommand = strLine.starts_with("$ "), bMore = strLine.starts_with("> ");
        if (!bMore) EndCommand();
        if (bCommand || bMore || strLine.starts_with("#") || strLine.empty()) {
            strScript += "printf '%s\\n' " + Quote(strLine) + "\n";
        }
        if (bCommand) strCommand = "{ ";
        if (bCommand || bMore) strCommand += strLine.substr(2) + "\n";
    }
    EndCommand();
    return strScript;
}

class Transcript : public testing::TestWithParam<const char*> {};

TEST_P(Transcript, IsWhatTheProgramDoes) {
    const Lines golden = ReadLines(TestDataPath(std::string("golden/") + GetParam() + ".txt"));
    ASSERT_FALSE(golden.empty());
    const std::string strPlace = fs::path(KEST_PROGRAM).replace_filename(std::string("golden-") + GetParam());
    std::ofstream(strPlace + ".sh") << MakeScript(golden);
    const std::string strRun = "timeout 200 bash " + strPlace + ".sh </dev/null >" + strPlace + ".txt 2>&1";
    EXPECT_NE(std::system(strRun.c_str()), -1);
    const Lines found = ReadLines(strPlace + ".txt");
    const auto [itGolden, itFound] = std::ranges::mismatch(golden, found);
    EXPECT_TRUE(itGolden == golden.end() && itFound == found.end())
        << "golden/" << GetParam() << ".txt, line " << itGolden - golden.begin() + 1 << ":\n  "
        << (itGolden == golden.end() ? "(end)" : *itGolden) << "\nfound:\n  "
        << (itFound == found.end() ? "(end)" : *itFound) << "\nall that was found: " << strPlace << ".txt";
}

INSTANTIATE_TEST_SUITE_P(Golden, Transcript,
                         testing::Values("probe", "frames", "frames_ts", "frames_json", "samples",
                                         "samples_json", "demux", "errors", "outputs", "interrupts",
                                         "modules", "live", "help", "whole"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace kest
