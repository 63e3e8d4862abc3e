// How the stand-in for the runtime's client library reports its calls to the test program.
#pragma once

#include <windows.h>

#include <unknwn.h>

// Exported by the test program under the name "ClientCalled"; its result becomes that of the call. `library` is the
// stand-in that was called.
using ClientCalledFunction = HRESULT(STDMETHODCALLTYPE*)(HMODULE library, bool joinRunningVersion, int runtimeType,
                                                         PCWSTR userDataFolder, IUnknown* options, IUnknown* handler);

// A stand-in does not let itself be loaded while this environment variable exists.
inline constexpr wchar_t RefuseVariable[] = L"VISTEL_TEST_CLIENT_REFUSES";
