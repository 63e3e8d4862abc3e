// ComCallback, with one of WebView2's handler interfaces and a target of the test's own.
#include "platform/com_callback.h"

#include "tests/support/allocation_fault.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <WebView2.h> // The vendor's needs <unknwn.h> first, which com_callback.h includes.

#include <new>
#include <stdexcept>

namespace receiver {
namespace {

using Handler = ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler;

struct Target {
    HRESULT Record(HRESULT result, ICoreWebView2Environment* environment) noexcept {
        passedResult = result;
        passedEnvironment = environment;
        return E_ABORT;
    }
    [[noreturn]] HRESULT ThrowBadAlloc(HRESULT, ICoreWebView2Environment*) { throw std::bad_alloc(); }
    [[noreturn]] HRESULT ThrowError(HRESULT, ICoreWebView2Environment*) { throw std::runtime_error("an error"); }

    HRESULT passedResult = S_OK;
    ICoreWebView2Environment* passedEnvironment = nullptr;
};

template <auto Operation>
using TargetCallback =
    ComCallback<Target, Handler, IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, Operation>;
using RecordCallback = TargetCallback<&Target::Record>;

class ComCallbackTest : public testing::Test {
protected:
    Target target;
    ComPtr<RecordCallback> callback = MakeCallback<RecordCallback>(target);
};

TEST_F(ComCallbackTest, StartsWithTheCreatorsReference) {
    EXPECT_EQ(callback->AddRef(), 2U);
    EXPECT_EQ(callback->AddRef(), 3U);
    EXPECT_EQ(callback->Release(), 2U);
    EXPECT_EQ(callback->Release(), 1U);
}

TEST_F(ComCallbackTest, IsDeletedWithTheLastReference) {
    const long before = LiveAllocations();
    auto other = MakeCallback<RecordCallback>(target);
    EXPECT_EQ(LiveAllocations(), before + 1);
    const ComPtr<RecordCallback> second = other;
    other.Reset();
    EXPECT_EQ(LiveAllocations(), before + 1);
    EXPECT_EQ(second->AddRef(), 2U);
    EXPECT_EQ(second->Release(), 1U);
}

TEST_F(ComCallbackTest, AnswersIUnknownAndItsOwnInterfaceWithANewReference) {
    for (const IID& id : {IID_IUnknown, IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler}) {
        ComPtr<Handler> found;
        EXPECT_EQ(callback->QueryInterface(id, found.PutVoid()), S_OK);
        EXPECT_EQ(found.Get(), callback.Get());
        found.Reset();
        callback->AddRef();
        EXPECT_EQ(callback->Release(), 1U);
    }
}

TEST_F(ComCallbackTest, RefusesAnyOtherInterfaceAndEmptiesTheOutput) {
    void* found = this;
    EXPECT_EQ(callback->QueryInterface(IID_ICoreWebView2WebMessageReceivedEventHandler, &found), E_NOINTERFACE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(callback->AddRef(), 2U);
    EXPECT_EQ(callback->Release(), 1U);
}

TEST_F(ComCallbackTest, RefusesAQueryWithoutAnOutput) {
    EXPECT_EQ(callback->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(ComCallbackTest, InvokePassesItsArgumentsAndReturnsTheOperationsResult) {
    auto* const environment = reinterpret_cast<ICoreWebView2Environment*>(this); // never dereferenced
    EXPECT_EQ(callback->Invoke(E_ACCESSDENIED, environment), E_ABORT);
    EXPECT_EQ(target.passedResult, E_ACCESSDENIED);
    EXPECT_EQ(target.passedEnvironment, environment);
}

TEST_F(ComCallbackTest, AnExceptionBecomesAResult) {
    EXPECT_EQ(MakeCallback<TargetCallback<&Target::ThrowBadAlloc>>(target)->Invoke(S_OK, nullptr), E_OUTOFMEMORY);
    EXPECT_EQ(MakeCallback<TargetCallback<&Target::ThrowError>>(target)->Invoke(S_OK, nullptr), E_FAIL);
}

TEST_F(ComCallbackTest, ACallbackThatCannotBeAllocatedIsEmpty) {
    const AllocationFault fault(0);
    EXPECT_FALSE(MakeCallback<RecordCallback>(target));
    EXPECT_TRUE(fault.Happened());
}

} // namespace
} // namespace receiver
