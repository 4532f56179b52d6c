// The program kestdemux: a command-line host of the demultiplexer.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <system_error>

#include "host/CommandError.h"
#include "host/CommandLine.h"
#include "host/Interrupts.h"

namespace {

using namespace kest;

/// Turns on the texts of the program and of the modules that it loads later.
void ShowTexts(int nVerbosity) {
    if (nVerbosity >= 1) setenv("KEST_DEBUG", "1", 1);
    if (nVerbosity >= 2) setenv("KEST_TRACE", "1", 1);
}

/// Keeps the numbers of outputs that were closed by the caller, so that no file that is opened later gets one
/// of them and with it the texts for that output. A descriptor of this kind can neither be written to nor be
/// opened anew.
void ReserveStandardOutputs() {
    for (const int hOutput : {STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(hOutput, F_GETFD) >= 0) continue;
        const int hRoot = open("/", O_PATH | O_CLOEXEC);  // the lowest number that is free
        if (hRoot < 0 || hRoot == hOutput) continue;
        dup2(hRoot, hOutput);
        close(hRoot);
    }
}

/// Prints what --help or --version shows.
int ShowHelp(const CLI::App& app, const CLI::Success& help) {
    const int nExitCode = app.exit(help);
    if (std::cout.flush()) return nExitCode;
    throw CCommandError(kExitBadOutput, "standard output: " + std::generic_category().message(errno));
}

/// Parses the command line and runs the command.
int RunProgram(int argc, char** argv) {
    CLI::App app("Separates MPEG streams into their elementary streams.", "kestdemux");
    int nVerbosity = 0;
    app.add_flag("-v,--verbose", nVerbosity, "show debug texts; twice: trace texts too");
    app.parse_complete_callback([&nVerbosity] { ShowTexts(nVerbosity); });  // comes before the command's own
    AddCommands(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return ShowHelp(app, help);
    } catch (const CLI::ParseError& error) {
        throw CCommandError(kExitBadUsage, std::string(error.what()) + " (--help shows the usage)");
    }
    return kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
    ReserveStandardOutputs();
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is an output that cannot be written
    CatchInterrupts();
    try {
        return RunProgram(argc, argv);
    } catch (const CCommandError& error) {
        std::fprintf(stderr, "kestdemux: %s\n", error.what());
        return error.GetExitCode();
    } catch (const std::bad_alloc&) {
        std::fputs("kestdemux: out of memory\n", stderr);
        return kExitBadInput;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kestdemux: %s\n", error.what());
        return kExitBadInput;
    }
}
