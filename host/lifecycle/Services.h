#pragma once

class iClock;
class iGPUService;
class iMessageService;
class iSystemInformation;
class iThreadService;
class iUserService;

/// The services that OS() hands out, beside the core's and the file service. Made on first use, never
/// destroyed.
namespace Qx::Host {

iClock& hostClock();
iMessageService& hostMessages();
iSystemInformation& hostSystemInformation();
iThreadService& hostThreads();
iUserService& hostUsers();

/// Whoever sleeps in the thread service wakes up, and nobody sleeps long from now on.
void wakeSleepers();

} // namespace Qx::Host
