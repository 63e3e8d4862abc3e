#include "shared_buffer.h"

#include "platform/hresult.h"

#include <algorithm>

namespace rig {
namespace {

constexpr UINT64 SizeLimit = UINT64{1} << 31;
constexpr HRESULT ObjectClosed = static_cast<HRESULT>(0x80000013); // RO_E_CLOSED

// The Linux folder that the server shares, as Wine names it.
std::wstring SharedFolder() {
    std::wstring folder = EnvironmentValue(L"RIG_SHM");
    if (folder.empty()) {
        folder = L"/dev/shm";
    }
    std::replace(folder.begin(), folder.end(), L'/', L'\\');
    return L"Z:" + folder;
}

} // namespace

HRESULT SharedBuffer::Create(const std::shared_ptr<Session>& newSession, UINT64 bytes,
                             ICoreWebView2SharedBuffer** buffer) {
    if (buffer == nullptr) {
        return E_POINTER;
    }
    if (bytes == 0 || bytes >= SizeLimit) {
        return E_INVALIDARG;
    }
    auto created = receiver::ComPtr<SharedBuffer>::Attach(new SharedBuffer(newSession, bytes));
    RETURN_IF_FAILED(created->Open());
    created->AddRef();
    *buffer = created.Get();
    return S_OK;
}

SharedBuffer::SharedBuffer(std::shared_ptr<Session> newSession, UINT64 bytes)
    : SessionObject(std::move(newSession)), size(bytes), name(session->NewBufferName()) {}

SharedBuffer::~SharedBuffer() { (void)SharedBuffer::Close(); }

HRESULT SharedBuffer::Open() {
    const std::wstring path = SharedFolder() + L"\\" + ToWide(name);
    file.Reset(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                           FILE_ATTRIBUTE_TEMPORARY, nullptr));
    if (!file) {
        return receiver::LastErrorResult();
    }
    mapping.Reset(CreateFileMappingW(file.Get(), nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size), nullptr));
    if (!mapping) {
        return receiver::LastErrorResult();
    }
    view.Reset(MapViewOfFile(mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    return view ? S_OK : receiver::LastErrorResult();
}

HRESULT SharedBuffer::EnterOpen(const char* method) const {
    RETURN_IF_FAILED(Enter(method));
    return IsOpen() ? S_OK : ObjectClosed;
}

HRESULT SharedBuffer::get_Size(UINT64* value) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(size, value);
}

HRESULT SharedBuffer::get_Buffer(BYTE** buffer) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(static_cast<BYTE*>(view.Get()), buffer);
}

HRESULT SharedBuffer::get_FileMappingHandle(HANDLE* handle) noexcept {
    RETURN_IF_FAILED(EnterOpen(__func__));
    return StoreResult(mapping.Get(), handle);
}

HRESULT SharedBuffer::Close() noexcept {
    if (IsOpen()) {
        session->Send("buffer-closed", name);
    }
    view.Reset();
    mapping.Reset();
    file.Reset();
    return S_OK;
}

} // namespace rig
