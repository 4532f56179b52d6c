#include "platform/Text.h"

#include <algorithm>
#include <codecvt>
#include <cwchar>
#include <type_traits>

namespace kest {
namespace {

// The facet between UTF-8 and characters of 32 bits, in the form that does not throw.
using Facet = std::codecvt<char32_t, char8_t, std::mbstate_t>;
struct CFacet final : Facet {};
static_assert(sizeof(wchar_t) == sizeof(char32_t));

constexpr std::size_t kMostBytes = 4;  // of a character in UTF-8

/// Converts a text. @param pfnConvert  the facet's operation. @param nMost  characters that it may become.
template <class To, class Char, class From, class Convert>
std::optional<To> ConvertText(std::basic_string_view<From> strFrom, std::size_t nMost, Convert pfnConvert) {
    To strTo(nMost, '\0');
    std::mbstate_t state{};
    const CFacet facet;
    const auto* pFrom = reinterpret_cast<const Char*>(strFrom.data());
    using Target = std::conditional_t<sizeof(Char) == 1, char32_t, char8_t>;
    auto* pTo = reinterpret_cast<Target*>(strTo.data());
    const Char* pRest = pFrom;
    Target* pEnd = pTo;
    if ((facet.*pfnConvert)(state, pFrom, pFrom + strFrom.size(), pRest, pTo, pTo + nMost, pEnd) !=
        Facet::ok) {
        return std::nullopt;
    }
    strTo.resize(static_cast<std::size_t>(pEnd - pTo));
    return strTo;
}

}  // namespace

std::optional<std::string> ToNarrow(std::wstring_view strWide) {
    const auto IsHalf = [](wchar_t c) { return c >= 0xD800 && c <= 0xDFFF; };  // of a character of UTF-16
    if (std::ranges::any_of(strWide, IsHalf)) return std::nullopt;
    return ConvertText<std::string, char32_t>(strWide, strWide.size() * kMostBytes, &Facet::out);
}

std::optional<std::wstring> ToWide(std::string_view strNarrow) {
    return ConvertText<std::wstring, char8_t>(strNarrow, strNarrow.size(), &Facet::in);
}

}  // namespace kest
