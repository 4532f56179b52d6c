#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "host/Commands.h"
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

}  // namespace

void RunProbe(const ProbeOptions& options) {
    const Input input = OpenInput(options.strFile, EAccess::FileOrPipe);
    const std::string strText = options.bJson ? ToJson(input) : ToText(input);
    COutputFile output("-", false);
    output.Write({reinterpret_cast<const std::uint8_t*>(strText.data()), strText.size()});
    output.Commit();
}

}  // namespace kest
