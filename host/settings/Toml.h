#pragma once

// The library asserts what it then checks: a header such as "[.a]" would end a build with assertions.
#ifndef TOML_ASSERT
#define TOML_ASSERT(condition) static_cast<void>(0)
#endif
#include <toml++/toml.h>
