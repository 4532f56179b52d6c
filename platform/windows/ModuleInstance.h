#pragma once

#include <windows.h>

extern "C" IMAGE_DOS_HEADER __ImageBase;  // the linker's name for the beginning of the file's image

namespace kest {

/// The handle of the module or program that this code is linked into, under which the system finds its resources.
inline HINSTANCE GetModuleInstance() { return reinterpret_cast<HINSTANCE>(&__ImageBase); }

}  // namespace kest
