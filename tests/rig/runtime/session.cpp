#include "session.h"

#include "environment.h"
#include "faults.h"

#include "platform/hresult.h"

#include <utility>

namespace rig {
namespace {

constexpr unsigned CallbackRecordsPerLine = 32;
constexpr long long UnixEpochInFileTime = 116'444'736'000'000'000;

// As a page's clock has it, which counts from 1970.
long long UnixMicroseconds() {
    FILETIME time;
    GetSystemTimePreciseAsFileTime(&time);
    const long long units = static_cast<long long>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    return (units - UnixEpochInFileTime) / 10;
}

// As the real runtime: it keeps its files in a folder of its own below the host's.
HRESULT MakeUserDataFolder(const std::wstring& folder) {
    for (const std::wstring& path : {folder, folder + L"\\EBWebView"}) {
        if (!CreateDirectoryW(path.c_str(), nullptr)) {
            const DWORD error = GetLastError();
            const DWORD attributes = GetFileAttributesW(path.c_str());
            if (error != ERROR_ALREADY_EXISTS) {
                return HRESULT_FROM_WIN32(error);
            }
            if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
                return HRESULT_FROM_WIN32(ERROR_FILE_EXISTS);
            }
        }
    }
    return S_OK;
}

} // namespace

HRESULT Session::Start(PCWSTR userDataFolder, EnvironmentHandler* handler) {
    auto session = std::make_shared<Session>();
    session->userDataFolder = userDataFolder == nullptr ? L"" : userDataFolder;
    if (!session->userDataFolder.empty()) {
        RETURN_IF_FAILED(MakeUserDataFolder(session->userDataFolder));
    }
    session->link = BrowserLink::Connect([weak = std::weak_ptr(session)](const Fields& line) {
        if (const std::shared_ptr<Session> alive = weak.lock()) {
            alive->OnLine(line);
        }
    });
    if (!session->link) {
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
    session->pendingHandler = receiver::ComPtr(handler);
    session->pendingSelf = session;
    session->Send("environment");
    return S_OK;
}

HRESULT Session::Enter(const char* method) const {
    if (GetCurrentThreadId() != threadId) {
        return RPC_E_WRONG_THREAD;
    }
    return FaultFor(method);
}

HRESULT Session::ReportStub(const char* method) {
    RETURN_IF_FAILED(Enter(method));
    Send("stub", method);
    return E_NOTIMPL;
}

std::string Session::AddPage(Page* page) {
    std::string name = std::to_string(++pagesMade);
    pages[name] = page;
    return name;
}

std::string Session::NewBufferName() { return serverName + "-" + std::to_string(++buffersMade); }

void Session::RecordCallback(long long ticks, HRESULT result) {
    if (!callbackRecords.empty()) {
        callbackRecords += ',';
    }
    callbackRecords.append(std::to_string(ticks)).append(":").append(HexCode(result));
    callbackRecords.append(":").append(std::to_string(UnixMicroseconds()));
    if (++callbackRecordCount == CallbackRecordsPerLine) {
        SendCallbackRecords();
    }
}

void Session::SendCallbackRecords() {
    if (callbackRecordCount == 0) {
        return;
    }
    LARGE_INTEGER ticksPerSecond;
    QueryPerformanceFrequency(&ticksPerSecond);
    Send("callbacks", std::to_string(ticksPerSecond.QuadPart), callbackRecords);
    callbackRecords.clear();
    callbackRecordCount = 0;
}

void Session::OnLine(const Fields& line) {
    if (line[0] == "environment") {
        serverName = line.at(1);
        version = ToWide(line.at(2));
        CompleteEnvironment(S_OK);
    } else if (line[0] == "environment-failed") {
        CompleteEnvironment(E_FAIL);
    } else if (line[0] == "callbacks") {
        SendCallbackRecords();
        Send("callbacks-sent");
    } else if (line[0] == "gone") {
        browserGone = true;
        if (pendingHandler) {
            CompleteEnvironment(E_FAIL);
        }
        for (const auto& [name, page] : std::map(pages)) {
            if (pages.contains(name)) {
                page->OnLine(line);
            }
        }
    } else if (const auto found = pages.find(line.at(1)); found != pages.end()) {
        found->second->OnLine(line);
    }
}

void Session::CompleteEnvironment(HRESULT result) {
    const std::shared_ptr<Session> self = std::exchange(pendingSelf, nullptr);
    const receiver::ComPtr<EnvironmentHandler> handler = std::exchange(pendingHandler, {});
    receiver::ComPtr<ICoreWebView2Environment> environment;
    if (SUCCEEDED(result)) {
        environment = receiver::ComPtr<ICoreWebView2Environment>::Attach(new Environment(self));
    }
    (void)handler->Invoke(result, environment.Get());
}

} // namespace rig
