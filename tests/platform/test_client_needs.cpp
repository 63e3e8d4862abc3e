// Makes a client library need another DLL, as the runtime's own library needs some.
#include <windows.h>

extern "C" __declspec(dllimport) void NeededByClient();

extern "C" __declspec(dllexport) void UseDependency() { NeededByClient(); }
