// The owner of one MFStartup. Media Foundation counts them: it shuts down at the MFShutdown that undoes the last one.
#pragma once

#include "platform/handles.h"

#include <windows.h>

#include <mfapi.h>

namespace receiver {

struct MediaFoundationTraits {
    using Type = bool;
    static Type Invalid() noexcept { return false; }
    static void Close(Type) noexcept { MFShutdown(); }
};

using MediaFoundationStart = UniqueResource<MediaFoundationTraits>; // true: MFStartup has succeeded

} // namespace receiver
