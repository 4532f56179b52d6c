// The names of the system as Windows declares them.
#include "SystemHeaders.inc"
#include "SystemNames.h"

#define KEST_SCOPE

namespace kest {
namespace {

/// Chosen for the one method that has an overload beside it, which is no part of the interface.
std::string MethodText(HRESULT (IUnknown::*pMethod)(REFIID, void**)) { return kest::MethodText<>(pMethod); }
using kest::MethodText;

}  // namespace

SystemNames WindowsNames() {
    SystemNames names;
    std::string strHeader;
#include "SystemNames.inc"
    return names;
}

}  // namespace kest
