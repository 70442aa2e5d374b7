#include "tests/support/descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
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

bool AreClosedInNewProcess(const std::set<int>& descriptors) {
    return std::all_of(descriptors.begin(), descriptors.end(), [](int descriptor) {
        const int flags = ::fcntl(descriptor, F_GETFD);
        return flags >= 0 && (flags & FD_CLOEXEC) != 0;
    });
}

OpenCounts CountOpen() {
    OpenCounts counts;
    for (const int descriptor : OpenDescriptors()) {
        struct stat status = {};
        ++counts.all;
        counts.files += ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? 1u : 0u;
    }
    return counts;
}

std::size_t ThreadCount() {
    using Entries = std::filesystem::directory_iterator;
    return static_cast<std::size_t>(std::distance(Entries("/proc/self/task"), Entries()));
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

// Otherwise the thresholds grow with the largest block so far, and every thread's heap keeps as much.
void KeepNoFreeMemory() {
    constexpr int threshold = 128 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, threshold);
    ::mallopt(M_TRIM_THRESHOLD, threshold);
}

void ReleaseFreeMemory() {
    ::malloc_trim(0);
}

std::uint64_t AllocatedBytes() {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

}  // namespace test_support
