// ICoreWebView2SharedBuffer: a mapped file, into which the browser server writes what the page writes. The server also
// removes the file, when it has dealt with everything that the host asked for before it closed the buffer.
#pragma once

#include "stubs.h"

#include "platform/handles.h"

#include <string>

namespace rig {

class SharedBuffer final : public SessionObject<ICoreWebView2SharedBuffer, IID_ICoreWebView2SharedBuffer> {
public:
    static HRESULT Create(const std::shared_ptr<Session>& newSession, UINT64 bytes, ICoreWebView2SharedBuffer** buffer);
    explicit SharedBuffer(std::shared_ptr<Session> newSession, UINT64 bytes);

    HRESULT STDMETHODCALLTYPE get_Size(UINT64* value) noexcept override;
    HRESULT STDMETHODCALLTYPE get_Buffer(BYTE** buffer) noexcept override;
    HRESULT STDMETHODCALLTYPE get_FileMappingHandle(HANDLE* handle) noexcept override;
    HRESULT STDMETHODCALLTYPE Close() noexcept override;
    RIG_STUB(OpenStream, IStream**)

    [[nodiscard]] bool IsOpen() const { return static_cast<bool>(view); }
    [[nodiscard]] const std::string& Name() const { return name; }
    [[nodiscard]] UINT64 Size() const { return size; }

private:
    ~SharedBuffer() override;
    [[nodiscard]] HRESULT Open();
    [[nodiscard]] HRESULT EnterOpen(const char* method) const;

    UINT64 size;
    std::string name;
    receiver::UniqueFile file;
    receiver::UniqueHandle mapping;
    receiver::MappedView view;
};

} // namespace rig
