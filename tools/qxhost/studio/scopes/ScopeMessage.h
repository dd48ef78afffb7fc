#pragma once

#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/studio/scopes/ScopeSignals.h"

#include <string>
#include <vector>

namespace Qx::Program::Studio {

/// The scopes that a window can ask for, by their names in messages.
struct ScopeKinds
{
    bool waveform = false;
    bool parade = false;
    bool vectorscope = false;
    bool histogram = false;
    bool chromaticity = false;

    bool operator==(const ScopeKinds&) const = default;
    bool any() const { return waveform || parade || vectorscope || histogram || chromaticity; }
    /// Some count red, green and blue.
    bool needPicture() const { return parade || histogram || chromaticity; }
};

/// What the window says. Throws Failure (usage) for a name that no scope has.
ScopeKinds scopeKinds(const std::vector<std::string>& names);

/// The sizes that these kinds need; 0 for those that are not counted.
ScopeSizes scopeSizes(const ScopeKinds& kinds);

/// The members that the kinds have in a "scopes" message. Counts are base64 of little-endian 16-bit numbers,
/// 65535 for more.
Json scopeMessage(const ScopeKinds& kinds, const ScopeSignal& signal, const Host::ScopeRequest& request,
                  const Host::ScopeCounts& counts);

} // namespace Qx::Program::Studio
