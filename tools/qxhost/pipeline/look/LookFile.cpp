#include "tools/qxhost/pipeline/look/LookFile.h"

#include "host/core/Suggestion.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/TomlFile.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/look/LookKeys.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <string_view>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 7> linkKeys{"effect",  "lut",  "technique", "set",
                                                   "texture", "keys", "amount"};
constexpr std::array<std::string_view, 3> keyFrameKeys{"at", "value", "curve"};
constexpr std::size_t mostLinks = 1000;

/// Makes a look of a file's tables.
class LookReader
{
public:
    explicit LookReader(const fs::path& file)
        : file_(file), folder_(fs::absolute(file).lexically_normal().parent_path())
    {
    }

    Look read(const toml::table& root)
    {
        checkVersion(root);
        Look look;
        for (const auto& [key, node] : entriesInOrder(root)) {
            if (key == "about") {
                look.about = textOf(key, *node);
            } else if (key == "step") {
                addLinks(look, *node);
            } else if (key != versionKey) {
                fail(*node, fmt::format("there is no key {}{}; expected about and [[step]]", key,
                                        Host::didYouMean(key, std::array{"about", "step"})));
            }
        }
        return look;
    }

private:
    [[noreturn]] void fail(const toml::node& node, const std::string& what) const
    {
        throw Failure(ExitCode::input, complaintAt(file_, node.source().begin.line, what));
    }

    void checkVersion(const toml::table& root) const
    {
        const toml::node* const node = root.get(versionKey);
        const auto version = node != nullptr ? node->value<std::int64_t>() : std::nullopt;
        if (!version) {
            throw Failure(ExitCode::input,
                          fmt::format("{}: is no look; expected a line \"{} = {}\" at its beginning",
                                      file_.string(), versionKey, lookVersion));
        }
        if (*version != lookVersion) {
            fail(*node, fmt::format("is a look of version {}, and this qxhost reads version {}; use a qxhost "
                                    "that is as new as the one that wrote it",
                                    *version, lookVersion));
        }
    }

    std::string textOf(const std::string& key, const toml::node& node) const
    {
        const auto* const text = node.as_string();
        if (text == nullptr) {
            fail(node, key + ": expected text in quotes");
        }
        if (text->get().find('\0') != std::string::npos) {
            fail(node, key + ": the text has a character with the code 0");
        }
        return text->get();
    }

    std::string nameOf(const std::string& key, const toml::node& node) const
    {
        std::string name = textOf(key, node);
        if (name.empty()) {
            fail(node, key + ": is empty; give a name");
        }
        return name;
    }

    const toml::table& tableOf(const std::string& key, const toml::node& node, const char* example) const
    {
        if (!node.is_table()) {
            fail(node, fmt::format("{}: expected a table, as in {}", key, example));
        }
        return *node.as_table();
    }

    bool truthOf(const std::string& key, const toml::node& node) const
    {
        const auto* const truth = node.as_boolean();
        if (truth == nullptr) {
            fail(node, key + ": expected true or false");
        }
        return truth->get();
    }

    float numberOf(const std::string& name, const toml::node& node) const
    {
        std::optional<double> number = node.value<double>();
        if (const auto* const truth = node.as_boolean()) {
            number = truth->get() ? 1 : 0;
        } else if (const auto* const whole = node.as_integer()) {
            number = static_cast<double>(whole->get());
        }
        constexpr double tooLarge = 0x1.ffffffp127; // rounds to infinity
        if (!number || !(std::abs(*number) < tooLarge)) {
            fail(node, name + ": expected a number, as in 0.5, or several, as in [1, 0.5, 0]");
        }
        return static_cast<float>(*number);
    }

    std::vector<float> numbersOf(const std::string& name, const toml::node& node) const
    {
        const toml::array* const several = node.as_array();
        if (several == nullptr) {
            return {numberOf(name, node)};
        }
        std::vector<float> numbers;
        for (const toml::node& each : *several) {
            numbers.push_back(numberOf(name, each));
        }
        if (numbers.empty()) {
            fail(node, name + ": has no value; expected a number, as in 0.5, or several, as in [1, 0.5, 0]");
        }
        return numbers;
    }

    void addLinks(Look& look, const toml::node& node) const
    {
        const toml::array* const tables = node.as_array();
        if (tables == nullptr) {
            fail(node, "step: expected tables that begin with [[step]]");
        }
        if (tables->size() > mostLinks) {
            fail(node, fmt::format("has {} steps; expected at most {}", tables->size(), mostLinks));
        }
        for (const toml::node& each : *tables) {
            if (!each.is_table()) {
                fail(each, "step: expected tables that begin with [[step]]");
            }
            look.links.push_back(linkOf(*each.as_table()));
            look.links.back().id = look.links.size();
        }
    }

    LookLink linkOf(const toml::table& table) const
    {
        LookLink link;
        const toml::node* const effect = table.get("effect");
        const toml::node* const lut = table.get("lut");
        if ((effect == nullptr) == (lut == nullptr)) {
            fail(table, "[[step]]: expected one of effect and lut");
        }
        link.kind = effect != nullptr ? LookLink::Kind::effect : LookLink::Kind::lut;
        const char* const kind = effect != nullptr ? "effect" : "lut";
        link.file = fileOf(nameOf(kind, effect != nullptr ? *effect : *lut));
        for (const auto& [key, node] : entriesInOrder(table)) {
            if (key != kind) {
                addToLink(link, key, *node);
            }
        }
        return link;
    }

    void addToLink(LookLink& link, const std::string& key, const toml::node& node) const
    {
        const bool isLut = link.kind == LookLink::Kind::lut;
        const bool isOfEffects = key == "technique" || key == "set" || key == "texture";
        if (isOfEffects && isLut) {
            fail(node, key + ": belongs to an effect, and this step is a LUT");
        }
        if (key == "amount" && !isLut) {
            fail(node, "amount: belongs to a LUT, and this step is an effect; set = { amount = ... } sets a "
                       "parameter of that name");
        }
        if (key == "on") {
            link.on = truthOf(key, node);
        } else if (key == "technique") {
            link.technique = nameOf(key, node);
        } else if (key == "set") {
            for (const auto& [name, value] : entriesInOrder(tableOf(key, node, "set = { gain = 1.2 }"))) {
                link.parameters.push_back({name, numbersOf(name, *value), {}});
            }
        } else if (key == "texture") {
            addTextures(link, tableOf(key, node, "texture = { Noise = \"noise.png\" }"));
        } else if (key == "keys") {
            addKeys(link, tableOf(key, node, "keys.gain = [{ at = 0, value = 1 }, { at = 50, value = 2 }]"));
        } else if (key == "amount") {
            addParameter(link, {key, {amountOf(node, numberOf(key, node))}, {}}, node);
        } else {
            fail(node, "[[step]]: there is no key " + key + Host::didYouMean(key, linkKeys));
        }
    }

    float amountOf(const toml::node& node, float amount) const
    {
        if (amount < 0 || amount > 1) {
            fail(node, "amount: expected a number from 0 to 1");
        }
        return amount;
    }

    void addParameter(LookLink& link, LookParameter parameter, const toml::node& node) const
    {
        if (link.parameter(parameter.name) != nullptr) {
            fail(node, parameter.name + ": has a value and key frames; leave one of them out");
        }
        link.parameters.push_back(std::move(parameter));
    }

    void addTextures(LookLink& link, const toml::table& table) const
    {
        for (const auto& [name, value] : entriesInOrder(table)) {
            link.textures.push_back({name, (folder_ / nameOf(name, *value)).lexically_normal()});
        }
    }

    void addKeys(LookLink& link, const toml::table& table) const
    {
        for (const auto& [name, node] : entriesInOrder(table)) {
            const toml::array* const keys = node->as_array();
            if (keys == nullptr || keys->empty()) {
                fail(*node,
                     name + ": expected key frames, as in [{ at = 0, value = 1 }, { at = 50, value = 2 }]");
            }
            if (link.kind == LookLink::Kind::lut && name != "amount") {
                fail(*node, name + ": a LUT has key frames of its amount alone");
            }
            LookParameter parameter{name, {}, {}};
            for (const toml::node& key : *keys) {
                addKey(link, parameter, key);
            }
            std::stable_sort(parameter.keys.begin(), parameter.keys.end(), isEarlierKey);
            addParameter(link, std::move(parameter), *node);
        }
    }

    void addKey(const LookLink& link, LookParameter& parameter, const toml::node& node) const
    {
        const std::string& name = parameter.name;
        const toml::table& table = tableOf(name, node, "{ at = 0, value = 1 }");
        KeyFrame key;
        for (const auto& [word, value] : entriesInOrder(table)) {
            if (word == "at") {
                takePlace(key, name, *value);
            } else if (word == "value") {
                key.values = numbersOf(name, *value);
            } else if (word == "curve") {
                key.curve = curveOf(*value);
            } else {
                fail(*value, fmt::format("{}: a key frame has no {}{}; it has {}", name, word,
                                         Host::didYouMean(word, keyFrameKeys), "at, value and curve"));
            }
        }
        if (table.get("at") == nullptr || key.values.empty()) {
            fail(node, name + ": a key frame needs at and value, as in { at = 0, value = 1 }");
        }
        if (link.kind == LookLink::Kind::lut) {
            static_cast<void>(amountOf(node, key.values.front()));
        }
        checkAgainst(parameter, key, link.kind == LookLink::Kind::lut, node);
        parameter.keys.push_back(std::move(key));
    }

    /// All key frames of a parameter have as many values, but for those with one for all.
    void checkAgainst(const LookParameter& parameter, const KeyFrame& key, bool isLut,
                      const toml::node& node) const
    {
        std::size_t several = isLut ? 1 : 0;
        for (const KeyFrame& other : parameter.keys) {
            several = std::max(several, other.values.size() > 1 ? other.values.size() : 0);
            const bool isSame = other.timeCode.empty() && key.timeCode.empty()
                                    ? other.frame == key.frame
                                    : other.timeCode == key.timeCode;
            if (isSame) {
                fail(node, parameter.name + ": has two key frames at the same place; leave one of them out");
            }
        }
        if (key.values.size() > 1 && several != 0 && several != key.values.size()) {
            fail(node,
                 fmt::format("{}: has a key frame with {} values, and here {}; expected as many, or one "
                             "for all",
                             parameter.name, several, key.values.size()));
        }
    }

    void takePlace(KeyFrame& key, const std::string& name, const toml::node& node) const
    {
        const auto* const number = node.as_integer();
        const auto* const label = node.as_string();
        if (number != nullptr && number->get() >= 0 && number->get() <= lastKeyFrame) {
            key.frame = number->get();
        } else if (label != nullptr && TimeCode::isLabel(label->get())) {
            key.timeCode = label->get();
        } else {
            fail(node, name + ": at: expected the number of a frame from 0, or a time code, as in "
                              "\"10:00:05:00\"");
        }
    }

    KeyCurve curveOf(const toml::node& node) const
    {
        const std::string word = textOf("curve", node);
        for (const auto& [name, curve] : curveWords) {
            if (word == name) {
                return curve;
            }
        }
        fail(node, fmt::format("curve: invalid value \"{}\": expected linear, smooth or hold", word));
    }

    /// Of an effect or a LUT.
    std::string fileOf(const std::string& word) const
    {
        const fs::path beside = (folder_ / word).lexically_normal();
        std::error_code error;
        const bool isPath = word.find('/') != std::string::npos || fs::is_regular_file(beside, error);
        return isPath ? beside.string() : word;
    }

    fs::path file_;
    fs::path folder_;
};

} // namespace

Look readLook(const fs::path& file)
{
    return LookReader(file).read(readToml(file, file.string(), "a look", ExitCode::input));
}

Look readLookText(const std::string& text, const fs::path& file)
{
    return LookReader(file).read(parseToml(text, file, ExitCode::input));
}

std::vector<std::string> looksIn(const fs::path& folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
         at.increment(error)) {
        std::string name = at->path().filename().string();
        if (name.ends_with(lookEnding) && name.size() > std::string_view(lookEnding).size()) {
            names.push_back(std::move(name));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace Qx::Program
