#pragma once

#include "bench/comparison/Page.h"
#include "bench/comparison/Peer.h"
#include "bench/comparison/Results.h"

#include <string>
#include <vector>

namespace Qx::Bench {

/// The works that a participant offers, each compared with ours.
std::vector<Comparison> besideOther(const std::string& program, const Peer& peer);

/// Our works compared with the limits of the device and memory. `placebo` also has passes that only move
/// bytes; null if it does not take part.
std::vector<Comparison> besideLimits(const Peer& ours, const Peer* placebo);

/// Our works compared with each other: sizes and threads.
std::vector<Comparison> ourCosts();

/// The questions to the results.
struct Measured
{
    const std::vector<Result>& peers;
    const std::vector<Result>& limits;
    const std::vector<Result>& costs;
    std::optional<Spread> applicationMicroseconds;
    std::optional<Spread> applicationAllocations; ///< our own, per application
    std::optional<Spread> warmShare;              ///< of a cold start, in percent
    std::optional<Spread> secondCore;             ///< cold start on one core to one on two
    bool softwareDevice = false;
};
std::vector<Bar> barsOf(const Measured& measured);

} // namespace Qx::Bench
