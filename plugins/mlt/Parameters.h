#pragma once

#include "host/effects/CompiledEffect.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <string>
#include <vector>

extern "C" {
#include <framework/mlt.h>
}

namespace Qx::Mlt {

/// The place of a frame in the service, for key frames.
struct Moment
{
    mlt_position position = 0;
    mlt_position length = 0;
};

/// What the properties say of an effect's parameters at that moment. A parameter is the property of its name,
/// or, where MLT uses that name itself, "set.NAME". Values that are no numbers are left out, with a line in
/// `problems`.
std::vector<Program::ParameterSetting> settingsOf(mlt_properties properties,
                                                  const Host::CompiledEffect& effect, const Moment& moment,
                                                  std::vector<std::string>& problems);

/// A line for each property that looks like a mistyped parameter.
std::vector<std::string> likelyMistakes(mlt_properties properties, const Host::CompiledEffect& effect,
                                        const std::vector<std::string>& known);

/// Number of components: numbers that make the parameter's value.
std::size_t componentsOf(const Host::CompiledEffect::Parameter& parameter);

} // namespace Qx::Mlt
