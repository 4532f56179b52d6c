// Text between the interfaces (wide) and the system's own names (narrow: the ANSI code page of Windows, UTF-8
// elsewhere).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kest {

/// @return nothing when a character cannot be converted. May throw std::bad_alloc.
std::optional<std::string> ToNarrow(std::wstring_view strWide);
std::optional<std::wstring> ToWide(std::string_view strNarrow);

}  // namespace kest
