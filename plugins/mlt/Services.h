#pragma once

#include <string_view>

extern "C" {
#include <framework/mlt.h>
}

namespace Qx::Mlt {

/// Services of single effects: "qx.effect.NAME" is "qx.effect" with the effect NAME.fx.
inline constexpr std::string_view effectPrefix = "qx.effect.";

// Constructors, as MLT calls them. `argument` is the text after the service's name, or null.
void* makeEffectFilter(mlt_profile profile, mlt_service_type type, const char* id, const void* argument);
void* makeLutFilter(mlt_profile profile, mlt_service_type type, const char* id, const void* argument);
void* makeTextFilter(mlt_profile profile, mlt_service_type type, const char* id, const void* argument);
void* makeConvertFilter(mlt_profile profile, mlt_service_type type, const char* id, const void* argument);
void* makeTransition(mlt_profile profile, mlt_service_type type, const char* id, const void* argument);

/// The description of "qx.effect.NAME", with the effect's parameters; null if the effect does not compile.
mlt_properties describeEffect(mlt_service_type type, const char* id, void* data);

/// The description of a service, from its file in MLT's data directory.
mlt_properties describeFromFile(mlt_service_type type, const char* id, void* data);

} // namespace Qx::Mlt
