#include "host/gpu/device/DeviceChoice.h"
#include "tests/host/gpu/GpuFixture.h"

#include <cstdlib>

namespace Qx::GpuTests {

namespace {

using Host::chooseDevice;
using Host::DeviceChoice;
using Host::DeviceDescription;

DeviceDescription device(std::uint32_t index, const char* name, const char* type, const char* lacks = "")
{
    DeviceDescription description;
    description.index = index;
    description.name = name;
    description.type = type;
    description.software = description.type == "software";
    description.unsupported = lacks;
    return description;
}

std::vector<DeviceDescription> workstation()
{
    return {device(0, "llvmpipe (LLVM 15)", "software"), device(1, "Onboard Graphics", "integrated GPU"),
            device(2, "Big Card 4090", "discrete GPU"), device(3, "Old Card", "discrete GPU", "Vulkan 1.3")};
}

/// Sets an environment variable for a scope.
class Environment
{
public:
    Environment(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
    ~Environment() { unsetenv(name_); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    const char* name_;
};

} // namespace

TEST(DeviceChoiceTest, TakesADiscreteGpuBeforeOthersAndAGpuBeforeSoftware)
{
    std::vector<DeviceDescription> devices = workstation();
    EXPECT_EQ(chooseDevice(devices, "", "").index, 2U);
    devices[2].unsupported = "timeline semaphores";
    EXPECT_EQ(chooseDevice(devices, "", "").index, 1U);
    devices[1].unsupported = "timeline semaphores";
    EXPECT_EQ(chooseDevice(devices, "", "").index, 0U);
}

TEST(DeviceChoiceTest, TakesAnIndexOrAPartOfANameWhateverItsCase)
{
    EXPECT_EQ(chooseDevice(workstation(), "1", "").index, 1U);
    EXPECT_EQ(chooseDevice(workstation(), "LLVM", "").index, 0U);
    EXPECT_EQ(chooseDevice(workstation(), "big card", "").index, 2U);
}

TEST(DeviceChoiceTest, TakesANumberThatIsNoIndexForAPartOfAName)
{
    EXPECT_EQ(chooseDevice(workstation(), "4090", "").index, 2U);
}

TEST(DeviceChoiceTest, NamesWhatWasAskedForWhereAndWhatThereIs)
{
    const DeviceChoice choice = chooseDevice(workstation(), "unicorn", "QX_DEVICE");
    EXPECT_FALSE(choice.index);
    for (const char* part : {"unicorn", "QX_DEVICE", "0: llvmpipe (LLVM 15)", "2: Big Card 4090"}) {
        EXPECT_NE(choice.failure.find(part), std::string::npos) << choice.failure;
    }
}

TEST(DeviceChoiceTest, SaysWhatAnUnusableDeviceLacks)
{
    const DeviceChoice choice = chooseDevice(workstation(), "old", "QX_DEVICE");
    EXPECT_FALSE(choice.index);
    EXPECT_NE(choice.failure.find("Vulkan 1.3"), std::string::npos) << choice.failure;
}

TEST(DeviceChoiceTest, SaysWhatToInstallWhereThereIsNoDevice)
{
    EXPECT_NE(chooseDevice({}, "", "").failure.find("mesa-vulkan-drivers"), std::string::npos);
}

TEST(DeviceTest, SaysWhichDeviceItUsesAndLabelsASoftwareDevicePlainly)
{
    takeLog();
    GPUService service;
    ASSERT_TRUE(service.start()) << service.failure();
    const std::string log = takeLog();
    int chosen = 0;
    for (const DeviceDescription& description : service.listDevices()) {
        EXPECT_FALSE(description.name.empty());
        EXPECT_FALSE(description.driver.empty());
        if (description.chosen) {
            ++chosen;
            EXPECT_NE(log.find(description.name), std::string::npos) << log;
            EXPECT_EQ(log.find("SOFTWARE") != std::string::npos, description.software) << log;
        }
    }
    EXPECT_EQ(chosen, 1);
    service.shutdown();
}

TEST(DeviceTest, AnUnknownNameIsAClearFailureAndEveryOperationFails)
{
    takeLog();
    GPUService service({.device = "no such device"});
    EXPECT_FALSE(service.start());
    EXPECT_NE(service.failure().find("no such device"), std::string::npos);
    EXPECT_NE(takeLog().find("no such device"), std::string::npos);
    EXPECT_FALSE(service.createGPUImage({4, 4}, iGPUImage::eARGB8));
    EXPECT_FALSE(service.createHostImage({4, 4}, iGPUImage::eARGB8));
    EXPECT_FALSE(service.createComputeContext(0));
    EXPECT_FALSE(service.createHostImage3D(17));
    EXPECT_FALSE(service.listDevices().empty());
}

TEST(DeviceTest, TheOptionsGoBeforeTheEnvironment)
{
    const Environment environment("QX_DEVICE", "from the environment");
    GPUService service({.device = "wanted", .deviceSource = "the command line"});
    EXPECT_FALSE(service.start());
    EXPECT_NE(service.failure().find("\"wanted\" (from the command line)"), std::string::npos)
        << service.failure();
}

TEST(DeviceTest, TheEnvironmentChoosesWhereTheOptionsDoNot)
{
    const Environment environment("QX_DEVICE", "from the environment");
    GPUService service;
    EXPECT_FALSE(service.start());
    EXPECT_NE(service.failure().find("\"from the environment\" (from QX_DEVICE)"), std::string::npos)
        << service.failure();
}

TEST(DeviceTest, OptionsAreTakenUntilTheServiceStarts)
{
    GPUService service;
    EXPECT_TRUE(service.configure({.device = "no such device"}));
    EXPECT_FALSE(service.start());
    EXPECT_FALSE(service.configure({}));
}

TEST(DeviceTest, TheEnvironmentTurnsValidationOn)
{
    const Environment environment("QX_VULKAN_VALIDATION", "1");
    GPUService service;
    ASSERT_TRUE(service.start()) << service.failure();
    EXPECT_TRUE(service.isValidating());
    service.shutdown();
}

} // namespace Qx::GpuTests
