// Makes the headers of platform/ that follow declare the names of the system as they do where there is no
// Windows, though this is Windows: for comparing the two. They are then to be included inside a namespace,
// and what they include themselves has been included here.
#pragma once

#ifdef S_OK
#error "Windows has declared the names already"
#endif

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#undef _WIN32
