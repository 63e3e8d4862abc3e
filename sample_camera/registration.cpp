#include "sample_camera/registration.h"

#include "platform/hresult.h"
#include "sample_camera/camera_filter.h"

#include <cwchar>

namespace sample_camera {
namespace {

// CameraClass, and its instance among the video capture devices.
constexpr wchar_t ClassText[] = L"{C132191D-7DC1-4EB6-8914-B912B15C22B0}";
constexpr wchar_t ClassKey[] = L"Software\\Classes\\CLSID\\{C132191D-7DC1-4EB6-8914-B912B15C22B0}";
constexpr wchar_t InstanceKey[] = L"Software\\Classes\\CLSID\\{860BB310-5D01-11D0-BD3B-00A0C911CE86}\\Instance\\"
                                  L"{C132191D-7DC1-4EB6-8914-B912B15C22B0}";

// A null `name` is the key's default value.
HRESULT SetText(HKEY root, const wchar_t* key, const wchar_t* name, const wchar_t* text) noexcept {
    const auto size = static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t));
    const LSTATUS status = RegSetKeyValueW(root, key, name, REG_SZ, text, size);
    return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

HRESULT Remove(HKEY root, const wchar_t* key) noexcept {
    const LSTATUS status = RegDeleteTreeW(root, key);
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

HRESULT WriteKeys(HKEY root, const wchar_t* modulePath) noexcept {
    RETURN_IF_FAILED(SetText(root, ClassKey, nullptr, CameraName));
    RETURN_IF_FAILED(SetText(root, ServerKey, nullptr, modulePath));
    RETURN_IF_FAILED(SetText(root, ServerKey, L"ThreadingModel", L"Both"));
    RETURN_IF_FAILED(SetText(root, InstanceKey, L"FriendlyName", CameraName));
    return SetText(root, InstanceKey, L"CLSID", ClassText);
}

} // namespace

HRESULT Register(HKEY root, const wchar_t* modulePath) noexcept {
    const HRESULT result = WriteKeys(root, modulePath);
    if (FAILED(result)) {
        (void)Unregister(root); // half a registration would list a camera that cannot be opened
    }
    return result;
}

HRESULT Unregister(HKEY root) noexcept {
    const HRESULT instance = Remove(root, InstanceKey);
    const HRESULT classKey = Remove(root, ClassKey);
    return FAILED(instance) ? instance : classKey;
}

} // namespace sample_camera
