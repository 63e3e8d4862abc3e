# Targets: webview2 (the declarations), webview2_loader (CreateCoreWebView2EnvironmentWithOptions) and runtime_search.
# The first two are ours, unless VISTEL_WEBVIEW2_SDK is the folder of an unpacked SDK package of the vendor.
add_library(runtime_search STATIC platform/webview2/runtime_search.cpp)
target_link_libraries(runtime_search PUBLIC platform PRIVATE shipped_code advapi32)

add_library(webview2 INTERFACE)
if(VISTEL_WEBVIEW2_SDK)
    target_include_directories(webview2 SYSTEM INTERFACE "${VISTEL_WEBVIEW2_SDK}/build/native/include")
    add_library(webview2_loader INTERFACE)
    target_link_libraries(webview2_loader INTERFACE webview2
        "${VISTEL_WEBVIEW2_SDK}/build/native/x64/WebView2LoaderStatic.lib" advapi32 version)
else()
    target_include_directories(webview2 SYSTEM INTERFACE ${PROJECT_SOURCE_DIR}/platform/webview2/include)
    add_library(webview2_loader STATIC platform/webview2/loader.cpp)
    target_link_libraries(webview2_loader PUBLIC webview2 PRIVATE shipped_code platform runtime_search user32)
endif()
