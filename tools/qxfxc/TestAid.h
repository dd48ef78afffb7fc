#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

namespace Qx::Host::Worker {

/// Injects a fault into the worker, for tests, at the stage that the environment variable QXFXC_TEST names:
/// "STAGE:ACTION" or "STAGE:ACTION:FILE"; with FILE only for effects of that file name. Stages are starting
/// (before it identifies itself), greeting, compiling, parsing (when all files are read), shaders (when one
/// is begun), native (before native code is made), pipelines, drawing, answering and waiting (for the next
/// effect). First it writes its process id and the stage to standard error. Actions are
///
/// - those of tools/FaultInjection.h;
/// - freeze (stops itself with SIGSTOP until the host continues it);
/// - gate (waits until a file exists with the effect's name and ".go" appended; before there is an effect,
/// ".go"
///   in the current directory);
/// - memory (allocates without end);
/// - chatter (writes a lot to its standard output and error, and continues);
/// - overrun (writes a file beyond a limit on file sizes, and continues);
/// - flood (sends frames without end), garbage (sends bytes that are no frame), lie (sends a result that is
/// no
///   archive), boast (announces a frame of 4 GiB);
/// - err, at the stage native: see mistaken().
void injectFault(std::string_view stage, const std::filesystem::path& file);

/// The shader of which native code is made: with "native:err" one that subtracts where the given one adds.
std::vector<std::uint32_t> mistaken(std::vector<std::uint32_t> spirv);

} // namespace Qx::Host::Worker
