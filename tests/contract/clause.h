// A clause of the contract with Windows: a test says which page of the public documentation it follows, and whether
// anything but Windows itself decides it.
#pragma once

#include <gtest/gtest.h>

namespace receiver {

// Records the documentation page's title with the test's result.
inline void Source(const char* pageTitle) { testing::Test::RecordProperty("source", pageTitle); }

// Under Wine the test rig's stand-in decides this clause, so that it holds there says nothing about Windows.
inline void SimulatedByTheRig() { testing::Test::RecordProperty("simulated", "by the test rig"); }

} // namespace receiver
