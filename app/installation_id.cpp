#include "app/installation_id.h"

#include <cstddef>

namespace receiver {
namespace {

bool IsHexadecimalDigit(char character) noexcept {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
           (character >= 'A' && character <= 'F');
}

} // namespace

bool IsInstallationId(std::string_view text) noexcept {
    constexpr std::string_view Form = "hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh";
    if (text.size() != Form.size()) {
        return false;
    }
    for (std::size_t i = 0; i < Form.size(); ++i) {
        if (Form[i] == '-' ? text[i] != '-' : !IsHexadecimalDigit(text[i])) {
            return false;
        }
    }
    return true;
}

} // namespace receiver
