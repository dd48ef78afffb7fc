#pragma once

/// Marks what a host supplies: declared here, defined by the process that loads the library.
#define QX_PLATFORM_API __attribute__((visibility("default")))

/// Marks what the library exports.
#define QX_API __attribute__((visibility("default")))

/// Marks a member of an exported class that is not exported.
#define QX_LOCAL __attribute__((visibility("hidden")))
