#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"
#include "tools/qxhost/studio/session/Controls.h"
#include "tools/qxhost/studio/session/NamedLinks.h"
#include "tools/qxhost/studio/session/Worker.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <malloc.h>
#include <utility>

namespace Qx::Program::Studio {

namespace {

constexpr std::int64_t mostFrames = std::int64_t{1} << 40;
constexpr std::int64_t mostPixels = 32768;
constexpr std::size_t mostKeys = 10000;

template <class Value>
Value chosen(const Message& message, const char* name,
             std::initializer_list<std::pair<const char*, Value>> choices)
{
    const std::string word = message.text(name, 64);
    std::vector<std::string> known;
    for (const auto& [text, value] : choices) {
        if (word == text) {
            return value;
        }
        known.emplace_back(text);
    }
    throw Failure(ExitCode::usage, fmt::format("\"{}\": expected {}", name, listed(known, "or")));
}

/// Nothing if none is given.
std::optional<KeyCurve> curveOf(const Message& message)
{
    if (!message.has("curve")) {
        return {};
    }
    return chosen<KeyCurve>(
        message, "curve",
        {{"linear", KeyCurve::linear}, {"smooth", KeyCurve::smooth}, {"hold", KeyCurve::hold}});
}

/// The parameter of that name, which is added if it is at its default.
LookParameter& parameterIn(LookLink& link, const std::string& name)
{
    if (LookParameter* const known = link.parameter(name)) {
        return *known;
    }
    link.parameters.push_back({name, {}, {}});
    return link.parameters.back();
}

/// Sets the key of that frame; another curve only if one is given.
void setKey(LookParameter& parameter, KeyFrame key, std::optional<KeyCurve> curve)
{
    std::vector<KeyFrame>& keys = parameter.keys;
    const auto at =
        std::lower_bound(keys.begin(), keys.end(), key.frame,
                         [](const KeyFrame& each, std::int64_t frame) { return each.frame < frame; });
    if (at != keys.end() && at->frame == key.frame) {
        key.curve = curve.value_or(at->curve);
        key.timeCode = at->timeCode;
        *at = std::move(key);
        return;
    }
    if (keys.size() >= mostKeys) {
        throw Failure(ExitCode::usage, fmt::format("a parameter has at most {} key frames", mostKeys));
    }
    key.curve = at != keys.begin() ? std::prev(at)->curve : KeyCurve::linear;
    if (curve.has_value()) {
        key.curve = *curve;
    }
    keys.insert(at, std::move(key));
    parameter.values.clear();
}

/// What the only key of a parameter said stays.
void removeKey(LookParameter* parameter, const std::string& name, std::int64_t frame)
{
    const auto is = [&](const KeyFrame& key) { return key.frame == frame; };
    if (parameter == nullptr || std::none_of(parameter->keys.begin(), parameter->keys.end(), is)) {
        throw Failure(ExitCode::usage, fmt::format("\"frame\": \"{}\" has no key in frame {}", name, frame));
    }
    const std::vector<float> last = parameter->keys.front().values;
    std::erase_if(parameter->keys, is);
    if (parameter->keys.empty()) {
        parameter->values = last;
    }
}

/// Sides that every subsampling of chroma divides.
PictureSize proxySize(double width, double height)
{
    return {std::max(4, static_cast<int>(width + 0.5) / 4 * 4),
            std::max(2, static_cast<int>(height + 0.5) / 2 * 2)};
}

Region regionIn(const std::vector<std::int64_t>& numbers, const Media::StreamInfo& info)
{
    Region region{};
    region.x = static_cast<int>(std::clamp<std::int64_t>(numbers[0], 0, info.width - 1));
    region.y = static_cast<int>(std::clamp<std::int64_t>(numbers[1], 0, info.height - 1));
    region.width = static_cast<int>(std::clamp<std::int64_t>(numbers[2], 1, info.width - region.x));
    region.height = static_cast<int>(std::clamp<std::int64_t>(numbers[3], 1, info.height - region.y));
    return region;
}

} // namespace

const std::map<std::string, Session::Worker::Handler, std::less<>>& Session::Worker::handlers()
{
    static const std::map<std::string, Handler, std::less<>> table{{"view", &Worker::doView},
                                                                   {"shown", &Worker::doShown},
                                                                   {"seek", &Worker::doSeek},
                                                                   {"step", &Worker::doStep},
                                                                   {"play", &Worker::doPlay},
                                                                   {"pause", &Worker::doPause},
                                                                   {"range", &Worker::doRange},
                                                                   {"loop", &Worker::doLoop},
                                                                   {"proxy", &Worker::doProxy},
                                                                   {"set", &Worker::doSet},
                                                                   {"key", &Worker::doKey},
                                                                   {"unkey", &Worker::doUnkey},
                                                                   {"add", &Worker::doAdd},
                                                                   {"remove", &Worker::doRemove},
                                                                   {"move", &Worker::doMove},
                                                                   {"switch", &Worker::doSwitch},
                                                                   {"technique", &Worker::doTechnique},
                                                                   {"reset", &Worker::doReset},
                                                                   {"undo", &Worker::doUndo},
                                                                   {"redo", &Worker::doRedo},
                                                                   {"probe", &Worker::doProbe},
                                                                   {"still", &Worker::doStill},
                                                                   {"unstill", &Worker::doUnstill},
                                                                   {"catalogue", &Worker::doCatalogue},
                                                                   {"scopes", &Worker::doScopes},
                                                                   {"read", &Worker::doRead},
                                                                   {"write", &Worker::doWrite},
                                                                   {"save", &Worker::doSave},
                                                                   {"open", &Worker::doOpen},
                                                                   {"looks", &Worker::doLooks},
                                                                   {"export", &Worker::doExport}};
    return table;
}

Json Session::Worker::errorFor(const std::optional<std::int64_t>& id, const Failure& failure)
{
    Json details = Json::array();
    const std::string& lines = failure.details();
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', begin), lines.size());
        details.push_back(lines.substr(begin, end - begin));
        begin = end + 1;
    }
    Json error{
        {"is", "error"}, {"id", id ? Json(*id) : Json()}, {"text", failure.what()}, {"details", details}};
    if (dynamic_cast<const Conflict*>(&failure) != nullptr) {
        error["kind"] = "conflict";
    }
    return error;
}

Session::Worker::Client* Session::Worker::clientOf(const WindowPtr& window)
{
    const auto found = std::find_if(clients_.begin(), clients_.end(),
                                    [&](const Client& client) { return client.window == window; });
    return found == clients_.end() ? nullptr : &*found;
}

void Session::Worker::open(const WindowPtr& window)
{
    clients_.emplace_back().window = window;
    tell(clients_.back(), state(), iWindow::Kind::state);
}

void Session::Worker::close(const WindowPtr& window)
{
    std::erase_if(clients_, [&](const Client& client) { return client.window == window; });
    if (clients_.empty()) {
        // Frames and pictures of many sizes come and go, and leave pages that the allocator keeps.
        ::malloc_trim(0);
    }
}

void Session::Worker::take(const WindowPtr& window, const std::string& text)
{
    Client* const client = clientOf(window);
    std::optional<std::int64_t> id;
    if (client != nullptr) {
        try {
            const Message message = Message::parse(text);
            id = message.id();
            Json answer = dispatch(*client, message);
            if (id) {
                Json whole{{"is", "answer"}, {"id", *id}};
                whole.update(answer.is_object() ? answer : Json::object());
                tell(*client, whole, iWindow::Kind::answer);
            }
        } catch (const Failure& failure) {
            tell(*client, errorFor(id, failure), iWindow::Kind::answer);
        } catch (const std::exception& error) { // such as exhausted memory
            tell(*client, errorFor(id, Failure(ExitCode::failed, error.what())), iWindow::Kind::answer);
        }
    }
    window->taken();
}

Json Session::Worker::dispatch(Client& client, const Message& message)
{
    const std::string name = message.text("do", 64);
    const auto found = handlers().find(name);
    if (found == handlers().end()) {
        throw Failure(ExitCode::usage, "\"do\": there is no \"" + name + "\"");
    }
    Json answer = (this->*found->second)(client, message);
    if (message.has("change")) {
        client.change = std::max(client.change,
                                 message.integer("change", 0, std::numeric_limits<std::int64_t>::max() / 2));
        ++client.viewVersion; // the picture that shows it is sent, even if it is the same
    }
    return answer;
}

Json Session::Worker::doView(Client& client, const Message& message)
{
    View view;
    view.place = {static_cast<int>(message.integer("width", 1, mostPixels)),
                  static_cast<int>(message.integer("height", 1, mostPixels))};
    if (message.has("region")) {
        view.region = regionIn(message.integers("region", 4), projector_.clip().info());
    }
    if (message.has("compare")) {
        view.compare = chosen<View::Compare>(message, "compare",
                                             {{"none", View::Compare::none},
                                              {"wipe", View::Compare::wipe},
                                              {"side", View::Compare::side},
                                              {"difference", View::Compare::difference}});
    }
    view.times = message.has("times") ? message.number("times", 0, 255) : 1;
    view.quality = message.has("quality") ? static_cast<int>(message.integer("quality", 1, 100)) : 80;
    const bool isStill =
        message.has("against") && !(message.isText("against") && message.text("against") == "before");
    view.against = isStill ? message.integer("against", 1, mostFrames) : 0;
    if (isStill && still(view.against) == nullptr) {
        throw Failure(ExitCode::usage, fmt::format("\"against\": there is no still {}", view.against));
    }
    client.view = view;
    ++client.viewVersion;
    return {};
}

Json Session::Worker::doShown(Client& client, const Message& message)
{
    const auto found = client.channels.find(message.text("of", 64));
    if (found != client.channels.end() && found->second.underWay > 0) {
        --found->second.underWay;
    }
    return {};
}

Json Session::Worker::doSeek(Client&, const Message& message)
{
    playback_.seek(message.integer("frame", 0, mostFrames), Playback::Clock::now());
    ++pictureVersion_;
    editor_.endGesture();
    return {};
}

Json Session::Worker::doStep(Client&, const Message& message)
{
    const std::int64_t by = message.integer("by", -mostFrames, mostFrames);
    playback_.pause();
    playback_.seek(std::max<std::int64_t>(playback_.frame() + by, 0), Playback::Clock::now());
    ++pictureVersion_;
    editor_.endGesture();
    changed();
    return {};
}

Json Session::Worker::doPlay(Client&, const Message&)
{
    playback_.play(Playback::Clock::now());
    ++pictureVersion_;
    changed();
    return {};
}

Json Session::Worker::doPause(Client&, const Message&)
{
    playback_.pause();
    changed();
    return {};
}

Json Session::Worker::doRange(Client&, const Message& message)
{
    const std::int64_t in = message.has("in") ? message.integer("in", 0, mostFrames) : 0;
    const std::int64_t out = message.has("out") ? message.integer("out", 0, mostFrames) : mostFrames;
    if (out < in) {
        throw Failure(ExitCode::usage, "\"out\": expected a frame that is not before \"in\"");
    }
    playback_.setRange(in, out);
    changed();
    return {};
}

Json Session::Worker::doLoop(Client&, const Message& message)
{
    playback_.setLoop(message.flag("on"));
    changed();
    return {};
}

Json Session::Worker::doProxy(Client&, const Message& message)
{
    std::optional<PictureSize> proxy;
    if (message.has("size")) {
        const std::vector<std::int64_t> asked = message.integers("size", 2);
        const Media::StreamInfo& info = projector_.clip().info();
        const double scale =
            std::min(static_cast<double>(asked[0]) / info.width, static_cast<double>(asked[1]) / info.height);
        if (asked[0] < 16 || asked[1] < 16) {
            throw Failure(ExitCode::usage, "\"size\": expected a width and a height of at least 16");
        }
        if (scale < 1) {
            proxy = proxySize(info.width * scale, info.height * scale);
        }
    }
    if (proxy_ != proxy) {
        projector_.setProxy(proxy);
        proxy_ = proxy;
        ++pictureVersion_;
        changed();
    }
    return {};
}

std::uint64_t Session::Worker::linkOf(const Message& message) const
{
    const auto id = static_cast<std::uint64_t>(message.integer("link", 0, mostFrames));
    if (editor_.look().link(id) == nullptr) {
        throw Failure(ExitCode::usage, fmt::format("\"link\": there is no step {}", id));
    }
    return id;
}

const Host::CompiledEffect::Parameter& Session::Worker::parameterOf(const Message& message) const
{
    const LinkStatus& status = projector_.chain().status(linkOf(message));
    const std::string name = message.text("name");
    if (status.compiled != nullptr) {
        for (const Host::CompiledEffect::Parameter& parameter : status.compiled->parameters) {
            if (parameter.name == name && isControl(parameter)) {
                return parameter;
            }
        }
    }
    throw Failure(ExitCode::usage, "\"name\": the step has no parameter \"" + name + "\" that can be set");
}

std::vector<float> Session::Worker::valuesOf(const Message& message,
                                             const Host::CompiledEffect::Parameter& parameter) const
{
    const std::uint32_t size = controlSize(parameter);
    std::vector<float> values = message.numbers("values", size);
    if (values.size() != size && values.size() != 1) {
        throw Failure(ExitCode::usage, fmt::format("\"values\": expected {} numbers, or one for all", size));
    }
    values.resize(size, values.front());
    return values;
}

Json Session::Worker::doSet(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    const bool commits = !message.has("commit") || message.flag("commit");
    std::string gesture = std::to_string(id);
    std::vector<std::pair<std::string, std::vector<float>>> changes;
    for (const Message& part : message.parts("parameters", "name", "values")) {
        const Host::CompiledEffect::Parameter& parameter = parameterOf(part);
        gesture += " " + parameter.name;
        changes.emplace_back(parameter.name, valuesOf(part, parameter));
    }
    const bool isNew = editor_.change(
        [&](Look& look) {
            for (const auto& [name, values] : changes) {
                LookParameter& set = parameterIn(*look.link(id), name);
                if (set.keys.empty()) {
                    set.values = values;
                } else {
                    setKey(set, {.frame = number(), .timeCode = {}, .values = values, .curve = {}}, {});
                }
            }
        },
        gesture);
    if (commits) {
        editor_.endGesture();
    }
    if (isNew) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doKey(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    const std::int64_t frame = message.integer("frame", 0, mostFrames);
    const std::optional<KeyCurve> curve = curveOf(message);
    std::vector<std::pair<std::string, std::vector<float>>> keys;
    for (const Message& part : message.parts("parameters", "name", "values")) {
        const Host::CompiledEffect::Parameter& parameter = parameterOf(part);
        keys.emplace_back(parameter.name, valuesOf(part, parameter));
    }
    const bool isNew = editor_.change([&](Look& look) {
        for (const auto& [name, values] : keys) {
            LookParameter& set = parameterIn(*look.link(id), name);
            setKey(set, {.frame = frame, .timeCode = {}, .values = values, .curve = {}}, curve);
        }
    });
    if (isNew) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doUnkey(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    const std::int64_t frame = message.integer("frame", 0, mostFrames);
    constexpr std::size_t mostNames = 16;
    const std::vector<std::string> names =
        message.has("names") ? message.texts("names", mostNames) : std::vector{message.text("name")};
    const bool isNew = editor_.change([&](Look& look) {
        for (const std::string& name : names) {
            removeKey(look.link(id)->parameter(name), name, frame);
        }
    });
    if (isNew) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doAdd(Client&, const Message& message)
{
    const auto kind = chosen<LookLink::Kind>(
        message, "kind", {{"effect", LookLink::Kind::effect}, {"lut", LookLink::Kind::lut}});
    const std::string name = message.text("name");
    LookLink link = catalogueLink(kind, name);
    const Look& look = editor_.look();
    if (look.links.size() >= Editor::mostLinks) {
        throw Failure(ExitCode::usage, fmt::format("a look has at most {} steps", Editor::mostLinks));
    }
    const auto at = message.has("at") ? message.integer("at", 0, static_cast<std::int64_t>(look.links.size()))
                                      : static_cast<std::int64_t>(look.links.size());
    link.id = editor_.newId();
    const std::uint64_t id = link.id;
    editor_.change([&](Look& next) { next.links.insert(next.links.begin() + at, std::move(link)); });
    lookChanged();
    return {{"link", id}};
}

Json Session::Worker::doRemove(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    editor_.change(
        [&](Look& look) { std::erase_if(look.links, [&](const LookLink& link) { return link.id == id; }); });
    lookChanged();
    return {};
}

Json Session::Worker::doMove(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    const auto to = message.integer("to", 0, static_cast<std::int64_t>(editor_.look().links.size()) - 1);
    const bool isNew = editor_.change([&](Look& look) {
        const auto from = std::find_if(look.links.begin(), look.links.end(),
                                       [&](const LookLink& link) { return link.id == id; });
        LookLink moved = std::move(*from);
        look.links.erase(from);
        look.links.insert(look.links.begin() + to, std::move(moved));
    });
    if (isNew) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doSwitch(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    const bool on = message.flag("on");
    if (editor_.change([&](Look& look) { look.link(id)->on = on; })) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doTechnique(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    const std::string name = message.text("name");
    const LinkStatus& status = projector_.chain().status(id);
    const bool isKnown =
        status.compiled != nullptr && editor_.look().link(id)->kind == LookLink::Kind::effect &&
        std::any_of(status.compiled->techniques.begin(), status.compiled->techniques.end(),
                    [&](const Host::CompiledEffect::Technique& each) { return each.name == name; });
    if (!isKnown) {
        throw Failure(ExitCode::usage, "\"name\": the step has no technique \"" + name + "\"");
    }
    if (editor_.change([&](Look& look) { look.link(id)->technique = name; })) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doReset(Client&, const Message& message)
{
    const std::uint64_t id = linkOf(message);
    const std::string name = message.has("name") ? message.text("name") : "";
    const bool isNew = editor_.change([&](Look& look) {
        std::erase_if(look.link(id)->parameters,
                      [&](const LookParameter& parameter) { return name.empty() || parameter.name == name; });
    });
    if (isNew) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doUndo(Client&, const Message&)
{
    if (editor_.undo()) {
        lookChanged();
    }
    return {};
}

Json Session::Worker::doRedo(Client&, const Message&)
{
    if (editor_.redo()) {
        lookChanged();
    }
    return {};
}

} // namespace Qx::Program::Studio
