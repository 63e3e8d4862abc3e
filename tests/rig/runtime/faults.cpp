#include "faults.h"

#include "text_lines.h"

#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace rig {
namespace {

struct Fault {
    std::string name;
    std::optional<unsigned long> call;
    HRESULT result = E_FAIL;
    DWORD delayMs = 0; // not 0: the call is delayed and does not fail
};

std::vector<Fault> ReadFaults() {
    std::vector<Fault> faults;
    std::string list = ToUtf8(EnvironmentValue(L"RIG_FAULTS"));
    while (!list.empty()) {
        const std::size_t comma = list.find(',');
        std::string item = list.substr(0, comma);
        list.erase(0, comma == std::string::npos ? comma : comma + 1);
        Fault fault;
        if (const std::size_t equals = item.find('='); equals != std::string::npos) {
            fault.result = static_cast<HRESULT>(std::strtoul(item.c_str() + equals + 1, nullptr, 16));
            item.resize(equals);
        }
        if (const std::size_t at = item.find('@'); at != std::string::npos) {
            fault.delayMs = std::strtoul(item.c_str() + at + 1, nullptr, 10);
            item.resize(at);
        }
        if (const std::size_t colon = item.find(':'); colon != std::string::npos) {
            fault.call = std::strtoul(item.c_str() + colon + 1, nullptr, 10);
            item.resize(colon);
        }
        fault.name = std::move(item);
        faults.push_back(std::move(fault));
    }
    return faults;
}

// How often it has been called before.
unsigned long CountCall(std::string_view name) {
    static std::mutex mutex;
    static std::map<std::string, unsigned long, std::less<>> calls;
    const std::lock_guard lock(mutex);
    return calls.try_emplace(std::string(name), 0).first->second++;
}

} // namespace

HRESULT FaultFor(std::string_view name) {
    static const std::vector<Fault> faults = ReadFaults();
    if (faults.empty()) {
        return S_OK;
    }
    const unsigned long call = CountCall(name);
    for (const Fault& fault : faults) {
        if (fault.name == name && (!fault.call || *fault.call == call)) {
            if (fault.delayMs == 0) {
                return fault.result;
            }
            Sleep(fault.delayMs);
        }
    }
    return S_OK;
}

} // namespace rig
