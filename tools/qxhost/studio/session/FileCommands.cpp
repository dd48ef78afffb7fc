#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/burnin/TimeCode.h"
#include "tools/qxhost/pipeline/look/LookFile.h"
#include "tools/qxhost/pipeline/look/LookTable.h"
#include "tools/qxhost/studio/session/NamedLinks.h"
#include "tools/qxhost/studio/session/TextFiles.h"
#include "tools/qxhost/studio/session/Worker.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace Qx::Program::Studio {

namespace {

Json fileMessage(const char* is, const std::filesystem::path& file, const TextFile& text)
{
    return {{"is", is}, {"file", file.string()}, {"text", text.text}, {"digest", text.digest}};
}

/// The digest of a file that may be gone.
std::string digestNow(const std::filesystem::path& file)
{
    try {
        return readText(file).digest;
    } catch (const Failure&) {
        return {};
    }
}

} // namespace

/// The file that the message names, if windows may read and write it.
std::filesystem::path Session::Worker::editableFile(const Message& message) const
{
    const std::filesystem::path file = message.text("file");
    if (!editable_.contains(file)) {
        throw Failure(ExitCode::usage,
                      "\"file\": expected an effect file that was named when the studio was started");
    }
    return file;
}

Json Session::Worker::doRead(Client& client, const Message& message)
{
    const std::filesystem::path file = editableFile(message);
    const TextFile text = readText(file);
    client.read.insert(file);
    known_[file] = text.digest;
    return {{"file", file.string()}, {"text", text.text}, {"digest", text.digest}};
}

Json Session::Worker::doWrite(Client& client, const Message& message)
{
    const std::filesystem::path file = editableFile(message);
    const std::string text = message.text("text", largestText);
    const std::string digest = message.text("digest", 64);
    std::error_code error;
    const bool isGone = !std::filesystem::exists(file, error) && !error; // what the page has is all there is
    const TextFile now = isGone ? TextFile{{}, digest} : readText(file);
    if (now.digest != digest) {
        client.read.insert(file);
        known_[file] = now.digest;
        tell(client, fileMessage("conflict", file, now), iWindow::Kind::answer);
        throw Conflict(ExitCode::output,
                       file.string() + ": has been changed since it was read; nothing was written");
    }
    const std::string written = writeText(file, text);
    client.read.insert(file);
    known_[file] = written;
    for (const Client& other : clients_) {
        if (&other != &client && other.read.contains(file)) {
            tell(other, fileMessage("conflict", file, {text, written}), iWindow::Kind::answer);
        }
    }
    filesAt_ = {};
    return {{"digest", written}};
}

/// Tells the windows that have read a file of what others write into it.
void Session::Worker::lookForConflicts()
{
    for (auto& [file, digest] : known_) {
        const std::string now = digestNow(file);
        if (now.empty() || now == digest) {
            continue; // a file that is gone may be on its way
        }
        digest = now;
        const TextFile text = readText(file);
        for (const Client& client : clients_) {
            if (client.read.contains(file)) {
                tell(client, fileMessage("conflict", file, text), iWindow::Kind::answer);
            }
        }
    }
}

Json Session::Worker::doSave(Client&, const Message& message)
{
    const bool isNamed = message.has("file");
    const std::string name = isNamed ? message.text("file") : lookFile_;
    if (name.empty()) {
        throw Failure(ExitCode::usage, "\"file\": the look has no file yet; give one");
    }
    const std::filesystem::path file = beneath(looks_, name, lookEnding);
    const bool isOwn = name == lookFile_ && digestNow(file) == lookDigest_;
    const bool overwrites = message.has("overwrite") ? message.flag("overwrite") : isOwn && !isNamed;
    if (!overwrites && !isNamed) {
        throw Conflict(ExitCode::output,
                       name + ": has been changed since; save it with another name, or over it");
    }
    std::error_code error;
    const bool exists = std::filesystem::exists(file, error);
    if (exists && !overwrites) {
        throw Conflict(ExitCode::output, name + ": exists already; choose another name, or replace it");
    }
    if (exists) { // keeps its mode
        writeText(file, lookText(editor_.look(), std::filesystem::absolute(file).parent_path()));
    } else {
        writeLook(editor_.look(), file, overwrites);
    }
    editor_.markSaved();
    lookFile_ = name;
    lookDigest_ = digestNow(file);
    changed();
    return {{"file", name}};
}

Look Session::Worker::readLookOfClip(const std::filesystem::path& file) const
{
    Look look = readLook(file);
    const Media::StreamInfo& info = projector_.clip().info();
    resolveTimeCodes(look, TimeCode::startingAt(info.timeCode, info.frameRate),
                     projector_.clip().file().string());
    if (look.links.size() > Editor::mostLinks) {
        throw Failure(ExitCode::input, fmt::format("{}: has {} steps; at most {} are shown", file.string(),
                                                   look.links.size(), Editor::mostLinks));
    }
    return look;
}

Json Session::Worker::doOpen(Client&, const Message& message)
{
    const std::string name = message.text("file");
    const std::filesystem::path file = beneath(looks_, name, lookEnding);
    editor_.replace(readLookOfClip(file));
    editor_.markSaved();
    lookFile_ = name;
    lookDigest_ = digestNow(file);
    lookChanged();
    return {{"file", name}};
}

Json Session::Worker::doLooks(Client&, const Message&)
{
    return {{"files", looksIn(looks_)}};
}

/// Key frames count with their values in the current frame.
Json Session::Worker::doExport(Client&, const Message& message)
{
    const std::string name = message.text("file");
    const std::filesystem::path file = beneath(looks_, name, ".cube");
    const auto size = static_cast<int>(message.integer("size", fewestTablePoints, mostTablePoints));
    const bool overwrites = message.has("overwrite") && message.flag("overwrite");
    std::error_code error;
    if (!overwrites && std::filesystem::exists(file, error)) {
        throw Conflict(ExitCode::output, name + ": exists already; choose another name, or replace it");
    }
    Look look = editor_.look();
    for (LookLink& link : look.links) {
        for (LookParameter& parameter : link.parameters) {
            parameter.values = parameter.valuesAt(number());
            parameter.keys.clear();
        }
    }
    const LookExport made = exportCube(look, size, file, overwrites);
    if (!made.obstacle.empty()) {
        throw Failure(ExitCode::effect,
                      "the look is no mapping of colours, and is not exported: " + made.obstacle);
    }
    return {{"file", name}, {"pure", true}, {"error", made.largestError}, {"errorText", made.errorInWords}};
}

} // namespace Qx::Program::Studio
