// The TCP connection to the browser server. A thread reads lines; each is handled on the thread that made the link, by
// that thread's own message loop, one at a time and never inside the handling of another line.
#pragma once

#include "text_lines.h"

#include <winsock2.h>

#include <windows.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace rig {

class BrowserLink : public std::enable_shared_from_this<BrowserLink> {
public:
    // Receives the lines of the server; a line "gone" is added when the connection ends.
    using LineHandler = std::function<void(const Fields&)>;

    // Connects to the port that RIG_PORT names; null when no server listens there.
    [[nodiscard]] static std::shared_ptr<BrowserLink> Connect(LineHandler onLine);

    BrowserLink(SOCKET newSocket, HWND newWindow, LineHandler newOnLine);
    BrowserLink(const BrowserLink&) = delete;
    BrowserLink& operator=(const BrowserLink&) = delete;
    ~BrowserLink();

    // May be called from any thread. A lost connection is reported by the line "gone" only.
    void Send(std::initializer_list<std::string_view> fields);

private:
    static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void ReadLines();
    void Enqueue(std::string line);
    void HandleNextLine();

    SOCKET socket;
    HWND window;
    LineHandler onLine;
    std::mutex sendMutex;
    std::mutex lineMutex;
    std::deque<std::string> lines;
    std::thread reader;
};

} // namespace rig
