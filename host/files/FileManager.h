#pragma once

#include "platform/FileManager.h"

namespace Qx::Host {

iFileManager& hostFiles();

} // namespace Qx::Host
