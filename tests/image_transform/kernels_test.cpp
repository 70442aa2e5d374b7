/// Compares every kernel that this processor can run with the formula.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "image_transform/kernels/kernel.h"
#if VEXLANE_X64_KERNELS
#include "image_transform/kernels/processor.h"
#endif
#include "tests/image_transform/yuv_formula.h"
#include "tests/support/guard_page.h"

namespace image_transform::kernels {

// Test names show the kernel's name, not its address.
static void PrintTo(const Kernel* kernel, std::ostream* stream) {
    *stream << kernel->name;
}

}  // namespace image_transform::kernels

namespace {

using image_transform::kernels::ActiveKernel;
using image_transform::kernels::AllKernels;
using image_transform::kernels::BgrPlanes;
using image_transform::kernels::ChooseKernel;
using image_transform::kernels::I420Planes;
using image_transform::kernels::Kernel;
using image_transform::kernels::largestCachedOutput;
using image_transform::kernels::scalarKernel;
using test_support::GuardedBytes;
using yuv::RandomBytes;
namespace Status = image_transform::kernels::Status;

constexpr std::uint8_t untouched = 0xA5;

std::vector<const Kernel*> SupportedKernels() {
    std::vector<const Kernel*> supported;
    for (const Kernel& kernel : AllKernels()) {
        if (kernel.isSupported()) {
            supported.push_back(&kernel);
        }
    }
    return supported;
}

// The memory layout of a picture.
struct Geometry {
    std::int32_t width;
    std::int32_t height;
    std::ptrdiff_t extraStep = 0;   ///< bytes between rows, in every plane
    std::ptrdiff_t chromaRows = 1;  ///< rows from one chroma row to the next
    int sourceBeyond = anywhere;    ///< bytes by which each plane's first byte is beyond a multiple of 64
    int targetBeyond = anywhere;    ///< the same for the output

    static constexpr int anywhere = -1;  ///< where the last byte is the last one before the guard page

    std::ptrdiff_t LumaStep() const { return width + extraStep; }
    std::ptrdiff_t ChromaStep() const { return (width / 2 + extraStep) * chromaRows; }
    std::ptrdiff_t BgrStep() const { return std::ptrdiff_t{3} * width + extraStep; }

    // The bytes from a plane's first to its last sample.
    static std::size_t Span(std::ptrdiff_t step, std::ptrdiff_t rows, std::ptrdiff_t rowBytes) {
        return rows == 0 || rowBytes == 0 ? 0 : static_cast<std::size_t>(step * (rows - 1) + rowBytes);
    }
    // The bytes after a plane's last sample, before the guard page, that give its first sample the wanted alignment.
    static std::size_t Rest(std::size_t span, int beyond) {
        return beyond == anywhere ? 0 : (0 - span - static_cast<std::size_t>(beyond)) % 64;
    }
    std::size_t LumaSpan() const { return Span(LumaStep(), height, width); }
    std::size_t ChromaSpan() const { return Span(ChromaStep(), height / 2, width / 2); }
    std::size_t PlaneSpan() const { return LumaSpan(); }
    std::size_t BgrSpan() const { return Span(BgrStep(), height, std::ptrdiff_t{3} * width); }

    std::size_t SourceSize(std::size_t span) const { return span + Rest(span, sourceBeyond); }
    std::size_t TargetSize(std::size_t span) const { return span + Rest(span, targetBeyond); }
};

// Each plane and the output end at a guard page, or fewer than 64 bytes before it. The planes are read-only.
class Picture {
  public:
    Picture(const Geometry& pictureGeometry, unsigned seed)
        : geometry(pictureGeometry),
          y(RandomBytes(geometry.SourceSize(geometry.LumaSpan()), seed)),
          u(RandomBytes(geometry.SourceSize(geometry.ChromaSpan()), seed + 1)),
          v(RandomBytes(geometry.SourceSize(geometry.ChromaSpan()), seed + 2)) {
        y.MakeReadOnly();
        u.MakeReadOnly();
        v.MakeReadOnly();
    }

    I420Planes Planes() const {
        return {y.data(), u.data(), v.data(), geometry.LumaStep(), geometry.ChromaStep(), geometry.ChromaStep()};
    }

    yuv::Bgr At(std::int32_t row, std::int32_t column) const {
        const I420Planes planes = Planes();
        const std::ptrdiff_t chroma = row / 2 * planes.uStride + column / 2;
        return yuv::Formula(planes.y[row * planes.yStride + column], planes.u[chroma], planes.v[chroma]);
    }

    // The expected output: the even part converted, all other bytes unchanged.
    std::vector<std::uint8_t> ExpectedBgr24() const {
        std::vector<std::uint8_t> bytes(geometry.TargetSize(geometry.BgrSpan()), untouched);
        for (std::int32_t row = 0; row < geometry.height / 2 * 2; ++row) {
            for (std::int32_t column = 0; column < geometry.width / 2 * 2; ++column) {
                const yuv::Bgr pixel = At(row, column);
                const auto place = static_cast<std::size_t>(row * geometry.BgrStep() + 3 * column);
                bytes[place] = pixel.blue;
                bytes[place + 1] = pixel.green;
                bytes[place + 2] = pixel.red;
            }
        }
        return bytes;
    }

    std::array<std::vector<std::uint8_t>, 3> ExpectedPlanes() const {
        std::array<std::vector<std::uint8_t>, 3> planes;
        for (auto& plane : planes) {
            plane.assign(geometry.TargetSize(geometry.PlaneSpan()), untouched);
        }
        for (std::int32_t row = 0; row < geometry.height / 2 * 2; ++row) {
            for (std::int32_t column = 0; column < geometry.width / 2 * 2; ++column) {
                const yuv::Bgr pixel = At(row, column);
                const auto place = static_cast<std::size_t>(row * geometry.LumaStep() + column);
                planes[0][place] = pixel.blue;
                planes[1][place] = pixel.green;
                planes[2][place] = pixel.red;
            }
        }
        return planes;
    }

    int ExpectedStatus() const {
        return geometry.width % 2 != 0 || geometry.height % 2 != 0 ? Status::OddSize : Status::Ok;
    }

    Geometry geometry;
    GuardedBytes y;
    GuardedBytes u;
    GuardedBytes v;
};

std::string Named(const Geometry& geometry) {
    return std::to_string(geometry.width) + " x " + std::to_string(geometry.height) + ", " +
           std::to_string(geometry.extraStep) + " bytes between rows, chroma rows " +
           std::to_string(geometry.chromaRows) + ", source and output " + std::to_string(geometry.sourceBeyond) +
           " and " + std::to_string(geometry.targetBeyond) + " beyond a multiple of 64";
}

// Changes the limit while it exists.
class LargestCachedOutput {
  public:
    explicit LargestCachedOutput(std::int64_t limit) { largestCachedOutput = limit; }
    ~LargestCachedOutput() { largestCachedOutput = own_; }
    LargestCachedOutput(const LargestCachedOutput&) = delete;
    LargestCachedOutput& operator=(const LargestCachedOutput&) = delete;

  private:
    const std::int64_t own_ = largestCachedOutput;
};

class EveryKernel : public testing::TestWithParam<const Kernel*> {
  protected:
    const Kernel& kernel = *GetParam();

    void ExpectColour(const Geometry& geometry) {
        const Picture picture(geometry, static_cast<unsigned>(geometry.width * 1000 + geometry.height));
        {
            GuardedBytes bgr(geometry.TargetSize(geometry.BgrSpan()), untouched);
            const int status =
                kernel.toBgr24(picture.Planes(), bgr.data(), geometry.BgrStep(), geometry.width, geometry.height);
            EXPECT_EQ(status, picture.ExpectedStatus()) << Named(geometry);
            ASSERT_EQ(bgr.Copy(), picture.ExpectedBgr24()) << Named(geometry);
        }
        GuardedBytes blue(geometry.TargetSize(geometry.PlaneSpan()), untouched);
        GuardedBytes green(geometry.TargetSize(geometry.PlaneSpan()), untouched);
        GuardedBytes red(geometry.TargetSize(geometry.PlaneSpan()), untouched);
        const BgrPlanes target{blue.data(), green.data(), red.data(), geometry.LumaStep()};
        const int status = kernel.toBgrPlanar(picture.Planes(), target, geometry.width, geometry.height);
        EXPECT_EQ(status, picture.ExpectedStatus()) << Named(geometry);
        const auto expected = picture.ExpectedPlanes();
        ASSERT_EQ(blue.Copy(), expected[0]) << Named(geometry);
        ASSERT_EQ(green.Copy(), expected[1]) << Named(geometry);
        ASSERT_EQ(red.Copy(), expected[2]) << Named(geometry);
    }

    // The gaps, of at most 64 bytes, move the green and the red plane away from where they are without gaps.
    void ExpectLikeTheScalarKernel(const Geometry& geometry, std::ptrdiff_t greenGap = 0, std::ptrdiff_t redGap = 0) {
        const Picture picture(geometry, 7);
        const auto compare = [&](std::ptrdiff_t span, const char* what, const auto& convert) {
            const std::size_t size = geometry.TargetSize(static_cast<std::size_t>(span));
            GuardedBytes output(size, untouched);
            GuardedBytes expected(size, untouched);
            EXPECT_EQ(convert(kernel, output.data()), convert(scalarKernel, expected.data())) << Named(geometry);
            EXPECT_EQ(std::memcmp(output.data(), expected.data(), size), 0) << what << ", " << Named(geometry);
        };
        const std::ptrdiff_t bgrSize = geometry.BgrStep() * geometry.height;
        const std::ptrdiff_t planeSize = geometry.LumaStep() * geometry.height;
        compare(bgrSize, "interleaved", [&](const Kernel& used, std::uint8_t* bgr) {
            return used.toBgr24(picture.Planes(), bgr, geometry.BgrStep(), geometry.width, geometry.height);
        });
        compare(3 * planeSize + 64, "planar", [&](const Kernel& used, std::uint8_t* blue) {
            const BgrPlanes target{blue, blue + planeSize + greenGap, blue + 2 * planeSize + redGap,
                                   geometry.LumaStep()};
            return used.toBgrPlanar(picture.Planes(), target, geometry.width, geometry.height);
        });
        compare(bgrSize, "grey", [&](const Kernel& used, std::uint8_t* bgr) {
            return used.greyToBgr24(picture.y.data(), geometry.LumaStep(), bgr, geometry.BgrStep(), geometry.width,
                                    geometry.height);
        });
    }

    void ExpectGrey(const Geometry& geometry) {
        GuardedBytes grey(RandomBytes(geometry.SourceSize(geometry.LumaSpan()), static_cast<unsigned>(geometry.width)));
        grey.MakeReadOnly();
        GuardedBytes bgr(geometry.TargetSize(geometry.BgrSpan()), untouched);
        std::vector<std::uint8_t> expected(bgr.size(), untouched);
        for (std::int32_t row = 0; row < geometry.height; ++row) {
            for (std::int32_t byte = 0; byte < 3 * geometry.width; ++byte) {
                expected[static_cast<std::size_t>(row * geometry.BgrStep() + byte)] =
                    grey.data()[static_cast<std::size_t>(row * geometry.LumaStep() + byte / 3)];
            }
        }
        EXPECT_EQ(kernel.greyToBgr24(grey.data(), geometry.LumaStep(), bgr.data(), geometry.BgrStep(), geometry.width,
                                     geometry.height),
                  Status::Ok)
            << Named(geometry);
        ASSERT_EQ(bgr.Copy(), expected) << Named(geometry);
    }
};

// Kernels use no threads, so the thread sanitizer runs only one of them.
std::vector<const Kernel*> TestedKernels() {
    std::vector<const Kernel*> tested = SupportedKernels();
#if defined(__SANITIZE_THREAD__)
    tested.resize(1);
#endif
    return tested;
}

INSTANTIATE_TEST_SUITE_P(Kernels, EveryKernel, testing::ValuesIn(TestedKernels()),
                         [](const testing::TestParamInfo<const Kernel*>& tested) {
                             std::string name;
                             for (const char* letter = tested.param->name; *letter != '\0'; ++letter) {
                                 name += std::isalnum(static_cast<unsigned char>(*letter)) != 0 ? *letter : '_';
                             }
                             return name;
                         });

TEST_P(EveryKernel, FollowsTheFormulaOnEveryTriple) {
    // 64 frames, in each of which every chroma pair is used for four luma values. Larger frames would be converted in
    // two orders of rows, and each triple in only one of them.
    constexpr std::int32_t side = 512;
    constexpr std::int32_t chromaSide = side / 2;
    const auto pixels = static_cast<std::size_t>(side) * side;
    std::vector<std::uint8_t> y(pixels);
    std::vector<std::uint8_t> u(pixels / 4);
    std::vector<std::uint8_t> v(pixels / 4);
    std::vector<std::uint8_t> bgr(3 * pixels);
    std::vector<std::uint8_t> planar(3 * pixels);
    const I420Planes planes{y.data(), u.data(), v.data(), side, chromaSide, chromaSide};
    std::uint32_t block = 0;
    for (int frame = 0; frame < 64; ++frame) {
        for (std::int32_t row = 0; row < chromaSide; ++row) {
            for (std::int32_t column = 0; column < chromaSide; ++column, ++block) {
                const auto chroma = static_cast<std::size_t>(row) * chromaSide + static_cast<std::size_t>(column);
                // Neighbours differ in their chroma, so that a kernel that uses one pair for several blocks fails.
                const std::uint32_t pair = block % 65536;
                const std::uint32_t lumas = block / 65536 * 4;
                u[chroma] = static_cast<std::uint8_t>(pair % 256);
                v[chroma] = static_cast<std::uint8_t>(pair / 256);
                for (std::uint32_t inside = 0; inside < 4; ++inside) {
                    const auto place = (static_cast<std::size_t>(row) * 2 + inside / 2) * side +
                                       static_cast<std::size_t>(column) * 2 + inside % 2;
                    y[place] = static_cast<std::uint8_t>(lumas + inside);
                }
            }
        }
        ASSERT_EQ(kernel.toBgr24(planes, bgr.data(), 3 * side, side, side), Status::Ok);
        const BgrPlanes target{planar.data(), planar.data() + pixels, planar.data() + 2 * pixels, side};
        ASSERT_EQ(kernel.toBgrPlanar(planes, target, side, side), Status::Ok);
        for (std::size_t place = 0; place < pixels; ++place) {
            const std::size_t chroma = place / side / 2 * chromaSide + place % side / 2;
            const yuv::Bgr expected = yuv::Formula(y[place], u[chroma], v[chroma]);
            const yuv::Bgr interleaved{bgr[3 * place], bgr[3 * place + 1], bgr[3 * place + 2]};
            const yuv::Bgr separate{planar[place], planar[pixels + place], planar[2 * pixels + place]};
            if (!(interleaved == expected) || !(separate == expected)) {
                FAIL() << "Y " << int{y[place]} << " U " << int{u[chroma]} << " V " << int{v[chroma]};
            }
        }
    }
    EXPECT_EQ(block, std::uint32_t{1} << 22) << "four triples each";
}

// Even and odd sizes: for an odd size the even part is converted, and the status reports it.
TEST_P(EveryKernel, ConvertsEverySmallSizeAndWritesNothingElse) {
    for (std::int32_t width = 1; width <= 131; ++width) {
        for (std::int32_t height = 1; height <= 35; ++height) {
            ExpectColour({width, height});
            if (height <= 3) {
                ExpectGrey({width, height});
            }
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST_P(EveryKernel, ConvertsEveryWidthUpToSomeRegisters) {
    for (std::int32_t width = 132; width <= 400; ++width) {
        ExpectColour({width, 2});
        ExpectGrey({width, 2});
        if (HasFatalFailure()) {
            return;
        }
    }
    for (const std::int32_t width : {640, 1022, 1026, 1920, 4098}) {
        ExpectColour({width, 6});
        ExpectGrey({width, 3});
    }
}

// From half a megapixel on a kernel may convert rows in another order, and with the limit 0 pictures whose rows are
// aligned bypass the caches.
TEST_P(EveryKernel, ConvertsLargePicturesLikeTheScalarKernel) {
    if (kernel.toBgr24 == scalarKernel.toBgr24) {
        GTEST_SKIP() << "the scalar kernel has only one code path";
    }
    for (const std::int64_t limit : {std::int64_t{0}, INT64_MAX}) {
        const LargestCachedOutput limited(limit);
        for (const int sourceBeyond : {0, 1, 16, 32, 63}) {
            ExpectLikeTheScalarKernel({1280, 720, 0, 1, sourceBeyond, 0});
        }
        for (const Geometry& geometry :
             {Geometry{1026, 601}, Geometry{720, 1000, 5}, Geometry{1280, 720, 64, 1, 0, 0},
              Geometry{1280, 720, 0, 1, 0, 16}, Geometry{1281, 721, 61, 1, 1, 0}, Geometry{1312, 720, 0, 1, 0, 0},
              Geometry{1284, 720, 52, 1, 0, 0}, Geometry{1284, 720, 60, 1, 0, 0}}) {
            ExpectLikeTheScalarKernel(geometry);
        }
        // Of the three planes only green, only red, or only blue is not aligned.
        ExpectLikeTheScalarKernel({1280, 720, 0, 1, 16, 0}, 8, 64);
        ExpectLikeTheScalarKernel({1280, 720, 0, 1, 32, 0}, 0, 8);
        ExpectLikeTheScalarKernel({1280, 720, 0, 1, 16, 8}, 56, 56);
    }
}

TEST_P(EveryKernel, DoesNotWriteBetweenRows) {
    for (const std::int32_t width : {2, 6, 16, 31, 64, 130, 258}) {
        for (const std::ptrdiff_t extra : {1, 3, 17, 64}) {
            ExpectColour({width, 6, extra});
            ExpectGrey({width, 5, extra});
        }
    }
}

TEST_P(EveryKernel, AcceptsPointersOfAnyAlignment) {
    for (int sourceBeyond = 0; sourceBeyond < 64; ++sourceBeyond) {
        for (const int targetBeyond : {0, 1, 16, 32, 63 - sourceBeyond}) {
            ExpectColour({258, 4, 0, 1, sourceBeyond, targetBeyond});
            ExpectColour({34, 4, 5, 1, sourceBeyond, targetBeyond});
            ExpectGrey({131, 3, 0, 1, sourceBeyond, targetBeyond});
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST_P(EveryKernel, AcceptsChromaRowsWithGaps) {
    for (const std::int32_t width : {2, 16, 34, 130, 256}) {
        ExpectColour({width, 8, 0, 2});
    }
}

TEST_P(EveryKernel, RefusesANullPlane) {
    const Geometry geometry{4, 2};
    const Picture picture(geometry, 1);
    for (int missing = 0; missing < 4; ++missing) {
        I420Planes planes = picture.Planes();
        GuardedBytes bgr(geometry.BgrSpan(), untouched);
        (missing == 0 ? planes.y : missing == 1 ? planes.u : planes.v) = missing < 3 ? nullptr : planes.v;
        EXPECT_EQ(kernel.toBgr24(planes, missing == 3 ? nullptr : bgr.data(), 12, 4, 2), Status::NullPlane) << missing;
        EXPECT_EQ(bgr.Copy(), std::vector<std::uint8_t>(bgr.size(), untouched));
    }
    for (int missing = 0; missing < 6; ++missing) {
        I420Planes planes = picture.Planes();
        GuardedBytes bgr(3 * geometry.PlaneSpan(), untouched);
        BgrPlanes target{bgr.data(), bgr.data() + 8, bgr.data() + 16, 4};
        if (missing < 3) {
            (missing == 0 ? planes.y : missing == 1 ? planes.u : planes.v) = nullptr;
        } else {
            (missing == 3 ? target.blue : missing == 4 ? target.green : target.red) = nullptr;
        }
        EXPECT_EQ(kernel.toBgrPlanar(planes, target, 4, 2), Status::NullPlane) << missing;
        EXPECT_EQ(bgr.Copy(), std::vector<std::uint8_t>(bgr.size(), untouched));
    }
    GuardedBytes bgr(geometry.BgrSpan(), untouched);
    EXPECT_EQ(kernel.greyToBgr24(nullptr, 4, bgr.data(), 12, 4, 2), Status::NullPlane);
    EXPECT_EQ(bgr.Copy(), std::vector<std::uint8_t>(bgr.size(), untouched));
    EXPECT_EQ(kernel.greyToBgr24(picture.y.data(), 4, nullptr, 12, 4, 2), Status::NullPlane);
}

TEST_P(EveryKernel, RefusesASizeBelowOne) {
    const Picture picture({4, 2}, 1);
    GuardedBytes bgr(24, untouched);
    const BgrPlanes target{bgr.data(), bgr.data() + 8, bgr.data() + 16, 4};
    const struct {
        std::int32_t width;
        std::int32_t height;
    } sizes[] = {{0, 2}, {4, 0}, {0, 0}, {-2, 2}, {4, -2}, {-1, -1}, {INT32_MIN, 2}, {4, INT32_MIN}};
    for (const auto& size : sizes) {
        EXPECT_EQ(kernel.toBgr24(picture.Planes(), bgr.data(), 12, size.width, size.height), Status::BadSize);
        EXPECT_EQ(kernel.toBgrPlanar(picture.Planes(), target, size.width, size.height), Status::BadSize);
        EXPECT_EQ(kernel.greyToBgr24(picture.y.data(), 4, bgr.data(), 12, size.width, size.height), Status::BadSize);
    }
    EXPECT_EQ(bgr.Copy(), std::vector<std::uint8_t>(bgr.size(), untouched));
}

TEST(KernelStatus, HasFixedNumbers) {
    EXPECT_EQ(Status::Ok, 0);
    EXPECT_EQ(Status::NullPlane, -8);
    EXPECT_EQ(Status::BadSize, -6);
    EXPECT_EQ(Status::OddSize, 35);
    const Picture picture({3, 3}, 1);
    std::array<std::uint8_t, 27> bgr{};
    EXPECT_EQ(scalarKernel.toBgr24(picture.Planes(), bgr.data(), 9, 3, 3), 35);
    EXPECT_EQ(scalarKernel.toBgr24({}, bgr.data(), 9, 3, 3), -8);
    EXPECT_EQ(scalarKernel.toBgr24(picture.Planes(), bgr.data(), 9, 0, 3), -6);
}

TEST(CachedOutput, IsAtLeastSixteenMebibytes) {
    EXPECT_GE(largestCachedOutput, std::int64_t{16} << 20);
    EXPECT_LE(largestCachedOutput, std::int64_t{1} << 40);
}

TEST(KernelList, EndsWithTheScalarKernel) {
    const Kernel& last = AllKernels().back();
    EXPECT_STREQ(last.name, "scalar");
    EXPECT_TRUE(last.isSupported());
    EXPECT_EQ(last.toBgr24, scalarKernel.toBgr24);
    EXPECT_EQ(last.toBgrPlanar, scalarKernel.toBgrPlanar);
    EXPECT_EQ(last.greyToBgr24, scalarKernel.greyToBgr24);
}

TEST(KernelList, NamesEachKernelOnceAndCompletely) {
    std::set<std::string> names;
    for (const Kernel& kernel : AllKernels()) {
        EXPECT_TRUE(names.insert(kernel.name).second) << kernel.name;
        EXPECT_NE(kernel.toBgr24, nullptr);
        EXPECT_NE(kernel.toBgrPlanar, nullptr);
        EXPECT_NE(kernel.greyToBgr24, nullptr);
    }
}

TEST(ChooseKernel, WithoutANameReturnsTheFirstSupportedOne) {
    EXPECT_STREQ(ChooseKernel(nullptr).name, SupportedKernels().front()->name);
}

TEST(ChooseKernel, ReturnsTheNamedOne) {
    for (const Kernel* kernel : SupportedKernels()) {
        EXPECT_STREQ(ChooseKernel(kernel->name).name, kernel->name);
        EXPECT_EQ(ChooseKernel(kernel->name).toBgr24, kernel->toBgr24);
    }
}

TEST(ChooseKernel, UnknownKernelNameFallsBackToBest) {
    for (const char* name : {"", "scala", "scalar ", "SCALAR", "no-such-kernel"}) {
        EXPECT_STREQ(ChooseKernel(name).name, SupportedKernels().front()->name) << name;
    }
}

TEST(ChooseKernel, UnsupportedKernelFallsBackToBest) {
    for (const Kernel& kernel : AllKernels()) {
        if (!kernel.isSupported()) {
            EXPECT_STREQ(ChooseKernel(kernel.name).name, SupportedKernels().front()->name) << kernel.name;
        }
    }
}

TEST(ActiveKernel, IsTheOneThatTheEnvironmentSelects) {
    EXPECT_STREQ(ActiveKernel().name, ChooseKernel(std::getenv("VEXLANE_KERNEL")).name);
    EXPECT_EQ(&ActiveKernel(), &ActiveKernel());
}

#if VEXLANE_X64_KERNELS && defined(__linux__)
TEST(LargestCacheSize, IsThatOfTheSystem) {
    std::int64_t largest = 0;
    for (int cache = 0;; ++cache) {
        std::ifstream file("/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(cache) + "/size");
        std::int64_t kibibytes = 0;
        if (!(file >> kibibytes)) {
            break;
        }
        largest = std::max(largest, kibibytes * 1024);
    }
    const std::int64_t size = image_transform::kernels::processor::LargestCacheSize();
    if (largest == 0 || size == 0) {
        GTEST_SKIP() << "system and processor report " << largest << " and " << size;
    }
    EXPECT_EQ(size, largest);
    EXPECT_EQ(largestCachedOutput, std::max(std::int64_t{16} << 20, largest / 2));
}
#endif

#if VEXLANE_X64_KERNELS && defined(__GNUC__)
TEST(KernelList, ContainsWhatProcessorAndSystemSupport) {
    namespace kernels = image_transform::kernels;
    const bool hasAvx512 = __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
                           __builtin_cpu_supports("avx512vl") != 0;
    EXPECT_EQ(kernels::sse41Kernel.isSupported(), __builtin_cpu_supports("sse4.1") != 0);
    EXPECT_EQ(kernels::avx2Kernel.isSupported(), __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(kernels::avx512BwKernel.isSupported(), hasAvx512);
    EXPECT_EQ(kernels::avx512VbmiKernel.isSupported(), hasAvx512 && __builtin_cpu_supports("avx512vbmi") != 0);
}

TEST(KernelList, BeginsWithTheWidestAndHasTheNamesOfTheSetting) {
    std::vector<std::string> names;
    for (const Kernel& kernel : AllKernels()) {
        names.emplace_back(kernel.name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"avx512vbmi", "avx512bw", "avx2", "sse41", "scalar"}));
}
#endif

TEST(GuardPage, AWriteToAReadOnlyByteFaults) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            GuardedBytes bytes(5);
            bytes.MakeReadOnly();
            volatile std::uint8_t* const sealed = bytes.data();
            *sealed = 1;
        },
        "");
}

TEST(GuardPage, AnAccessPastTheEndFaults) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            GuardedBytes bytes(5);
            volatile std::uint8_t* const behind = bytes.data() + bytes.size();
            *behind = 1;
        },
        "");
}

}  // namespace
