// The binary interface of our WebView2 declarations, compared with the published identifiers and slot numbers.
#include "tests/support/function_table.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <objbase.h> // The vendor's WebView2.h needs its macros.

#include <WebView2.h>

#include <cstddef>
#include <iterator>
#include <string>

namespace receiver {
namespace {

// Adds one method after the interface's last one.
template <typename Interface>
struct OneMore : Interface {
    virtual HRESULT STDMETHODCALLTYPE AfterTheLast() = 0;
};

struct InterfaceFigures {
    const char* name;
    IID declaredId;
    const wchar_t* id;
    std::size_t declaredSlots;
    std::size_t slots; // including the three of IUnknown
};

struct MethodFigures {
    const char* name;
    std::size_t declaredSlot;
    std::size_t slot;
};

#define INTERFACE(name, id, slots)                                                                                     \
    InterfaceFigures { #name, IID_##name, L"{" id "}", SlotOf(&OneMore <name>::AfterTheLast), slots }
#define METHOD(interface, name, slot)                                                                                  \
    MethodFigures { #interface "::" #name, SlotOf(&interface::name), slot }

const InterfaceFigures Interfaces[] = {
    INTERFACE(ICoreWebView2Environment, "B96D755E-0319-4E92-A296-23436F46A1FC", 8),
    INTERFACE(ICoreWebView2Environment2, "41F3632B-5EF4-404F-AD82-2D606C5A9A21", 9),
    INTERFACE(ICoreWebView2Environment3, "80A22AE3-BE7C-4CE2-AFE1-5A50056CDEEB", 11),
    INTERFACE(ICoreWebView2Environment4, "20944379-6DCF-41D6-A0A0-ABC0FC50DE0D", 12),
    INTERFACE(ICoreWebView2Environment5, "319E423D-E0D7-4B8D-9254-AE9475DE9B17", 14),
    INTERFACE(ICoreWebView2Environment6, "E59EE362-ACBD-4857-9A8E-D3644D9459A9", 15),
    INTERFACE(ICoreWebView2Environment7, "43C22296-3BBD-43A4-9C00-5C0DF6DD29A2", 16),
    INTERFACE(ICoreWebView2Environment8, "D6EB91DD-C3D2-45E5-BD29-6DC2BC4DE9CF", 19),
    INTERFACE(ICoreWebView2Environment9, "F06F41BF-4B5A-49D8-B9F6-FA16CD29F274", 20),
    INTERFACE(ICoreWebView2Environment10, "EE0EB9DF-6F12-46CE-B53F-3F47B9C928E0", 23),
    INTERFACE(ICoreWebView2Environment11, "F0913DC6-A0EC-42EF-9805-91DFF3A2966A", 24),
    INTERFACE(ICoreWebView2Environment12, "F503DB9B-739F-48DD-B151-FDFCF253F54E", 25),
    INTERFACE(ICoreWebView2Controller, "4D00C0D1-9434-4EB6-8078-8697A560334F", 26),
    INTERFACE(ICoreWebView2, "76ECEACB-0462-4D94-AC83-423A6793775E", 61),
    INTERFACE(ICoreWebView2_2, "9E8F0CF8-E670-4B5E-B2BC-73E061E3184C", 68),
    INTERFACE(ICoreWebView2_3, "A0D6DF20-3B92-416D-AA0C-437A9C727857", 73),
    INTERFACE(ICoreWebView2_4, "20D02D59-6DF2-42DC-BD06-F98A694B1302", 77),
    INTERFACE(ICoreWebView2_5, "BEDB11B8-D63C-11EB-B8BC-0242AC130003", 79),
    INTERFACE(ICoreWebView2_6, "499AADAC-D92C-4589-8A75-111BFC167795", 80),
    INTERFACE(ICoreWebView2_7, "79C24D83-09A3-45AE-9418-487F32A58740", 81),
    INTERFACE(ICoreWebView2_8, "E9632730-6E1E-43AB-B7B8-7B2C9E62E094", 88),
    INTERFACE(ICoreWebView2_9, "4D7B2EAB-9FDC-468D-B998-A9260B5ED651", 97),
    INTERFACE(ICoreWebView2_10, "B1690564-6F5A-4983-8E48-31D1143FECDB", 99),
    INTERFACE(ICoreWebView2_11, "0BE78E56-C193-4051-B943-23B460C08BDB", 102),
    INTERFACE(ICoreWebView2_12, "35D69927-BCFA-4566-9349-6B3E0D154CAC", 105),
    INTERFACE(ICoreWebView2_13, "F75F09A8-667E-4983-88D6-C8773F315E84", 106),
    INTERFACE(ICoreWebView2_14, "6DAA4F10-4A90-4753-8898-77C5DF534165", 109),
    INTERFACE(ICoreWebView2_15, "517B2D1D-7DAE-4A66-A4F4-10352FFB9518", 113),
    INTERFACE(ICoreWebView2_16, "0EB34DC9-9F91-41E1-8639-95CD5943906B", 116),
    INTERFACE(ICoreWebView2_17, "702E75D4-FD44-434D-9D70-1A68A6B1192A", 117),
    INTERFACE(ICoreWebView2Settings, "E562E4F0-D7FA-43AC-8D71-C05150499F00", 21),
    INTERFACE(ICoreWebView2SharedBuffer, "B747A495-0C6F-449E-97B8-2F81E9D6AB43", 8),
    INTERFACE(ICoreWebView2WebMessageReceivedEventArgs, "0F99A40C-E962-4207-9E92-E3D542EFF849", 6),
    INTERFACE(ICoreWebView2PermissionRequestedEventArgs, "973AE2EF-FF18-4894-8FB2-3C758F046810", 9),
    INTERFACE(ICoreWebView2NavigationCompletedEventArgs, "30D68B7D-20D9-4752-A9CA-EC8448FBB5C1", 6),
    INTERFACE(ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, "4E8A3389-C9D8-4BD2-B6B5-124FEE6CC14D", 4),
    INTERFACE(ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, "6C4819F3-C9B7-4260-8127-C9F5BDE7F68C", 4),
    INTERFACE(ICoreWebView2WebMessageReceivedEventHandler, "57213F19-00E6-49FA-8E07-898EA01ECBD2", 4),
    INTERFACE(ICoreWebView2PermissionRequestedEventHandler, "15E1C6A3-C72A-4DF3-91D7-D097FBEC6BFD", 4),
    INTERFACE(ICoreWebView2NavigationCompletedEventHandler, "D33A35BF-1C49-4F98-93AB-006E0533FE1C", 4),
};

const MethodFigures Methods[] = {
    METHOD(ICoreWebView2Environment, CreateCoreWebView2Controller, 3),
    METHOD(ICoreWebView2, add_WebMessageReceived, 34),
    METHOD(ICoreWebView2Environment12, CreateSharedBuffer, 24),
    METHOD(ICoreWebView2_17, PostSharedBufferToScript, 116),
    METHOD(ICoreWebView2Controller, put_Bounds, 6),
    METHOD(ICoreWebView2SharedBuffer, get_Size, 3),
    METHOD(ICoreWebView2Controller, Close, 24),
    METHOD(ICoreWebView2SharedBuffer, get_Buffer, 4),
    METHOD(ICoreWebView2Controller, get_CoreWebView2, 25),
    METHOD(ICoreWebView2SharedBuffer, OpenStream, 5),
    METHOD(ICoreWebView2Settings, put_IsStatusBarEnabled, 10),
    METHOD(ICoreWebView2SharedBuffer, get_FileMappingHandle, 6),
    METHOD(ICoreWebView2Settings, put_AreDevToolsEnabled, 12),
    METHOD(ICoreWebView2SharedBuffer, Close, 7),
    METHOD(ICoreWebView2Settings, put_AreDefaultContextMenusEnabled, 14),
    METHOD(ICoreWebView2WebMessageReceivedEventArgs, get_Source, 3),
    METHOD(ICoreWebView2, get_Settings, 3),
    METHOD(ICoreWebView2WebMessageReceivedEventArgs, get_WebMessageAsJson, 4),
    METHOD(ICoreWebView2, get_Source, 4),
    METHOD(ICoreWebView2WebMessageReceivedEventArgs, TryGetWebMessageAsString, 5),
    METHOD(ICoreWebView2, Navigate, 5),
    METHOD(ICoreWebView2PermissionRequestedEventArgs, get_PermissionKind, 4),
    METHOD(ICoreWebView2, NavigateToString, 6),
    METHOD(ICoreWebView2PermissionRequestedEventArgs, get_State, 6),
    METHOD(ICoreWebView2, add_NavigationCompleted, 15),
    METHOD(ICoreWebView2PermissionRequestedEventArgs, put_State, 7),
    METHOD(ICoreWebView2, add_PermissionRequested, 23),
    METHOD(ICoreWebView2NavigationCompletedEventArgs, get_IsSuccess, 3),
    METHOD(ICoreWebView2, PostWebMessageAsJson, 32),
    METHOD(ICoreWebView2NavigationCompletedEventArgs, get_WebErrorStatus, 4),
    METHOD(ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, Invoke, 3),
    METHOD(ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, Invoke, 3),
    METHOD(ICoreWebView2WebMessageReceivedEventHandler, Invoke, 3),
    METHOD(ICoreWebView2PermissionRequestedEventHandler, Invoke, 3),
    METHOD(ICoreWebView2NavigationCompletedEventHandler, Invoke, 3),
};

std::wstring TextOf(const IID& id) {
    wchar_t text[39] = L"";
    StringFromGUID2(id, text, static_cast<int>(std::size(text)));
    return text;
}

TEST(WebView2Abi, InterfacesHaveThePublishedIdentifiersAndSlotCounts) {
    for (const InterfaceFigures& figures : Interfaces) {
        EXPECT_EQ(TextOf(figures.declaredId), figures.id) << figures.name;
        EXPECT_EQ(figures.declaredSlots, figures.slots) << figures.name;
    }
}

TEST(WebView2Abi, MethodsHaveThePublishedSlots) {
    for (const MethodFigures& figures : Methods) {
        EXPECT_EQ(figures.declaredSlot, figures.slot) << figures.name;
    }
}

} // namespace
} // namespace receiver
