// A DLL that a client library of the tests needs.
#include <windows.h>

extern "C" __declspec(dllexport) void NeededByClient() {}
