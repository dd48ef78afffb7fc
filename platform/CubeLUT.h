#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"

/// The host's reader of LUT files. Thread-safe.
class QX_PLATFORM_API CubeLUT
{
public:
    /// Reads a LUT file of any supported type. Blocks for the duration of the file access. Returns an empty
    /// pointer if the file cannot be read or parsed; the host's log then has the reason. A file that holds
    /// more than one table, or curves, gives the single table that comes nearest.
    static Qx::Ptr<iHostImage3D> load(const LightweightString<wchar_t>& path);

    /// Appends the file name extensions that `load` supports, in the form that getExtension() returns.
    static void getSupportedFileTypes(Qx::Vector<LightweightString<wchar_t>>& types);
};
