#pragma once

class iClock;
class iGPUService;
class iMessageService;
class iSystemInformation;
class iThreadService;
class iUserService;

/// The services of OS(), except for those of the core and the file service. Constructed on first use, never
/// destroyed.
namespace Qx::Host {

struct OwnServices;

/// From now on OS() returns these services where they are not null. Thread-safe.
void replaceServices(const OwnServices& services);

iClock& hostClock();
iMessageService& hostMessages();
iSystemInformation& hostSystemInformation();
iThreadService& hostThreads();
iUserService& hostUsers();

/// Wakes all sleepers of the thread service, and keeps later sleeps short.
void wakeSleepers();

} // namespace Qx::Host
