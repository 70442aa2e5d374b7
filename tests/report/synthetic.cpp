#include "tests/report/synthetic.h"

#include <utility>

namespace report_test {

using recording::Json;

std::vector<std::uint8_t> Frame420(std::uint32_t width, std::uint32_t height, std::uint8_t luminance,
                                   std::uint8_t blueDifference, std::uint8_t redDifference) {
    const std::size_t size = std::size_t{width} * height;
    std::vector<std::uint8_t> frame(size, luminance);
    frame.resize(size * 5 / 4, blueDifference);
    frame.resize(size * 3 / 2, redDifference);
    return frame;
}

recording::Event PlateEvent(int channel, std::int64_t timeMs, const std::string& text) {
    Json track = Json::array();
    for (int reading = 0; reading < 2; ++reading) {
        track.push_back({{"x", 200 + 20 * reading},
                         {"y", 300 + 10 * reading},
                         {"width", 0},
                         {"height", 20},
                         {"time", timeMs + 200 * reading}});
    }
    return {{{"channel", channel},
             {"event", "event"},
             {"time", timeMs},
             {"arguments",
              {{"lp_wnum", text},
               {"char_num", text.size()},
               {"country_code", "GBR"},
               {"confidence", 60 + timeMs / 1000 % 40},
               {"direction", 0},
               {"lpf_x1", 200},
               {"lpf_y1", 300},
               {"lpf_x3", 300},
               {"lpf_y3", 320}}},
             {"track", std::move(track)}},
            std::nullopt};
}

recording::Frame PlainFrame(int channel, std::uint64_t number, std::uint64_t timeMs) {
    recording::Frame frame;
    frame.channel = channel;
    frame.number = number;
    frame.timeMs = timeMs;
    frame.width = 640;
    frame.height = 480;
    frame.size = 640 * 480 * 3 / 2;
    frame.microseconds = 10000 + 100 * (number % 7);
    recording::EngineCall call;
    call.width = 640;
    call.height = 480;
    call.microseconds = 8000 + 100 * (number % 5);
    frame.engineCalls.push_back(std::move(call));
    return frame;
}

recording::Recording RunWith(std::size_t events) {
    recording::Recording run;
    run.run = {"plate-host 0.1.0",           "linux",
               "/opt/vexlane/libvexlane.so", "/opt/vexlane/reading/libRecon64.so",
               "/videos/gate.mp4",           "2026-01-31T12:00:00Z"};
    run.channels = {{0, {{"zone_width", "20"}, {"zone_width_min", "4"}}, std::nullopt},
                    {1, {{"zone_width", "30"}}, std::nullopt}};
    std::vector<recording::Crop> crops;
    for (std::uint8_t shade = 0; shade < 16; ++shade) {
        auto pixels = Frame420(640, 480, static_cast<std::uint8_t>(60 + 8 * shade),
                               static_cast<std::uint8_t>(8 * shade + 64), 120);
        for (std::size_t y = 300; y < 320; ++y) {
            for (std::size_t x = 200; x < 300; ++x) {
                pixels[y * 640 + x] = (x / 6 + y / 12) % 2 == 0 ? 230 : 40;
            }
        }
        crops.push_back(*report::MakeCrop({pixels.data(), pixels.size(), 640, 480}, {200, 300, 300, 320}));
    }
    constexpr char letters[] = "ABCDEFGHJKLMNPRSTUVWXYZ";
    for (std::size_t number = 0; number < events; ++number) {
        const int channel = static_cast<int>(number % 2);
        recording::Frame frame = PlainFrame(channel, number, 1000 * number);
        const std::string text = {letters[number % 23],
                                  letters[number / 23 % 23],
                                  static_cast<char>('0' + number / 1000 % 10),
                                  static_cast<char>('0' + number / 100 % 10),
                                  letters[number / 7 % 23],
                                  letters[number / 3 % 23],
                                  letters[number / 11 % 23]};
        frame.events.push_back(PlateEvent(channel, static_cast<std::int64_t>(frame.timeMs), text));
        frame.events.back().crop = crops[number % crops.size()];
        run.frames.push_back(std::move(frame));
    }
    run.end = recording::End{events, events, static_cast<double>(events) / 50};
    return run;
}

}  // namespace report_test
