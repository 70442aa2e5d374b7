#include "tests/soak/growth.h"

#include <algorithm>
#include <limits>

#include "tests/soak/kept_handles.h"
#include "tests/support/descriptors.h"

namespace soak {
namespace {

constexpr double mebibyte = 1 << 20;

// Allocated bytes are exact. What remains of earlier traffic differs between samples: the capacities of containers, and
// the small blocks that the allocator caches for each thread, about 100 KiB per thread.
constexpr double allocatedBoundMebibytes = 0.5;

// Physical memory also includes free memory that the allocator cannot return because part of its page is in use, and
// pages of the program that were used for the first time. Ten million frames are played in a few minutes, so a leak of
// one byte per frame would exceed the bound.
constexpr double residentBoundMebibytes = 8.0;

// On Windows a lock keeps a handle after a thread has waited for it; on Linux the bound is 0.
constexpr double handleBound = static_cast<double>(test_support::keptByLocks);

using Value = double (*)(const Sample& sample);

std::vector<double> ValuesOf(const std::vector<Sample>& samples, std::size_t from, std::size_t to, Value value) {
    std::vector<double> values;
    for (std::size_t index = from; index < to; ++index) {
        values.push_back(value(samples[index]));
    }
    return values;
}

double Median(const std::vector<double>& of) {
    std::vector<double> values = of;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double Smallest(const std::vector<double>& values) {
    double smallest = std::numeric_limits<double>::infinity();
    for (const double value : values) {
        smallest = std::min(smallest, value);
    }
    return smallest;
}

}  // namespace

Sample TakeSample() {
    test_support::ReleaseFreeMemory();
    const test_support::OpenCounts open = test_support::CountOpen();
    Sample sample;
    sample.residentBytes = static_cast<std::uint64_t>(test_support::ResidentKilobytes()) * 1024;
    const std::uint64_t allocated = test_support::AllocatedBytes();
    sample.allocatedBytes = allocated - std::min(allocated, KeptBytes());
    sample.handles = open.all;
    sample.keptHandles = KeptHandles();
    sample.threads = test_support::ThreadCount();
    sample.files = open.files;
    return sample;
}

std::vector<Growth> GrowthOf(const std::vector<Sample>& samples) {
    const std::size_t quarter = samples.size() / 4;
    const auto growth = [&](double (*typical)(const std::vector<double>&), Value value) {
        return typical(ValuesOf(samples, samples.size() - quarter, samples.size(), value)) -
               typical(ValuesOf(samples, quarter, 2 * quarter, value));
    };
    // The median ignores moments with unusual memory use. For counts the smallest value is compared, because a joined
    // thread may still be counted for a moment.
    return {
        {"resident memory, MiB",
         growth(Median, [](const Sample& sample) { return static_cast<double>(sample.residentBytes) / mebibyte; }),
         residentBoundMebibytes},
        {"allocated memory, MiB",
         growth(Median, [](const Sample& sample) { return static_cast<double>(sample.allocatedBytes) / mebibyte; }),
         allocatedBoundMebibytes},
        {"handles not kept by design",
         growth(Smallest,
                [](const Sample& sample) {
                    return static_cast<double>(sample.handles) - static_cast<double>(sample.keptHandles);
                }),
         handleBound},
        {"threads", growth(Smallest, [](const Sample& sample) { return static_cast<double>(sample.threads); }), 0.0},
        {"open files", growth(Smallest, [](const Sample& sample) { return static_cast<double>(sample.files); }), 0.0}};
}

}  // namespace soak
