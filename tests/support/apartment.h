// Initializes COM on the thread of a test as the receiver does: as a single-threaded apartment.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <objbase.h>

namespace receiver {

class Apartment {
public:
    Apartment() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
    ~Apartment() { CoUninitialize(); }
};

} // namespace receiver
