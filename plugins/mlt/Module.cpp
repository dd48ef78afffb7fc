#include "plugins/mlt/Services.h"

#include "plugins/mlt/InstalledEffects.h"

#include <string>

namespace Qx::Mlt {

namespace {

struct NamedService
{
    mlt_service_type type;
    const char* name;
    mlt_register_callback make;
    const char* file; ///< its description
};

constexpr NamedService services[] = {
    {mlt_service_filter_type, "qx.effect", makeEffectFilter, "filter_qx.effect.yml"},
    {mlt_service_filter_type, "qx.lut", makeLutFilter, "filter_qx.lut.yml"},
    {mlt_service_filter_type, "qx.text", makeTextFilter, "filter_qx.text.yml"},
    {mlt_service_filter_type, "qx.convert", makeConvertFilter, "filter_qx.convert.yml"},
    {mlt_service_transition_type, "qx.transition", makeTransition, "transition_qx.transition.yml"},
};

} // namespace

} // namespace Qx::Mlt

/// What MLT calls once it has loaded the module.
extern "C" __attribute__((visibility("default"))) void mlt_register(mlt_repository repository)
{
    using namespace Qx::Mlt;
    for (const NamedService& service : services) {
        mlt_repository_register(repository, service.type, service.name, service.make);
        mlt_repository_register_metadata(repository, service.type, service.name, describeFromFile,
                                         const_cast<char*>(service.file));
    }
    for (const auto& [name, file] : installedEffects()) {
        const std::string id = std::string(effectPrefix) + name;
        mlt_repository_register(repository, mlt_service_filter_type, id.c_str(), makeEffectFilter);
        mlt_repository_register_metadata(repository, mlt_service_filter_type, id.c_str(), describeEffect,
                                         nullptr);
    }
}
