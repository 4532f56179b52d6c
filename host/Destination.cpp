#include <arpa/inet.h>

#include <charconv>

#include "host/Commands.h"

namespace kest {

std::optional<Destination> ParseDestination(const std::string& strText) {
    const std::size_t nColon = strText.rfind(':');
    if (nColon == std::string::npos) return std::nullopt;
    Destination destination;
    in_addr address{};
    if (inet_pton(AF_INET, strText.substr(0, nColon).c_str(), &address) != 1) return std::nullopt;
    destination.dwAddr = address.s_addr;
    const char* const pEnd = strText.data() + strText.size();
    const auto [pNext, error] = std::from_chars(strText.data() + nColon + 1, pEnd, destination.nPort);
    if (error != std::errc() || pNext != pEnd || destination.nPort == 0) return std::nullopt;
    return destination;
}

std::string ToText(const Destination& destination) {
    char szAddress[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &destination.dwAddr, szAddress, sizeof szAddress);
    return std::string(szAddress) + ":" + std::to_string(destination.nPort);
}

}  // namespace kest
