#include "tests/support/function_patch.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace receiver {
namespace {

bool SameLibrary(std::string_view left, std::string_view right) {
    return CompareStringOrdinal(std::wstring(left.begin(), left.end()).c_str(), -1,
                                std::wstring(right.begin(), right.end()).c_str(), -1, TRUE) == CSTR_EQUAL;
}

// Import tables and vtables are read-only memory.
void Store(void** entry, void* address) {
    DWORD protection = 0;
    VirtualProtect(static_cast<void*>(entry), sizeof(*entry), PAGE_READWRITE, &protection);
    *entry = address;
    VirtualProtect(static_cast<void*>(entry), sizeof(*entry), protection, &protection);
}

std::vector<void**> EntriesOf(std::string_view library, std::string_view name) {
    std::vector<void**> entries;
    for (const ImportedFunction& function : ImportedFunctions()) {
        if (function.name == name && SameLibrary(function.library, library)) {
            entries.push_back(function.address);
        }
    }
    if (entries.empty()) {
        throw std::invalid_argument(std::string(name) + " of " + std::string(library) + " is not imported");
    }
    return entries;
}

} // namespace

std::vector<ImportedFunction> ImportedFunctions() {
    auto* const image = reinterpret_cast<std::uint8_t*>(GetModuleHandleW(nullptr));
    const auto* const dosHeader = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(image + dosHeader->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    std::vector<ImportedFunction> functions;
    for (const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
         library->Name != 0; ++library) {
        const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA64*>(image + library->OriginalFirstThunk);
        auto* address = reinterpret_cast<void**>(image + library->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++address) {
            if (!IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal)) {
                const auto* const entry = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + name->u1.AddressOfData);
                functions.push_back({reinterpret_cast<const char*>(image + library->Name), entry->Name, address});
            }
        }
    }
    return functions;
}

Redirection::Redirection(const std::vector<void**>& newEntries, void* replacement) {
    for (void** const entry : newEntries) {
        entries.emplace_back(entry, *entry);
        Store(entry, replacement);
    }
}

Redirection::~Redirection() {
    for (const auto& [entry, original] : entries) {
        Store(entry, original);
    }
}

ImportRedirection::ImportRedirection(std::string_view library, std::string_view name, void* replacement)
    : Redirection(EntriesOf(library, name), replacement) {}

} // namespace receiver
