// Reads commands from stdin, one per line, its words separated by tabs, and answers each with one line of JSON:
//   start PATH COMMAND-LINE         the command line reaches the program as it is written; answers PROGRAM and process
//   set NAME VALUE | unset NAME     the environment of the programs started from now on
//   windows                         top-level windows of the programs started
//   children WINDOW                 windows inside one window
//   system WINDOW COMMAND           what the caption's buttons send: minimize, maximize, restore, close
//   press WINDOW ID                 a button of a box, by its id
//   place WINDOW X Y WIDTH HEIGHT   moves and sizes
//   display WIDTH HEIGHT            changes the size of the display; only Wine's virtual desktop has several sizes
//   send WINDOW MESSAGE WPARAM LPARAM   any message; answers its result
//   probe WINDOW                    waits until the window answers, but not for long; answers whether it did, and the
//                                   processor time that its thread took meanwhile, in milliseconds
//   handles PROCESS                 how many handles a process holds
//   terminate PROGRAM CODE
// PROGRAM counts the programs started, from 0. The end of one is reported in a line of its own:
// {"exited":PROGRAM,"code":CODE}. When stdin ends, the programs still running are ended too.
#include "platform/handles.h"
#include "tests/rig/driver/handle_count.h"
#include "tests/rig/driver/json_line.h"
#include "tests/rig/driver/window_facts.h"

#include <windows.h>

#include <algorithm>
#include <charconv>
#include <deque>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace rig {
namespace {

constexpr UINT SendTimeoutMs = 10000;

struct StartedProgram {
    DWORD processId = 0;
    receiver::UniqueHandle process;
    std::jthread watcher;
};

class Driver {
public:
    void Run() {
        for (std::string line; std::getline(std::cin, line);) {
            if (line.ends_with('\r')) {
                line.pop_back();
            }
            Print(Answer(Split(line)));
        }
        for (const StartedProgram& program : programs) {
            TerminateProcess(program.process.Get(), 1);
        }
    }

private:
    using Words = std::vector<std::string>;

    static Words Split(const std::string& line) {
        Words words;
        for (std::size_t begin = 0; begin <= line.size();) {
            const std::size_t end = std::min(line.find('\t', begin), line.size());
            words.push_back(line.substr(begin, end - begin));
            begin = end + 1;
        }
        return words;
    }

    static bool ParseNumbers(const Words& words, std::vector<std::int64_t>& numbers) {
        for (std::size_t index = 1; index < words.size(); ++index) {
            std::int64_t number = 0;
            const char* end = words[index].data() + words[index].size();
            const auto [stop, error] = std::from_chars(words[index].data(), end, number);
            if (error != std::errc() || stop != end) {
                return false;
            }
            numbers.push_back(number);
        }
        return true;
    }

    static HWND Window(std::int64_t number) { return reinterpret_cast<HWND>(static_cast<std::intptr_t>(number)); }

    static std::string Failure(std::wstring_view reason) { return JsonLine().Text("error", reason).Take(); }

    // For calls whose result says whether they succeeded.
    static std::string Done(BOOL worked) {
        return worked != FALSE ? JsonLine().Boolean("done", true).Take()
                               : Failure(L"Windows error " + std::to_wstring(GetLastError()));
    }

    std::string Answer(const Words& words) {
        const std::string& verb = words.front();
        if (verb == "start" && words.size() == 3) {
            return Start(FromUtf8(words[1]), FromUtf8(words[2]));
        }
        if (verb == "set" && words.size() == 3) {
            return Done(SetEnvironmentVariableW(FromUtf8(words[1]).c_str(), FromUtf8(words[2]).c_str()));
        }
        if (verb == "unset" && words.size() == 2) {
            return Done(SetEnvironmentVariableW(FromUtf8(words[1]).c_str(), nullptr));
        }
        if (verb == "windows" && words.size() == 1) {
            std::vector<DWORD> processIds;
            for (const StartedProgram& program : programs) {
                processIds.push_back(program.processId);
            }
            const std::string windows = DescribeTopLevelWindows(processIds.data(), processIds.size());
            return JsonLine().Raw("windows", windows).Take();
        }
        if (verb == "system" && words.size() == 3) {
            return System(words);
        }
        std::vector<std::int64_t> numbers;
        if (!ParseNumbers(words, numbers)) {
            return Failure(L"not a number");
        }
        if (verb == "children" && numbers.size() == 1) {
            return JsonLine().Raw("windows", DescribeChildren(Window(numbers[0]))).Take();
        }
        if (verb == "press" && numbers.size() == 2) {
            const HWND button = GetDlgItem(Window(numbers[0]), static_cast<int>(numbers[1]));
            return Done(button != nullptr && PostMessageW(button, BM_CLICK, 0, 0) != FALSE);
        }
        if (verb == "place" && numbers.size() == 5) {
            return Done(SetWindowPos(Window(numbers[0]), nullptr, static_cast<int>(numbers[1]),
                                     static_cast<int>(numbers[2]), static_cast<int>(numbers[3]),
                                     static_cast<int>(numbers[4]), SWP_NOZORDER | SWP_NOACTIVATE));
        }
        if (verb == "display" && numbers.size() == 2) {
            DEVMODEW mode{};
            mode.dmSize = sizeof(mode);
            mode.dmFields = DM_PELSWIDTH | DM_PELSHEIGHT;
            mode.dmPelsWidth = static_cast<DWORD>(numbers[0]);
            mode.dmPelsHeight = static_cast<DWORD>(numbers[1]);
            return ChangeDisplaySettingsW(&mode, 0) == DISP_CHANGE_SUCCESSFUL ? Done(TRUE)
                                                                              : Failure(L"no such size of the display");
        }
        if (verb == "send" && numbers.size() == 4) {
            DWORD_PTR result = 0;
            if (SendMessageTimeoutW(Window(numbers[0]), static_cast<UINT>(numbers[1]), static_cast<WPARAM>(numbers[2]),
                                    static_cast<LPARAM>(numbers[3]), SMTO_NORMAL, SendTimeoutMs, &result) == 0) {
                return Done(FALSE);
            }
            return JsonLine().Number("result", static_cast<std::int64_t>(result)).Take();
        }
        if (verb == "probe" && numbers.size() == 1) {
            return Probe(Window(numbers[0]));
        }
        if (verb == "handles" && numbers.size() == 1) {
            const std::optional<std::int64_t> count = CountHandles(static_cast<DWORD>(numbers[0]));
            return count ? JsonLine().Number("handles", *count).Take() : Failure(L"the handles cannot be counted");
        }
        if (verb == "terminate" && numbers.size() == 2) {
            return Terminate(numbers[0], static_cast<UINT>(numbers[1]));
        }
        return Failure(L"unknown command");
    }

    std::string Start(const std::wstring& program, const std::wstring& arguments) {
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION information = {};
        std::wstring commandLine = L'"' + program + L'"';
        if (!arguments.empty()) {
            commandLine += L' ' + arguments;
        }
        if (CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                           &information) == FALSE) {
            return Done(FALSE);
        }
        const receiver::UniqueHandle thread(information.hThread);
        const auto number = static_cast<std::int64_t>(programs.size());
        programs.push_back({information.dwProcessId, receiver::UniqueHandle(information.hProcess), {}});
        StartedProgram& started = programs.back();
        started.watcher = std::jthread([this, number, process = started.process.Get()] {
            WaitForSingleObject(process, INFINITE);
            DWORD code = 0;
            GetExitCodeProcess(process, &code);
            Print(JsonLine().Number("exited", number).Number("code", code).Take());
        });
        return JsonLine().Number("program", number).Number("process", information.dwProcessId).Take();
    }

    static std::string System(const Words& words) {
        std::vector<std::int64_t> window;
        if (!ParseNumbers({words[0], words[1]}, window)) {
            return Failure(L"not a number");
        }
        WPARAM command = 0;
        if (words[2] == "minimize") {
            command = SC_MINIMIZE;
        } else if (words[2] == "maximize") {
            command = SC_MAXIMIZE;
        } else if (words[2] == "restore") {
            command = SC_RESTORE;
        } else if (words[2] == "close") {
            command = SC_CLOSE;
        } else {
            return Failure(L"unknown system command");
        }
        // A click sends this too; but nothing has to be waited for once the window is closing.
        DWORD_PTR result = 0;
        return Done(command == SC_CLOSE ? PostMessageW(Window(window[0]), WM_SYSCOMMAND, command, 0) != FALSE
                                        : SendMessageTimeoutW(Window(window[0]), WM_SYSCOMMAND, command, 0, SMTO_NORMAL,
                                                              SendTimeoutMs, &result) != 0);
    }

    static std::string Probe(HWND window) {
        const receiver::UniqueHandle thread(
            OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, GetWindowThreadProcessId(window, nullptr)));
        std::int64_t before = 0;
        std::int64_t after = 0;
        if (!thread || !ReadProcessorMs(thread.Get(), before)) {
            return Done(FALSE);
        }
        DWORD_PTR result = 0;
        const bool answered = SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_NORMAL, SendTimeoutMs, &result) != 0;
        if ((!answered && GetLastError() != ERROR_TIMEOUT) || !ReadProcessorMs(thread.Get(), after)) {
            return Done(FALSE);
        }
        return JsonLine().Boolean("answered", answered).Number("workedMs", after - before).Take();
    }

    static bool ReadProcessorMs(HANDLE thread, std::int64_t& milliseconds) {
        FILETIME creation = {};
        FILETIME exit = {};
        FILETIME kernel = {};
        FILETIME user = {};
        if (GetThreadTimes(thread, &creation, &exit, &kernel, &user) == 0) {
            return false;
        }
        const auto ticks = [](const FILETIME& time) {
            return static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
        };
        milliseconds = (ticks(kernel) + ticks(user)) / 10000;
        return true;
    }

    std::string Terminate(std::int64_t program, UINT code) {
        if (program < 0 || program >= static_cast<std::int64_t>(programs.size())) {
            return Failure(L"no such program was started");
        }
        return Done(TerminateProcess(programs[static_cast<std::size_t>(program)].process.Get(), code));
    }

    void Print(const std::string& line) {
        const std::scoped_lock lock(output);
        std::cout << line << '\n' << std::flush;
    }

    std::mutex output;
    std::deque<StartedProgram> programs;
};

} // namespace
} // namespace rig

int main() {
    rig::Driver().Run();
    return 0;
}
