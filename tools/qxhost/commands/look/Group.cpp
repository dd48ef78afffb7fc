#include "tools/qxhost/commands/Command.h"

namespace Qx::Program {

namespace {

const RegisteredGroup
    lookGroup({.name = "look", .order = 67, .about = "Describe looks, and export them as LUTs"});

} // namespace

} // namespace Qx::Program
