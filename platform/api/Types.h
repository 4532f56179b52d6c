// The host platform's basic types and result codes.
//
// On Windows these are the system's own; elsewhere the same names with the same sizes and values, and only
// those that the system uses.
#pragma once

#include <cstdint>

#ifdef _WIN32
#include <windows.h>
#else

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using BOOL = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using LONGLONG = std::int64_t;
using DWORD_PTR = std::uintptr_t;
using HRESULT = std::int32_t;
using HANDLE = void*;
using PVOID = void*;
using WCHAR = wchar_t;  // text at the interfaces; wider than on Windows, so never in data that others read
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPOLESTR = WCHAR*;
using LPCOLESTR = const WCHAR*;

constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;

struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend bool operator==(const GUID&, const GUID&) = default;
};
using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

constexpr GUID GUID_NULL = {};

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

/// The result code for an error number of Windows.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD dwError) {
    return dwError == 0 ? S_OK : static_cast<HRESULT>((dwError & 0xFFFF) | 0x80070000);
}

// Results of waits on threads and events.
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

#define STDMETHODCALLTYPE

#endif

namespace kest {

/// The system has dialogs, so that objects can offer property pages.
#ifdef _WIN32
constexpr bool kHasDialogs = true;
#else
constexpr bool kHasDialogs = false;
#endif

/// A time-out without limit, in every operation that takes milliseconds.
constexpr std::uint32_t kInfinite = 0xFFFFFFFF;

}  // namespace kest
