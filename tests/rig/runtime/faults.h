// Failures that a test asks for, from the environment variable RIG_FAULTS: a comma list of NAME[:CALL][=HEX], and
// delays: NAME[:CALL]@MILLISECONDS.
// NAME is a method of any object of the runtime (CreateSharedBuffer, add_WebMessageReceived, ...) or of the sink writer
// (WriteSample, ...), MFCreateSinkWriterFromURL, or an interface that an old runtime lacks (ICoreWebView2_17,
// ICoreWebView2Environment12). CALL counts from 0, separately for each name; without it every call fails. HEX is the
// HRESULT, E_FAIL when absent.
#pragma once

#include <windows.h>

#include <string_view>

namespace rig {

// Counts one call of `name` and waits as long as it is to be delayed; S_OK when it is not to fail.
[[nodiscard]] HRESULT FaultFor(std::string_view name);

} // namespace rig
