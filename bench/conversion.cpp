// Hot: one source, which stays in the caches as far as it fits. Cold: alternating sources that are no longer cached.
//
// The target is an image as the library allocates it. Sources begin where glibc's malloc puts large blocks, which are
// mappings of their own with 16 bytes of malloc before them, or elsewhere, to show what that costs.

#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <new>
#include <string>

#include "bench/baselines.h"
#include "bench/benchmarks.h"
#include "bench/trivial_copy.h"
#include "image_transform/image_data.h"
#include "image_transform/kernels/kernel.h"

namespace bench {

namespace {

using image_transform::kernels::AllKernels;
using image_transform::kernels::BgrPlanes;
using image_transform::kernels::I420Planes;
using image_transform::kernels::Kernel;

struct Size {
    std::int32_t width;
    std::int32_t height;
};

constexpr Size sizes[] = {{640, 480}, {1280, 720}, {1920, 1080}, {3840, 2160}};
constexpr std::size_t poolSize = 160'000'000;
constexpr std::size_t page = 4096;
constexpr std::size_t asFromMalloc = 16;  // bytes beyond the beginning of a page

// Memory that begins with a page.
class Bytes {
  public:
    explicit Bytes(std::size_t size) : bytes_(static_cast<std::uint8_t*>(::operator new(size, alignment))) {
        for (std::size_t index = 0; index < size; ++index) {
            bytes_[index] = static_cast<std::uint8_t>(index * 31 >> 3);
        }
    }
    ~Bytes() { ::operator delete(bytes_, alignment); }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    std::uint8_t* Data() { return bytes_; }

  private:
    static constexpr std::align_val_t alignment{page};
    std::uint8_t* const bytes_;
};

std::uint8_t* SourcePool() {
    static Bytes pool(poolSize);
    return pool.Data();
}

// The memory that all conversions to this size share.
std::uint8_t* Target(Size size) {
    static std::map<std::int32_t, image_transform::ImageData> targets;
    image_transform::ImageData& target = targets[size.width];
    if (target.data == nullptr) {
        const auto width = static_cast<std::uint32_t>(size.width);
        const auto height = static_cast<std::uint32_t>(size.height);
        target = image_transform::ImageData(width, height, 3 * width * height);
    }
    return target.data;
}

enum class Layout { I420, I422, Grey };

std::size_t FrameSize(Layout layout, Size size) {
    const std::size_t pixels = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    switch (layout) {
        case Layout::I420:
            return pixels * 3 / 2;
        case Layout::I422:
            return pixels * 2;
        case Layout::Grey:
            break;
    }
    return pixels;
}

I420Planes PlanesOf(const std::uint8_t* source, Layout layout, Size size) {
    const std::ptrdiff_t pixels = std::ptrdiff_t{size.width} * size.height;
    // For 4:2:2 every second chroma row is skipped.
    const std::ptrdiff_t chromaStride = layout == Layout::I422 ? size.width : size.width / 2;
    const std::uint8_t* const u = source + pixels;
    return {source, u, u + chromaStride * size.height / 2, size.width, chromaStride, chromaStride};
}

void Register(const std::string& layout, Size size, std::size_t frameSize, bool isCold, std::size_t beyond,
              const std::string& label, const Conversion& convert) {
    const std::string name = layout + '/' + std::to_string(size.width) + 'x' + std::to_string(size.height) +
                             (isCold ? "/cold/" : "/hot/") + std::to_string(beyond) + '/' + label;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        const std::size_t step = (beyond + frameSize + page - 1) / page * page;
        const std::size_t frames = isCold ? poolSize / step : 1;
        const std::uint8_t* const first = SourcePool() + beyond;
        std::uint8_t* const target = Target(size);
        std::size_t frame = 0;
        convert(first, target);
        for (auto _ : state) {
            convert(first + frame * step, target);
            benchmark::ClobberMemory();
            frame = frame + 1 < frames ? frame + 1 : 0;
        }
    })->Unit(benchmark::kMicrosecond);
}

void RegisterHotAndCold(const std::string& label, Size size, const Conversion& convert,
                        std::size_t beyond = asFromMalloc) {
    for (const bool isCold : {false, true}) {
        Register("bgr24", size, FrameSize(Layout::I420, size), isCold, beyond, label, convert);
    }
}

Conversion Interleaved(const Kernel& kernel, Layout layout, Size size) {
    return [=, routine = kernel.toBgr24](const std::uint8_t* source, std::uint8_t* target) {
        routine(PlanesOf(source, layout, size), target, std::ptrdiff_t{3} * size.width, size.width, size.height);
    };
}

void RegisterKernel(const Kernel& kernel, Size size) {
    const std::string label = std::string("vexlane-") + kernel.name;
    for (const std::size_t beyond : {asFromMalloc, std::size_t{0}, std::size_t{1}, std::size_t{32}}) {
        RegisterHotAndCold(label, size, Interleaved(kernel, Layout::I420, size), beyond);
    }
    Register("bgr24-from-422", size, FrameSize(Layout::I422, size), false, asFromMalloc, label,
             Interleaved(kernel, Layout::I422, size));
    Register("planar", size, FrameSize(Layout::I420, size), false, asFromMalloc, label,
             [=, routine = kernel.toBgrPlanar](const std::uint8_t* source, std::uint8_t* target) {
                 const std::ptrdiff_t pixels = std::ptrdiff_t{size.width} * size.height;
                 const BgrPlanes planes{target, target + pixels, target + 2 * pixels, size.width};
                 routine(PlanesOf(source, Layout::I420, size), planes, size.width, size.height);
             });
    Register("grey", size, FrameSize(Layout::Grey, size), false, asFromMalloc, label,
             [=, routine = kernel.greyToBgr24](const std::uint8_t* source, std::uint8_t* target) {
                 routine(source, size.width, target, std::ptrdiff_t{3} * size.width, size.width, size.height);
             });
}

}  // namespace

void RegisterConversions() {
    const std::vector<Baseline> baselines = AllBaselines();
    for (const Size size : sizes) {
        for (const Kernel& kernel : AllKernels()) {
            if (kernel.isSupported()) {
                RegisterKernel(kernel, size);
            }
        }
        for (const Baseline& baseline : baselines) {
            RegisterHotAndCold(baseline.name, size, baseline.conversionFor(size.width, size.height));
        }
        RegisterHotAndCold("trivial-copy", size, [=](const std::uint8_t* source, std::uint8_t* target) {
            TrivialCopy(PlanesOf(source, Layout::I420, size), target, size.width, size.height);
        });
        // Copies as many bytes as a conversion writes, from contiguous sources.
        const std::size_t written = 3 * FrameSize(Layout::Grey, size);
        for (const bool isCold : {false, true}) {
            Register("bgr24", size, written, isCold, asFromMalloc, "memcpy",
                     [=](const std::uint8_t* source, std::uint8_t* target) { std::memcpy(target, source, written); });
        }
    }
}

}  // namespace bench
