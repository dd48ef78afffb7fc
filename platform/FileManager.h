#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/Api.h"

#include <cstdint>

/// The host's file service. File names are compared as the file system does.
class QX_PLATFORM_API iFileManager
{
public:
    struct DirectoryItem
    {
        LightweightString<wchar_t> name; ///< without its directory
        std::uint64_t size = 0;          ///< in bytes
        bool isDirectory = false;

        /// Changes whenever the contents that the file stands for may have changed. For an effect file that
        /// covers the files it includes too. Only equality has a meaning.
        std::uint64_t stamp = 0;
    };

    /// What `listDirectory` yields.
    enum eKind
    {
        AllEntries = 0,
        FilesOnly = 1
    };

    /// Fills `items` (it is cleared first) with the entries of a directory that match a pattern, in an order
    /// that is the same every time: by name.
    ///
    /// `pattern` is a directory with its separator followed by a name pattern in which '*' stands for any
    /// characters and '?' for one; letter case does not matter. `flags` has no meaning yet and is 0. A
    /// directory that does not exist or cannot be read gives no items.
    virtual void listDirectory(const LightweightString<wchar_t>& pattern, Qx::Vector<DirectoryItem>& items,
                               eKind kind, int flags) = 0;

    /// Copies a file, replacing an existing destination. The copy appears complete or not at all. `options`
    /// has no meaning yet and is 0. False when it failed; the destination is then as it was.
    virtual bool copyFile(const LightweightString<wchar_t>& source,
                          const LightweightString<wchar_t>& destination, int options) = 0;

protected:
    ~iFileManager() = default;
};

/// What getDirectoryContents yields: the flags may be combined.
enum DirectoryContentsFlags : unsigned
{
    DirectoryContentsFiles = 2,     ///< plain files
    DirectoryContentsFullPaths = 4, ///< paths that can be opened, instead of names
    DirectoryContentsSorted = 64,   ///< by name, the same order every time
};

/// Appends the entries of a directory that match a pattern ("*.*" matches every name). Sub-directories are
/// not searched. Nothing is appended for a directory that is missing or cannot be read.
QX_PLATFORM_API void getDirectoryContents(const LightweightString<wchar_t>& directory,
                                          const LightweightString<wchar_t>& pattern,
                                          Qx::Vector<LightweightString<wchar_t>>& contents, unsigned flags);

/// What follows the last '.' of the path's file name, as written; empty without one.
QX_PLATFORM_API LightweightString<wchar_t> getExtension(const LightweightString<wchar_t>& path);

/// The file name of a path.
QX_PLATFORM_API LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path);

/// The path of a name inside a directory, with one separator between them.
QX_PLATFORM_API LightweightString<wchar_t> joinPaths(const LightweightString<wchar_t>& directory,
                                                     const LightweightString<wchar_t>& name);
