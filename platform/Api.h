#pragma once

/// Marks what a host supplies: declared here, defined by the process that loads the library.
#define QX_PLATFORM_API __attribute__((visibility("default")))

/// Marks what the library exports.
#define QX_API __attribute__((visibility("default")))

/// Marks what an installed header declares and no library exports: a member of an exported class, or a
/// function beside exported ones that only this system's own modules can call.
#define QX_LOCAL __attribute__((visibility("hidden")))

#if __cplusplus < 202002L
#error "QxFxResources needs C++20: compile with -std=c++20 or later"
#endif
