// wWinMain: starts COM and Media Foundation, runs the application object, shuts both down in a fixed order.

#include "app/command_line.h"
#include "app/receiver_app.h"

#include <windows.h>

#include <mfapi.h>
#include <objbase.h>

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR commandLine, int showCommand) {
    constexpr const wchar_t* DefaultAddress = L"" VISTEL_RECEIVER_URL;
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    if (FAILED(MFStartup(MF_VERSION, MFSTARTUP_FULL))) {
        CoUninitialize();
        return 1;
    }
    int exitCode = 1;
    receiver::ReceiverApp app;
    try {
        exitCode = app.Run(instance, showCommand,
                           receiver::ChoosePageAddress(commandLine != nullptr ? commandLine : L"", DefaultAddress));
    } catch (...) {
        exitCode = 1; // out of memory during start-up
    }
    MFShutdown();
    CoUninitialize();
    // Deliberate: the application object, with everything it holds, is destroyed only when this function returns, after
    // COM and Media Foundation have been shut down.
    return exitCode;
}
