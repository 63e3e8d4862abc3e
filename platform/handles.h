// Owners of Windows resources: one template, and one line per kind. Move-only. Closing preserves the last error, so
// that it can still be read after the clean-up.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <utility>

namespace receiver {

// Traits: `Type`, `Invalid()` and `Close(Type)`.
template <typename Traits>
class UniqueResource {
public:
    using Type = typename Traits::Type;

    UniqueResource() noexcept = default;
    explicit UniqueResource(Type newValue) noexcept : value(newValue) {}
    UniqueResource(UniqueResource&& other) noexcept : value(other.Release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    ~UniqueResource() { Reset(); }

    [[nodiscard]] Type Get() const noexcept { return value; }
    explicit operator bool() const noexcept { return value != Traits::Invalid(); }

    // Closes the held resource and returns the address of the value, for a call that fills it.
    [[nodiscard]] Type* Put() noexcept {
        Reset();
        return &value;
    }
    void Reset(Type newValue = Traits::Invalid()) noexcept {
        const Type old = std::exchange(value, newValue);
        if (old != Traits::Invalid()) {
            const DWORD error = GetLastError();
            Traits::Close(old);
            SetLastError(error);
        }
    }
    [[nodiscard]] Type Release() noexcept { return std::exchange(value, Traits::Invalid()); }

private:
    Type value = Traits::Invalid();
};

struct FileTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Type file) noexcept { CloseHandle(file); }
};
struct HandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type handle) noexcept { CloseHandle(handle); }
};
struct ViewTraits {
    using Type = void*;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type view) noexcept { UnmapViewOfFile(view); }
};
struct RegistryKeyTraits {
    using Type = HKEY;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type key) noexcept { RegCloseKey(key); }
};
struct LocalMemoryTraits {
    using Type = void*;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type memory) noexcept { LocalFree(memory); }
};
struct CoTaskStringTraits {
    using Type = wchar_t*;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type text) noexcept { CoTaskMemFree(text); }
};

using UniqueFile = UniqueResource<FileTraits>; // INVALID_HANDLE_VALUE when empty
using UniqueHandle = UniqueResource<HandleTraits>; // null when empty
using MappedView = UniqueResource<ViewTraits>;
using RegistryKey = UniqueResource<RegistryKeyTraits>;
using LocalMemory = UniqueResource<LocalMemoryTraits>;
using CoTaskString = UniqueResource<CoTaskStringTraits>;

} // namespace receiver
