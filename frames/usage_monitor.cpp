// Watches the named event that the virtual camera signals for every frame it hands out, and tells the page when the
// camera comes into use and when it falls idle. The decision itself is in frames/usage_state.h.

#include "app/receiver_app.h"
#include "app/receiver_log.h"
#include "browser/page_json.h"
#include "frames/usage_state.h"
#include "platform/hresult.h"

#include <sddl.h>

namespace receiver {
namespace {

constexpr wchar_t EventName[] = L"Global\\VistelVirtualCameraSample-v1";
// All rights for LocalSystem, the administrators and the interactive user; LocalService may only signal.
constexpr wchar_t EventSecurity[] = L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;IU)(A;;0x0002;;;LS)";
constexpr UINT PollPeriodMs = 1000;

} // namespace

void ReceiverApp::InitializeUsageMonitor() noexcept {
    LocalMemory descriptor;
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof(attributes);
    const bool secured = ConvertStringSecurityDescriptorToSecurityDescriptorW(EventSecurity, SDDL_REVISION_1,
                                                                              descriptor.Put(), nullptr) != 0;
    attributes.lpSecurityDescriptor = descriptor.Get();
    // Auto-reset: a poll that finds the signal also takes it. Where the camera has made the event first, it is opened.
    usageEvent.Reset(CreateEventW(secured ? &attributes : nullptr, FALSE, FALSE, EventName));
    const HRESULT result = usageEvent ? S_OK : LastErrorResult();
    ReceiverLog::Write(L"Virtual camera usage monitor initialized", result);
    if (usageEvent) {
        (void)SetTimer(window, UsageTimer, PollPeriodMs, nullptr); // Without it the camera counts as idle.
    }
}

void ReceiverApp::OnUsageTimer() noexcept {
    const std::uint64_t now = GetTickCount64();
    const bool signalled = WaitForSingleObject(usageEvent.Get(), 0) == WAIT_OBJECT_0;
    const auto change = OnUsagePoll(signalled, now, lastConsumerTick, consumerActive);
    if (!change) {
        return;
    }
    const bool started = *change == UsageChange::Started;
    ReceiverLog::Write(started ? L"Virtual camera consumer started requesting frames"
                               : L"Virtual camera consumer stopped requesting frames");
    if (pageReady) {
        PostJsonToPage(started ? UsageOnJson : UsageOffJson);
    }
}

} // namespace receiver
