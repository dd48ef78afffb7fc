#include "platform/CubeLUT.h"

#include "host/luts/LUTReader.h"
#include "platform/Log.h"
#include "platform/Text.h"

#include <string>

Qx::Ptr<iHostImage3D> CubeLUT::load(const LightweightString<wchar_t>& path)
{
    const Qx::Host::LUTTableReading reading = Qx::Host::readLUTTable(toUTF8(path).c_str());
    if (!reading.table) {
        Log("LUT %s\n", reading.failure.c_str());
    } else if (reading.error > Qx::Host::largestLUTError) {
        Log("LUT %s: as a single table it is off by at most %s\n", toUTF8(path).c_str(),
            Qx::Host::lutErrorInCodes(reading.error).c_str());
    }
    return reading.table;
}

void CubeLUT::getSupportedFileTypes(Qx::Vector<LightweightString<wchar_t>>& types)
{
    for (const std::string& extension : Qx::Host::lutExtensions()) {
        types.push_back(fromUTF8(LightweightString<char>(extension.c_str())));
    }
}
