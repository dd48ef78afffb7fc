#include "QxFxResources/Manager.h"
#include "platform/FileManager.h"
#include "platform/OS.h"
#include "platform/Settings.h"

namespace Qx::FxResources {

namespace {

using Listing = Qx::Vector<iFileManager::DirectoryItem>;

Listing listEffects(const LightweightString<wchar_t>& directory)
{
    Listing items;
    OS().files().listDirectory(directory + L"*.fx", items, iFileManager::FilesOnly, 0);
    return items;
}

void appendRecords(const Listing& items, const LightweightString<wchar_t>& directory,
                   Qx::Vector<ShaderEffectInfo>& out)
{
    for (const iFileManager::DirectoryItem& item : items) {
        if (item.name.c_str()[0] == L'_') {
            continue;
        }
        ShaderEffectInfo info;
        info.name = item.name;
        info.directory = directory;
        info.timeStamp = item.stamp;
        out.push_back(info);
    }
}

} // namespace

void Manager::getFXFiles(Qx::Vector<ShaderEffectInfo>& out) noexcept
{
    const LightweightString<wchar_t> shaders = getShadersDir();
    const LightweightString<wchar_t> templates = getFXTemplatesDirectory(iSettings::User);
    const Listing shaderItems = listEffects(shaders);
    const Listing templateItems = listEffects(templates);
    appendRecords(shaderItems, shaders, out);
    appendRecords(templateItems, templates, out);
}

} // namespace Qx::FxResources
