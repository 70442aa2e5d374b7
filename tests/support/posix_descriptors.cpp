#include "tests/support/descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

namespace test_support {

std::set<int> OpenDescriptors() {
    std::set<int> open;
    DIR* const folder = ::opendir("/proc/self/fd");
    while (const dirent* const entry = ::readdir(folder)) {
        if (entry->d_name[0] != '.') {
            open.insert(std::atoi(entry->d_name));
        }
    }
    open.erase(::dirfd(folder));
    ::closedir(folder);
    return open;
}

bool StayBehind(const std::set<int>& descriptors) {
    return std::all_of(descriptors.begin(), descriptors.end(), [](int descriptor) {
        const int flags = ::fcntl(descriptor, F_GETFD);
        return flags >= 0 && (flags & FD_CLOEXEC) != 0;
    });
}

int Mappings() {
    std::ifstream maps("/proc/self/maps");
    return static_cast<int>(std::count(std::istreambuf_iterator<char>(maps), {}, '\n'));
}

long ResidentKilobytes() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 0;
#else
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
#endif
}

}  // namespace test_support
