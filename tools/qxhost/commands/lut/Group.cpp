#include "tools/qxhost/commands/Command.h"

namespace Qx::Program {

namespace {

const RegisteredGroup
    lutGroup({.name = "lut", .order = 70, .about = "List, install, describe and preview LUT files"});

} // namespace

} // namespace Qx::Program
