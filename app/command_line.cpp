#include "app/command_line.h"

namespace receiver {

std::wstring ChoosePageAddress(std::wstring_view commandLine, std::wstring_view defaultAddress) {
    constexpr std::wstring_view UrlSwitch = L"--url=";
    if (commandLine == L"--embedded") {
        return {};
    }
    if (!commandLine.starts_with(UrlSwitch)) {
        return std::wstring(defaultAddress);
    }
    std::wstring_view address = commandLine.substr(UrlSwitch.size());
    if (address.size() >= 2 && address.front() == L'"' && address.back() == L'"') {
        address = address.substr(1, address.size() - 2);
    }
    return std::wstring(address);
}

} // namespace receiver
