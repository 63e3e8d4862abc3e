#include "platform/handles.h"

#include "platform/hresult.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<int> closed;

// Numbers as handles; -1 is the invalid one. Closing changes the last error.
struct NumberTraits {
    using Type = int;
    static Type Invalid() noexcept { return -1; }
    static void Close(Type number) noexcept {
        closed.push_back(number);
        SetLastError(ERROR_INVALID_HANDLE);
    }
};
using UniqueNumber = UniqueResource<NumberTraits>;

static_assert(!std::is_copy_constructible_v<UniqueNumber> && !std::is_copy_assignable_v<UniqueNumber>);
static_assert(!std::is_convertible_v<int, UniqueNumber> && !std::is_convertible_v<UniqueNumber, int>);

class HandlesTest : public testing::Test {
protected:
    HandlesTest() { closed.clear(); }
};

TEST_F(HandlesTest, ClosesOnceWhenDestroyed) {
    {
        const UniqueNumber number(7);
        EXPECT_TRUE(number);
        EXPECT_EQ(number.Get(), 7);
    }
    EXPECT_THAT(closed, ElementsAre(7));
}

TEST_F(HandlesTest, NeverClosesTheInvalidValue) {
    {
        UniqueNumber none;
        EXPECT_FALSE(none);
        none.Reset();
        const UniqueNumber alsoNone(-1);
        const UniqueNumber zero(0); // a valid handle
        EXPECT_TRUE(zero);
    }
    EXPECT_THAT(closed, ElementsAre(0));
}

TEST_F(HandlesTest, KeepsTheLastErrorWhileClosing) {
    SetLastError(ERROR_DISK_FULL);
    { const UniqueNumber number(7); }
    EXPECT_EQ(LastErrorResult(), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
}

TEST_F(HandlesTest, PutClosesAndReturnsTheAddressOfTheValue) {
    UniqueNumber number(7);
    int* const slot = number.Put();
    EXPECT_THAT(closed, ElementsAre(7));
    EXPECT_FALSE(number);
    *slot = 8;
    EXPECT_EQ(number.Get(), 8);
}

TEST_F(HandlesTest, ResetClosesTheOldValueAndStoresTheNew) {
    UniqueNumber number(7);
    number.Reset(8);
    EXPECT_THAT(closed, ElementsAre(7));
    EXPECT_EQ(number.Get(), 8);
}

TEST_F(HandlesTest, ReleaseReturnsTheHandleWithoutClosing) {
    {
        UniqueNumber number(7);
        EXPECT_EQ(number.Release(), 7);
        EXPECT_FALSE(number);
    }
    EXPECT_THAT(closed, IsEmpty());
}

TEST_F(HandlesTest, MovingEmptiesTheSource) {
    UniqueNumber first(7);
    UniqueNumber second(std::move(first));
    UniqueNumber third(9);
    third = std::move(second);
    EXPECT_THAT(closed, ElementsAre(9));
    EXPECT_EQ(third.Get(), 7);
}

TEST_F(HandlesTest, MovingOntoItselfKeepsTheHandle) {
    UniqueNumber number(7);
    UniqueNumber& itself = number;
    number = std::move(itself);
    EXPECT_EQ(number.Get(), 7);
    EXPECT_THAT(closed, IsEmpty());
}

TEST_F(HandlesTest, FilesAndHandlesDifferInTheirInvalidValue) {
    EXPECT_FALSE(UniqueFile(INVALID_HANDLE_VALUE));
    EXPECT_EQ(UniqueFile().Get(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(UniqueHandle(nullptr));
    EXPECT_EQ(UniqueHandle().Get(), nullptr);
}

TEST_F(HandlesTest, ClosesARealHandle) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(event, nullptr);
    UniqueHandle(event).Reset();
    DWORD flags = 0;
    EXPECT_EQ(GetHandleInformation(event, &flags), FALSE);
}

TEST_F(HandlesTest, UnmapsARealView) {
    const UniqueHandle mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr));
    ASSERT_TRUE(mapping);
    MappedView view(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
    ASSERT_TRUE(view);
    void* const address = view.Get();
    view.Reset();
    MEMORY_BASIC_INFORMATION memory{};
    VirtualQuery(address, &memory, sizeof(memory));
    EXPECT_NE(memory.Type, static_cast<DWORD>(MEM_MAPPED));
}

} // namespace
} // namespace receiver
