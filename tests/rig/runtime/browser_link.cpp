#include "browser_link.h"

#include "module.h"
#include "server_socket.h"

#include <utility>

namespace rig {
namespace {

constexpr UINT LineArrived = WM_APP;
constexpr wchar_t LinkClass[] = L"RigBrowserLink";

} // namespace

std::shared_ptr<BrowserLink> BrowserLink::Connect(LineHandler onLine) {
    const SOCKET connection = ConnectToServer(L"RIG_PORT");
    if (connection == INVALID_SOCKET) {
        return nullptr;
    }
    RegisterWindowClass(LinkClass, WindowProcedure);
    const HWND window =
        CreateWindowExW(0, LinkClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, ModuleHandle(), nullptr);
    if (window == nullptr) {
        closesocket(connection);
        return nullptr;
    }
    auto link = std::make_shared<BrowserLink>(connection, window, std::move(onLine));
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(link.get()));
    link->reader = std::thread(&BrowserLink::ReadLines, link.get());
    return link;
}

BrowserLink::BrowserLink(SOCKET newSocket, HWND newWindow, LineHandler newOnLine)
    : socket(newSocket), window(newWindow), onLine(std::move(newOnLine)) {}

BrowserLink::~BrowserLink() {
    shutdown(socket, SD_BOTH); // Ends the reader's recv.
    reader.join();
    closesocket(socket);
    SetWindowLongPtrW(window, GWLP_USERDATA, 0);
    DestroyWindow(window);
}

void BrowserLink::Send(std::initializer_list<std::string_view> fields) {
    const std::string line = EncodeLine(fields);
    const std::lock_guard lock(sendMutex);
    for (std::size_t sent = 0; sent < line.size();) {
        const int count = send(socket, line.data() + sent, static_cast<int>(line.size() - sent), 0);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

void BrowserLink::ReadLines() {
    std::string pending;
    std::vector<char> chunk(65536);
    for (;;) {
        const int count = recv(socket, chunk.data(), static_cast<int>(chunk.size()), 0);
        if (count <= 0) {
            Enqueue("gone");
            return;
        }
        // Only what has just come can hold a line's end.
        std::size_t searchFrom = pending.size();
        pending.append(chunk.data(), static_cast<std::size_t>(count));
        std::size_t start = 0;
        for (std::size_t end = pending.find('\n', searchFrom); end != std::string::npos;
             end = pending.find('\n', searchFrom)) {
            Enqueue(pending.substr(start, end - start));
            start = searchFrom = end + 1;
        }
        pending.erase(0, start);
    }
}

void BrowserLink::Enqueue(std::string line) {
    const std::lock_guard lock(lineMutex);
    lines.push_back(std::move(line));
    if (lines.size() == 1) {
        PostMessageW(window, LineArrived, 0, 0);
    }
}

void BrowserLink::HandleNextLine() {
    // The line stays in the queue while it is handled: a queue that is not empty posts no further message, so a message
    // loop inside the callback handles nothing.
    std::string line;
    {
        const std::lock_guard lock(lineMutex);
        line = lines.front();
    }
    onLine(DecodeLine(line));
    const std::lock_guard lock(lineMutex);
    lines.pop_front();
    if (!lines.empty()) {
        PostMessageW(window, LineArrived, 0, 0);
    }
}

LRESULT CALLBACK BrowserLink::WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const link = reinterpret_cast<BrowserLink*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == LineArrived && link != nullptr) {
        const auto alive = link->shared_from_this(); // The callback may drop the last reference.
        alive->HandleNextLine();
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

} // namespace rig
