#include "platform/registry.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "platform/last_error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/registry_folder.h"

namespace platform {

namespace {

// A key is a folder, and its values are the files in it.
struct Key {
    std::string folder;
};

std::uint32_t Failed(int error) {
    SetLastError(static_cast<std::uint32_t>(error));
    return static_cast<std::uint32_t>(error);
}

// True for a name that stays inside its folder.
bool IsPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

std::string EnvironmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

// Returns the folder of a hive; empty when the environment defines none.
std::string HiveFolder(RegistryHive hive) {
    const char* name = hive == RegistryHive::LocalMachine ? "/HKEY_LOCAL_MACHINE" : "/HKEY_CURRENT_USER";
    const std::string registry = EnvironmentVariable("VEXLANE_REGISTRY");
    if (!registry.empty()) {
        return registry + name;
    }
    if (hive == RegistryHive::LocalMachine) {
        return std::string("/etc/vexlane") + name;
    }
    const std::string configuration = EnvironmentVariable("XDG_CONFIG_HOME");
    if (configuration.starts_with('/')) {
        return configuration + "/vexlane" + name;
    }
    const std::string home = EnvironmentVariable("HOME");
    return home.empty() ? std::string() : home + "/.config/vexlane" + name;
}

// Gets the folder of a key. Returns 0 or the error. Trailing and repeated backslashes are ignored.
int KeyFolder(RegistryHive hive, const char* path, std::string& folder) {
    folder = HiveFolder(hive);
    if (folder.empty()) {
        return ENOENT;
    }
    std::string_view rest = path == nullptr ? std::string_view() : std::string_view(path);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\\'), rest.size());
        const std::string_view part = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (part.empty()) {
            continue;
        }
        if (!IsPlainName(part)) {
            return EINVAL;
        }
        folder.append("/").append(part);
    }
    return 0;
}

int CheckFolder(const std::string& folder) {
    struct stat status = {};
    if (::stat(folder.c_str(), &status) != 0) {
        return errno;
    }
    return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

int MakeFolders(const std::string& folder) {
    if (CheckFolder(folder) == 0) {
        return 0;
    }
    for (std::size_t end = folder.find('/', 1);; end = folder.find('/', end + 1)) {
        const std::string ancestor = folder.substr(0, end);
        if (::mkdir(ancestor.c_str(), 0777) != 0) {
            const int error = errno;
            // For an existing folder the error may differ from EEXIST, for example on a read-only file system.
            if (CheckFolder(ancestor) != 0) {
                return error == EEXIST ? ENOTDIR : error;
            }
        }
        if (end == std::string::npos) {
            return 0;
        }
    }
}

// Reads until the buffer is full or the file ends. Returns the number of bytes, or -1 with errno set.
ssize_t ReadWhole(int file, char* buffer, std::size_t capacity) {
    std::size_t count = 0;
    while (count < capacity) {
        const ssize_t more = ::read(file, buffer + count, capacity - count);
        if (more == 0) {
            break;
        }
        if (more > 0) {
            count += static_cast<std::size_t>(more);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(count);
}

std::uint32_t ToSize(off_t size) {
    constexpr off_t largest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<off_t>(size, 0, largest));
}

std::uint32_t OpenOrCreateKey(RegistryHive hive, const char* path, bool create, RegistryHandle& key) {
    key = 0;
    auto made = std::make_unique<Key>();
    int error = KeyFolder(hive, path, made->folder);
    if (error == 0) {
        error = create ? MakeFolders(made->folder) : CheckFolder(made->folder);
    }
    if (error != 0) {
        return Failed(error);
    }
    key = reinterpret_cast<RegistryHandle>(made.release());
    return 0;
}

}  // namespace

std::string RegistryFolder(RegistryHive hive, const char* path) {
    std::string folder;
    return KeyFolder(hive, path, folder) == 0 ? folder : std::string();
}

std::uint32_t OpenRegistryKey(RegistryHive hive, const char* path, std::uint32_t, RegistryHandle& key) {
    return OpenOrCreateKey(hive, path, false, key);
}

std::uint32_t CreateRegistryKey(RegistryHive hive, const char* path, std::uint32_t, RegistryHandle& key) {
    return OpenOrCreateKey(hive, path, true, key);
}

std::uint32_t QueryRegistryValue(RegistryHandle key, const char* name, void* buffer, std::uint32_t& size) {
    if (key == 0) {
        return Failed(EBADF);
    }
    const std::string_view plainName = name == nullptr ? std::string_view() : std::string_view(name);
    if (plainName.empty()) {
        return Failed(ENOENT);  // the unnamed value of a key, which has no file
    }
    if (!IsPlainName(plainName)) {
        return Failed(EINVAL);
    }

    const std::string path = reinterpret_cast<const Key*>(key)->folder + "/" + name;
    // O_NONBLOCK, because opening a pipe would wait for its other end.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen()) {
        return Failed(errno);
    }
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0) {
        return Failed(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return Failed(S_ISDIR(status.st_mode) ? ENOENT : EINVAL);
    }
    if (buffer == nullptr) {
        size = ToSize(status.st_size);
        return 0;
    }
    if (status.st_size > static_cast<off_t>(size)) {
        size = ToSize(status.st_size);
        return Failed(ERANGE);
    }

    const ssize_t count = ReadWhole(file.Get(), static_cast<char*>(buffer), size);
    if (count < 0) {
        return Failed(errno);
    }
    // The file may have grown since fstat.
    char beyond = 0;
    if (static_cast<std::uint32_t>(count) == size && ReadWhole(file.Get(), &beyond, 1) > 0) {
        return Failed(ERANGE);
    }
    size = static_cast<std::uint32_t>(count);
    return 0;
}

void CloseRegistryKey(RegistryHandle key) {
    delete reinterpret_cast<Key*>(key);
}

}  // namespace platform
