#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"

/// The host's reader of LUT files. Any thread.
class QX_PLATFORM_API CubeLUT
{
public:
    /// Reads a LUT file of any supported type; empty when it cannot be read, and a line in the host's log
    /// says why.
    static Qx::Ptr<iHostImage3D> load(const LightweightString<wchar_t>& path);

    /// Appends the extensions that `load` understands, in the form of getExtension().
    static void getSupportedFileTypes(Qx::Vector<LightweightString<wchar_t>>& types);
};
