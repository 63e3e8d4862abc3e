#pragma once

#include <windows.h>

struct EventRegistrationToken {
    INT64 value;
};
