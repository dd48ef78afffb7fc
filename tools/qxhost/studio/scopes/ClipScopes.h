#pragma once

#include "host/gpu/scopes/Scopes.h"
#include "tools/qxhost/media/rows/FrameCodes.h"

namespace Qx::Program::Studio {

/// Puts the codes that a frame holds in place of the counts of luma and of the vectorscope, those beyond the
/// ends of its range too. Each pixel counts once. Codes become those of the request's depth and of that
/// range.
void countClip(const Media::FrameCodes& codes, const Host::ScopeRequest& request, Media::Range range,
               Host::ScopeCounts& counts);

} // namespace Qx::Program::Studio
