#pragma once

/// Shuts the host down: calls the shutdown callbacks, then endServices(). Call it at the end of main().
void stopHost();

/// Ends what the services have begun. Called once, after the last callback.
void endServices();
