#include "module/Classes.h"

namespace kest {

constinit const std::span<const CFactoryTemplate> kClasses(&kFilterTemplate, 1);

}  // namespace kest
