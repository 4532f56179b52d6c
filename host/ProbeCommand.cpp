#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "host/Commands.h"
#include "host/Input.h"
#include "host/OutputFile.h"

namespace kest {
namespace {

/// Seconds that the stream lasts at its bit rate; 0 when that is not known.
double EstimateDuration(const Input& input) {
    return input.nBitRate ? 8.0 * static_cast<double>(input.llLength) / input.nBitRate : 0;
}

std::string ToJson(const Input& input) {
    nlohmann::ordered_json line = {{"class", input.nClass}, {"name", GetClassName(input.nClass)}};
    line["bitRate"] = input.nBitRate ? nlohmann::ordered_json(input.nBitRate) : nullptr;
    line["length"] = input.llLength;
    line["duration"] = input.nBitRate ? nlohmann::ordered_json(EstimateDuration(input)) : nullptr;
    return line.dump() + "\n";
}

std::string ToText(const Input& input) {
    std::string strText =
        "class:    " + std::to_string(input.nClass) + "\nname:     " + GetClassName(input.nClass);
    strText += "\nbit rate: " + (input.nBitRate ? std::to_string(input.nBitRate) + " bit/s" : "unknown");
    strText += "\nlength:   " + std::to_string(input.llLength) + " bytes";
    char szDuration[32] = "unknown";
    if (input.nBitRate) std::snprintf(szDuration, sizeof szDuration, "%.3f s", EstimateDuration(input));
    return strText + "\nduration: " + szDuration + " (estimated from the bit rate)\n";
}

}  // namespace

void RunProbe(const ProbeOptions& options) {
    const Input input = OpenInput(options.strFile, EAccess::File);
    const std::string strText = options.bJson ? ToJson(input) : ToText(input);
    COutputFile output("-", false);
    output.Write({reinterpret_cast<const std::uint8_t*>(strText.data()), strText.size()});
    output.Commit();
}

}  // namespace kest
