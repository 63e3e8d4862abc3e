// ICoreWebView2Settings: keeps what the host sets and reports each change to the server.
#pragma once

#include "stubs.h"

#include "platform/hresult.h"

#include <string>

#define RIG_SETTING(name)                                                                                              \
    HRESULT STDMETHODCALLTYPE get_##name(BOOL* value) noexcept override {                                              \
        RETURN_IF_FAILED(Enter(__func__));                                                                             \
        return StoreResult(name##_, value);                                                                            \
    }                                                                                                                  \
    HRESULT STDMETHODCALLTYPE put_##name(BOOL value) noexcept override {                                               \
        RETURN_IF_FAILED(Enter(__func__));                                                                             \
        name##_ = value;                                                                                               \
        session->Send("setting", page, #name, value ? "true" : "false");                                               \
        return S_OK;                                                                                                   \
    }                                                                                                                  \
    BOOL name##_ = TRUE;

namespace rig {

class Settings final : public SessionObject<ICoreWebView2Settings, IID_ICoreWebView2Settings> {
public:
    Settings(std::shared_ptr<Session> newSession, std::string newPage)
        : SessionObject(std::move(newSession)), page(std::move(newPage)) {}

    RIG_SETTING(IsScriptEnabled)
    RIG_SETTING(IsWebMessageEnabled)
    RIG_SETTING(AreDefaultScriptDialogsEnabled)
    RIG_SETTING(IsStatusBarEnabled)
    RIG_SETTING(AreDevToolsEnabled)
    RIG_SETTING(AreDefaultContextMenusEnabled)
    RIG_SETTING(AreHostObjectsAllowed)
    RIG_SETTING(IsZoomControlEnabled)
    RIG_SETTING(IsBuiltInErrorPageEnabled)

private:
    ~Settings() override = default;

    std::string page;
};

} // namespace rig
