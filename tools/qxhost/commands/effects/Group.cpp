#include "tools/qxhost/commands/Command.h"

namespace Qx::Program {

namespace {

const RegisteredGroup
    effectsGroup({.name = "effects", .order = 50, .about = "List, check, describe or watch effects"});

} // namespace

} // namespace Qx::Program
