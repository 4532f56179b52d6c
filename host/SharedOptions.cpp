#include "host/SharedOptions.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace kest {
namespace {

constexpr double kMostRate = 1e8;    // whose tenfold is an int
constexpr int kMostStream = 0x1FFE;  // the largest PID of a stream

/// A range does not exclude what is no number. @return the error message, or an empty text.
std::string RejectNaN(const std::string& strNumber) {
    return std::isnan(std::strtod(strNumber.c_str(), nullptr)) ? strNumber + " is not a number" : "";
}

}  // namespace

CLI::App* AddCommand(CLI::App& app, const char* pszName, const char* pszWhat, const char* pszExample) {
    CLI::App* pCommand = app.add_subcommand(pszName, pszWhat);
    pCommand->footer("Example:\n  " + std::string(pszExample));
    return pCommand;
}

CLI::App* AddFileCommand(CLI::App& app, const char* pszName, const char* pszWhat, const char* pszExample,
                         EReads reads, std::string& strFile) {
    CLI::App* pCommand = AddCommand(app, pszName, pszWhat, pszExample);
    pCommand
        ->add_option("FILE", strFile,
                     reads == EReads::File ? "the stream to read" : "the stream to read; - is standard input")
        ->required();
    return pCommand;
}

CLI::Option* AddPlainOption(CLI::App* pCommand, bool& bPlain) {
    return pCommand->add_flag("--plain", bPlain, "the filter's own defaults: every switch off");
}

void AddQuietOption(CLI::App* pCommand, bool& bQuiet, const char* pszWhat) {
    pCommand->add_flag("-q,--quiet", bQuiet, pszWhat);
}

void AddChoiceOptions(CLI::App* pCommand, StreamOptions& options, CLI::Option* pPlain) {
    const auto Add = [&](const char* pszName, std::int32_t& nStream, const char* pszWhat) {
        pCommand->add_option(pszName, nStream, pszWhat)
            ->check(CLI::Range(1, kMostStream))
            ->excludes(pPlain)
            ->option_text("ID");
    };
    Add("--video-stream", options.nVideoStream,
        "stream id or PID of the video to take; default: the first of a known type");
    Add("--audio-stream", options.nAudioStream, "the same of the audio");
}

void AddModuleOption(CLI::App* pCommand, std::string& strModule) {
    pCommand
        ->add_option("--module", strModule,
                     "the demultiplexer's module; default: the one beside the program, else the one that "
                     "was registered last")
        ->option_text("PATH");
}

void AddChunkOption(CLI::App* pCommand, std::optional<int>& nChunkKB) {
    pCommand->add_option("--chunk", nChunkKB, "KiB of a datagram, 1 to 48; of a new filter: 8")
        ->check(CLI::Range(1, kMaxChunkKB))
        ->option_text("KIB");
}

void AddRateOptions(CLI::App* pCommand, double& dRate, std::uint64_t& nCount) {
    pCommand
        ->add_option("--rate", dRate,
                     "how fast to play: above 1 key frames, below 1 every frame, negative backward")
        ->check(NumberRange(-kMostRate, kMostRate))
        ->option_text("RATE");
    pCommand->add_option("--count", nCount, "how many to list")->check(WholeNumber(1))->option_text("N");
}

void AddTimingOption(CLI::App* pCommand, ETsTiming& timing) {
    const auto SetTiming = [&timing](const std::string& strTiming) {
        timing = strTiming == "es" ? ETsTiming::Elementary : ETsTiming::Pes;
    };
    pCommand
        ->add_option_function<std::string>("--timing", SetTiming,
                                           "where times of a transport stream come from")
        ->check(CLI::IsMember({"pes", "es"}))
        ->option_text("pes|es");
}

CLI::Validator NumberRange(double dMin, double dMax) {
    return CLI::Range(dMin, dMax) & CLI::Validator(RejectNaN, "");
}

CLI::Validator WholeNumber(std::int64_t nMin) {
    return CLI::Range(nMin, std::numeric_limits<std::int64_t>::max());
}

}  // namespace kest
