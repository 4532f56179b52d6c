// What platform/api/ declares of the system where there is no Windows is what Windows declares: values of constants,
// types and their sizes, places of fields, signatures and order of methods. Both are compiled for Windows here, so that
// the size of wchar_t elsewhere is left open.
#include <cstddef>
#include <cstdint>

namespace portable {
#include "Declarations.inc"  // the headers as they read elsewhere
}

#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "platform/api/Interfaces.h"

namespace kest {
namespace {

std::map<std::string, std::string> g_twins;  // spellings of Windows' classes and enumerations by their names

/// A type as the compiler spells it, without its aliases.
template <class T>
const char* Spell() {
    return __PRETTY_FUNCTION__;
}

/// The same with Windows' classes in place of the portable ones, and no long, which is an int in size on Windows.
std::string Translate(std::string strSpelt) {
    static const std::regex portable("portable::(\\w+)"), own("T = (\\w+)"), noLong("long (unsigned )?int");
    for (std::smatch found, twin; std::regex_search(strSpelt, found, portable);) {
        std::regex_search(g_twins.at(found[1]), twin, own);
        strSpelt = found.prefix().str() + twin.str(1) + found.suffix().str();
    }
    return std::regex_replace(strSpelt, noLong, "$1int");
}

/// A value's bytes: of a number 64 bits, of a pointer to a member the member's place.
template <class T>
std::string GetBytes(const T& value) {
    if constexpr (std::is_enum_v<T> || std::is_integral_v<T>) return std::to_string(std::int64_t{value});
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// A type's size; of an interface the place behind its last method.
template <class T>
std::string GetSize() {
    if constexpr (std::is_abstract_v<T>) {
        struct CNext : T {
            virtual void Next() = 0;
        };
        return GetBytes(&CNext::Next);
    }
    return std::to_string(sizeof(T));
}

template <class P, class W>
void Compare(const std::string& strPortable, const std::string& strWindows, const char* pszName) {
    EXPECT_EQ(Translate(Spell<P>()), Translate(Spell<W>())) << pszName;
    EXPECT_EQ(strPortable, strWindows) << pszName;
}

template <class P, class W>
void CompareMembers(P pPortable, W pWindows, const char* pszName) {
    Compare<P, W>(GetBytes(pPortable), GetBytes(pWindows), pszName);
}
/// Chosen for the one method that has an overload on Windows.
template <class P>
void CompareMembers(P pPortable, HRESULT (IUnknown::*pWindows)(REFIID, void**), const char* pszName) {
    Compare<P, decltype(pWindows)>(GetBytes(pPortable), GetBytes(pWindows), pszName);
}

#define KEST_TWIN(NAME) g_twins[#NAME] = Spell<NAME>();
#define KEST_TYPE(NAME) \
    Compare<portable::type_##NAME, NAME>(GetSize<portable::type_##NAME>(), GetSize<NAME>(), #NAME);
#define KEST_BASE(NAME, BASE) EXPECT_TRUE((std::is_base_of_v<BASE, NAME>)) << #NAME;
#define KEST_MEMBER(CLASS, NAME) \
    CompareMembers(portable::member_##CLASS##_##NAME, &CLASS::NAME, #CLASS "::" #NAME);
#define KEST_VALUE(NAME) EXPECT_EQ(GetBytes(portable::value_##NAME), GetBytes(NAME)) << #NAME;

TEST(SystemNames, MeanOnEverySystemWhatTheyMeanOnWindows) {
#include "Checks.inc"
}

}  // namespace
}  // namespace kest
