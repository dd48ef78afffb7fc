#include "VulkanDevice.h"

#include <SDL.h>
#include <SDL_vulkan.h>

#include <vector>

VulkanDevice::~VulkanDevice()
{
    if (device != nullptr) {
        vkDestroyDevice(device, nullptr);
    }
    if (surface != nullptr) {
        vkDestroySurfaceKHR(instance, surface, nullptr);
    }
    if (instance != nullptr) {
        vkDestroyInstance(instance, nullptr);
    }
}

void VulkanDevice::abandon()
{
    device = nullptr;
    surface = nullptr;
    instance = nullptr;
}

bool VulkanDevice::open(SDL_Window* window, std::string& failure)
{
    return makeInstance(window, failure) && choosePhysicalDevice(failure) && makeDevice(failure);
}

bool VulkanDevice::makeInstance(SDL_Window* window, std::string& failure)
{
    unsigned count = 0;
    std::vector<const char*> extensions;
    if (SDL_Vulkan_GetInstanceExtensions(window, &count, nullptr) == SDL_TRUE) {
        extensions.resize(count);
    }
    if (extensions.empty() ||
        SDL_Vulkan_GetInstanceExtensions(window, &count, extensions.data()) != SDL_TRUE) {
        failure = std::string("the window has no Vulkan: ") + SDL_GetError();
        return false;
    }
    VkApplicationInfo application{};
    application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
    application.pApplicationName = "window";
    application.apiVersion = VK_API_VERSION_1_3; // the host needs it
    VkInstanceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
    info.pApplicationInfo = &application;
    info.enabledExtensionCount = count;
    info.ppEnabledExtensionNames = extensions.data();
    if (vkCreateInstance(&info, nullptr, &instance) != VK_SUCCESS) {
        instance = nullptr;
        failure = "Vulkan could not be started; install the GPU's driver, or the package mesa-vulkan-drivers";
        return false;
    }
    if (SDL_Vulkan_CreateSurface(window, instance, &surface) != SDL_TRUE) {
        failure = std::string("the window cannot be drawn to by Vulkan: ") + SDL_GetError();
        return false;
    }
    return true;
}

bool VulkanDevice::choosePhysicalDevice(std::string& failure)
{
    std::uint32_t count = 0;
    vkEnumeratePhysicalDevices(instance, &count, nullptr);
    std::vector<VkPhysicalDevice> devices(count);
    vkEnumeratePhysicalDevices(instance, &count, devices.data());
    for (VkPhysicalDevice candidate : devices) {
        std::uint32_t familyCount = 0;
        vkGetPhysicalDeviceQueueFamilyProperties(candidate, &familyCount, nullptr);
        std::vector<VkQueueFamilyProperties> families(familyCount);
        vkGetPhysicalDeviceQueueFamilyProperties(candidate, &familyCount, families.data());
        for (std::uint32_t i = 0; i < familyCount; ++i) {
            VkBool32 presents = VK_FALSE;
            vkGetPhysicalDeviceSurfaceSupportKHR(candidate, i, surface, &presents);
            if ((families[i].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0 && presents == VK_TRUE) {
                physical = candidate;
                family = i;
                return true;
            }
        }
    }
    failure = "no Vulkan device can draw and present to the window";
    return false;
}

bool VulkanDevice::makeDevice(std::string& failure)
{
    // What the host needs is asked of it, here and for the extensions.
    VkPhysicalDeviceVulkan13Features v13{};
    v13.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES;
    VkPhysicalDeviceVulkan12Features v12{};
    v12.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES;
    v12.pNext = &v13;
    VkPhysicalDeviceFeatures2 features{};
    features.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2;
    features.pNext = &v12;
    Qx::Host::enableRequiredFeatures(physical, features);
    std::vector<const char*> extensions = Qx::Host::requiredDeviceExtensions(physical);
    extensions.push_back(VK_KHR_SWAPCHAIN_EXTENSION_NAME);

    const float priority = 1.0F;
    VkDeviceQueueCreateInfo queueInfo{};
    queueInfo.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO;
    queueInfo.queueFamilyIndex = family;
    queueInfo.queueCount = 1;
    queueInfo.pQueuePriorities = &priority;
    VkDeviceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
    info.pNext = &features;
    info.queueCreateInfoCount = 1;
    info.pQueueCreateInfos = &queueInfo;
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.ppEnabledExtensionNames = extensions.data();
    if (vkCreateDevice(physical, &info, nullptr, &device) != VK_SUCCESS) {
        device = nullptr;
        failure = "the Vulkan device could not be opened; the host needs Vulkan 1.3";
        return false;
    }
    vkGetDeviceQueue(device, family, 0, &queue);
    abilities_ = Qx::Host::abilitiesOf(info); // Vulkan does not tell later
    return true;
}

Qx::Host::ApplicationDevice VulkanDevice::shared()
{
    Qx::Host::ApplicationDevice description;
    description.instance = instance;
    description.apiVersion = VK_API_VERSION_1_3;
    description.physicalDevice = physical;
    description.device = device;
    description.abilities = abilities_;
    description.queueFamily = family;
    description.lockQueue = [this] { queueMutex.lock(); };
    description.unlockQueue = [this] { queueMutex.unlock(); };
    return description;
}
