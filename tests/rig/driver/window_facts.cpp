// Reads windows of other processes. A text is asked for with a time limit, so that a hung window cannot hang the
// driver.
#include "tests/rig/driver/window_facts.h"

#include "tests/rig/driver/json_line.h"

#include <algorithm>
#include <span>
#include <vector>

namespace rig {
namespace {

constexpr UINT TextTimeoutMs = 5000;

std::int64_t Number(HWND window) { return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(window)); }

std::wstring ClassName(HWND window) {
    wchar_t name[257] = {};
    return {name, static_cast<std::size_t>(GetClassNameW(window, name, 257))};
}

std::wstring Text(HWND window) {
    DWORD_PTR length = 0;
    if (SendMessageTimeoutW(window, WM_GETTEXTLENGTH, 0, 0, SMTO_ABORTIFHUNG, TextTimeoutMs, &length) == 0) {
        return {};
    }
    std::vector<wchar_t> text(length + 1);
    DWORD_PTR copied = 0;
    if (SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()), SMTO_ABORTIFHUNG,
                            TextTimeoutMs, &copied) == 0) {
        return {};
    }
    return {text.data(), std::min<std::size_t>(copied, length)};
}

std::string Rectangle(const RECT& rectangle) {
    return JsonLine()
        .Number("left", rectangle.left)
        .Number("top", rectangle.top)
        .Number("width", rectangle.right - rectangle.left)
        .Number("height", rectangle.bottom - rectangle.top)
        .Take();
}

std::string Describe(HWND window) {
    DWORD processId = 0;
    GetWindowThreadProcessId(window, &processId);
    RECT outer = {};
    GetWindowRect(window, &outer);
    RECT client = {};
    GetClientRect(window, &client);
    MapWindowPoints(window, nullptr, reinterpret_cast<POINT*>(&client), 2);
    return JsonLine()
        .Number("window", Number(window))
        .Number("process", processId)
        .Number("owner", Number(GetWindow(window, GW_OWNER)))
        .Number("id", GetDlgCtrlID(window))
        .Text("class", ClassName(window))
        .Text("text", Text(window))
        .Boolean("visible", IsWindowVisible(window) != FALSE)
        .Boolean("enabled", IsWindowEnabled(window) != FALSE)
        .Boolean("minimized", IsIconic(window) != FALSE)
        .Boolean("maximized", IsZoomed(window) != FALSE)
        .Number("style", static_cast<std::uint32_t>(GetWindowLongW(window, GWL_STYLE)))
        .Number("extendedStyle", static_cast<std::uint32_t>(GetWindowLongW(window, GWL_EXSTYLE)))
        .Raw("outer", Rectangle(outer))
        .Raw("client", Rectangle(client))
        .Take();
}

BOOL CALLBACK Collect(HWND window, LPARAM windows) {
    reinterpret_cast<std::vector<HWND>*>(windows)->push_back(window);
    return TRUE;
}

std::string Array(std::span<const HWND> windows) {
    std::string array = "[";
    for (const HWND window : windows) {
        array += array.size() > 1 ? "," : "";
        array += Describe(window);
    }
    return array + ']';
}

} // namespace

std::string DescribeTopLevelWindows(const DWORD* processIds, std::size_t count) {
    std::vector<HWND> windows;
    EnumWindows(Collect, reinterpret_cast<LPARAM>(&windows));
    std::erase_if(windows, [&](HWND window) {
        DWORD processId = 0;
        GetWindowThreadProcessId(window, &processId);
        return std::find(processIds, processIds + count, processId) == processIds + count;
    });
    return Array(windows);
}

std::string DescribeChildren(HWND parent) {
    std::vector<HWND> windows;
    EnumChildWindows(parent, Collect, reinterpret_cast<LPARAM>(&windows));
    return Array(windows);
}

} // namespace rig
