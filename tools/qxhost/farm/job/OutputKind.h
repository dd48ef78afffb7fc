#pragma once

#include "tools/qxhost/pipeline/options/ConvertOptions.h"

namespace Qx::Program::Farm {

/// What pieces are, and so how they are joined.
enum class OutputKind
{
    clip,     ///< packets in a container
    rawFile,  ///< frames with nothing around them
    pictures, ///< a file each
};

OutputKind kindOf(const ConvertOptions& options);

} // namespace Qx::Program::Farm
