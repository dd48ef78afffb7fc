#pragma once

#include "tools/qxhost/pipeline/burnin/TimeCode.h"
#include "tools/qxhost/pipeline/look/KeyFrames.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program {

/// A parameter of a step: a value, or key frames.
struct LookParameter
{
    std::string name;
    std::vector<float> values;  ///< of every frame; empty if there are key frames
    std::vector<KeyFrame> keys; ///< as in KeyedParameter; may be empty

    /// The value in a frame of the clip.
    std::vector<float> valuesAt(std::int64_t frame) const;

    bool operator==(const LookParameter&) const = default;
};

/// A file for another texture of an effect.
struct LookTexture
{
    std::string name; ///< of the effect's texture
    std::filesystem::path file;

    bool operator==(const LookTexture&) const = default;
};

/// A step of a look: an effect or a LUT.
struct LookLink
{
    enum class Kind
    {
        effect,
        lut
    };

    std::uint64_t id = 0; ///< tells the steps of a look apart while it is edited; no part of the file
    Kind kind = Kind::effect;
    std::string file; ///< a name of the catalogue, or else an absolute path
    bool on = true;
    std::string technique;                 ///< of an effect; empty: its first
    std::vector<LookParameter> parameters; ///< that are not at their defaults, by name once; of a LUT: amount
    std::vector<LookTexture> textures;     ///< of an effect

    /// The parameter of that name; null if it is at its default.
    const LookParameter* parameter(const std::string& name) const;
    LookParameter* parameter(const std::string& name);

    bool operator==(const LookLink&) const = default;
};

/// A saved chain of effects and LUTs. A plain value: copies share nothing.
struct Look
{
    std::string about; ///< one line for people; may be empty
    std::vector<LookLink> links;

    /// The step with that id; null if there is none.
    LookLink* link(std::uint64_t id);
    const LookLink* link(std::uint64_t id) const;

    bool operator==(const Look&) const = default;
};

/// What the pipeline runs: a request for each step that is on, in their order. Key frames by time code must
/// be resolved.
std::vector<EffectRequest> effectRequests(const Look& look);

/// What the pipeline runs of one step, whether it is on or not.
EffectRequest effectRequest(const LookLink& link);

/// The look with the values of one frame instead of key frames, which must be resolved.
Look frozenAt(const Look& look, std::int64_t frame);

/// Sets the frames of key frames that are given by time code, and puts the key frames of each parameter into
/// their order. A label that is up to half a day before the clip's first one becomes a negative number.
/// `code` is the clip's time code, empty if it has none; `clip` names it in messages. Throws Failure (input)
/// if a label is none of the clip's, or two key frames of a parameter have the same frame.
void resolveTimeCodes(Look& look, const std::optional<TimeCode>& code, const std::string& clip);

} // namespace Qx::Program
