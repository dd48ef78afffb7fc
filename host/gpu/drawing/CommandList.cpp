#include "host/gpu/drawing/CommandList.h"

namespace Qx::Host::Vulkan {

bool CommandList::begin()
{
    if (pool_ == nullptr) {
        VkCommandPoolCreateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO;
        info.flags = VK_COMMAND_POOL_CREATE_TRANSIENT_BIT;
        info.queueFamilyIndex = device_.queueFamily(lane_);
        if (!device_.succeeded(vkCreateCommandPool(device_.handle(), &info, nullptr, &pool_),
                               "creating a command pool")) {
            pool_ = nullptr;
            return false;
        }
    } else if (!device_.succeeded(vkResetCommandPool(device_.handle(), pool_, 0), "resetting commands")) {
        return false;
    }
    if (commands_ == nullptr) {
        VkCommandBufferAllocateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO;
        info.commandPool = pool_;
        info.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
        info.commandBufferCount = 1;
        if (!device_.succeeded(vkAllocateCommandBuffers(device_.handle(), &info, &commands_),
                               "allocating a command buffer")) {
            commands_ = nullptr;
            return false;
        }
    }
    VkCommandBufferBeginInfo info{};
    info.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO;
    info.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
    return device_.succeeded(vkBeginCommandBuffer(commands_, &info), "beginning commands");
}

bool CommandList::end()
{
    return device_.succeeded(vkEndCommandBuffer(commands_), "ending commands");
}

void CommandList::destroy()
{
    vkDestroyCommandPool(device_.handle(), pool_, nullptr);
    pool_ = nullptr;
    commands_ = nullptr;
}

} // namespace Qx::Host::Vulkan
