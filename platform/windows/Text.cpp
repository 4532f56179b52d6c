#include "platform/Text.h"

#include "platform/api/Types.h"

namespace kest {

std::optional<std::string> ToNarrow(std::wstring_view strWide) {
    constexpr int kMostBytes = 4;  // of a character in any code page
    if (strWide.empty()) return std::string();
    std::string strNarrow(strWide.size() * kMostBytes, '\0');
    BOOL bLost = FALSE;  // a character that the code page does not have: the name would be another
    const int nBytes =
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, strWide.data(), static_cast<int>(strWide.size()),
                            strNarrow.data(), static_cast<int>(strNarrow.size()), nullptr, &bLost);
    if (nBytes == 0 || bLost) return std::nullopt;
    strNarrow.resize(static_cast<std::size_t>(nBytes));
    return strNarrow;
}

std::optional<std::wstring> ToWide(std::string_view strNarrow) {
    if (strNarrow.empty()) return std::wstring();
    std::wstring strWide(strNarrow.size(), L'\0');
    const int nWide = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, strNarrow.data(),
                                          static_cast<int>(strNarrow.size()), strWide.data(),
                                          static_cast<int>(strWide.size()));
    if (nWide == 0) return std::nullopt;
    strWide.resize(static_cast<std::size_t>(nWide));
    return strWide;
}

}  // namespace kest
