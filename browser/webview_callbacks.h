// The five handlers that the receiver gives to WebView2, each forwarding to one operation of ReceiverApp.
#pragma once

#include "app/receiver_app.h"
#include "browser/app_callback.h"

#include <WebView2.h>

namespace receiver {

using EnvironmentCallback =
    AppCallback<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
                IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, &ReceiverApp::OnEnvironmentCreated>;
using ControllerCallback =
    AppCallback<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
                IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, &ReceiverApp::OnControllerCreated>;
using WebMessageCallback =
    AppCallback<ICoreWebView2WebMessageReceivedEventHandler, IID_ICoreWebView2WebMessageReceivedEventHandler,
                &ReceiverApp::OnWebMessageReceived>;
using PermissionCallback =
    AppCallback<ICoreWebView2PermissionRequestedEventHandler, IID_ICoreWebView2PermissionRequestedEventHandler,
                &ReceiverApp::OnPermissionRequested>;
using NavigationCallback =
    AppCallback<ICoreWebView2NavigationCompletedEventHandler, IID_ICoreWebView2NavigationCompletedEventHandler,
                &ReceiverApp::OnNavigationCompleted>;

} // namespace receiver
