// Polls the named event that the virtual camera signals for every frame that a consumer requests, and posts to the page
// when the consumer starts and stops. frames/usage_tracker.h decides when that is.

#include "app/receiver_app.h"
#include "app/receiver_log.h"
#include "browser/page_json.h"
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
    // Auto-reset: a poll that finds the event signaled resets it. An event that the camera created first is opened.
    usageEvent.Reset(CreateEventW(secured ? &attributes : nullptr, FALSE, FALSE, EventName));
    const HRESULT result = usageEvent ? S_OK : LastErrorResult();
    ReceiverLog::Write(L"Virtual camera usage monitor initialized", result);
    if (usageEvent) {
        (void)SetTimer(window, UsageTimer, PollPeriodMs, nullptr); // Without the timer no consumer is ever reported.
    }
}

void ReceiverApp::OnUsageTimer() noexcept {
    const std::uint64_t now = GetTickCount64();
    const bool signaled = WaitForSingleObject(usageEvent.Get(), 0) == WAIT_OBJECT_0;
    if (!usageTracker.OnPoll(signaled, now)) {
        return;
    }
    const bool active = usageTracker.ConsumerActive();
    ReceiverLog::Write(active ? L"Virtual camera consumer started requesting frames"
                              : L"Virtual camera consumer stopped requesting frames");
    if (pageReady) {
        (void)PostJsonToPage(active ? UsageOnJson : UsageOffJson); // A message that is not posted is lost.
    }
}

} // namespace receiver
