#pragma once

#include "tools/qxhost/pipeline/look/Look.h"

#include <optional>
#include <string>
#include <vector>

namespace Qx::Program {

// Looks among the effects and LUTs of a conversion.

/// The requests, with the steps of each look in the place of its file (EffectRequest::look). They keep the
/// look's file, for messages. `code` and `clip` as for resolveTimeCodes(). Throws Failure (effect, input),
/// which names the look.
std::vector<EffectRequest> withStepsOfLooks(const std::vector<EffectRequest>& requests,
                                            const std::optional<TimeCode>& code, const std::string& clip);

/// Makes names without a folder in looks' steps stand for the catalogue's effects and LUTs, whatever lies in
/// the working directory. The host must have started. Throws Failure (effect) if the catalogue has none.
void settleNamesOfLooks(std::vector<EffectRequest>& requests);

/// The same for the steps of a look that are on; `file` is the look's, for messages.
void settleNames(Look& look, const std::filesystem::path& file);

} // namespace Qx::Program
