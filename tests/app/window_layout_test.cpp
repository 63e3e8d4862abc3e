// The window's layouts, on a real window: its size and place, and that the browser fills it.
#include "app/window_placement.h"
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace receiver {

void PrintTo(const WindowRectangle& rectangle, std::ostream* stream) {
    *stream << rectangle.left << ' ' << rectangle.top << ' ' << rectangle.right << ' ' << rectangle.bottom;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char MaximizedLine[] = "Receiver window layout changed while maximized; preserving maximized state";

WindowRectangle Converted(const RECT& rect) { return {rect.left, rect.top, rect.right, rect.bottom}; }

class WindowLayoutTest : public ShellTest {
protected:
    void Portrait() { app->ApplyWindowLayout(450, 800, L"portrait"); }
    void Landscape() { app->ApplyWindowLayout(960, 540, L"landscape"); }
    void SetupLayout() { app->ApplyWindowLayout(760, 520, L"setup"); }

    static WindowRectangle Outer() {
        RECT outer{};
        EXPECT_NE(GetWindowRect(MainWindow(), &outer), 0);
        return Converted(outer);
    }
    static SIZE ClientSize() {
        RECT client{};
        EXPECT_NE(GetClientRect(MainWindow(), &client), 0);
        return {client.right, client.bottom};
    }
    static WindowRectangle WorkArea() {
        MONITORINFO monitor{};
        monitor.cbSize = sizeof(monitor);
        EXPECT_NE(GetMonitorInfoW(MonitorFromWindow(MainWindow(), MONITOR_DEFAULTTONEAREST), &monitor), 0);
        return Converted(monitor.rcWork);
    }
    // Where the window moves from `current` when its client area becomes `width` x `height`.
    static WindowRectangle Place(const WindowRectangle& current, std::int32_t width, std::int32_t height,
                                 const WindowRectangle& workArea, UINT dpi = GetDpiForWindow(MainWindow())) {
        RECT outer{0, 0, width, height};
        EXPECT_NE(AdjustWindowRectExForDpi(&outer, WS_OVERLAPPEDWINDOW, FALSE, 0, dpi), 0);
        return PlaceWindow(current, outer.right - outer.left, outer.bottom - outer.top, workArea);
    }
    void ExpectBrowserFillsTheWindow() {
        const SIZE client = ClientSize();
        const auto calls = browser.TakeCalls();
        ASSERT_FALSE(calls.empty());
        EXPECT_EQ(calls.back(), L"put_Bounds 0 0 " + std::to_wstring(client.cx) + L' ' + std::to_wstring(client.cy));
    }
    // Nothing was moved, resized or logged.
    void ExpectNothingHappened(const WindowRectangle& before) {
        EXPECT_EQ(Outer(), before);
        EXPECT_THAT(browser.TakeCalls(), IsEmpty());
        EXPECT_FALSE(std::filesystem::exists(log));
    }
};

TEST_F(WindowLayoutTest, TheLayoutsOfThePageResizeTheWindow) {
    InLoop([this] {
        struct {
            const wchar_t* name;
            const char* line;
            std::int32_t width;
            std::int32_t height;
        } const layouts[] = {
            {L"landscape", "Receiver window layout: landscape", 960, 540},
            {L"portrait", "Receiver window layout: portrait", 450, 800},
            {L"setup", "Receiver window layout: setup", 760, 520},
            {L"portrait", "Receiver window layout: portrait", 450, 800},
            {L"landscape", "Receiver window layout: landscape", 960, 540},
        };
        for (const auto& layout : layouts) {
            const WindowRectangle expected = Place(Outer(), layout.width, layout.height, WorkArea());
            EXPECT_EQ(browser.RaiseWebMessage((std::wstring(L"window:orientation:") + layout.name).c_str()), S_OK);
            EXPECT_EQ(Outer(), expected);
            EXPECT_EQ(ClientSize().cx, layout.width);
            ExpectBrowserFillsTheWindow();
            EXPECT_THAT(LogLines(), ElementsAre(layout.line));
            Forget();
        }
    });
}

TEST_F(WindowLayoutTest, AWindowThatFitsKeepsItsCenterAndGetsTheRequestedClientSize) {
    InLoop([this] {
        const WindowRectangle workArea = WorkArea();
        ASSERT_GT(workArea.right - workArea.left, 700);
        ASSERT_GT(workArea.bottom - workArea.top, 500);
        SetWindowPos(MainWindow(), nullptr, workArea.left + 100, workArea.top + 100, 500, 300, SWP_NOZORDER);
        Forget();
        app->ApplyWindowLayout(400, 200, L"portrait");
        EXPECT_EQ(ClientSize().cx, 400);
        EXPECT_EQ(ClientSize().cy, 200);
        const WindowRectangle outer = Outer();
        EXPECT_EQ(outer.left + (outer.right - outer.left) / 2, workArea.left + 350);
        EXPECT_EQ(outer.top + (outer.bottom - outer.top) / 2, workArea.top + 250);
        ExpectBrowserFillsTheWindow();
    });
}

TEST_F(WindowLayoutTest, TheFirstLayoutIsSetup) {
    InLoop([this] {
        const WindowRectangle before = Outer();
        EXPECT_EQ(before.right - before.left, 760);
        EXPECT_EQ(before.bottom - before.top, 520);
        SetupLayout();
        ExpectNothingHappened(before);
    });
}

TEST_F(WindowLayoutTest, TheSameLayoutAgainDoesNothing) {
    InLoop([this] {
        Landscape();
        SetWindowPos(MainWindow(), nullptr, 5, 6, 300, 200, SWP_NOZORDER); // as a user would
        Forget();
        const WindowRectangle before = Outer();
        Landscape();
        app->ApplyWindowLayout(450, 800, L"landscape"); // Only the name is compared.
        ExpectNothingHappened(before);
        app->ApplyWindowLayout(960, 540, L"landscapes");
        EXPECT_THAT(LogLines(), ElementsAre("Receiver window layout: landscapes"));
    });
}

TEST_F(WindowLayoutTest, AMinimizedWindowIgnoresTheLayout) {
    InLoop([this] {
        const WindowRectangle restored = Outer();
        ShowWindow(MainWindow(), SW_MINIMIZE);
        ASSERT_TRUE(IsIconic(MainWindow()));
        Forget();
        const WindowRectangle minimized = Outer();
        Portrait();
        ExpectNothingHappened(minimized);
        EXPECT_TRUE(IsIconic(MainWindow()));

        ShowWindow(MainWindow(), SW_RESTORE);
        EXPECT_EQ(Outer(), restored);
        Forget();
        Portrait();
        EXPECT_EQ(Outer(), Place(restored, 450, 800, WorkArea()));
        EXPECT_THAT(LogLines(), ElementsAre("Receiver window layout: portrait"));
        ExpectBrowserFillsTheWindow();
    });
}

TEST_F(WindowLayoutTest, AMaximizedWindowRemembersTheLayoutWithoutApplyingIt) {
    InLoop([this] {
        const WindowRectangle restored = Outer();
        ShowWindow(MainWindow(), SW_MAXIMIZE);
        ASSERT_TRUE(IsZoomed(MainWindow()));
        ExpectBrowserFillsTheWindow();
        Forget();
        const WindowRectangle maximized = Outer();
        EXPECT_NE(maximized, restored);
        Portrait();
        Portrait(); // Logged each time.
        SetupLayout();
        Portrait();
        EXPECT_EQ(Outer(), maximized);
        EXPECT_TRUE(IsZoomed(MainWindow()));
        EXPECT_THAT(browser.TakeCalls(), IsEmpty());
        EXPECT_THAT(LogLines(), ElementsAre(MaximizedLine, MaximizedLine, MaximizedLine, MaximizedLine));

        ShowWindow(MainWindow(), SW_RESTORE);
        ExpectBrowserFillsTheWindow();
        Forget();
        Portrait();
        ExpectNothingHappened(restored);
        SetupLayout();
        EXPECT_EQ(Outer(), Place(restored, 760, 520, WorkArea()));
        EXPECT_THAT(LogLines(), ElementsAre("Receiver window layout: setup"));
    });
}

TEST_F(WindowLayoutTest, TheWindowStaysInsideItsMonitorsWorkArea) {
    InLoop([this] {
        const WindowRectangle screen = WorkArea();
        const RECT workAreas[] = {
            {screen.left, screen.top, screen.right, 700},
            {screen.left, screen.top + 40, screen.right, 740},
            {100, 50, 600, 350},
            {200, 150, 700, 450},
        };
        for (const RECT& workArea : workAreas) {
            for (const auto& [width, height, layout] :
                 {std::tuple(450, 800, L"portrait"), std::tuple(960, 540, L"landscape")}) {
                const ImportPatch monitors("user32.dll", "GetMonitorInfoW", &GetMonitorInfoW,
                                           [&](auto*, HMONITOR monitor, LPMONITORINFO information) {
                                               EXPECT_EQ(monitor,
                                                         MonitorFromWindow(MainWindow(), MONITOR_DEFAULTTONEAREST));
                                               EXPECT_EQ(information->cbSize, 40U);
                                               information->rcMonitor = {0, 0, 5000, 5000};
                                               information->rcWork = workArea;
                                               return TRUE;
                                           });
                const WindowRectangle expected = Place(Outer(), width, height, Converted(workArea));
                Forget();
                app->ApplyWindowLayout(width, height, layout);
                EXPECT_EQ(Outer(), expected);
                EXPECT_LE(workArea.top, Outer().top);
                EXPECT_LE(Outer().bottom, workArea.bottom);
                EXPECT_LE(workArea.left, Outer().left);
                EXPECT_LE(Outer().right, workArea.right);
                ExpectBrowserFillsTheWindow();
            }
        }
    });
}

TEST_F(WindowLayoutTest, AWindowOutsideEveryMonitorComesToTheNearest) {
    InLoop([this] {
        SetWindowPos(MainWindow(), nullptr, 20000, -20000, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
        ASSERT_EQ(MonitorFromWindow(MainWindow(), MONITOR_DEFAULTTONULL), nullptr);
        const WindowRectangle expected = Place(Outer(), 450, 800, WorkArea());
        std::vector<DWORD> choices; // of a monitor for a window that is on none
        const ImportPatch monitors("user32.dll", "MonitorFromWindow", &MonitorFromWindow,
                                   [&](auto* original, HWND window, DWORD choice) {
                                       choices.push_back(choice);
                                       return original(window, choice);
                                   });
        Portrait();
        EXPECT_THAT(choices, ElementsAre(MONITOR_DEFAULTTONEAREST));
        EXPECT_EQ(Outer(), expected);
    });
}

TEST_F(WindowLayoutTest, AWindowReducedToTheWorkAreasHeightStartsAtItsTop) {
    InLoop([this] {
        const ImportPatch monitors("user32.dll", "GetMonitorInfoW", &GetMonitorInfoW,
                                   [](auto*, HMONITOR, LPMONITORINFO information) {
                                       information->rcWork = {0, 10, 1000, 710};
                                       return TRUE;
                                   });
        Portrait();
        EXPECT_EQ(Outer().top, 10);
        EXPECT_EQ(Outer().bottom, 710);
        EXPECT_EQ(ClientSize().cx, 450);
    });
}

TEST_F(WindowLayoutTest, OnlyTheFrameDependsOnTheDpi) {
    InLoop([this] {
        const WindowRectangle expected = Place(Outer(), 300, 200, WorkArea(), 192);
        const ImportPatch resolutions("user32.dll", "GetDpiForWindow", &GetDpiForWindow, [](auto*, HWND window) {
            EXPECT_EQ(window, MainWindow());
            return UINT{192};
        });
        const LONG style = GetWindowLongW(MainWindow(), GWL_STYLE);
        const LONG extendedStyle = GetWindowLongW(MainWindow(), GWL_EXSTYLE);
        const ImportPatch adjustments(
            "user32.dll", "AdjustWindowRectExForDpi", &AdjustWindowRectExForDpi,
            [=](auto* original, LPRECT rect, DWORD askedStyle, BOOL menu, DWORD askedExtendedStyle, UINT dpi) {
                EXPECT_EQ(Converted(*rect), (WindowRectangle{0, 0, 300, 200}));
                EXPECT_EQ(askedStyle, static_cast<DWORD>(style));
                EXPECT_EQ(menu, FALSE);
                EXPECT_EQ(askedExtendedStyle, static_cast<DWORD>(extendedStyle));
                EXPECT_EQ(dpi, 192U);
                return original(rect, askedStyle, menu, askedExtendedStyle, dpi);
            });
        app->ApplyWindowLayout(300, 200, L"portrait");
        EXPECT_EQ(Outer(), expected);
    });
}

TEST_F(WindowLayoutTest, ZOrderAndActivationAreNotChanged) {
    InLoop([this] {
        unsigned placed = 0;
        const ImportPatch placements(
            "user32.dll", "SetWindowPos", &SetWindowPos,
            [&](auto* original, HWND window, HWND behind, int x, int y, int width, int height, UINT flags) {
                ++placed;
                EXPECT_EQ(window, MainWindow());
                EXPECT_EQ(behind, nullptr);
                EXPECT_EQ(flags, 0x0214U);
                return original(window, behind, x, y, width, height, flags);
            });
        Portrait();
        EXPECT_EQ(placed, 1U);
    });
}

TEST_F(WindowLayoutTest, AFailedSystemCallLeavesLayoutAndWindowUnchanged) {
    InLoop([this] {
        const WindowRectangle before = Outer();
        {
            const ImportPatch fails("user32.dll", "GetWindowRect", &GetWindowRect,
                                    [](auto*, HWND, LPRECT) { return FALSE; });
            Portrait();
        }
        ExpectNothingHappened(before);
        {
            const ImportPatch fails("user32.dll", "AdjustWindowRectExForDpi", &AdjustWindowRectExForDpi,
                                    [](auto*, LPRECT, DWORD, BOOL, DWORD, UINT) { return FALSE; });
            Portrait();
        }
        ExpectNothingHappened(before);
        {
            const ImportPatch fails("user32.dll", "GetMonitorInfoW", &GetMonitorInfoW,
                                    [](auto*, HMONITOR, LPMONITORINFO) { return FALSE; });
            Portrait();
        }
        ExpectNothingHappened(before);
        {
            const ImportPatch fails("user32.dll", "SetWindowPos", &SetWindowPos,
                                    [](auto*, HWND, HWND, int, int, int, int, UINT) { return FALSE; });
            Portrait();
        }
        ExpectNothingHappened(before);
        Portrait(); // The layout was not remembered as applied.
        EXPECT_EQ(Outer(), Place(before, 450, 800, WorkArea()));
        EXPECT_THAT(LogLines(), ElementsAre("Receiver window layout: portrait"));
    });
}

TEST_F(WindowLayoutTest, WithoutAWindowNothingHappens) {
    OpenBrowser();
    std::filesystem::remove(log);
    Portrait();
    app->FitBrowserToWindow();
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(WindowLayoutTest, TheWindowIsResizedWithoutABrowserToo) {
    EXPECT_EQ(Run(L"",
                  [this] {
                      const WindowRectangle expected = Place(Outer(), 450, 800, WorkArea());
                      Portrait();
                      EXPECT_EQ(Outer(), expected);
                      EXPECT_EQ(LogLines().back(), "Receiver window layout: portrait");
                  }),
              0);
}

TEST_F(WindowLayoutTest, ABrowserThatCannotBeResizedChangesNothing) {
    InLoop([this] {
        for (unsigned call = 0; call < 100; ++call) {
            browser.Fail(L"put_Bounds", E_FAIL, call);
        }
        Portrait();
        EXPECT_EQ(ClientSize().cx, 450);
        EXPECT_THAT(LogLines(), ElementsAre("Receiver window layout: portrait"));
    });
}

} // namespace
} // namespace receiver
