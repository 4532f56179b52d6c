#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "host/Commands.h"
#include "host/DescriptionText.h"
#include "host/Input.h"
#include "host/OutputFile.h"

namespace kest {
namespace {

/// Seconds that the stream lasts at its bit rate; 0 when rate or length are not known.
double EstimateDuration(const Input& input) {
    return input.nBitRate ? 8.0 * static_cast<double>(input.llLength) / input.nBitRate : 0;
}

/// A number, or null for 0, which stands for one that is not known.
template <class T>
nlohmann::ordered_json OrNull(T number) {
    return number != 0 ? nlohmann::ordered_json(number) : nullptr;
}

std::string ToJson(const Input& input) {
    nlohmann::ordered_json line = {{"class", input.nClass}, {"name", GetClassName(input.nClass)}};
    line["bitRate"] = OrNull(input.nBitRate);
    line["length"] = OrNull(input.llLength);
    line["duration"] = OrNull(EstimateDuration(input));
    return line.dump() + "\n";
}

std::string ToText(const Input& input) {
    std::string strText =
        "class:    " + std::to_string(input.nClass) + "\nname:     " + GetClassName(input.nClass);
    strText += "\nbit rate: " + (input.nBitRate ? std::to_string(input.nBitRate) + " bit/s" : "unknown");
    strText += "\nlength:   " + (input.llLength ? std::to_string(input.llLength) + " bytes" : "unknown");
    char szDuration[32] = "unknown";
    const double dDuration = EstimateDuration(input);
    if (dDuration != 0) std::snprintf(szDuration, sizeof szDuration, "%.3f s", dDuration);
    return strText + "\nduration: " + szDuration + " (estimated from the bit rate)\n";
}

/// By the stream's own headers.
std::string DescribeText(const SourceDescription& description) {
    std::string strText = "container: " + GetContainerName(description) + "\n";
    const std::int64_t llDuration = description.GetDuration(), llBitRate = GetBitRate(description);
    if (description.llLength) strText += "length:    " + std::to_string(description.llLength) + " bytes\n";
    if (llDuration >= 0) strText += "duration:  " + ToSeconds(llDuration, 3) + " s\n";
    if (llBitRate) strText += "bit rate:  " + std::to_string(llBitRate) + " bit/s\n";
    return strText + ListStreams(description);
}

std::string MakeText(const ProbeOptions& options) {
    if (options.bPlain) {
        const Input input = OpenInput(options.strFile, EAccess::FileOrPipe);
        return options.bJson ? ToJson(input) : ToText(input);
    }
    const SourceDescription description = DescribeInput(options.strFile, EAccess::FileOrPipe).description;
    if (!options.bJson) return DescribeText(description);
    constexpr auto kOnOddNames = nlohmann::json::error_handler_t::replace;
    return ToJson(description, options.strFile).dump(-1, ' ', false, kOnOddNames) + "\n";
}

}  // namespace

void RunProbe(const ProbeOptions& options) { WriteTextFile("-", false, MakeText(options)); }

}  // namespace kest
