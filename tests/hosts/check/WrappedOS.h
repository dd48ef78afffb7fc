#pragma once

#include "hosttests/HostTests.h"

#include <platform/OS.h>

#include <memory>
#include <utility>

namespace Qx::HostTests {

/// The process's service object, of which a test replaces one service.
class WrappedOS : public iOS
{
public:
    virtual ~WrappedOS() = default;
    iAllocator& allocator() override { return OS().allocator(); }
    iAtomics& atomics() override { return OS().atomics(); }
    iClock& clock() override { return OS().clock(); }
    iFileManager& files() override { return OS().files(); }
    iGPUService& gpu() override { return OS().gpu(); }
    iMessageService& messages() override { return OS().messages(); }
    iSystemInformation& systemInformation() override { return OS().systemInformation(); }
    iThreadService& threads() override { return OS().threads(); }
    iUserService& users() override { return OS().users(); }
};

/// Services with a service object of their own. Object is a WrappedOS; it is never destroyed, as a host's.
template <class Object>
class ServicesOf final : public Services
{
public:
    iOS& os() override { return object_; }

private:
    Object& object_ = *new Object;
};

template <class Object>
std::unique_ptr<Services> servicesOf(HostUnderTest&)
{
    return std::make_unique<ServicesOf<Object>>();
}

/// Services of which a class derived from Services overrides functions.
template <class Overriding>
std::unique_ptr<Services> overriding(HostUnderTest&)
{
    return std::make_unique<Overriding>();
}

} // namespace Qx::HostTests
