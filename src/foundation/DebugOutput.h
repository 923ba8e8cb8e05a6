#pragma once

// The platform's debug output: one process-wide sink. By default nothing is
// printed unless QUILLET_DEBUG is set in the environment, then each message
// goes to stderr as UTF-8. Tests install a sink to capture the exact messages.

#include <functional>

#include "foundation/Export.h"

namespace quillet {

using DebugSink = std::function<void(const wchar_t* message)>;

QUILLET_EXPORT void OutputDebugStringW(const wchar_t* message);
// Installs a sink (an empty function restores the default) and returns the
// one it replaces.
QUILLET_EXPORT DebugSink SetDebugOutputSink(DebugSink sink);

}  // namespace quillet
