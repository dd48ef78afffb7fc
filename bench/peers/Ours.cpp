#include "bench/peers/Ours.h"

#include "bench/Frames.h"
#include "host/Host.h"
#include "host/gpu/GPUOptions.h"

#include <cstdlib>

/// The participant for the library.
int main()
{
    using namespace Qx;
    setenv("QX_SHADERS_DIR", QX_SHADERS_FOLDER, 0);
    const std::string device = Bench::wantedDevice();
    const char* const arguments[] = {"qx_peer_ours", "-transcode"}; // no background compilation
    Host::StartOptions options;
    options.argc = 2;
    options.argv = arguments;
    options.quiet = true;
    options.device = device.empty() ? nullptr : device.c_str();
    Host::start(options);
    const Host::DeviceDescription chosen = Bench::chosenDevice();
    Bench::Participant participant{"this library", chosen.name, Bench::deviceName(), {}};
    Bench::offerConversions(participant.offers);
    Bench::offerLimits(participant.offers);
    Bench::offerCosts(participant.offers);
    const int status = Bench::serve(participant);
    Host::stop();
    return status;
}
