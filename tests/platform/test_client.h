// What the stand-in for the runtime's client library keeps of its last call.
#pragma once

#include <windows.h>

struct ClientCall {
    int count; // of all calls
    bool joinRunningVersion;
    int runtimeType;
    wchar_t userDataFolder[300]; // "(null)" for a null pointer
    void* options;
    void* handler;
    HRESULT result; // for the test to set: what the call returns
};

// Exported under the name "ClientCallRecord".
using GetClientCall = ClientCall*(__cdecl*)();
