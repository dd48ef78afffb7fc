#pragma once

#include <string_view>

namespace Qx::Host {

/// How short the machine is of memory.
enum class MemoryPressure
{
    None,
    Some, ///< some work waits for memory
    Full  ///< at times all work waits for memory
};

/// The pressure over the last ten seconds by the text of /proc/pressure/memory (see "Pressure Stall
/// Information" in Linux's documentation): Full if everything waited for at least a twentieth of the time,
/// else Some if anything waited for at least a tenth. None for any other text.
MemoryPressure pressureFrom(std::string_view text);

/// Makes the registered reclaimables free memory: limitUsage() for Some, purge() for Full.
void reclaimMemory(MemoryPressure pressure);

/// Ends the thread that checks the machine's memory, for good.
void stopMemoryWatch();

} // namespace Qx::Host
