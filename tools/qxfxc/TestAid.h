#pragma once

#include <filesystem>
#include <string_view>

namespace Qx::Host::Worker {

/// A test aid: makes the worker misbehave where the environment variable QXFXC_TEST says so, which is
/// "STAGE:ACTION" or "STAGE:ACTION:FILE"; with FILE only for effects of that file name. Stages are starting
/// (before it says what it is), greeting, compiling, parsing (when all is read), pipelines, drawing,
/// answering and waiting (for the next effect). First it writes its process id and the stage to standard
/// error. Actions are
///
/// - those of tools/Misbehaviour.h;
/// - freeze (stops itself until the host has it go on);
/// - gate (waits until the effect's file with ".go" behind its name exists);
/// - memory (takes it until something stops that);
/// - chatter (writes a lot to its standard output and error, and goes on);
/// - flood (sends frames without end), garbage (sends what is no frame), lie (sends a result that is none),
///   boast (announces a frame of 4 GiB).
void misbehave(std::string_view stage, const std::filesystem::path& file);

} // namespace Qx::Host::Worker
