#include "host/Listing.h"

#include <zlib.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <utility>

namespace kest {

CListing::CListing(bool bJson, const std::string& strHeading)
    : m_bJson(bJson), m_strHeading(bJson ? "" : strHeading + "\n") {}

void CListing::Print(const std::string& strLine) {
    std::lock_guard lock(m_mutex);
    const std::string strText = std::exchange(m_strHeading, "") + strLine + "\n";
    m_output.Write({reinterpret_cast<const std::uint8_t*>(strText.data()), strText.size()});
}

void CListing::Show() {
    std::lock_guard lock(m_mutex);
    m_output.WriteCollected();
}

std::string GetCrcText(std::span<const std::uint8_t> payload) {
    const auto nCrc = static_cast<std::uint32_t>(crc32_z(0, payload.data(), payload.size()));
    std::array<char, 9> szText{};
    std::snprintf(szText.data(), szText.size(), "%08" PRIx32, nCrc);
    return szText.data();
}

}  // namespace kest
