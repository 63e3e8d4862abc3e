#include "platform/com_ptr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr IID KnownId = {0x6E3B11B2, 0x25A8, 0x4C5E, {0x9D, 0x11, 0x6B, 0x0C, 0x5A, 0x70, 0x41, 0x01}};

// Appends each change of its reference count to a shared record; one reference belongs to the test.
class CountedObject : public IUnknown {
public:
    CountedObject(std::string objectName, std::vector<std::string>& sharedRecord)
        : name(std::move(objectName)), record(sharedRecord) {}
    virtual ~CountedObject() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override {
        *object = nullptr;
        if (!IsEqualIID(id, KnownId)) {
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override {
        record.push_back("+" + name);
        return ++references;
    }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        record.push_back("-" + name);
        return --references;
    }

    ULONG references = 1;

private:
    std::string name;
    std::vector<std::string>& record;
};

class ComPtrTest : public testing::Test {
protected:
    std::vector<std::string> record;
    CountedObject a{"a", record};
    CountedObject b{"b", record};
};

TEST_F(ComPtrTest, HoldsOneReferenceDuringItsLifetime) {
    {
        const ComPtr<IUnknown> pointer(&a);
        EXPECT_EQ(pointer.Get(), &a);
        EXPECT_EQ(a.references, 2U);
    }
    EXPECT_THAT(record, ElementsAre("+a", "-a"));
}

TEST_F(ComPtrTest, IsEmptyByDefaultAndFromANullPointer) {
    EXPECT_FALSE(ComPtr<IUnknown>());
    EXPECT_FALSE(ComPtr<IUnknown>(nullptr));
    EXPECT_TRUE(ComPtr<IUnknown>(&a));
}

TEST_F(ComPtrTest, AttachTakesOverTheCallersReference) {
    {
        const auto pointer = ComPtr<IUnknown>::Attach(&a);
        EXPECT_THAT(record, IsEmpty());
    }
    EXPECT_THAT(record, ElementsAre("-a"));
}

TEST_F(ComPtrTest, CopiesCountAndMovesDoNot) {
    ComPtr<IUnknown> first(&a);
    const ComPtr<IUnknown> copy(first);
    EXPECT_EQ(a.references, 3U);
    const ComPtr<IUnknown> moved(std::move(first));
    EXPECT_EQ(a.references, 3U);
    EXPECT_EQ(moved.Get(), &a);
}

TEST_F(ComPtrTest, StoringReferencesTheNewObjectBeforeReleasingTheOld) {
    ComPtr<IUnknown> pointer(&a);
    pointer = ComPtr<IUnknown>(&b);
    EXPECT_THAT(record, ElementsAre("+a", "+b", "-a"));
}

TEST_F(ComPtrTest, StoringTheSameObjectKeepsItReferenced) {
    ComPtr<IUnknown> pointer(&a);
    const ComPtr<IUnknown>& itself = pointer;
    pointer = ComPtr<IUnknown>(&a);
    pointer = itself;
    EXPECT_THAT(record, ElementsAre("+a", "+a", "-a", "+a", "-a"));
    EXPECT_EQ(pointer.Get(), &a);
}

TEST_F(ComPtrTest, PutReleasesAndReturnsTheAddressOfAnEmptyPointer) {
    ComPtr<IUnknown> pointer(&a);
    IUnknown** const slot = pointer.Put();
    EXPECT_THAT(record, ElementsAre("+a", "-a"));
    EXPECT_EQ(*slot, nullptr);
    b.AddRef();
    *slot = &b;
    EXPECT_EQ(pointer.Get(), &b);
}

TEST_F(ComPtrTest, ResetReleasesOnce) {
    ComPtr<IUnknown> pointer(&a);
    pointer.Reset();
    pointer.Reset();
    EXPECT_THAT(record, ElementsAre("+a", "-a"));
    EXPECT_FALSE(pointer);
}

TEST_F(ComPtrTest, AsQueriesByTheGivenIdentifier) {
    const ComPtr<IUnknown> pointer(&a);
    ComPtr<IUnknown> other(&b);
    EXPECT_EQ(pointer.As(KnownId, other), S_OK);
    EXPECT_EQ(other.Get(), &a);
    EXPECT_EQ(a.references, 3U);
    EXPECT_EQ(b.references, 1U);
}

TEST_F(ComPtrTest, AsLeavesAnEmptyPointerAfterARefusedQuery) {
    const ComPtr<IUnknown> pointer(&a);
    ComPtr<IUnknown> other(&b);
    EXPECT_EQ(pointer.As(IID_IUnknown, other), E_NOINTERFACE);
    EXPECT_FALSE(other);
    EXPECT_EQ(b.references, 1U);
}

} // namespace
} // namespace receiver
