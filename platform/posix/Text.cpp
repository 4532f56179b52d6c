#include "platform/Text.h"

#include <algorithm>
#include <codecvt>
#include <cwchar>

namespace kest {
namespace {

// The facet between UTF-8 and characters of 32 bits, in the form that does not throw.
using Facet = std::codecvt<char32_t, char8_t, std::mbstate_t>;
struct CFacet final : Facet {};
static_assert(sizeof(wchar_t) == sizeof(char32_t));

constexpr std::size_t kMostBytes = 4;  // of a character in UTF-8

}  // namespace

std::optional<std::string> ToNarrow(std::wstring_view strWide) {
    if (std::ranges::any_of(strWide, [](wchar_t c) { return c >= 0xD800 && c <= 0xDFFF; }))
        return std::nullopt;
    std::string strNarrow(strWide.size() * kMostBytes, '\0');
    std::mbstate_t state{};
    const auto* pFrom = reinterpret_cast<const char32_t*>(strWide.data());
    const auto* pRest = pFrom;
    auto* pTo = reinterpret_cast<char8_t*>(strNarrow.data());
    auto* pEnd = pTo;
    if (CFacet().out(state, pFrom, pFrom + strWide.size(), pRest, pTo, pTo + strNarrow.size(), pEnd) !=
        Facet::ok) {
        return std::nullopt;
    }
    strNarrow.resize(static_cast<std::size_t>(pEnd - pTo));
    return strNarrow;
}

std::optional<std::wstring> ToWide(std::string_view strNarrow) {
    std::wstring strWide(strNarrow.size(), L'\0');
    std::mbstate_t state{};
    const auto* pFrom = reinterpret_cast<const char8_t*>(strNarrow.data());
    const auto* pRest = pFrom;
    auto* pTo = reinterpret_cast<char32_t*>(strWide.data());
    auto* pEnd = pTo;
    if (CFacet().in(state, pFrom, pFrom + strNarrow.size(), pRest, pTo, pTo + strWide.size(), pEnd) !=
        Facet::ok) {
        return std::nullopt;
    }
    strWide.resize(static_cast<std::size_t>(pEnd - pTo));
    return strWide;
}

}  // namespace kest
