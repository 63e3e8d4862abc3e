// A counted COM reference. Storing a new object references it before the old one is released.
#pragma once

#include <unknwn.h>

#include <utility>

namespace receiver {

template <typename T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    explicit ComPtr(T* object) noexcept : object_(object) { AddReference(); }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.object_) {}
    ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ComPtr& operator=(const ComPtr& other) noexcept { return *this = ComPtr(other.object_); }
    ComPtr& operator=(ComPtr&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~ComPtr() { Reset(); }

    // Takes over a reference that the caller owns, such as that of a new object.
    [[nodiscard]] static ComPtr Attach(T* object) noexcept {
        ComPtr owner;
        owner.object_ = object;
        return owner;
    }

    [[nodiscard]] T* Get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    // Releases what is held and hands out the slot for a call that fills it.
    [[nodiscard]] T** Put() noexcept {
        Reset();
        return &object_;
    }
    [[nodiscard]] void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }
    void Reset() noexcept {
        if (T* const old = std::exchange(object_, nullptr)) {
            old->Release();
        }
    }

    // Asks the object for another of its interfaces; the identifier must be that of `Other`.
    template <typename Other>
    [[nodiscard]] HRESULT As(REFIID id, ComPtr<Other>& other) const noexcept {
        return object_->QueryInterface(id, other.PutVoid());
    }

private:
    void AddReference() const noexcept {
        if (object_ != nullptr) {
            object_->AddRef();
        }
    }

    T* object_ = nullptr;
};

} // namespace receiver
