// One WebView2 environment as the browser server sees it: the link, the pages that live in it and the rules that hold
// for every call of the host. Shared by all objects of the environment; ends the link when the last of them goes.
#pragma once

#include "browser_link.h"

#include "platform/com_ptr.h"

#include <WebView2.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace rig {

// What a session calls when a line names a page.
class Page {
public:
    virtual void OnLine(const Fields& line) = 0;

protected:
    ~Page() = default;
};

class Session : public std::enable_shared_from_this<Session> {
public:
    using EnvironmentHandler = ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler;

    // Asks the server for a browser; `handler` is called from the message loop of this thread.
    [[nodiscard]] static HRESULT Start(PCWSTR userDataFolder, EnvironmentHandler* handler);

    // Every implemented method passes here: the thread rule and the failures a test asks for.
    [[nodiscard]] HRESULT Enter(const char* method) const;
    HRESULT ReportStub(const char* method);

    template <typename... Text>
    void Send(const Text&... fields) {
        link_->Send({std::string_view(fields)...});
    }

    // Pages are named by numbers. A page must be removed before it ends.
    [[nodiscard]] std::string AddPage(Page* page);
    void RemovePage(const std::string& name) { pages_.erase(name); }

    [[nodiscard]] bool BrowserGone() const { return browserGone_; }
    [[nodiscard]] const std::wstring& Version() const { return version_; }
    [[nodiscard]] const std::wstring& UserDataFolder() const { return userDataFolder_; }
    // A name that no other shared buffer of the server has.
    [[nodiscard]] std::string NewBufferName();

    // Keeps how long a callback took, what it returned and that it has ended now; sent in batches.
    void RecordCallback(long long ticks, HRESULT result);
    void SendCallbackRecords();

private:
    void OnLine(const Fields& line);
    void CompleteEnvironment(HRESULT result);

    const DWORD threadId_ = GetCurrentThreadId();
    std::shared_ptr<BrowserLink> link_;
    std::shared_ptr<Session> pendingSelf_; // Until the environment handler has been called.
    receiver::ComPtr<EnvironmentHandler> pendingHandler_;
    std::wstring userDataFolder_;
    std::wstring version_;
    std::string serverName_;
    unsigned buffersMade_ = 0;
    unsigned pagesMade_ = 0;
    std::map<std::string, Page*> pages_;
    std::string callbackRecords_;
    unsigned callbackRecordCount_ = 0;
    bool browserGone_ = false;
};

} // namespace rig
