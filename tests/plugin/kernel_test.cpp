// The pixels that the engine gets from the loaded library, with the kernel that the environment selects.

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/image_transform/yuv_formula.h"
#include "tests/plugin/plugin_fixture.h"

namespace {

using namespace plugin_test;
using nlohmann::json;
using recording_host::BufferOptions;

struct LibraryKernel : PluginFixture {
    LibraryKernel() {
        folder.SetScript(R"({"journal":"calls"})");
        Initialize();
        receiver = CallSlot<void*, const char*>(CreateDetector(), 0, OKM8::ContractName::IMediaReceiver);
    }

    // The images that the engine received, in order.
    std::vector<json> Images() const {
        std::vector<json> images;
        std::ifstream stream(folder.Path() / "calls");
        for (std::string line; std::getline(stream, line);) {
            const json call = json::parse(line);
            if (call.at("call") == "Recognize2") {
                images.push_back(call.at("image"));
            }
        }
        return images;
    }

    void* receiver = nullptr;
};

// Large pictures take long under sanitizers, and the kernels' own tests cover them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif

// The engine's checksum: FNV-1a with 64 bits, as its journal writes it.
class Checksum {
  public:
    void Add(std::uint8_t byte) { sum_ = (sum_ ^ byte) * 0x100000001b3U; }
    std::string Text() const {
        char text[17];
        std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(sum_));
        return text;
    }

  private:
    std::uint64_t sum_ = 0xcbf29ce484222325U;
};

std::string ExpectedSum(const BufferOptions& frame) {
    const std::size_t width = frame.width;
    const std::size_t pixels = width * frame.height;
    const bool isGrey = frame.pixels.size() == pixels;
    const bool hasFullRows = frame.pixels.size() == 2 * pixels;
    const std::size_t chromaBytes = hasFullRows ? pixels / 2 : pixels / 4;
    const std::size_t chromaStep = hasFullRows ? width : width / 2;
    Checksum sum;
    for (std::size_t at = 0; at < pixels; ++at) {
        const std::uint8_t luma = frame.pixels[at];
        yuv::Bgr pixel{luma, luma, luma};
        if (!isGrey) {
            const std::size_t chroma = pixels + at / width / 2 * chromaStep + at % width / 2;
            pixel = yuv::Formula(luma, frame.pixels[chroma], frame.pixels[chroma + chromaBytes]);
        }
        sum.Add(pixel.blue);
        sum.Add(pixel.green);
        sum.Add(pixel.red);
    }
    return sum.Text();
}

TEST_F(LibraryKernel, PassesTheFormulasPixelsToTheEngine) {
    struct Size {
        std::uint32_t width;
        std::uint32_t height;
    };
    std::vector<std::string> expected;
    for (const Size& size : {Size{2, 2}, Size{30, 4}, Size{34, 6}, Size{126, 2}, Size{128, 4}, Size{130, 34},
                             Size{322, 6}, Size{640, 480}, Size{1920, 1080}, Size{3840, 2160}}) {
        for (const std::uint32_t halves : {2u, 3u, 4u}) {  // luminance only, 4:2:0, 4:2:2
            const bool isLarge = size.height > 500;
            if (isLarge && (halves != 3 || isSanitized)) {
                continue;
            }
            BufferOptions frame;
            frame.width = size.width;
            frame.height = size.height;
            frame.pixels = yuv::RandomBytes(std::size_t{size.width} * size.height * halves / 2, size.width + halves);
            expected.push_back(ExpectedSum(frame));
            ASSERT_EQ((CallSlot<std::int32_t, void*>(receiver, 3, MakeBuffer(buffers, frame))), 0);
        }
    }
    const std::vector<json> images = Images();
    ASSERT_EQ(images.size(), expected.size());
    for (std::size_t at = 0; at < expected.size(); ++at) {
        EXPECT_EQ(images[at].at("checksum"), expected[at]) << images[at];
    }
}

}  // namespace
