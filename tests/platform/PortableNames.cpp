// The names of the system as platform/ declares them where Windows does not: the same headers once more, read
// as on another system and in a namespace of their own, since the program has the types of Windows too.
#include "SystemNames.h"

#include "platform/PortableNames.h"

namespace portable {
#include "SystemHeaders.inc"
}

#define KEST_SCOPE portable::

namespace kest {

SystemNames PortableNames() {
    SystemNames names;
    std::string strHeader;
#include "SystemNames.inc"
    return names;
}

}  // namespace kest
