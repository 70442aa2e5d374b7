// Checks that every kernel that this processor supports writes the same bytes as the scalar one and accesses no others.
//
// The planes and the outputs are heap blocks of exactly their size, so that the address sanitizer detects other
// accesses.

#include <array>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "image_transform/kernels/kernel.h"

namespace {

using image_transform::kernels::BgrPlanes;
using image_transform::kernels::I420Planes;
using image_transform::kernels::Kernel;
using image_transform::kernels::scalarKernel;

constexpr std::uint8_t untouched = 0xA5;

// Wider than two blocks of the widest kernel, which takes 64 pixels at once; the area keeps an execution short.
constexpr unsigned maxWidth = 200;
constexpr unsigned maxHeight = 9;
constexpr std::int32_t maxArea = 600;

/// A plane in a separate heap block. The first sample may be anywhere in its first 64 bytes; rows go up or down.
class Plane {
  public:
    Plane(std::ptrdiff_t step, std::int32_t rows, std::ptrdiff_t rowBytes, std::size_t offset) : step_(step) {
        if (rows > 0 && rowBytes > 0) {
            const std::ptrdiff_t fromFirstRow = step * (rows - 1);
            size_ = offset + static_cast<std::size_t>((step < 0 ? -fromFirstRow : fromFirstRow) + rowBytes);
            first_ = offset + static_cast<std::size_t>(step < 0 ? -fromFirstRow : 0);
        } else {
            size_ = first_ = offset;
        }
        block_ = std::make_unique_for_overwrite<std::uint8_t[]>(size_);
    }

    std::uint8_t* First() { return block_.get() + first_; }
    std::ptrdiff_t Step() const { return step_; }
    std::span<std::uint8_t> All() { return {block_.get(), size_}; }
    void Clear() { std::memset(block_.get(), untouched, size_); }
    bool operator==(const Plane& other) const { return std::memcmp(block_.get(), other.block_.get(), size_) == 0; }

  private:
    std::ptrdiff_t step_;
    std::size_t size_;
    std::size_t first_;
    std::unique_ptr<std::uint8_t[]> block_;
};

enum class Routine : std::uint8_t { ToBgr24, ToBgrPlanar, GreyToBgr24 };

struct Case {
    Routine routine;
    std::int32_t width;
    std::int32_t height;
    unsigned nulls;  // a bit for each plane that is missing
    std::array<std::ptrdiff_t, 3> sourceSteps;
    std::ptrdiff_t targetStep;
    std::array<std::size_t, 6> offsets;
    bool isNoisy;

    explicit Case(fuzz::Input& input) {
        routine = static_cast<Routine>(input.Below(3));
        width = static_cast<std::int32_t>(1 + input.Below(maxWidth));
        height = std::min(static_cast<std::int32_t>(1 + input.Below(maxHeight)), std::max(1, maxArea / width));
        const unsigned flags = input.Byte();
        isNoisy = (flags & 1) != 0;
        nulls = (flags & 6) == 6 ? input.Byte() & 63u : 0;
        if ((flags & 24) == 24) {
            const std::int32_t sizes[] = {0, -1, -2, INT32_MIN};
            (input.OneIn(2) ? width : height) = input.AnyOf(sizes);
        }
        // Rows of a source may overlap or be the same; rows of a target may not.
        const std::ptrdiff_t chromaWidth = routine == Routine::GreyToBgr24 ? 0 : width / 2;
        const std::ptrdiff_t rows[] = {width, chromaWidth, chromaWidth};
        for (std::size_t plane = 0; plane < sourceSteps.size(); ++plane) {
            sourceSteps[plane] = WithSign(flags, rows[plane] + input.Take<std::int8_t>());
        }
        const std::ptrdiff_t targetRow = routine == Routine::ToBgrPlanar ? width : std::ptrdiff_t{3} * width;
        targetStep = WithSign(flags >> 1, targetRow + input.Byte());
        for (std::size_t& offset : offsets) {
            offset = input.Below(64);
        }
    }

    std::string Describe(const char* kernel) const {
        static constexpr const char* names[] = {"toBgr24", "toBgrPlanar", "greyToBgr24"};
        std::ostringstream text;
        text << kernel << ": " << names[static_cast<std::size_t>(routine)] << ", " << width << " x " << height
             << ", steps";
        for (const std::ptrdiff_t step : sourceSteps) {
            text << ' ' << step;
        }
        text << ", to " << targetStep << ", offsets";
        for (const std::size_t offset : offsets) {
            text << ' ' << offset;
        }
        text << ", missing planes " << nulls;
        return text.str();
    }

  private:
    static std::ptrdiff_t WithSign(unsigned flags, std::ptrdiff_t step) { return (flags & 32) != 0 ? -step : step; }
};

// Repeats the rest of the input. Added noise turns a short input into many different pixels.
void FillWith(std::span<std::uint8_t> target, fuzz::Bytes pattern, bool isNoisy, std::uint32_t& noise) {
    if (pattern.empty()) {
        std::memset(target.data(), 0x80, target.size());
    } else {
        std::size_t filled = std::min(pattern.size(), target.size());
        std::memcpy(target.data(), pattern.data(), filled);
        while (filled < target.size()) {
            const std::size_t count = std::min(filled, target.size() - filled);
            std::memcpy(target.data() + filled, target.data(), count);
            filled += count;
        }
    }
    if (isNoisy) {
        for (std::uint8_t& byte : target) {
            noise = noise * 1664525u + 1013904223u;
            byte = static_cast<std::uint8_t>(byte ^ (noise >> 24));
        }
    }
}

int Run(const Kernel& kernel, const Case& test, const I420Planes& source, std::span<Plane> targets) {
    std::array<std::uint8_t*, 3> out{};
    for (std::size_t plane = 0; plane < targets.size(); ++plane) {
        targets[plane].Clear();
        out[plane] = (test.nulls >> (3 + plane) & 1) != 0 ? nullptr : targets[plane].First();
    }
    switch (test.routine) {
        case Routine::ToBgr24:
            return kernel.toBgr24(source, out[0], test.targetStep, test.width, test.height);
        case Routine::ToBgrPlanar:
            return kernel.toBgrPlanar(source, {out[0], out[1], out[2], test.targetStep}, test.width, test.height);
        default:
            return kernel.greyToBgr24(source.y, source.yStride, out[0], test.targetStep, test.width, test.height);
    }
}

std::vector<const Kernel*> VectorKernels() {
    std::vector<const Kernel*> kernels;
    for (const Kernel& kernel : image_transform::kernels::AllKernels()) {
        if (kernel.isSupported() && kernel.toBgr24 != scalarKernel.toBgr24) {
            kernels.push_back(&kernel);
        }
    }
    return kernels;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<const Kernel*> kernels = VectorKernels();
    const fuzz::Bytes bytes(data, size);
    fuzz::Input input(bytes);
    const Case test(input);

    const bool isColour = test.routine != Routine::GreyToBgr24;
    // A kernel must not access the planes of a refused size, so they are empty.
    const bool isRefused = test.width < 1 || test.height < 1;
    const std::int32_t width = isRefused ? 0 : test.width;
    const std::int32_t height = isRefused ? 0 : test.height;
    const std::int32_t chromaRows = isColour ? height / 2 : 0;
    const std::int32_t lumaRows = isColour ? height / 2 * 2 : height;
    const std::int32_t lumaBytes = isColour ? width / 2 * 2 : width;
    Plane y(test.sourceSteps[0], lumaRows, lumaBytes, test.offsets[0]);
    Plane u(test.sourceSteps[1], chromaRows, width / 2, test.offsets[1]);
    Plane v(test.sourceSteps[2], chromaRows, width / 2, test.offsets[2]);
    std::uint32_t noise = test.isNoisy ? input.Take<std::uint32_t>() : 0;
    for (Plane* const plane : {&y, &u, &v}) {
        FillWith(plane->All(), input.Rest(), test.isNoisy, noise);
    }
    const I420Planes source = {(test.nulls & 1) != 0 ? nullptr : y.First(),
                               (test.nulls & 2) != 0 ? nullptr : u.First(),
                               (test.nulls & 4) != 0 ? nullptr : v.First(),
                               test.sourceSteps[0],
                               test.sourceSteps[1],
                               test.sourceSteps[2]};

    const bool isPlanar = test.routine == Routine::ToBgrPlanar;
    const std::int32_t targetBytes = isPlanar ? lumaBytes : 3 * lumaBytes;
    const auto makeTargets = [&] {
        std::vector<Plane> targets;
        targets.reserve(3);
        for (std::size_t plane = 0; plane < (isPlanar ? 3u : 1u); ++plane) {
            targets.emplace_back(test.targetStep, lumaRows, targetBytes, test.offsets[3 + plane]);
        }
        return targets;
    };
    std::vector<Plane> expected = makeTargets();
    std::vector<Plane> actual = makeTargets();
    const int expectedStatus = Run(scalarKernel, test, source, expected);
    for (const Kernel* const kernel : kernels) {
        if (Run(*kernel, test, source, actual) != expectedStatus) {
            fuzz::Fail(bytes, (test.Describe(kernel->name) + ": the status differs from the scalar kernel's").c_str());
        }
        if (actual != expected) {
            fuzz::Fail(bytes, (test.Describe(kernel->name) + ": the bytes differ from the scalar kernel's").c_str());
        }
    }
    return 0;
}
