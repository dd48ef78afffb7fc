#include "tests/host/gpu/sharing/Application.h"

#include "examples/window/ImageLayout.h"

#include <vulkan/vulkan.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace Qx::GpuTests {

namespace {

void check(VkResult result, const char* what)
{
    if (result != VK_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": Vulkan result " + std::to_string(result));
    }
}

/// The device that the tests run on: the one that the service would choose.
VkPhysicalDevice chosenDevice(VkInstance instance)
{
    GPUService service;
    const std::vector<Host::DeviceDescription> listed = service.listDevices();
    service.shutdown();
    std::uint32_t count = static_cast<std::uint32_t>(listed.size());
    std::vector<VkPhysicalDevice> devices(count);
    check(vkEnumeratePhysicalDevices(instance, &count, devices.data()), "listing the devices");
    for (std::uint32_t i = 0; i < count; ++i) {
        if (listed[i].chosen) {
            return devices[i];
        }
    }
    throw std::runtime_error("there is no Vulkan device");
}

std::uint32_t drawingFamilyOf(VkPhysicalDevice device)
{
    std::uint32_t count = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(device, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    vkGetPhysicalDeviceQueueFamilyProperties(device, &count, families.data());
    const auto found = std::find_if(families.begin(), families.end(), [](const auto& family) {
        return (family.queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0;
    });
    return static_cast<std::uint32_t>(found - families.begin());
}

VkBufferImageCopy wholeOf(XY<int> size)
{
    VkBufferImageCopy region{};
    region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    region.imageExtent = {static_cast<std::uint32_t>(size.x), static_cast<std::uint32_t>(size.y), 1};
    return region;
}

template <class Function>
Function instanceFunction(VkInstance instance, const char* name)
{
    return reinterpret_cast<Function>(vkGetInstanceProcAddr(instance, name));
}

} // namespace

VkBool32 Application::onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT, VkDebugUtilsMessageTypeFlagsEXT,
                                const VkDebugUtilsMessengerCallbackDataEXT* data, void* self)
{
    const std::string_view id = data->pMessageIdName != nullptr ? data->pMessageIdName : "";
    if (id != "Loader Message") {
        auto& application = *static_cast<Application*>(self);
        ++application.messages_;
        const std::lock_guard lock(application.messageMutex_);
        application.message_ = data->pMessage;
    }
    return VK_FALSE;
}

std::string Application::lastMessage()
{
    const std::lock_guard lock(messageMutex_);
    return message_;
}

Application::Application(const Ways& ways)
{
    makeInstance(ways.apiVersion);
    shared_.apiVersion = ways.apiVersion;
    shared_.physicalDevice = chosenDevice(shared_.instance);
    makeDevice(ways);
    vkGetDeviceQueue(shared_.device, shared_.queueFamily, 0, &queue_);
    shared_.lockQueue = [this] {
        queueMutex_.lock();
        ++locked_;
    };
    shared_.unlockQueue = [this] { queueMutex_.unlock(); };
    VkSemaphoreTypeCreateInfo type{};
    type.sType = VK_STRUCTURE_TYPE_SEMAPHORE_TYPE_CREATE_INFO;
    type.semaphoreType = VK_SEMAPHORE_TYPE_TIMELINE;
    VkSemaphoreCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO;
    info.pNext = &type;
    if (ways.withoutFeature.empty()) {
        check(vkCreateSemaphore(shared_.device, &info, nullptr, &timeline_), "making a timeline");
    }
}

void Application::makeInstance(std::uint32_t apiVersion)
{
    VkDebugUtilsMessengerCreateInfoEXT messenger{};
    messenger.sType = VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT;
    messenger.messageSeverity =
        VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
    messenger.messageType =
        VK_DEBUG_UTILS_MESSAGE_TYPE_GENERAL_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT;
    messenger.pfnUserCallback = onMessage;
    messenger.pUserData = this;
    const VkValidationFeatureEnableEXT synchronisation =
        VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT;
    VkValidationFeaturesEXT features{};
    features.sType = VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT;
    features.pNext = &messenger;
    features.enabledValidationFeatureCount = 1;
    features.pEnabledValidationFeatures = &synchronisation;
    const std::array<const char*, 1> layers{"VK_LAYER_KHRONOS_validation"};
    const std::array<const char*, 2> extensions{VK_EXT_DEBUG_UTILS_EXTENSION_NAME,
                                                VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME};
    VkApplicationInfo application{};
    application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
    application.apiVersion = apiVersion;
    VkInstanceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
    info.pNext = &features;
    info.pApplicationInfo = &application;
    info.enabledLayerCount = static_cast<std::uint32_t>(layers.size());
    info.ppEnabledLayerNames = layers.data();
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.ppEnabledExtensionNames = extensions.data();
    check(vkCreateInstance(&info, nullptr, &shared_.instance), "making an instance");
    const auto create = instanceFunction<PFN_vkCreateDebugUtilsMessengerEXT>(
        shared_.instance, "vkCreateDebugUtilsMessengerEXT");
    messenger.pNext = nullptr;
    check(create(shared_.instance, &messenger, nullptr, &messenger_), "watching messages");
}

void Application::makeDevice(const Ways& ways)
{
    shared_.queueFamily = drawingFamilyOf(shared_.physicalDevice);
    const float priority = 1.0F;
    VkDeviceQueueCreateInfo queue{};
    queue.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO;
    queue.queueFamilyIndex = shared_.queueFamily;
    queue.queueCount = 1;
    queue.pQueuePriorities = &priority;
    VkPhysicalDeviceVulkan13Features v13{};
    v13.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES;
    VkPhysicalDeviceVulkan12Features v12{};
    v12.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES;
    v12.pNext = &v13;
    VkPhysicalDeviceFeatures2 features{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2, &v12, {}};
    if (!Host::enableRequiredFeatures(shared_.physicalDevice, features).empty()) {
        throw std::runtime_error("a required feature has no place in the structures of Vulkan 1.2 and 1.3");
    }
    const std::array<std::pair<const char*, VkBool32*>, 6> byName{{
        {"timelineSemaphore", &v12.timelineSemaphore},
        {"dynamicRendering", &v13.dynamicRendering},
        {"synchronization2", &v13.synchronization2},
        {"maintenance4", &v13.maintenance4},
        {"robustImageAccess", &v13.robustImageAccess},
        {"robustBufferAccess", &features.features.robustBufferAccess},
    }};
    for (const auto& [name, value] : byName) {
        *value = ways.withoutFeature == name ? VK_FALSE : *value;
    }
    const std::vector<const char*> extensions = ways.withExtensions
                                                    ? Host::optionalDeviceExtensions(shared_.physicalDevice)
                                                    : std::vector<const char*>();
    VkDeviceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
    info.pNext = &features;
    info.queueCreateInfoCount = 1;
    info.pQueueCreateInfos = &queue;
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.ppEnabledExtensionNames = extensions.data();
    check(vkCreateDevice(shared_.physicalDevice, &info, nullptr, &shared_.device), "making a device");
    shared_.abilities = Host::abilitiesOf(info);
}

Application::~Application()
{
    VkDevice device = shared_.device;
    if (device != nullptr) {
        vkDeviceWaitIdle(device);
        for (VkCommandPool pool : pools_) {
            vkDestroyCommandPool(device, pool, nullptr);
        }
        for (VkImage image : images_) {
            vkDestroyImage(device, image, nullptr);
        }
        for (VkBuffer buffer : buffers_) {
            vkDestroyBuffer(device, buffer, nullptr);
        }
        for (VkDeviceMemory memory : memories_) {
            vkFreeMemory(device, memory, nullptr);
        }
        vkDestroySemaphore(device, timeline_, nullptr);
        vkDestroyDevice(device, nullptr); // the validation layer names whatever is left on it
    }
    const auto destroy = instanceFunction<PFN_vkDestroyDebugUtilsMessengerEXT>(
        shared_.instance, "vkDestroyDebugUtilsMessengerEXT");
    destroy(shared_.instance, messenger_, nullptr);
    vkDestroyInstance(shared_.instance, nullptr);
    EXPECT_EQ(messages_, 0U) << message_;
}

VkDeviceMemory Application::allocate(const VkMemoryRequirements& requirements, VkMemoryPropertyFlags wanted)
{
    VkPhysicalDeviceMemoryProperties properties;
    vkGetPhysicalDeviceMemoryProperties(shared_.physicalDevice, &properties);
    VkMemoryAllocateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO;
    info.allocationSize = requirements.size;
    while (info.memoryTypeIndex < properties.memoryTypeCount &&
           ((requirements.memoryTypeBits & (1U << info.memoryTypeIndex)) == 0 ||
            (properties.memoryTypes[info.memoryTypeIndex].propertyFlags & wanted) != wanted)) {
        ++info.memoryTypeIndex;
    }
    VkDeviceMemory memory = nullptr;
    check(vkAllocateMemory(shared_.device, &info, nullptr, &memory), "allocating memory");
    const std::lock_guard lock(mutex_);
    memories_.push_back(memory);
    return memory;
}

Application::Buffer Application::makeBuffer(VkDeviceSize bytes)
{
    Buffer buffer;
    VkBufferCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO;
    info.size = bytes;
    info.usage = VK_BUFFER_USAGE_TRANSFER_SRC_BIT | VK_BUFFER_USAGE_TRANSFER_DST_BIT;
    check(vkCreateBuffer(shared_.device, &info, nullptr, &buffer.buffer), "making a buffer");
    VkMemoryRequirements requirements;
    vkGetBufferMemoryRequirements(shared_.device, buffer.buffer, &requirements);
    buffer.memory =
        allocate(requirements, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
    check(vkBindBufferMemory(shared_.device, buffer.buffer, buffer.memory, 0), "binding a buffer");
    check(vkMapMemory(shared_.device, buffer.memory, 0, VK_WHOLE_SIZE, 0, &buffer.mapped), "mapping");
    const std::lock_guard lock(mutex_);
    buffers_.push_back(buffer.buffer);
    return buffer;
}

Host::ApplicationImage Application::makeImage(XY<int> size, VkFormat format, VkImageCreateFlags flags)
{
    Host::ApplicationImage made;
    made.size = size;
    made.format = format;
    made.flags = flags;
    made.usage = Host::requiredImageUsage;
    VkImageCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
    info.flags = flags;
    info.imageType = VK_IMAGE_TYPE_2D;
    info.format = format;
    info.extent = {static_cast<std::uint32_t>(size.x), static_cast<std::uint32_t>(size.y), 1};
    info.mipLevels = 1;
    info.arrayLayers = 1;
    info.samples = VK_SAMPLE_COUNT_1_BIT;
    info.tiling = VK_IMAGE_TILING_OPTIMAL;
    info.usage = made.usage;
    check(vkCreateImage(shared_.device, &info, nullptr, &made.image), "making an image");
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(shared_.device, made.image, &requirements);
    check(vkBindImageMemory(shared_.device, made.image, allocate(requirements, 0), 0), "binding an image");
    const std::lock_guard lock(mutex_);
    images_.push_back(made.image);
    return made;
}

std::uint64_t Application::submit(const std::function<void(VkCommandBuffer)>& record,
                                  const Host::DevicePoint& after, VkSemaphore binary)
{
    VkCommandPoolCreateInfo poolInfo{};
    poolInfo.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO;
    poolInfo.queueFamilyIndex = shared_.queueFamily;
    VkCommandPool pool = nullptr;
    check(vkCreateCommandPool(shared_.device, &poolInfo, nullptr, &pool), "making a command pool");
    VkCommandBufferAllocateInfo bufferInfo{};
    bufferInfo.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO;
    bufferInfo.commandPool = pool;
    bufferInfo.commandBufferCount = 1;
    VkCommandBuffer commands = nullptr;
    check(vkAllocateCommandBuffers(shared_.device, &bufferInfo, &commands), "making a command buffer");
    VkCommandBufferBeginInfo begin{};
    begin.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO;
    check(vkBeginCommandBuffer(commands, &begin), "beginning commands");
    record(commands);
    check(vkEndCommandBuffer(commands), "ending commands");

    VkSemaphoreSubmitInfo wait{};
    wait.sType = VK_STRUCTURE_TYPE_SEMAPHORE_SUBMIT_INFO;
    wait.semaphore = after.semaphore;
    wait.value = after.value;
    wait.stageMask = VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT;
    std::array<VkSemaphoreSubmitInfo, 2> signals{wait, wait};
    signals[0].semaphore = timeline_;
    signals[1].semaphore = binary;
    VkCommandBufferSubmitInfo buffer{};
    buffer.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_SUBMIT_INFO;
    buffer.commandBuffer = commands;
    VkSubmitInfo2 info{};
    info.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO_2;
    info.waitSemaphoreInfoCount = after.semaphore != nullptr ? 1 : 0;
    info.pWaitSemaphoreInfos = &wait;
    info.commandBufferInfoCount = 1;
    info.pCommandBufferInfos = &buffer;
    info.signalSemaphoreInfoCount = binary != nullptr ? 2 : 1;
    info.pSignalSemaphoreInfos = signals.data();
    const std::lock_guard queueLock(queueMutex_);
    const std::lock_guard lock(mutex_);
    pools_.push_back(pool);
    signals[0].value = ++value_;
    check(vkQueueSubmit2(queue_, 1, &info, nullptr), "submitting");
    return value_;
}

void Application::wait(std::uint64_t value)
{
    VkSemaphoreWaitInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_WAIT_INFO;
    info.semaphoreCount = 1;
    info.pSemaphores = &timeline_;
    info.pValues = &value;
    check(vkWaitSemaphores(shared_.device, &info, 60'000'000'000U), "waiting for the device");
}

Host::DevicePoint Application::write(const Host::ApplicationImage& image, const Bytes& bytes,
                                     VkImageLayout layout, VkSemaphore binary)
{
    const Buffer buffer = makeBuffer(bytes.size());
    std::memcpy(buffer.mapped, bytes.data(), bytes.size());
    const std::uint64_t value = submit(
        [&](VkCommandBuffer commands) {
            const VkBufferImageCopy region = wholeOf(image.size);
            changeLayout(commands, image.image, VK_IMAGE_LAYOUT_UNDEFINED,
                         VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
            vkCmdCopyBufferToImage(commands, buffer.buffer, image.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                                   1, &region);
            if (layout != VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL) {
                changeLayout(commands, image.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, layout);
            }
        },
        {}, binary);
    return {timeline_, value};
}

Bytes Application::read(const Host::GivenImage& given, XY<int> size, std::size_t bytesPerTexel)
{
    const std::size_t bytes = static_cast<std::size_t>(size.x * size.y) * bytesPerTexel;
    const Buffer buffer = makeBuffer(bytes);
    wait(submit(
        [&](VkCommandBuffer commands) {
            const VkBufferImageCopy region = wholeOf(size);
            changeLayout(commands, given.image, given.layout, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
            vkCmdCopyImageToBuffer(commands, given.image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, buffer.buffer,
                                   1, &region);
            changeLayout(commands, given.image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, given.layout);
        },
        given.ready));
    const auto* const texels = static_cast<const std::uint8_t*>(buffer.mapped);
    return Bytes(texels, texels + bytes);
}

void Application::work()
{
    const Host::ApplicationImage image = makeImage({16, 16}, VK_FORMAT_R8G8B8A8_UNORM);
    wait(write(image, noise(16 * 16 * 4), VK_IMAGE_LAYOUT_GENERAL).value);
}

} // namespace Qx::GpuTests
