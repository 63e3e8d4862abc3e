#include "json_check.h"

#include <cstddef>

namespace rig {
namespace {

// Consumes from the front of the text; every Take function says whether it found what it is named for.
class Parser {
public:
    explicit Parser(std::wstring_view text) : rest(text) {}

    bool TakeDocument() { return TakeValue(0) && rest.empty(); }

private:
    static constexpr int MaxDepth = 200;

    wchar_t Next() const { return rest.empty() ? L'\0' : rest.front(); }
    void SkipBlanks() {
        while (!rest.empty() && std::wstring_view(L" \t\r\n").find(rest.front()) != std::wstring_view::npos) {
            rest.remove_prefix(1);
        }
    }
    bool Take(std::wstring_view word) {
        const bool found = rest.starts_with(word);
        rest.remove_prefix(found ? word.size() : 0);
        return found;
    }
    bool TakeDigits() {
        std::size_t count = 0;
        while (count < rest.size() && rest[count] >= L'0' && rest[count] <= L'9') {
            ++count;
        }
        rest.remove_prefix(count);
        return count > 0;
    }
    bool TakeNumber() {
        (void)Take(L"-");
        if (!Take(L"0") && !TakeDigits()) {
            return false;
        }
        if (Take(L".") && !TakeDigits()) {
            return false;
        }
        if (Take(L"e") || Take(L"E")) {
            (void)(Take(L"+") || Take(L"-"));
            return TakeDigits();
        }
        return true;
    }
    bool TakeString() {
        if (!Take(L"\"")) {
            return false;
        }
        while (!rest.empty() && rest.front() >= L' ') {
            if (Take(L"\"")) {
                return true;
            }
            if (Take(L"\\")) {
                if (Take(L"u")) {
                    if (rest.size() < 4 ||
                        rest.substr(0, 4).find_first_not_of(L"0123456789abcdefABCDEF") != std::wstring_view::npos) {
                        return false;
                    }
                    rest.remove_prefix(4);
                    continue;
                }
                if (std::wstring_view(L"\"\\/bfnrt").find(Next()) == std::wstring_view::npos) {
                    return false;
                }
            }
            rest.remove_prefix(1);
        }
        return false;
    }
    bool TakeMembers(wchar_t close, bool named, int depth) {
        rest.remove_prefix(1);
        SkipBlanks();
        while (Next() != close) {
            SkipBlanks();
            if (named) {
                if (!TakeString()) {
                    return false;
                }
                SkipBlanks();
                if (!Take(L":")) {
                    return false;
                }
            }
            if (!TakeValue(depth + 1)) {
                return false;
            }
            if (Next() != close && (!Take(L",") || (SkipBlanks(), Next() == close))) {
                return false;
            }
        }
        rest.remove_prefix(1);
        return true;
    }
    bool TakeValue(int depth) {
        if (depth > MaxDepth) {
            return false;
        }
        SkipBlanks();
        bool found = false;
        switch (Next()) {
        case L'{':
            found = TakeMembers(L'}', true, depth);
            break;
        case L'[':
            found = TakeMembers(L']', false, depth);
            break;
        case L'"':
            found = TakeString();
            break;
        default:
            found = Take(L"true") || Take(L"false") || Take(L"null") || TakeNumber();
        }
        SkipBlanks();
        return found;
    }

    std::wstring_view rest;
};

} // namespace

bool IsJson(std::wstring_view text) { return Parser(text).TakeDocument(); }

} // namespace rig
