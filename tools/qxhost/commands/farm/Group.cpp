#include "tools/qxhost/commands/Command.h"

namespace Qx::Program {

namespace {

const RegisteredGroup
    farmGroup({.name = "farm", .order = 45, .about = "Convert one clip on many machines, in pieces"});

} // namespace

} // namespace Qx::Program
