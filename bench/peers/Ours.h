#pragma once

#include "bench/peers/Participant.h"

namespace Qx::Bench {

/// The library's own works, in three parts: those that others do too, the limits of the device and memory,
/// and costs that only the library has.
void offerConversions(std::vector<Offer>& offers);
void offerLimits(std::vector<Offer>& offers);
void offerCosts(std::vector<Offer>& offers);

} // namespace Qx::Bench
