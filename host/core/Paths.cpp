#include "platform/FileManager.h"

#include <cstddef>
#include <string_view>

namespace {

constexpr wchar_t separator = L'/';

std::wstring_view fileName(std::wstring_view path)
{
    const std::size_t last = path.rfind(separator);
    return last == std::wstring_view::npos ? path : path.substr(last + 1);
}

} // namespace

LightweightString<wchar_t> getExtension(const LightweightString<wchar_t>& path)
{
    const std::wstring_view name = fileName(path.view());
    const std::size_t dot = name.rfind(L'.');
    return LightweightString<wchar_t>(dot == std::wstring_view::npos ? std::wstring_view()
                                                                     : name.substr(dot + 1));
}

LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path)
{
    return LightweightString<wchar_t>(fileName(path.view()));
}

LightweightString<wchar_t> joinPaths(const LightweightString<wchar_t>& directory,
                                     const LightweightString<wchar_t>& name)
{
    if (directory.empty()) {
        return name;
    }
    std::wstring_view left = directory.view();
    std::wstring_view right = name.view();
    while (!left.empty() && left.back() == separator) {
        left.remove_suffix(1);
    }
    while (!right.empty() && right.front() == separator) {
        right.remove_prefix(1);
    }
    LightweightString<wchar_t> result(left);
    result.append(&separator, 1);
    result.append(right.data(), right.size());
    return result;
}
