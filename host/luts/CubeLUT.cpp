#include "platform/CubeLUT.h"

#include "platform/Log.h"
#include "platform/Text.h"

Qx::Ptr<iHostImage3D> CubeLUT::load(const LightweightString<wchar_t>& path)
{
    Log("%s: LUT reading is not built in yet\n", toUTF8(path).c_str());
    return {};
}

void CubeLUT::getSupportedFileTypes(Qx::Vector<LightweightString<wchar_t>>&) {}
