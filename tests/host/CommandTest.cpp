// The program as a user runs it. The files in tests/data/golden are transcripts of sessions in a shell: lines
// with "$ " are commands, lines with "> " go on with one, comments begin with "#", all other lines are what the
// commands print on both outputs, and "[N]" is an exit code other than 0.
#include <gtest/gtest.h>
#include <unistd.h>

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

/// A folder of its own, in memory where the system has that: such a file system has files without names.
class CWorkFolder {
public:
    CWorkFolder() { fs::create_directories(m_path); }
    ~CWorkFolder() { fs::remove_all(m_path); }
    const fs::path m_path =
        (access("/dev/shm", W_OK) == 0 ? fs::path("/dev/shm") : fs::temp_directory_path()) /
        ("kest_command_test." + std::to_string(getpid()));
};

/// What every session begins with: the program as $P and as a command that cannot hang, the module as $M, and
/// the streams in the folder in/.
std::string Beginning(const fs::path& folder) {
    return "cd " + folder.string() +
           " && mkdir work && cd work && ln -s " KEST_TEST_DATA
           " in || exit\numask 022\nexport LC_ALL=C XDG_DATA_HOME=$PWD/data\nP=" KEST_PROGRAM " M=" KEST_MODULE
           " FAILING=" KEST_FAILING_READ "\nkestdemux() { timeout 60 $P \"$@\"; }\n";
}

std::string Quote(std::string strText) {
    for (std::size_t n = 0; (n = strText.find('\'', n)) != std::string::npos; n += 4) {
        strText.replace(n, 1, "'\\''");
    }
    return "'" + strText + "'";
}

/// A script that goes through a transcript's commands and prints a transcript of its own.
std::string MakeScript(const Lines& golden) {
    std::string strScript, strCommand;
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
    const CWorkFolder folder;
    const fs::path script = folder.m_path / "script", found = folder.m_path / "found";
    std::ofstream(script) << Beginning(folder.m_path) << MakeScript(golden);
    const std::string strRun =
        "timeout 200 bash " + script.string() + " </dev/null >" + found.string() + " 2>&1";
    EXPECT_EQ(std::system(strRun.c_str()), 0);
    const Lines lines = ReadLines(found);
    const auto [itGolden, itFound] = std::ranges::mismatch(golden, lines);
    if (itGolden == golden.end() && itFound == lines.end()) return;
    const fs::path kept =
        fs::path(KEST_PROGRAM).parent_path() / (std::string("golden-") + GetParam() + ".txt");
    fs::copy_file(found, kept, fs::copy_options::overwrite_existing);
    ADD_FAILURE() << "golden/" << GetParam() << ".txt, line " << itGolden - golden.begin() + 1 << ":\n  "
                  << (itGolden == golden.end() ? "(end)" : *itGolden) << "\nfound:\n  "
                  << (itFound == lines.end() ? "(end)" : *itFound) << "\nall that was found: " << kept;
}

INSTANTIATE_TEST_SUITE_P(Golden, Transcript,
                         testing::Values("probe", "frames", "frames_json", "samples", "samples_json", "demux",
                                         "errors", "outputs", "interrupts", "modules"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace kest
