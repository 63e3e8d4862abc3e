// The DLL's exports: registration for the user and for the machine, and the way of an application from there.
#include "platform/handles.h"
#include "tests/frames/frame_file_process.h"
#include "tests/sample_camera/capture_graph.h"

#include <gtest/gtest.h>

#include <array>
#include <cwchar>
#include <string>
#include <string_view>

namespace sample_camera {
namespace {

constexpr wchar_t ClassKey[] = L"Software\\Classes\\CLSID\\{C132191D-7DC1-4EB6-8914-B912B15C22B0}";
constexpr wchar_t InstanceKey[] = L"Software\\Classes\\CLSID\\{860BB310-5D01-11D0-BD3B-00A0C911CE86}\\Instance\\"
                                  L"{C132191D-7DC1-4EB6-8914-B912B15C22B0}";

std::wstring Text(HKEY root, const std::wstring& key, const wchar_t* name) {
    std::array<wchar_t, 512> text{};
    DWORD size = sizeof(text);
    return RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ, nullptr, text.data(), &size) == ERROR_SUCCESS
               ? text.data()
               : L"";
}

bool Exists(HKEY root, const wchar_t* key) {
    receiver::RegistryKey opened;
    return RegOpenKeyExW(root, key, 0, KEY_READ, opened.Put()) == ERROR_SUCCESS;
}

// The DLL as regsvr32 has it.
class Server {
public:
    Server() : path(receiver::BuiltProgram(VISTEL_SAMPLE_CAMERA)), module(LoadLibraryW(path.c_str())) {}
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() { FreeLibrary(module); }

    [[nodiscard]] const std::wstring& Path() const { return path; }
    HRESULT Call(const char* name) const { return reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(Address(name))(); }
    HRESULT Install(BOOL install, const wchar_t* where) const {
        return reinterpret_cast<HRESULT(STDAPICALLTYPE*)(BOOL, LPCWSTR)>(Address("DllInstall"))(install, where);
    }

private:
    [[nodiscard]] void* Address(const char* name) const {
        return reinterpret_cast<void*>(GetProcAddress(module, name));
    }

    std::wstring path;
    HMODULE module;
};

void ExpectRegistered(HKEY root, const std::wstring& path) {
    const std::wstring server = std::wstring(ClassKey) + L"\\InprocServer32";
    EXPECT_EQ(Text(root, ClassKey, nullptr), L"Vistel Sample Camera");
    EXPECT_EQ(_wcsicmp(Text(root, server, nullptr).c_str(), path.c_str()), 0) << "the DLL's path";
    EXPECT_EQ(Text(root, server, L"ThreadingModel"), L"Both");
    EXPECT_EQ(Text(root, InstanceKey, L"FriendlyName"), L"Vistel Sample Camera");
    EXPECT_EQ(Text(root, InstanceKey, L"CLSID"), L"{C132191D-7DC1-4EB6-8914-B912B15C22B0}");
}

void ExpectNothing(HKEY root) {
    EXPECT_FALSE(Exists(root, ClassKey));
    EXPECT_FALSE(Exists(root, InstanceKey));
}

TEST(SampleCameraRegistration, IsForTheUserUnlessTheMachineIsNamedAndLeavesNoKey) {
    const Server server;
    ASSERT_EQ(server.Call("DllRegisterServer"), S_OK);
    ExpectRegistered(HKEY_CURRENT_USER, server.Path());
    ExpectNothing(HKEY_LOCAL_MACHINE);
    ASSERT_EQ(server.Install(TRUE, L"machine"), S_OK);
    ExpectRegistered(HKEY_LOCAL_MACHINE, server.Path());

    ASSERT_EQ(server.Call("DllUnregisterServer"), S_OK);
    ExpectNothing(HKEY_CURRENT_USER);
    ExpectRegistered(HKEY_LOCAL_MACHINE, server.Path());
    ASSERT_EQ(server.Install(FALSE, L"machine"), S_OK);
    ExpectNothing(HKEY_LOCAL_MACHINE);
    EXPECT_EQ(server.Call("DllUnregisterServer"), S_OK) << "nothing is left to remove";

    ASSERT_EQ(server.Install(TRUE, nullptr), S_OK);
    ExpectRegistered(HKEY_CURRENT_USER, server.Path());
    ASSERT_EQ(server.Install(FALSE, L"user"), S_OK);
    ExpectNothing(HKEY_CURRENT_USER);
}

TEST(SampleCameraRegistration, LeavesNoEmptyKeyOfTheUserAndAllKeysOfOthers) {
    const std::wstring instance(InstanceKey);
    const std::wstring instances = instance.substr(0, instance.rfind(L'\\'));
    const std::wstring category = instances.substr(0, instances.rfind(L'\\'));
    const Server server;
    ASSERT_EQ(server.Call("DllRegisterServer"), S_OK);
    ASSERT_TRUE(Exists(HKEY_CURRENT_USER, category.c_str()));
    ASSERT_EQ(server.Call("DllUnregisterServer"), S_OK);
    EXPECT_FALSE(Exists(HKEY_CURRENT_USER, category.c_str()));

    for (const std::wstring& key : {category, instances, instances + L"\\another camera"}) {
        ASSERT_EQ(server.Call("DllRegisterServer"), S_OK);
        ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), L"other", REG_SZ, L"text", 5 * sizeof(wchar_t)),
                  ERROR_SUCCESS);
        ASSERT_EQ(server.Call("DllUnregisterServer"), S_OK);
        ExpectNothing(HKEY_CURRENT_USER);
        EXPECT_EQ(Text(HKEY_CURRENT_USER, key, L"other"), L"text");
        EXPECT_EQ(Exists(HKEY_CURRENT_USER, instances.c_str()), key != category);
        EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, category.c_str()), ERROR_SUCCESS);
    }
}

// The moniker of the registered camera among the video capture devices; null when it is not listed.
ComPtr<IMoniker> FindDevice() {
    ComPtr<ICreateDevEnum> devices;
    EXPECT_EQ(
        CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum, devices.PutVoid()),
        S_OK);
    ComPtr<IEnumMoniker> monikers;
    if (devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.Put(), 0) != S_OK) {
        return {};
    }
    ComPtr<IMoniker> moniker;
    while (monikers->Next(1, moniker.Put(), nullptr) == S_OK) {
        ComPtr<IPropertyBag> properties;
        if (moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag, properties.PutVoid()) == S_OK) {
            VARIANT name;
            VariantInit(&name);
            const bool found = properties->Read(L"FriendlyName", &name, nullptr) == S_OK && name.vt == VT_BSTR &&
                               std::wstring_view(name.bstrVal) == L"Vistel Sample Camera";
            VariantClear(&name);
            if (found) {
                return moniker;
            }
        }
    }
    return {};
}

TEST(SampleCameraRegistration, ApplicationsListItOpenItAndLeaveItLoaded) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    {
        const Server server;
        ASSERT_EQ(server.Install(TRUE, L"machine"), S_OK); // Wine does not look at a user's classes
    }
    {
        const ComPtr<IMoniker> device = FindDevice();
        ASSERT_TRUE(device);
        ComPtr<IBaseFilter> camera;
        ASSERT_EQ(device->BindToObject(nullptr, nullptr, IID_IBaseFilter, camera.PutVoid()), S_OK);
        CLSID id{};
        EXPECT_EQ(camera->GetClassID(&id), S_OK);
        EXPECT_EQ(id.Data1, 0xC132191DU);
        CaptureGraph graph(camera);
        EXPECT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
        EXPECT_GE(graph.Run(), S_OK);
        EXPECT_TRUE(graph.Next());
    }
    CoFreeUnusedLibrariesEx(0, 0);
    EXPECT_NE(GetModuleHandleW(L"sample_camera.dll"), nullptr);
    {
        const Server server;
        EXPECT_EQ(server.Call("DllCanUnloadNow"), S_FALSE);
        EXPECT_EQ(server.Install(FALSE, L"machine"), S_OK);
    }
    EXPECT_FALSE(FindDevice());
    CoUninitialize();
}

} // namespace
} // namespace sample_camera
