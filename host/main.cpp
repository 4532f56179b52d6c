// The program kestdemux: a command-line host of the demultiplexer.
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
