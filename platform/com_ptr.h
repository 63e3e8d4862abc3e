// A counted COM reference. Storing a new object references it before the old one is released.
#pragma once

#include <unknwn.h>

#include <utility>

namespace receiver {

template <typename T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    explicit ComPtr(T* newObject) noexcept : object(newObject) { AddReference(); }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.object) {}
    ComPtr(ComPtr&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(object, other.object);
        return *this;
    }
    ~ComPtr() { Reset(); }

    // Takes over a reference that the caller owns, such as that of a new object.
    [[nodiscard]] static ComPtr Attach(T* newObject) noexcept {
        ComPtr owner;
        owner.object = newObject;
        return owner;
    }

    [[nodiscard]] T* Get() const noexcept { return object; }
    T* operator->() const noexcept { return object; }
    explicit operator bool() const noexcept { return object != nullptr; }

    // Releases the held reference and returns the address of the pointer, for a call that fills it.
    [[nodiscard]] T** Put() noexcept {
        Reset();
        return &object;
    }
    [[nodiscard]] void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }
    void Reset() noexcept {
        if (T* const old = std::exchange(object, nullptr)) {
            old->Release();
        }
    }

    // Asks the object for another of its interfaces; the identifier must be that of `Other`.
    template <typename Other>
    [[nodiscard]] HRESULT As(REFIID id, ComPtr<Other>& other) const noexcept {
        return object->QueryInterface(id, other.PutVoid());
    }

private:
    void AddReference() const noexcept {
        if (object != nullptr) {
            object->AddRef();
        }
    }

    T* object = nullptr;
};

} // namespace receiver
