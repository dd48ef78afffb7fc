#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// A text of the user interface: a literal, or a string resource by number.
struct UIString
{
    static constexpr int noResource = 999999; ///< `resource` of a literal

    LightweightString<wchar_t> text; ///< the literal; used if there is no resource
    int resource = noResource;       ///< number for resourceStrW()
};

/// A key binding. The default is no key.
struct MapItem
{
    int key = 0;       ///< code of the key; 0 is none
    int modifiers = 0; ///< bits of the keys that are held; 0 is none
};

/// Where a command is available.
enum eCmdScope
{
    PanelCommand = 1,
    GlobalCommand = 2
};

/// Registers a parameterless command under a name for the lifetime of this object. `name` is not copied and
/// must outlive the object. Objects may be constructed and destroyed during static initialisation and
/// destruction. The handler runs on the thread that invokes the command.
class QX_PLATFORM_API CommandRegistrar
{
public:
    using Handler = void (*)(); ///< What a command does.

    /// Registers the command.
    CommandRegistrar(const char* name, Handler handler, const UIString& displayText,
                     const UIString& description, eCmdScope scope, const MapItem& binding);
    ~CommandRegistrar();
    CommandRegistrar(const CommandRegistrar&) = delete;
    CommandRegistrar& operator=(const CommandRegistrar&) = delete;

private:
    [[maybe_unused]] const char* name_; // a host may tell commands apart by their addresses alone
};
