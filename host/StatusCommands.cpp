#include <array>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/Interrupts.h"
#include "host/Listing.h"
#include "host/StatusClient.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr std::uint32_t kFollowMs = 50;   // between two readings of the record
constexpr std::uint32_t kTakenMs = 1000;  // for a record to be taken

constexpr std::array<const char*, 3> kFunctionNames = {"pes", "es", "free"};  // by EDemuxOutput

[[noreturn]] void FailWithoutFilter() {
    throw CCommandError(kExitBadInput, std::string(kSharedStatusName) + ": no filter is running");
}

const char* GetFunctionName(std::uint32_t nFunction) {
    return nFunction < kFunctionNames.size() ? kFunctionNames[nFunction] : "unknown";
}

Destination GetDestination(const SEND_SETTINGS& settings) {
    return {settings.dwSendAddr, static_cast<std::uint16_t>(settings.nSendPort)};
}

std::string ToJson(const SHARED_STATUS& status) {
    const SEND_SETTINGS& settings = status.settings;
    const nlohmann::ordered_json line = {{"workingMode", status.nWorkingMode},
                                         {"sending", settings.bSending != 0},
                                         {"to", ToText(GetDestination(settings))},
                                         {"localView", settings.bLocalView != 0},
                                         {"localPort", static_cast<std::uint16_t>(settings.nLocalPort)},
                                         {"demux", settings.bDisableDemux == 0},
                                         {"function", GetFunctionName(settings.nDemuxOutput)},
                                         {"chunkKiB", settings.nChunkKB},
                                         {"bytesSent", settings.llBytesSent}};
    return line.dump();
}

constexpr const char* kHeading =
    "mode  sending  to                     local view  demux  function  KiB    bytes sent";

std::string ToLine(const SHARED_STATUS& status) {
    const SEND_SETTINGS& settings = status.settings;
    const auto OnOff = [](bool bOn) { return bOn ? "on" : "off"; };
    const std::string strLocal =
        settings.bLocalView ? std::to_string(static_cast<std::uint16_t>(settings.nLocalPort)) : "off";
    std::array<char, 160> szText{};
    std::snprintf(szText.data(), szText.size(),
                  "%-4" PRIu32 "  %-7s  %-21s  %-10s  %-5s  %-8s  %3d  %12" PRIu64, status.nWorkingMode,
                  OnOff(settings.bSending != 0), ToText(GetDestination(settings)).c_str(), strLocal.c_str(),
                  OnOff(settings.bDisableDemux == 0), GetFunctionName(settings.nDemuxOutput),
                  settings.nChunkKB, settings.llBytesSent);
    return szText.data();
}

/// Reads the record, which is given back at once, so that it goes with the filter.
std::optional<SHARED_STATUS> ReadStatus() {
    CStatusClient client;
    return client.Open() ? client.Read() : std::nullopt;
}

void SetLocalView(SEND_SETTINGS& settings, const std::string& strLocalView) {
    settings.bLocalView = strLocalView != "off";
    if (strLocalView == "on" || strLocalView == "off") return;
    const auto local = ParseDestination("127.0.0.1:" + strLocalView);
    if (!local)
        throw CCommandError(kExitBadUsage, "--local-view: " + strLocalView + " is not on, off or a port");
    settings.nLocalPort = local->nPort;
}

void Change(SEND_SETTINGS& settings, const SetOptions& options) {
    if (!options.strSending.empty()) settings.bSending = options.strSending == "on";
    if (options.strTo) {
        const auto to = ParseDestination(*options.strTo);
        if (!to) throw CCommandError(kExitBadUsage, "--to: " + *options.strTo + " is not an ADDRESS:PORT");
        settings.dwSendAddr = to->dwAddr;
        settings.nSendPort = to->nPort;
    }
    if (options.strLocalView) SetLocalView(settings, *options.strLocalView);
    if (!options.strDemux.empty()) settings.bDisableDemux = options.strDemux == "off";
    for (std::uint32_t n = 0; n < kFunctionNames.size(); ++n) {
        if (options.strFunction == kFunctionNames[n]) settings.nDemuxOutput = n;
    }
    if (options.nChunkKB) settings.nChunkKB = *options.nChunkKB;
}

}  // namespace

void RunStatus(const StatusOptions& options) {
    auto status = ReadStatus();
    if (!status) FailWithoutFilter();
    CListing listing(options.bJson, kHeading);
    std::optional<SHARED_STATUS> last;
    for (; status && !IsInterrupted(); status = ReadStatus()) {
        if (status != last) listing.Print(options.bJson ? ToJson(*status) : ToLine(*status));
        if (!options.bFollow) break;
        listing.Show();
        last = status;
        SleepMs(kFollowMs);
    }
    listing.Commit();
    if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
}

void RunSet(const SetOptions& options) {
    if (options == SetOptions{})
        throw CCommandError(kExitBadUsage, "nothing to set (--help shows the usage)");
    SEND_SETTINGS checked;
    Change(checked, options);  // throws for what is no address or port, before it wants a filter
    CStatusClient client;
    if (!client.Open()) FailWithoutFilter();
    auto status = client.Read();
    if (!status) FailWithoutFilter();
    Change(status->settings, options);
    if (!client.Post(*status, kTakenMs)) {
        throw CCommandError(kExitBadInput, "the filter has not taken an earlier record yet");
    }
    if (!client.WaitUntilTaken(kTakenMs)) {
        throw CCommandError(kExitBadInput, "not taken yet; the filter takes it when its next input comes");
    }
    std::fputs("taken\n", stderr);
}

}  // namespace kest
