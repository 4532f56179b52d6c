// The program kestdemux: a command-line host of the demultiplexer.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/Interrupts.h"

namespace {

using namespace kest;

constexpr const char* kInputHelp = "the stream to read";
constexpr const char* kPipeHelp = "the stream to read; - is standard input";
constexpr double kMaxSeconds = 1e9;  // more than any stream lasts
constexpr double kMaxSpeed = 1000;
constexpr int kMaxPort = 65535;
constexpr double kMostRate = 1e8;  // whose tenfold is an int

/// Adds a command that ends its help with an example.
CLI::App* AddCommand(CLI::App& app, const char* pszName, const char* pszWhat, const char* pszExample) {
    CLI::App* pCommand = app.add_subcommand(pszName, pszWhat);
    pCommand->footer("Example:\n  " + std::string(pszExample));
    return pCommand;
}

/// Adds a command that reads one file.
CLI::App* AddFileCommand(CLI::App& app, const char* pszName, const char* pszWhat, std::string& strFile,
                         const char* pszExample, const char* pszHelp = kInputHelp) {
    CLI::App* pCommand = AddCommand(app, pszName, pszWhat, pszExample);
    pCommand->add_option("FILE", strFile, pszHelp)->required();
    return pCommand;
}

void AddPlainOption(CLI::App* pCommand, bool& bPlain) {
    pCommand->add_flag("--plain", bPlain, "the filter's own defaults: every switch off");
}

void AddModuleOption(CLI::App* pCommand, std::string& strModule) {
    pCommand->add_option("--module", strModule,
                         "the demultiplexer's module; default: the one beside the program, else the one that "
                         "was registered last");
}

void AddChunkOption(CLI::App* pCommand, std::optional<int>& nChunkKB) {
    pCommand->add_option("--chunk", nChunkKB, "KiB of a datagram; of a new filter: 8")
        ->check(CLI::Range(1, kMaxChunkKB));
}

/// A range does not exclude what is no number. @return the error message, or an empty text.
std::string RejectNaN(const std::string& strNumber) {
    return std::isnan(std::strtod(strNumber.c_str(), nullptr)) ? strNumber + " is not a number" : "";
}

CLI::Validator NumberRange(double dMin, double dMax) {
    return CLI::Range(dMin, dMax) & CLI::Validator(RejectNaN, "");
}

/// A range of unsigned numbers would take negative ones for large ones.
CLI::Validator WholeNumber(std::int64_t nMin) {
    return CLI::Range(nMin, std::numeric_limits<std::int64_t>::max());
}

void AddRateOptions(CLI::App* pCommand, double& dRate, std::uint64_t& nCount) {
    pCommand
        ->add_option(
            "--rate", dRate,
            "how fast to play: above 1 key frames, below 1 every frame, negative backward; ends when "
            "nothing came for half a second")
        ->check(NumberRange(-kMostRate, kMostRate));
    pCommand->add_option("--count", nCount, "how many to list")->check(WholeNumber(1));
}

/// Turns on the texts of the program and of the modules that it loads later.
void ShowTexts(int nVerbosity) {
    if (nVerbosity >= 1) setenv("KEST_DEBUG", "1", 1);
    if (nVerbosity >= 2) setenv("KEST_TRACE", "1", 1);
}

// ---------------- the commands; the options of each live as long as its callback

void AddTimingOption(CLI::App* pCommand, ETsTiming& timing) {
    const auto SetTiming = [&timing](const std::string& strTiming) {
        timing = strTiming == "es" ? ETsTiming::Elementary : ETsTiming::Pes;
    };
    pCommand
        ->add_option_function<std::string>("--timing", SetTiming,
                                           "times of a transport stream: those of its PES packets, or of the "
                                           "elementary streams (default: pes)")
        ->check(CLI::IsMember({"pes", "es"}));
}

void AddProbeCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<ProbeOptions>();
    CLI::App* pCommand = AddFileCommand(app, "probe", "Show what a file is", pOptions->strFile,
                                        "kestdemux probe movie.mpg", kPipeHelp);
    AddPlainOption(pCommand, pOptions->bPlain);
    pCommand->add_flag("--json", pOptions->bJson, "one JSON object");
    pCommand->callback([pOptions] { RunProbe(*pOptions); });
}

void AddFramesCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<FramesOptions>();
    CLI::App* pCommand =
        AddFileCommand(app, "frames", "List every frame that the demuxer queues", pOptions->strFile,
                       "kestdemux frames movie.mpg --rate -2 --from 90000000");
    pCommand->add_flag("--json", pOptions->bJson, "one JSON object a line");
    AddTimingOption(pCommand, pOptions->timing);
    AddRateOptions(pCommand, pOptions->dRate, pOptions->nCount);
    pCommand->add_option("--from", pOptions->llFrom, "byte to begin at")->check(WholeNumber(0));
    AddPlainOption(pCommand, pOptions->bPlain);
    pCommand->callback([pOptions] { RunFrames(*pOptions); });
}

void AddSamplesCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<SamplesOptions>();
    CLI::App* pCommand =
        AddFileCommand(app, "samples", "List every sample and event of the output pins", pOptions->strFile,
                       "kestdemux samples movie.mpg --seek 60", kPipeHelp);
    pCommand->add_flag("--json", pOptions->bJson, "one JSON object a line");
    pCommand->add_option("--seek", pOptions->dSeek, "media time to begin at, in seconds")
        ->check(NumberRange(0, kMaxSeconds));
    AddRateOptions(pCommand, pOptions->dRate, pOptions->nCount);
    AddTimingOption(pCommand, pOptions->timing);
    AddModuleOption(pCommand, pOptions->strModule);
    AddPlainOption(pCommand, pOptions->bPlain);
    pCommand->callback([pOptions] { RunSamples(*pOptions); });
}

void AddDemuxCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<DemuxOptions>();
    CLI::App* pCommand =
        AddFileCommand(app, "demux", "Write the two elementary streams", pOptions->strFile,
                       "kestdemux demux movie.mpg --video movie.m2v --audio movie.mp2", kPipeHelp);
    pCommand->add_option(
        "--video", pOptions->strVideo,
        "where the video goes (- is standard output); default: FILE's name with .m2v, .m4v or .m1v");
    pCommand->add_option("--audio", pOptions->strAudio,
                         "where the audio goes; default: FILE's name with .mp2");
    pCommand->add_flag("--force", pOptions->bForce, "overwrite files that exist");
    AddModuleOption(pCommand, pOptions->strModule);
    AddPlainOption(pCommand, pOptions->bPlain);
    pCommand->callback([pOptions] { RunDemux(*pOptions); });
}

void AddRelayCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<RelayOptions>();
    CLI::App* pCommand = AddFileCommand(app, "relay", "Forward a stream over UDP", pOptions->strFile,
                                        "kestdemux relay movie.mpg --to 127.0.0.1:5000", kPipeHelp);
    pCommand->add_option("--to", pOptions->strTo, "ADDRESS:PORT that the datagrams go to")->required();
    pCommand->add_option("--local-view", pOptions->nLocalPort, "port on 127.0.0.1 that they go to as well")
        ->check(CLI::Range(1, kMaxPort));
    AddChunkOption(pCommand, pOptions->nChunkKB);
    pCommand->add_option("--speed", pOptions->dSpeed, "times the stream's bit rate; 0: as fast as it goes")
        ->check(NumberRange(0, kMaxSpeed))
        ->capture_default_str();
    pCommand->add_flag("--demux", pOptions->bDemux, "demultiplex it as well");
    AddModuleOption(pCommand, pOptions->strModule);
    AddPlainOption(pCommand, pOptions->bPlain);
    pCommand->callback([pOptions] { RunRelay(*pOptions); });
}

void AddStatusCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<StatusOptions>();
    CLI::App* pCommand =
        AddCommand(app, "status", "Show the shared status of a running filter", "kestdemux status --follow");
    pCommand->add_flag("--json", pOptions->bJson, "one JSON object a line");
    pCommand->add_flag("--follow", pOptions->bFollow, "show every change, until the filter goes");
    pCommand->callback([pOptions] { RunStatus(*pOptions); });
}

void AddSetCommand(CLI::App& app) {
    const CLI::IsMember isOnOff({"on", "off"});
    const auto pOptions = std::make_shared<SetOptions>();
    CLI::App* pCommand = AddCommand(app, "set", "Change the settings of a running filter",
                                    "kestdemux set --to 127.0.0.1:6000 --local-view off");
    pCommand->add_option("--sending", pOptions->strSending, "on or off: forward to the destination")
        ->check(isOnOff);
    pCommand->add_option("--to", pOptions->strTo, "ADDRESS:PORT of the destination");
    pCommand->add_option("--local-view", pOptions->strLocalView,
                         "on or off: forward to 127.0.0.1; a port also switches it on");
    pCommand->add_option("--demux", pOptions->strDemux, "on or off: demultiplex")->check(isOnOff);
    pCommand
        ->add_option("--function", pOptions->strFunction, "pes, es or free; takes effect at the next start")
        ->check(CLI::IsMember({"pes", "es", "free"}));
    AddChunkOption(pCommand, pOptions->nChunkKB);
    pCommand->callback([pOptions] { RunSet(*pOptions); });
}

/// Adds one of the commands that change the list of modules.
void AddListCommand(CLI::App& app, const char* pszName, const char* pszWhat, const char* pszExample,
                    void (*pRun)(const std::string& strModule)) {
    const auto pModule = std::make_shared<std::string>();
    CLI::App* pCommand = AddCommand(app, pszName, pszWhat, pszExample);
    AddModuleOption(pCommand, *pModule);
    pCommand->callback([pModule, pRun] { pRun(*pModule); });
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
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "kestdemux " KEST_VERSION);
    app.footer(
        "Exit codes: 0 done, 1 input not usable, 2 wrong usage or no module, 3 output could not be written, "
        "130 interrupted.");
    int nVerbosity = 0;
    app.add_flag("-v,--verbose", nVerbosity, "show debug texts; twice: trace texts too");
    app.parse_complete_callback([&nVerbosity] { ShowTexts(nVerbosity); });  // comes before the command's own
    AddProbeCommand(app);
    AddFramesCommand(app);
    AddSamplesCommand(app);
    AddDemuxCommand(app);
    AddRelayCommand(app);
    AddStatusCommand(app);
    AddSetCommand(app);
    AddListCommand(app, "register", "Add the demultiplexer to your list of modules",
                   "kestdemux register --module lib/KestDemux2Filter.so", RunRegister);
    AddListCommand(app, "unregister", "Remove it from the list", "kestdemux unregister", RunUnregister);
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
