#pragma once

#include <string_view>

namespace Qx::Host {

/// How short of memory the machine is.
enum class MemoryPressure
{
    None,
    Some, ///< work waits for memory now and then
    Full  ///< at times nothing runs but the search for memory
};

/// What the text of /proc/pressure/memory says of the last ten seconds ("Pressure Stall Information" of
/// Linux's documentation): Some from a tenth of the time on in which anything waited, Full from a twentieth
/// on in which everything did. None for anything else.
MemoryPressure pressureFrom(std::string_view text);

/// Has those that are registered give memory back: limitUsage() for Some, purge() for Full.
void reclaimMemory(MemoryPressure pressure);

/// Ends the thread that looks at the machine's memory, for good.
void stopMemoryWatch();

} // namespace Qx::Host
