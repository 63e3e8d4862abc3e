#include "browser/app_callback.h"

#include "browser/webview_callbacks.h"
#include "tests/support/allocation_fault.h"
#include "tests/support/shell_test.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace receiver {
namespace {

class AppCallbackTest : public ShellTest {
protected:
    ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> handler{
        MakeCallback<EnvironmentCallback>(*app).Get()};
};

TEST_F(AppCallbackTest, StartsWithTheCreatorsReference) {
    EXPECT_EQ(handler->AddRef(), 2U);
    EXPECT_EQ(handler->AddRef(), 3U);
    EXPECT_EQ(handler->Release(), 2U);
    EXPECT_EQ(handler->Release(), 1U);
}

TEST_F(AppCallbackTest, AnswersIUnknownAndItsOwnInterfaceWithANewReference) {
    for (const IID& id : {IID_IUnknown, IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler}) {
        ComPtr<IUnknown> found;
        EXPECT_EQ(handler->QueryInterface(id, found.PutVoid()), S_OK);
        EXPECT_EQ(found.Get(), handler.Get());
        found.Reset();
        handler->AddRef();
        EXPECT_EQ(handler->Release(), 1U);
    }
}

TEST_F(AppCallbackTest, RefusesAnyOtherInterfaceAndEmptiesTheOutput) {
    void* found = this;
    EXPECT_EQ(handler->QueryInterface(IID_ICoreWebView2WebMessageReceivedEventHandler, &found), E_NOINTERFACE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(handler->AddRef(), 2U);
    EXPECT_EQ(handler->Release(), 1U);
}

TEST_F(AppCallbackTest, RefusesAQueryWithoutAnOutput) {
    EXPECT_EQ(handler->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(AppCallbackTest, EveryHandlerAnswersItsOwnInterface) {
    const auto answers = [this]<typename Callback>(std::type_identity<Callback>, REFIID id) {
        const ComPtr<IUnknown> callback(MakeCallback<Callback>(*app).Get());
        ComPtr<IUnknown> found;
        return callback.As(id, found);
    };
    EXPECT_EQ(answers(std::type_identity<ControllerCallback>(),
                      IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler),
              S_OK);
    EXPECT_EQ(answers(std::type_identity<WebMessageCallback>(), IID_ICoreWebView2WebMessageReceivedEventHandler), S_OK);
    EXPECT_EQ(answers(std::type_identity<PermissionCallback>(), IID_ICoreWebView2PermissionRequestedEventHandler),
              S_OK);
    EXPECT_EQ(answers(std::type_identity<NavigationCallback>(), IID_ICoreWebView2NavigationCompletedEventHandler),
              S_OK);
}

TEST_F(AppCallbackTest, InvokeForwardsItsArgumentsAndReturnsTheOperationsResult) {
    EXPECT_EQ(handler->Invoke(E_ACCESSDENIED, nullptr), E_ACCESSDENIED);
    ASSERT_EQ(boxes.size(), 1U);
    EXPECT_EQ(boxes.front().text, L"WebView2 Runtime is unavailable.\n\nHRESULT: 0x80070005");
}

TEST_F(AppCallbackTest, MemoryThatCannotBeHadBecomesAResult) {
    OpenBrowser();
    for (unsigned allocation = 0;; ++allocation) {
        const AllocationFault fault(allocation);
        const HRESULT result = browser.RaiseWebMessage(L"a text that is long enough to be put on the heap");
        if (!fault.Happened()) {
            EXPECT_GT(allocation, 0U);
            EXPECT_EQ(result, S_OK);
            break;
        }
        if (allocation == 0) {
            EXPECT_EQ(result, E_OUTOFMEMORY);
        }
        EXPECT_TRUE(result == E_OUTOFMEMORY || result == S_OK) << allocation; // A log line may be lost silently.
    }
}

TEST_F(AppCallbackTest, AHandlerThatCannotBeMadeIsEmpty) {
    const AllocationFault fault(0);
    EXPECT_FALSE(MakeCallback<EnvironmentCallback>(*app));
    EXPECT_TRUE(fault.Happened());
}

} // namespace
} // namespace receiver
