#include "reference/transport/windows_names.h"
// clang-format off: these need the one above
#include <ntsecapi.h>
#include <sddl.h>
// clang-format on

#include <array>
#include <cstdint>
#include <exception>
#include <system_error>

namespace transport {

namespace {

constexpr char softwarePath[] = "\\Software";
constexpr char keyName[] = "Vexlane Reading";
constexpr DWORD maxPipePath = 256;

[[noreturn]] void Throw(const char* what, LSTATUS error) {
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

std::string TextOf(PSID user) {
    char* text = nullptr;
    if (user == nullptr || ConvertSidToStringSidA(user, &text) == FALSE) {
        return {};
    }
    std::string copy = text;
    LocalFree(text);
    return copy;
}

// A key in the user's part of the registry. Throws std::system_error.
std::string KeyPath() {
    return ThisUser() + softwarePath + '\\' + keyName;
}

}  // namespace

std::string ThisUser() {
    const std::string user = UserOf(GetCurrentProcess());
    if (user.empty()) {
        Throw("cannot determine the user", static_cast<LSTATUS>(GetLastError()));
    }
    return user;
}

std::string UserOf(HANDLE process) {
    HANDLE token = nullptr;
    if (OpenProcessToken(process, TOKEN_QUERY, &token) == FALSE) {
        return {};
    }
    alignas(TOKEN_USER) std::array<std::uint8_t, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user = {};
    DWORD size = 0;
    const bool isKnown = GetTokenInformation(token, TokenUser, user.data(), user.size(), &size) != FALSE;
    CloseHandle(token);
    return isKnown ? TextOf(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid) : std::string();
}

std::string OwnerOf(HANDLE object) {
    alignas(SECURITY_DESCRIPTOR) std::array<std::uint8_t, sizeof(SECURITY_DESCRIPTOR) + SECURITY_MAX_SID_SIZE>
        description = {};
    DWORD size = 0;
    PSID owner = nullptr;
    BOOL isDefault = FALSE;
    if (GetKernelObjectSecurity(object, OWNER_SECURITY_INFORMATION, description.data(), description.size(), &size) ==
            FALSE ||
        GetSecurityDescriptorOwner(description.data(), &owner, &isDefault) == FALSE) {
        return {};
    }
    return TextOf(owner);
}

std::string MutexName(const std::string& name) {
    return "Global\\vexlane-reading-" + ThisUser() + '-' + name;
}

std::string NewPipePath() {
    std::array<std::uint8_t, 16> random = {};
    if (RtlGenRandom(random.data(), random.size()) == FALSE) {
        Throw("cannot create a random pipe name", ERROR_GEN_FAILURE);
    }
    std::string path = "\\\\.\\pipe\\vexlane-reading-";
    for (const std::uint8_t byte : random) {
        path += "0123456789abcdef"[byte >> 4];
        path += "0123456789abcdef"[byte & 15];
    }
    return path;
}

std::string PublishedPipePath(const std::string& name) {
    std::array<char, maxPipePath + 1> path = {};
    DWORD size = path.size();
    const LSTATUS error =
        RegGetValueA(HKEY_USERS, KeyPath().c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, path.data(), &size);
    return error == ERROR_SUCCESS ? path.data() : std::string();
}

void PublishPipePath(const std::string& name, const std::string& path) {
    HKEY software = nullptr;
    HKEY key = nullptr;
    LSTATUS error =
        RegOpenKeyExA(HKEY_USERS, (ThisUser() + softwarePath).c_str(), 0, KEY_READ | KEY_CREATE_SUB_KEY, &software);
    if (error == ERROR_SUCCESS) {
        error =
            RegCreateKeyExA(software, keyName, 0, nullptr, REG_OPTION_VOLATILE, KEY_SET_VALUE, nullptr, &key, nullptr);
        RegCloseKey(software);
    }
    if (error == ERROR_SUCCESS) {
        error = RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                               static_cast<DWORD>(path.size() + 1));
        RegCloseKey(key);
    }
    if (error != ERROR_SUCCESS) {
        Throw("cannot write the pipe's name to the registry", error);
    }
}

void WithdrawPipePath(const std::string& name, const std::string& path) noexcept {
    try {
        if (PublishedPipePath(name) == path) {
            RegDeleteKeyValueA(HKEY_USERS, KeyPath().c_str(), name.c_str());
        }
    } catch (const std::exception&) {
        // The path remains, like that of a server that was killed.
    }
}

}  // namespace transport
