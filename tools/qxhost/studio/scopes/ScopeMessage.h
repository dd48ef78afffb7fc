#pragma once

#include "tools/qxhost/studio/scopes/ScopeSignals.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace Qx::Program {

/// The scopes that a window can ask for, by their names in messages.
struct ScopeKinds
{
    bool waveform = false;
    bool parade = false;
    bool vectorscope = false;
    bool histogram = false;
    bool chromaticity = false;

    bool any() const { return waveform || parade || vectorscope || histogram || chromaticity; }
};

/// What the window says: an array of names. Throws Failure (usage) for another name.
ScopeKinds scopeKinds(const nlohmann::json& names);

/// The sizes that these kinds need; 0 for those that are not counted.
ScopeSizes scopeSizes(const ScopeKinds& kinds);

/// The members that the kinds have in a "scopes" message. Counts are base64 of little-endian 16-bit numbers,
/// 65535 for more.
nlohmann::json scopeMessage(const ScopeKinds& kinds, const ScopeSignal& signal,
                            const Host::ScopeRequest& request, const Host::ScopeCounts& counts);

} // namespace Qx::Program
