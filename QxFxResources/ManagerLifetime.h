#pragma once

#include "QxFxResources/Manager.h"
#include "platform/CriticalSection.h"

namespace Qx::FxResources {

/// Held while the manager is made and while it is deleted.
const CriticalSection& lifetimeLock();

/// The manager, or null when there is none; nothing is created. The caller holds lifetimeLock().
Manager* existingManager();

} // namespace Qx::FxResources
