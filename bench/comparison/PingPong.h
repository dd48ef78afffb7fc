#pragma once

namespace Qx::Bench {

/// Nanoseconds that a word takes from one thread to another and back. Tens when both run on cores that share
/// a cache, hundreds when they do not, and more when they share one core: on a computer with virtual cores it
/// changes while nobody looks, and the speed of everything that two threads do together changes with it.
double pingPong();

} // namespace Qx::Bench
