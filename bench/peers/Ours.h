#pragma once

#include "bench/peers/Participant.h"

namespace Qx::Bench {

/// What the library itself does, in three parts: the work that others do too, the limits of the device and
/// of memory, and costs that only it has.
void offerConversions(std::vector<Offer>& offers);
void offerLimits(std::vector<Offer>& offers);
void offerCosts(std::vector<Offer>& offers);

} // namespace Qx::Bench
