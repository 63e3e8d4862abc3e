// camera_probe --doctor: looks for what keeps the picture from reaching an application. Changes nothing on the machine
// and starts no browser.
#pragma once

#include "tools/camera_probe/doctor_report.h"

#include <string>

namespace receiver {

// What this account finds. `eventName` is that of the usage event.
[[nodiscard]] MachineFacts ExamineMachine(const std::wstring& eventName);

// Prints the report. The exit code: 0, or the sum of all findings.
[[nodiscard]] int RunDoctor(bool asJson);

} // namespace receiver
