#include "host/effects/hlsl/HlslNames.h"

#include "host/effects/framework/ConstantExpression.h"

#include <unordered_map>

namespace Qx::Host::Effects {

std::string_view hlslName(std::string_view name)
{
    static const std::unordered_map<std::string_view, std::string_view> names{
        {"dword", "uint"},
        {"main", "qxfx_main"}, // the HLSL compiler takes one of that name for the entry
        {"tex2D", "qxfx_tex2D"},
        {"tex2Dlod", "qxfx_tex2Dlod"},
        {"tex2Dbias", "qxfx_tex2Dbias"},
        {"tex2Dgrad", "qxfx_tex2Dgrad"},
        {"tex2Dproj", "qxfx_tex2Dproj"},
        {"tex2Dfetch", "qxfx_tex2Dfetch"},
        {"tex2Dcodes", "qxfx_tex2Dcodes"},
        {"tex1D", "qxfx_tex1D"},
        {"tex1Dlod", "qxfx_tex1Dlod"},
        {"tex1Dbias", "qxfx_tex1Dbias"},
        {"tex1Dgrad", "qxfx_tex1Dgrad"},
        {"tex1Dproj", "qxfx_tex1Dproj"},
        {"tex3D", "qxfx_tex3D"},
        {"tex3Dlod", "qxfx_tex3Dlod"},
        {"tex3Dbias", "qxfx_tex3Dbias"},
        {"tex3Dgrad", "qxfx_tex3Dgrad"},
        {"tex3Dproj", "qxfx_tex3Dproj"},
        {"tex3Dfetch", "qxfx_tex3Dfetch"},
        {"texCUBE", "qxfx_texCUBE"},
        {"texCUBElod", "qxfx_texCUBElod"},
        {"texCUBEbias", "qxfx_texCUBEbias"},
        {"texCUBEgrad", "qxfx_texCUBEgrad"},
        {"texCUBEproj", "qxfx_texCUBEproj"},
        {"fmod", "qxfx_fmod"},
        // Words of the HLSL compiler that effects may use as names.
        {"sampler", "qxfx_sampler"},
        {"texture", "qxfx_texture"},
        {"Texture1D", "qxfx_Texture1D"},
        {"Texture2D", "qxfx_Texture2D"},
        {"Texture3D", "qxfx_Texture3D"},
        {"TextureCube", "qxfx_TextureCube"},
        {"Buffer", "qxfx_Buffer"},
        {"point", "qxfx_point"},
        {"line", "qxfx_line"},
        {"triangle", "qxfx_triangle"},
        {"lineadj", "qxfx_lineadj"},
        {"triangleadj", "qxfx_triangleadj"},
        {"linear", "qxfx_linear"},
        {"centroid", "qxfx_centroid"},
        {"noperspective", "qxfx_noperspective"},
        {"nointerpolation", "qxfx_nointerpolation"},
        {"snorm", "qxfx_snorm"},
        {"unorm", "qxfx_unorm"}};
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
