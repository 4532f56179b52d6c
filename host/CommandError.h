#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace kest {

/// Exit codes of the program.
enum EExitCode : int {
    kExitDone = 0,
    kExitBadInput = 1,   // the input is not usable
    kExitBadUsage = 2,   // the command line is wrong
    kExitBadOutput = 3,  // the output could not be written
    kExitInterrupted = 130,
};

/// Ends a command: the message goes to standard error in one line, behind the program's name.
class CCommandError : public std::runtime_error {
public:
    CCommandError(EExitCode nCode, const std::string& strMessage)
        : std::runtime_error(strMessage), m_nCode(nCode) {}
    EExitCode GetExitCode() const { return m_nCode; }

private:
    EExitCode m_nCode;
};

/// Runs a step on files. Throws CCommandError, with the file and the reason, when the system reports an
/// error.
template <class Step>
auto OrEnd(EExitCode nCode, Step step) {
    try {
        return step();
    } catch (const std::filesystem::filesystem_error& error) {
        throw CCommandError(nCode, error.path1().string() + ": " + error.code().message());
    }
}

}  // namespace kest
