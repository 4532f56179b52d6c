#include "module/Classes.h"

#include "ui/DemuxPropertyPage.h"

namespace kest {
namespace {

constexpr CFactoryTemplate kTable[] = {
    kFilterTemplate,
    {L"Kest Demux Property Page", &kPropertyPageClass, CDemuxPropertyPage::CreateInstance},
};

}  // namespace

constinit const std::span<const CFactoryTemplate> kClasses(kTable);

}  // namespace kest
