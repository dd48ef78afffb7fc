#pragma once

#include "plugins/mlt/Service.h"

namespace Qx::Mlt {

// What each service does by its properties, which docs/mlt.md lists. They throw Failure if a property says
// something that cannot be.

Service::Plan effectPlan(mlt_properties properties);
Service::Plan lutPlan(mlt_properties properties);
Service::Plan textPlan(mlt_properties properties);
Service::Plan convertPlan(mlt_properties properties);
Service::Plan transitionPlan(mlt_properties properties);

} // namespace Qx::Mlt
