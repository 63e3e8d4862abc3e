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
        link->Send({std::string_view(fields)...});
    }

    // Pages are named by numbers. A page must be removed before it ends.
    [[nodiscard]] std::string AddPage(Page* page);
    void RemovePage(const std::string& name) { pages.erase(name); }

    [[nodiscard]] bool BrowserGone() const { return browserGone; }
    [[nodiscard]] const std::wstring& Version() const { return version; }
    [[nodiscard]] const std::wstring& UserDataFolder() const { return userDataFolder; }
    // A name that no other shared buffer of the server has.
    [[nodiscard]] std::string NewBufferName();

    // Keeps how long a callback took, what it returned and that it has ended now; sent in batches.
    void RecordCallback(long long ticks, HRESULT result);
    void SendCallbackRecords();

private:
    void OnLine(const Fields& line);
    void CompleteEnvironment(HRESULT result);

    const DWORD threadId = GetCurrentThreadId();
    std::shared_ptr<BrowserLink> link;
    std::shared_ptr<Session> pendingSelf; // Until the environment handler has been called.
    receiver::ComPtr<EnvironmentHandler> pendingHandler;
    std::wstring userDataFolder;
    std::wstring version;
    std::string serverName;
    unsigned buffersMade = 0;
    unsigned pagesMade = 0;
    std::map<std::string, Page*> pages;
    std::string callbackRecords;
    unsigned callbackRecordCount = 0;
    bool browserGone = false;
};

} // namespace rig
