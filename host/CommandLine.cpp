#include "host/CommandLine.h"

#include <memory>

#include "host/Commands.h"
#include "host/Documentation.h"
#include "host/HelpFormatter.h"
#include "host/SharedOptions.h"

namespace kest {
namespace {

constexpr double kMaxSeconds = 1e9;  // more than any stream lasts
constexpr double kMaxSpeed = 1000;
constexpr int kMaxPort = 65535;

// ---------------- the commands; the options of each live as long as its callback

void AddProbeCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<ProbeOptions>();
    CLI::App* pCommand = AddFileCommand(app, "probe", "Show what a file is", "kestdemux probe movie.mpg",
                                        EReads::FileOrPipe, pOptions->strFile);
    pCommand->add_flag("--json", pOptions->bJson, "one JSON object");
    AddPlainOption(pCommand, pOptions->bPlain);
    pCommand->callback([pOptions] { RunProbe(*pOptions); });
}

void AddFramesCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<FramesOptions>();
    CLI::App* pCommand = AddFileCommand(app, "frames", "List every frame that the demuxer queues",
                                        "kestdemux frames movie.mpg --rate -2 --from 90000000", EReads::File,
                                        pOptions->strFile);
    pCommand->add_flag("--json", pOptions->bJson, "one JSON object a line");
    AddTimingOption(pCommand, pOptions->timing);
    AddRateOptions(pCommand, pOptions->dRate, pOptions->nCount);
    pCommand->add_option("--from", pOptions->llFrom, "byte to begin at")
        ->check(WholeNumber(0))
        ->option_text("BYTE");
    CLI::Option* pPlain = AddPlainOption(pCommand, pOptions->bPlain);
    AddChoiceOptions(pCommand, *pOptions, pPlain);
    AddQuietOption(pCommand, pOptions->bQuiet, "no progress bar");
    pCommand->callback([pOptions] { RunFrames(*pOptions); });
}

void AddSamplesCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<SamplesOptions>();
    CLI::App* pCommand =
        AddFileCommand(app, "samples", "List every sample and event of the output pins",
                       "kestdemux samples movie.mpg --seek 60", EReads::FileOrPipe, pOptions->strFile);
    pCommand->add_flag("--json", pOptions->bJson, "one JSON object a line");
    pCommand->add_option("--seek", pOptions->dSeek, "media time to begin at")
        ->check(NumberRange(0, kMaxSeconds))
        ->option_text("SECONDS");
    AddRateOptions(pCommand, pOptions->dRate, pOptions->nCount);
    AddTimingOption(pCommand, pOptions->timing);
    AddModuleOption(pCommand, pOptions->strModule);
    CLI::Option* pPlain = AddPlainOption(pCommand, pOptions->bPlain);
    AddChoiceOptions(pCommand, *pOptions, pPlain);
    AddQuietOption(pCommand, pOptions->bQuiet, "no progress bar");
    pCommand->callback([pOptions] { RunSamples(*pOptions); });
}

void AddDemuxCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<DemuxOptions>();
    CLI::App* pCommand = AddFileCommand(app, "demux", "Write the two elementary streams",
                                        "kestdemux demux movie.mpg --video movie.m2v --audio movie.mp2",
                                        EReads::FileOrPipe, pOptions->strFile);
    pCommand
        ->add_option(
            "--video", pOptions->strVideo,
            "where the video goes (- is standard output); default: FILE's name with .m2v, .m4v or .m1v")
        ->option_text("PATH");
    pCommand
        ->add_option("--audio", pOptions->strAudio,
                     "where the audio goes; default: FILE's name with .mp2 or .mp3")
        ->option_text("PATH");
    pCommand->add_flag("--force", pOptions->bForce, "overwrite files that exist");
    CLI::Option* pPlain = AddPlainOption(pCommand, pOptions->bPlain);
    AddChoiceOptions(pCommand, *pOptions, pPlain);
    pCommand->add_flag("--list", pOptions->bList, "list the streams, write nothing")->excludes(pPlain);
    AddModuleOption(pCommand, pOptions->strModule);
    AddQuietOption(pCommand, pOptions->bQuiet, "neither progress bar nor summary");
    pCommand->callback([pOptions] { RunDemux(*pOptions); });
}

void AddRelayCommand(CLI::App& app) {
    const auto pOptions = std::make_shared<RelayOptions>();
    CLI::App* pCommand = AddFileCommand(app, "relay", "Forward a stream over UDP",
                                        "kestdemux relay movie.mpg --to 127.0.0.1:5000", EReads::FileOrPipe,
                                        pOptions->strFile);
    pCommand->add_option("--to", pOptions->strTo, "where the datagrams go (required)")
        ->required()
        ->option_text("ADDRESS:PORT");
    pCommand->add_option("--local-view", pOptions->nLocalPort, "port on 127.0.0.1 that they go to as well")
        ->check(CLI::Range(1, kMaxPort))
        ->option_text("PORT");
    AddChunkOption(pCommand, pOptions->nChunkKB);
    pCommand
        ->add_option("--speed", pOptions->dSpeed,
                     "times the stream's bit rate; 0: as fast as it goes; default: 1")
        ->check(NumberRange(0, kMaxSpeed))
        ->option_text("X");
    pCommand->add_flag("--demux", pOptions->bDemux, "demultiplex it as well");
    AddModuleOption(pCommand, pOptions->strModule);
    AddPlainOption(pCommand, pOptions->bPlain);
    AddQuietOption(pCommand, pOptions->bQuiet, "neither progress bar nor summary");
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
    constexpr const char* kOnOff = "on|off";
    const auto pOptions = std::make_shared<SetOptions>();
    CLI::App* pCommand = AddCommand(app, "set", "Change the settings of a running filter",
                                    "kestdemux set --to 127.0.0.1:6000 --local-view off");
    pCommand->add_option("--sending", pOptions->strSending, "forward to the destination")
        ->check(isOnOff)
        ->option_text(kOnOff);
    pCommand->add_option("--to", pOptions->strTo, "the destination")->option_text("ADDRESS:PORT");
    pCommand
        ->add_option("--local-view", pOptions->strLocalView,
                     "forward to 127.0.0.1; a port also switches it on")
        ->option_text("on|off|PORT");
    pCommand->add_option("--demux", pOptions->strDemux, "demultiplex")->check(isOnOff)->option_text(kOnOff);
    pCommand->add_option("--function", pOptions->strFunction, "takes effect at the next start")
        ->check(CLI::IsMember({"pes", "es", "free"}))
        ->option_text("pes|es|free");
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

/// Adds the command with which the build makes the man page and the shell completion; no help shows it.
void AddDocumentationCommand(CLI::App& app) {
    const auto pFolder = std::make_shared<std::string>();
    CLI::App* pCommand = app.add_subcommand("documentation")->group("");
    pCommand->add_option("FOLDER", *pFolder)->required();
    pCommand->callback([&app, pFolder] { WriteDocumentation(app, *pFolder); });
}

}  // namespace

void AddCommands(CLI::App& app) {
    app.formatter(std::make_shared<CHelpFormatter>());
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "kestdemux " KEST_VERSION, "show the version");
    app.set_help_flag("-h,--help", "show this help");
    app.footer(
        "kestdemux COMMAND --help shows the options of a command.\n"
        "Exit codes: 0 done, 1 input not usable, 2 wrong usage or no module, 3 output\n"
        "could not be written, 130 interrupted.");
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
    AddDocumentationCommand(app);
}

}  // namespace kest
