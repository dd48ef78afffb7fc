#pragma once

#include <string>

#include <spirv-tools/libspirv.hpp>

namespace Qx::Host::Effects {

inline constexpr auto targetEnvironment = SPV_ENV_VULKAN_1_1;

/// Takes the errors that SPIRV-Tools reports, one after the other, into `text`, which must outlive it.
inline spvtools::MessageConsumer collectInto(std::string& text)
{
    return [&text](spv_message_level_t level, const char*, const spv_position_t&, const char* message) {
        if (level <= SPV_MSG_ERROR) {
            text += (text.empty() ? "" : "; ") + std::string(message);
        }
    };
}

} // namespace Qx::Host::Effects
