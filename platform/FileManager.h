#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/Api.h"

#include <cstdint>

/// The host's file service. File names are compared as the file system compares them. Thread-safe.
class QX_PLATFORM_API iFileManager
{
public:
    /// An entry of a directory.
    struct DirectoryItem
    {
        LightweightString<wchar_t> name; ///< without the directory
        std::uint64_t size = 0;          ///< in bytes
        bool isDirectory = false;        ///< whether it is a directory

        /// A different value whenever the contents that the file stands for may have changed. For an effect
        /// file this covers the files that it includes. Only equality is meaningful.
        std::uint64_t stamp = 0;
    };

    /// Which entries `listDirectory` returns.
    enum eKind
    {
        AllEntries = 0,
        FilesOnly = 1
    };

    /// Replaces the contents of `items` with the entries of a directory that match a pattern, sorted by name.
    ///
    /// `pattern` is a directory with a trailing separator, followed by a name pattern: '*' matches any
    /// characters and '?' matches one; the comparison ignores case. `flags` is reserved and must be 0.
    /// Returns no items if the directory does not exist or cannot be read, or if `pattern` names no
    /// directory: an unset directory is not the working directory. Called while the library creates its
    /// manager, see iOS.
    virtual void listDirectory(const LightweightString<wchar_t>& pattern, Qx::Vector<DirectoryItem>& items,
                               eKind kind, int flags) = 0;

    /// Copies a file, replacing an existing destination. The copy appears complete or not at all. `options`
    /// is reserved and must be 0. Returns false on failure; the destination is then unchanged.
    virtual bool copyFile(const LightweightString<wchar_t>& source,
                          const LightweightString<wchar_t>& destination, int options) = 0;

protected:
    ~iFileManager() = default;
};

/// Flags for getDirectoryContents(). They may be combined.
enum DirectoryContentsFlags : unsigned
{
    DirectoryContentsFiles = 2,     ///< regular files only
    DirectoryContentsFullPaths = 4, ///< complete paths instead of names
    DirectoryContentsSorted = 64,   ///< sorted by name
};

/// Appends the entries of a directory that match a pattern ("*.*" matches every name). Does not search
/// sub-directories. Appends nothing if the directory is empty text, does not exist or cannot be read.
/// Thread-safe.
QX_PLATFORM_API void getDirectoryContents(const LightweightString<wchar_t>& directory,
                                          const LightweightString<wchar_t>& pattern,
                                          Qx::Vector<LightweightString<wchar_t>>& contents, unsigned flags);

/// Returns what follows the last '.' of the path's file name, in its original case, or an empty string if
/// there is no '.'.
QX_PLATFORM_API LightweightString<wchar_t> getExtension(const LightweightString<wchar_t>& path);

/// Returns the file name of a path.
QX_PLATFORM_API LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path);

/// Returns the path of `name` inside `directory`, with one separator between them.
QX_PLATFORM_API LightweightString<wchar_t> joinPaths(const LightweightString<wchar_t>& directory,
                                                     const LightweightString<wchar_t>& name);
