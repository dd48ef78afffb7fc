#include "host/effects/hlsl/HlslNames.h"

#include "host/effects/framework/ConstantExpression.h"

#include <unordered_map>

namespace Qx::Host::Effects {

std::string_view hlslName(std::string_view name)
{
    static const std::unordered_map<std::string_view, std::string_view> names{
        {"sampler", "sampler2D"},
        {"Sampler", "sampler2D"},
        {"dword", "uint"},
        {"main", "qxfx_main"}, // the HLSL compiler takes one of that name for the entry
        {"tex2D", "qxfx_tex2D"},
        {"tex2Dlod", "qxfx_tex2Dlod"},
        {"tex2Dbias", "qxfx_tex2Dbias"},
        {"tex2Dgrad", "qxfx_tex2Dgrad"},
        {"tex2Dproj", "qxfx_tex2Dproj"},
        {"tex2Dfetch", "qxfx_tex2Dfetch"},
        {"tex2Dcodes", "qxfx_tex2Dcodes"},
        {"tex3Dfetch", "qxfx_tex3Dfetch"},
        {"fmod", "qxfx_fmod"}};
    if (const auto found = names.find(name); found != names.end()) {
        return found->second;
    }
    if (name.substr(0, 4) == "half" || name.substr(0, 5) == "fixed") {
        if (const auto type = NumericType::named(name)) {
            return type->spelling();
        }
    }
    return name;
}

} // namespace Qx::Host::Effects
