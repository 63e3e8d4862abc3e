#include "sample_camera/registration.h"

#include "platform/handles.h"
#include "platform/hresult.h"
#include "sample_camera/camera_filter.h"

#include <array>
#include <cwchar>
#include <iterator>

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

bool IsEmpty(HKEY root, const wchar_t* key) noexcept {
    receiver::RegistryKey opened;
    DWORD keyCount = 0;
    DWORD valueCount = 0;
    return RegOpenKeyExW(root, key, 0, KEY_QUERY_VALUE, opened.Put()) == ERROR_SUCCESS &&
           RegQueryInfoKeyW(opened.Get(), nullptr, nullptr, nullptr, &keyCount, nullptr, nullptr, &valueCount, nullptr,
                            nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
           keyCount == 0 && valueCount == 0;
}

// "Instance" and the category of the video capture devices. Other cameras may use them too.
void RemoveEmptyKeysAboveInstance(HKEY root) noexcept {
    std::array<wchar_t, std::size(InstanceKey)> key{};
    std::wcscpy(key.data(), InstanceKey);
    for (int level = 0; level < 2; ++level) {
        *std::wcsrchr(key.data(), L'\\') = L'\0';
        if (IsEmpty(root, key.data())) {
            (void)RegDeleteKeyW(root, key.data()); // An empty key does no harm.
        }
    }
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
    if (root == HKEY_CURRENT_USER) { // For the machine the keys above the instance are the system's.
        RemoveEmptyKeysAboveInstance(root);
    }
    return FAILED(instance) ? instance : classKey;
}

} // namespace sample_camera
