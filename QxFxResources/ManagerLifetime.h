#pragma once

#include "QxFxResources/Manager.h"
#include "platform/CriticalSection.h"

namespace Qx::FxResources {

/// Returns the lock that is held while the manager is created and while it is deleted.
const CriticalSection& lifetimeLock();

/// Returns the manager, or null if it does not exist. Never creates it. The caller must hold lifetimeLock().
Manager* existingManager();

} // namespace Qx::FxResources
