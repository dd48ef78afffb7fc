#pragma once

namespace Qx::Bench {

/// Measures the nanoseconds that a word takes from one thread to another and back. Tens if both run on cores
/// that share a cache, hundreds if not, and more if they share one core. On a computer with virtual cores it
/// changes without notice, and with it the joint speed of two threads.
double pingPong();

} // namespace Qx::Bench
