#include "tools/qxhost/pipeline/look/Look.h"

#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

template <class Parameters>
auto findParameterNamed(Parameters& parameters, const std::string& name)
{
    const auto found = std::find_if(parameters.begin(), parameters.end(),
                                    [&](const LookParameter& each) { return each.name == name; });
    return found == parameters.end() ? nullptr : &*found;
}

template <class Links>
auto findLinkWithId(Links& links, std::uint64_t id)
{
    const auto found =
        std::find_if(links.begin(), links.end(), [&](const LookLink& each) { return each.id == id; });
    return found == links.end() ? nullptr : &*found;
}

/// The key frame in messages: "warm.fx: gain at 10:00:00:00".
std::string wordsOfKey(const LookLink& link, const LookParameter& parameter, const KeyFrame& key)
{
    return fmt::format("{}: {}: the key frame at {}", link.file, parameter.name,
                       key.timeCode.empty() ? std::to_string(key.frame) : key.timeCode);
}

void resolveKey(const LookLink& link, const LookParameter& parameter, KeyFrame& key,
                const std::optional<TimeCode>& code, const std::string& clip)
{
    if (key.timeCode.empty()) {
        return;
    }
    if (!code) {
        throw Failure(ExitCode::input,
                      fmt::format("{}: {} has no time code; give the key frame by the number of a frame",
                                  wordsOfKey(link, parameter, key), clip));
    }
    const std::optional<std::int64_t> frame = code->frameOf(key.timeCode);
    if (!frame) {
        throw Failure(ExitCode::input,
                      fmt::format("{}: {} has no such label: it counts {} frames a second, {}",
                                  wordsOfKey(link, parameter, key), clip, code->framesPerSecond(),
                                  code->isDropFrame() ? "drop-frame (written with ';')"
                                                      : "non-drop (written with ':')"));
    }
    // Half a day lies before the clip, so that a key frame may be earlier than its first frame.
    const std::int64_t day = code->framesPerDay();
    key.frame = *frame < day / 2 ? *frame : *frame - day;
}

} // namespace

std::vector<float> LookParameter::valuesAt(std::int64_t frame) const
{
    return keys.empty() ? values : Program::valuesAt(keys, frame);
}

const LookParameter* LookLink::parameter(const std::string& name) const
{
    return findParameterNamed(parameters, name);
}

LookParameter* LookLink::parameter(const std::string& name)
{
    return findParameterNamed(parameters, name);
}

LookLink* Look::link(std::uint64_t id)
{
    return findLinkWithId(links, id);
}

const LookLink* Look::link(std::uint64_t id) const
{
    return findLinkWithId(links, id);
}

EffectRequest effectRequest(const LookLink& link)
{
    const bool isLut = link.kind == LookLink::Kind::lut;
    EffectRequest request{isLut ? tableEffect : link.file, link.technique, {}, isLut ? link.file : ""};
    for (const LookParameter& parameter : link.parameters) {
        if (parameter.keys.empty()) {
            request.settings.push_back({parameter.name, parameter.values});
        } else {
            request.keyed.push_back({parameter.name, parameter.keys});
        }
    }
    for (const LookTexture& texture : link.textures) {
        request.textures.push_back({texture.name, texture.file});
    }
    return request;
}

std::vector<EffectRequest> effectRequests(const Look& look)
{
    std::vector<EffectRequest> requests;
    for (const LookLink& link : look.links) {
        if (link.on) {
            requests.push_back(effectRequest(link));
        }
    }
    return requests;
}

Look frozenAt(const Look& look, std::int64_t frame)
{
    Look frozen = look;
    for (LookLink& link : frozen.links) {
        for (LookParameter& parameter : link.parameters) {
            parameter.values = parameter.valuesAt(frame);
            parameter.keys.clear();
        }
    }
    return frozen;
}

void resolveTimeCodes(Look& look, const std::optional<TimeCode>& code, const std::string& clip)
{
    for (LookLink& link : look.links) {
        for (LookParameter& parameter : link.parameters) {
            std::vector<KeyFrame>& keys = parameter.keys;
            for (KeyFrame& key : keys) {
                resolveKey(link, parameter, key, code, clip);
            }
            std::stable_sort(keys.begin(), keys.end(),
                             [](const KeyFrame& a, const KeyFrame& b) { return a.frame < b.frame; });
            const auto same =
                std::adjacent_find(keys.begin(), keys.end(),
                                   [](const KeyFrame& a, const KeyFrame& b) { return a.frame == b.frame; });
            if (same != keys.end()) {
                throw Failure(ExitCode::input,
                              fmt::format("{} and the one at {} are of the same frame of {}; leave one out",
                                          wordsOfKey(link, parameter, *same),
                                          std::next(same)->timeCode.empty() ? std::to_string(same->frame)
                                                                            : std::next(same)->timeCode,
                                          clip));
            }
        }
    }
}

} // namespace Qx::Program
