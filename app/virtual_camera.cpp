#include "app/virtual_camera.h"

#include "platform/handles.h"

#include <windows.h>

namespace receiver {

bool IsVirtualCameraRegistered() noexcept {
    RegistryKey key;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                         L"SOFTWARE\\Classes\\CLSID\\{A42D576C-2AD1-4D63-94B0-31E96BDCA54F}\\InprocServer32", 0,
                         KEY_READ | KEY_WOW64_64KEY, key.Put()) == ERROR_SUCCESS;
}

} // namespace receiver
