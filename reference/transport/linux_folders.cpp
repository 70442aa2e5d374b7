#include "reference/transport/linux_folders.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <random>
#include <system_error>

namespace transport {

namespace {

constexpr char runtimeFolderName[] = "vexlane";
constexpr mode_t accessByOthers = S_IRWXG | S_IRWXO;
constexpr mode_t writableByOthers = S_IWGRP | S_IWOTH;

// A socket's address has room for "/proc/self/fd/", a number and a name shorter than this.
constexpr std::size_t nameCapacity = 80;
static_assert(sizeof "/proc/self/fd/2147483647/" + nameCapacity < sizeof sockaddr_un::sun_path);

std::string TemporaryName() {
    return "vexlane-" + std::to_string(::geteuid());
}

// Returns no descriptor when there is no such folder. Throws on lack of resources, because the folder may exist.
Owned OpenFolder(int parent, const char* name, int flags) {
    Owned folder(::openat(parent, name, flags | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsOpen() && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
        throw std::system_error(errno, std::generic_category(), "cannot open a folder for sockets");
    }
    return folder;
}

struct stat ReadStatus(const Owned& file) {
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot read the owner of a folder for sockets");
    }
    return status;
}

// Returns no descriptor unless the folder exists, belongs to the user and is closed to others. Rejects links.
Owned OpenOwn(int parent, const char* name) {
    Owned folder = OpenFolder(parent, name, O_PATH | O_NOFOLLOW);
    if (folder.IsOpen()) {
        const struct stat status = ReadStatus(folder);
        if (status.st_uid != ::geteuid() || (status.st_mode & accessByOthers) != 0) {
            folder.Close();
        }
    }
    return folder;
}

Owned MakeOwn(int parent, const char* name) {
    ::mkdirat(parent, name, S_IRWXU);
    return OpenOwn(parent, name);
}

// Returns no descriptor when there is none or when others could replace its contents.
Owned OpenRuntimeFolder() {
    const char* const path = std::getenv("XDG_RUNTIME_DIR");
    Owned folder;
    if (path != nullptr && *path == '/') {
        folder = OpenFolder(AT_FDCWD, path, O_PATH);
    }
    if (folder.IsOpen()) {
        const struct stat status = ReadStatus(folder);
        if (status.st_uid != ::geteuid() || (status.st_mode & writableByOthers) != 0) {
            folder.Close();
        }
    }
    return folder;
}

// Returns no descriptor when there is none. If others can write there, the sticky bit must protect this user's files.
Owned OpenTemporaryFolder() {
    const char* const chosen = std::getenv("TMPDIR");
    for (const char* const path : {chosen, "/tmp"}) {
        if (path != nullptr && *path == '/') {
            Owned folder = OpenFolder(AT_FDCWD, path, O_PATH);
            if (folder.IsOpen()) {
                const mode_t mode = ReadStatus(folder).st_mode;
                if ((mode & writableByOthers) == 0 || (mode & S_ISVTX) != 0) {
                    return folder;
                }
            }
        }
    }
    return Owned();
}

// Visits the folders with random names, which exist only if another user created one with the first name.
bool VisitRandomFolders(const Owned& temporary, const std::function<bool(Owned& folder)>& visit) {
    Owned readable = OpenFolder(temporary.Get(), ".", O_RDONLY);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(readable.IsOpen() ? ::fdopendir(readable.Get()) : nullptr,
                                                      [](DIR* folder) { return ::closedir(folder); });
    if (entries == nullptr) {
        return false;
    }
    readable.Take();
    const std::string beginning = TemporaryName() + '-';
    while (const dirent* const entry = ::readdir(entries.get())) {
        if (std::string(entry->d_name).starts_with(beginning)) {
            Owned folder = OpenOwn(temporary.Get(), entry->d_name);
            if (folder.IsOpen() && visit(folder)) {
                return true;
            }
        }
    }
    return false;
}

Owned MakeInTemporaryFolder(const Owned& temporary) {
    Owned made = MakeOwn(temporary.Get(), TemporaryName().c_str());
    if (!made.IsOpen()) {
        VisitRandomFolders(temporary, [&made](Owned& folder) {
            made = std::move(folder);
            return true;
        });
    }
    if (!made.IsOpen()) {
        std::random_device random;
        const std::string name = TemporaryName() + '-' + std::to_string(random()) + '-' + std::to_string(random());
        made = MakeOwn(temporary.Get(), name.c_str());
    }
    return made;
}

}  // namespace

bool VisitFolders(const std::function<bool(int folder)>& visit) {
    if (const Owned runtime = OpenRuntimeFolder(); runtime.IsOpen()) {
        const Owned folder = OpenOwn(runtime.Get(), runtimeFolderName);
        if (folder.IsOpen() && visit(folder.Get())) {
            return true;
        }
    }
    const Owned temporary = OpenTemporaryFolder();
    if (!temporary.IsOpen()) {
        return false;
    }
    const Owned first = OpenOwn(temporary.Get(), TemporaryName().c_str());
    return (first.IsOpen() && visit(first.Get())) ||
           VisitRandomFolders(temporary, [&visit](Owned& folder) { return visit(folder.Get()); });
}

std::vector<Owned> MakeFolders() {
    std::vector<Owned> made;
    const auto keep = [&made](Owned folder) {
        if (folder.IsOpen()) {
            made.push_back(std::move(folder));
        }
    };
    if (const Owned runtime = OpenRuntimeFolder(); runtime.IsOpen()) {
        keep(MakeOwn(runtime.Get(), runtimeFolderName));
    }
    if (const Owned temporary = OpenTemporaryFolder(); temporary.IsOpen()) {
        keep(MakeInTemporaryFolder(temporary));
    }
    if (made.empty()) {
        throw std::system_error(
            EACCES, std::generic_category(),
            "cannot create a folder for sockets; set XDG_RUNTIME_DIR to a folder that belongs to this user");
    }
    return made;
}

std::optional<SocketAddress> SocketAddress::Of(int folder, const std::string& name) {
    // A leading dot marks the lock files.
    if (name.empty() || name.size() >= nameCapacity || name.front() == '.' || name.find('/') != std::string::npos) {
        return std::nullopt;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + '/' + name;
    SocketAddress made;
    made.address_.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), made.address_.sun_path);
    return made;
}

}  // namespace transport
