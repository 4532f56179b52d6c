// What the names of the host system stand for, in words: a declaration of platform/ and the system's own are
// the same when their words are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace kest {

struct SystemName {
    std::string strHeader;   // declares it
    std::string strName;     // with its kind, as in "field RECT.left"
    std::string strMeaning;  // value, size, place
};
using SystemNames = std::vector<SystemName>;

/// All names that platform/ declares for other systems, in the order of its headers: as Windows means them,
/// and as platform/ does. Compiled for Windows in both cases, so what WCHAR is elsewhere is left open.
SystemNames WindowsNames();
SystemNames PortableNames();

inline std::string BytesText(std::size_t n) { return std::to_string(n) + " bytes"; }

/// What a type holds, through pointers; it may be incomplete.
template <class T>
std::string TypeText() {
    if constexpr (std::is_reference_v<T>) {
        return "reference to " + TypeText<std::remove_reference_t<T>>();
    } else if constexpr (std::is_array_v<T>) {
        return "array of " + TypeText<std::remove_extent_t<T>>();
    } else if constexpr (std::is_const_v<T>) {
        return "constant " + TypeText<std::remove_const_t<T>>();
    } else if constexpr (std::is_pointer_v<T>) {
        return "pointer to " + TypeText<std::remove_pointer_t<T>>();
    } else if constexpr (std::is_void_v<T>) {
        return "anything";
    } else if constexpr (std::is_class_v<T> || std::is_union_v<T>) {
        return "record";
    } else {
        const std::string strKind = std::is_enum_v<T>             ? "enumeration"
                                    : std::is_floating_point_v<T> ? "floating point"
                                    : std::is_signed_v<T>         ? "signed integer"
                                                                  : "unsigned integer";
        return strKind + " of " + BytesText(sizeof(T));
    }
}

/// What is handed over when the type is a parameter or a field.
template <class T>
std::string ValueText() {
    if constexpr (std::is_reference_v<T>) {
        return TypeText<T>();
    } else {
        return TypeText<T>() + " in " + BytesText(sizeof(T));
    }
}

template <class T>
std::string ConstantText(const T& value) {
    if constexpr (std::is_class_v<T>) {
        std::string strText;
        for (std::size_t i = 0; i < sizeof value; ++i) {
            constexpr const char* kDigits = "0123456789ABCDEF";
            const auto byte = reinterpret_cast<const std::uint8_t*>(&value)[i];
            strText += {kDigits[byte >> 4], kDigits[byte & 15]};
        }
        return strText;
    } else {
        return std::to_string(static_cast<std::int64_t>(value));
    }
}

/// Place of a virtual method in its table: a pointer to it is one more than its offset there, then an
/// adjustment.
template <class Method>
std::string SlotText(Method pMethod) {
    std::intptr_t words[2];
    static_assert(sizeof words == sizeof pMethod);
    std::memcpy(words, &pMethod, sizeof words);
    return std::to_string((words[0] - 1) / static_cast<std::intptr_t>(sizeof(void*)));
}

template <class Interface, class Result, class... Parameters>
std::string MethodText(Result (Interface::*pMethod)(Parameters...)) {
    std::string strText = "slot " + SlotText(pMethod) + ", gives " + ValueText<Result>() + ", takes";
    ((strText += " (" + ValueText<Parameters>() + ")"), ...);
    return strText;
}

/// Its first free slot is what all its methods have used, inherited ones included.
template <class Interface>
std::string InterfaceText() {
    struct CNext : Interface {
        virtual void KestNext() = 0;
    };
    return SlotText(&CNext::KestNext) + " methods";
}

}  // namespace kest

// The calls of the list that PickNames.awk makes; each adds to `names` under `strHeader`. KEST_SCOPE stands
// before every name: the namespace it is looked up in, or nothing.
#define KEST_ADD(NAME, MEANING) names.push_back({strHeader, NAME, MEANING})
#define KEST_HEADER(PATH) strHeader = PATH;
#define KEST_CONSTANT(NAME) KEST_ADD("constant " #NAME, ConstantText(KEST_SCOPE NAME));
#define KEST_TYPE(TYPE) KEST_ADD("type " #TYPE, ValueText<KEST_SCOPE TYPE>());
#define KEST_RECORD(RECORD) KEST_ADD("record " #RECORD, BytesText(sizeof(KEST_SCOPE RECORD)));
#define KEST_FIELD(RECORD, FIELD)                                                                     \
    KEST_ADD("field " #RECORD "." #FIELD, std::to_string(offsetof(KEST_SCOPE RECORD, FIELD)) + ": " + \
                                              ValueText<decltype(KEST_SCOPE RECORD::FIELD)>());
#define KEST_INTERFACE(INTERFACE) KEST_ADD("interface " #INTERFACE, InterfaceText<KEST_SCOPE INTERFACE>());
#define KEST_BASE(INTERFACE, BASE)            \
    KEST_ADD("base " #BASE " of " #INTERFACE, \
             std::to_string(std::is_base_of_v<KEST_SCOPE BASE, KEST_SCOPE INTERFACE>));
#define KEST_METHOD(INTERFACE, METHOD) \
    KEST_ADD("method " #INTERFACE "::" #METHOD, MethodText(&KEST_SCOPE INTERFACE::METHOD));
