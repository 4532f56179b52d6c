// The program kestdemux: a command-line host of the demultiplexer.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/Interrupts.h"

namespace {

using namespace kest;

constexpr const char* kInputHelp = "the stream to read";
constexpr double kMaxSeconds = 1e9;  // more than any stream lasts

/// Adds a command that ends its help with an example.
CLI::App* AddCommand(CLI::App& app, const char* pszName, const char* pszWhat, const char* pszExample) {
    CLI::App* pCommand = app.add_subcommand(pszName, pszWhat);
    pCommand->footer("Example:\n  " + std::string(pszExample));
    return pCommand;
}

/// Adds a command that reads one file.
CLI::App* AddFileCommand(CLI::App& app, const char* pszName, const char* pszWhat, std::string& strFile,
                         const char* pszExample) {
    CLI::App* pCommand = AddCommand(app, pszName, pszWhat, pszExample);
    pCommand->add_option("FILE", strFile, kInputHelp)->required();
    return pCommand;
}

void AddModuleOption(CLI::App* pCommand, std::string& strModule) {
    pCommand->add_option("--module", strModule,
                         "the demultiplexer's module; default: the one beside the program, else the one that "
                         "was registered last");
}

/// Turns on the texts of the program and of the modules that it loads later.
void ShowTexts(int nVerbosity) {
    if (nVerbosity >= 1) setenv("KEST_DEBUG", "1", 1);
    if (nVerbosity >= 2) setenv("KEST_TRACE", "1", 1);
}

/// Parses the command line and runs the command.
int RunProgram(int argc, char** argv) {
    CLI::App app("Takes MPEG program streams apart into their elementary streams.", "kestdemux");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "kestdemux " KEST_VERSION);
    app.footer(
        "Exit codes: 0 done, 1 input not usable, 2 wrong usage, 3 output could not be written, "
        "130 interrupted.");
    int nVerbosity = 0;
    app.add_flag("-v,--verbose", nVerbosity, "show debug texts; twice: trace texts too");

    ProbeOptions probe;
    CLI::App* pProbe =
        AddFileCommand(app, "probe", "Tell what a file is", probe.strFile, "kestdemux probe movie.mpg");
    pProbe->add_flag("--json", probe.bJson, "one JSON object");
    pProbe->callback([&] { ShowTexts(nVerbosity), RunProbe(probe); });

    FramesOptions frames;
    CLI::App* pFrames = AddFileCommand(app, "frames", "List every frame of both streams", frames.strFile,
                                       "kestdemux frames movie.mpg --json");
    pFrames->add_flag("--json", frames.bJson, "one JSON object a line");
    pFrames->callback([&] { ShowTexts(nVerbosity), RunFrames(frames); });

    SamplesOptions samples;
    CLI::App* pSamples = AddFileCommand(app, "samples", "List every sample that leaves the output pins",
                                        samples.strFile, "kestdemux samples movie.mpg --seek 60");
    pSamples->add_flag("--json", samples.bJson, "one JSON object a line");
    pSamples->add_option("--seek", samples.dSeek, "media time to begin at, in seconds")
        ->check(CLI::Range(0.0, kMaxSeconds));
    AddModuleOption(pSamples, samples.strModule);
    pSamples->callback([&] { ShowTexts(nVerbosity), RunSamples(samples); });

    DemuxOptions demux;
    CLI::App* pDemux = AddFileCommand(app, "demux", "Write the two elementary streams", demux.strFile,
                                      "kestdemux demux movie.mpg --video movie.m2v --audio movie.mp2");
    pDemux->add_option(
        "--video", demux.strVideo,
        "where the video goes (- is standard output); default: FILE's name with .m2v, .m4v or .m1v");
    pDemux->add_option("--audio", demux.strAudio, "where the audio goes; default: FILE's name with .mp2");
    pDemux->add_flag("--force", demux.bForce, "overwrite files that exist");
    AddModuleOption(pDemux, demux.strModule);
    pDemux->callback([&] { ShowTexts(nVerbosity), RunDemux(demux); });

    std::string strModule;
    CLI::App* pRegister = AddCommand(app, "register", "Enter the demultiplexer into your list of modules",
                                     "kestdemux register --module lib/KestDemux2Filter.so");
    AddModuleOption(pRegister, strModule);
    pRegister->callback([&] { ShowTexts(nVerbosity), RunRegister(strModule); });
    CLI::App* pUnregister =
        AddCommand(app, "unregister", "Take it out of the list again", "kestdemux unregister");
    AddModuleOption(pUnregister, strModule);
    pUnregister->callback([&] { ShowTexts(nVerbosity), RunUnregister(strModule); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
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
    }
}
