// Frames of every layout and size, refused frames, buffers and the frame-done callback.

#include <set>
#include <utility>

#include "sdk/setting_keys.h"
#include "tools/validate/case.h"
#include "tools/validate/frame_model.h"
#include "tools/validate/session.h"

namespace validate {

namespace {

using OKM8::MFF::IMultimediaBuffer;
using recording_host::BufferOptions;
using recording_host::Operation;

std::string SizeText(std::uint32_t width, std::uint32_t height, std::uint32_t size) {
    return std::to_string(width) + " x " + std::to_string(height) + " with " + std::to_string(size) + " bytes";
}

// Sends a frame of that many bytes, or of null data, and checks its outcome against the model.
void Send(Session& session, const Detector& detector, std::uint32_t width, std::uint32_t height, std::uint32_t size,
          bool isNull = false) {
    BufferOptions options;
    options.width = width;
    options.height = height;
    if (isNull) {
        options.size = size;
    } else {
        options.pixels.assign(size, 100);
    }
    const int done = session.Count(Operation::OnFrameDone);
    const int released = session.buffers.released;
    const std::string error = ErrorOfFrame(width, height, size);
    const std::string what = (isNull ? "a frame of null data, " : "a frame of ") + SizeText(width, height, size);
    Session::ExpectOutcome(what, detector, session.Receive(detector, session.FrameOf(std::move(options))), error);
    ExpectEqual("the number of OnFrameDone calls for " + what, session.Count(Operation::OnFrameDone) - done,
                error.empty() ? 1 : 0);
    ExpectEqual("the number of releases for " + what, session.buffers.released - released, 1);
}

void SendLayouts(Session& session, const Detector& detector, std::uint32_t width, std::uint32_t height) {
    const std::uint32_t pixels = width * height;
    for (const std::uint32_t size : {pixels, pixels * 6 / 4, 2 * pixels}) {
        Send(session, detector, width, height, size);
    }
}

void CheckSmallSizes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (std::uint32_t width = 1; width <= 20; ++width) {
        for (std::uint32_t height = 1; height <= 6; ++height) {
            SendLayouts(session, detector, width, height);
        }
    }
}

void CheckAllSizes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (std::uint32_t width = 1; width <= 72; ++width) {
        for (std::uint32_t height = 1; height <= 24; ++height) {
            SendLayouts(session, detector, width, height);
        }
    }
}

void CheckCommonSizes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const auto& [width, height] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{{1, 4096},
                                                                                            {4096, 1},
                                                                                            {352, 288},
                                                                                            {639, 479},
                                                                                            {640, 480},
                                                                                            {704, 576},
                                                                                            {1280, 720},
                                                                                            {1919, 1079},
                                                                                            {1920, 1080}}) {
        SendLayouts(session, detector, width, height);
    }
}

void CheckLargeSizes(Session& session) {
    const Detector detector = session.CreateDetector();
    SendLayouts(session, detector, 3840, 2160);
    SendLayouts(session, detector, 4096, 4096);
}

void CheckWrongSizes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const auto& [width, height] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{{64, 48}, {5, 4}, {5, 5}}) {
        const std::uint32_t pixels = width * height;
        for (const std::uint32_t right : {pixels, pixels * 6 / 4, 2 * pixels, 3 * pixels, 4 * pixels}) {
            for (const std::uint32_t size : {right - 1, right, right + 1}) {
                Send(session, detector, width, height, size);
            }
        }
        Send(session, detector, width, height, 1);
    }
}

void CheckZeroSizes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const bool isNull : {false, true}) {
        Send(session, detector, 0, 0, 0, isNull);
        Send(session, detector, 64, 48, 0, isNull);
        Send(session, detector, 0, 48, 4608, isNull);
        Send(session, detector, 64, 0, 4608, isNull);
    }
}

void CheckNullData(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const std::uint32_t size : {64u * 48, 64u * 72, 64u * 96, 1u, 64u * 48 * 3}) {
        Send(session, detector, 64, 48, size, true);
    }
    std::set<std::string> checksums;
    for (const nlohmann::json& call : session.Journal()) {
        if (call.at("call") == "Recognize2") {
            checksums.insert(call.at("image").at("checksum").get<std::string>());
        }
    }
    // Luminance of zero is black; planes of zero are green.
    ExpectEqual("the number of different pictures of zeros", checksums.size(), 2u);
}

void CheckHugeSizes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const auto& [width, height] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {65536, 65536}, {0x80000000, 2}, {0xffffffff, 0xffffffff}, {1, 0xffffffff}, {37838, 37838}}) {
        Send(session, detector, width, height, 4608);
    }
    Send(session, detector, 64, 48, 4608);
}

void CheckPictures(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const auto& [width, height] :
         std::vector<std::pair<std::uint32_t, std::uint32_t>>{{64, 48}, {640, 480}, {2, 2}, {64, 48}}) {
        session.Receive(detector, session.Frame(width, height));
        const nlohmann::json image = session.Journal().back().at("image");
        ExpectEqual("the width of the engine's picture", image.at("width").get<std::uint32_t>(), width);
        ExpectEqual("the height of the engine's picture", image.at("height").get<std::uint32_t>(), height);
        ExpectEqual("the row of the engine's picture in bytes", image.at("row_stride").get<std::uint32_t>(), 3 * width);
    }
}

void CheckNullBuffer(Session& session) {
    const Detector detector = session.CreateDetector();
    Session::ExpectOutcome("a null buffer", detector, session.Receive(detector, nullptr), "Input data is null");
    Session::ExpectOutcome("a null buffer of Receive", detector, detector.receiver->Receive(nullptr),
                           "Input data is null");
    ExpectEqual("the number of OnFrameDone calls", session.Count(Operation::OnFrameDone), 0);
    Session::ExpectOutcome("the next frame", detector, session.Receive(detector), "");
}

void CheckOtherBuffer(Session& session) {
    const Detector detector = session.CreateDetector();
    BufferOptions options;
    options.isComposite = false;
    Session::ExpectOutcome("a buffer that is no picture", detector, session.Receive(detector, session.FrameOf(options)),
                           "inputData is not an ICompositeBuffer");
    ExpectEqual("the number of releases", session.buffers.released.load(), 1);
    ExpectEqual("the number of OnFrameDone calls", session.Count(Operation::OnFrameDone), 0);
    Session::ExpectOutcome("the next frame", detector, session.Receive(detector), "");
}

void CheckPartOfBuffer(Session& session) {
    const Detector detector = session.CreateDetector();
    recording_host::BufferCounts outer;
    outer.keepsReleased = true;
    BufferOptions options;
    options.compositePart = static_cast<OKM8::MFF::ICompositeBuffer*>(session.Frame());
    Session::ExpectOutcome("a frame", detector,
                           session.Receive(detector, recording_host::MakeBuffer(outer, std::move(options))), "");
    ExpectEqual("the number of releases of the picture", session.buffers.released.load(), 1);
    ExpectEqual("the number of releases of the buffer around it", outer.released.load(), 0);
}

void CheckErrorIsCleared(Session& session) {
    const Detector detector = session.CreateDetector();
    for (int round = 0; round < 3; ++round) {
        Send(session, detector, 64, 48, 100);
        Send(session, detector, 64, 48, 4608);
        Session::ExpectOutcome("a null buffer", detector, session.Receive(detector, nullptr), "Input data is null");
        ExpectEqual("the result of a setter", detector.settings->SetIntValue("zone_width", 50), 0);
        ExpectEqual("the error code after a setter", detector.errors->GetErrorCode(), 0);
    }
}

void CheckRefusedFramesOnOtherThreads(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const std::uint32_t size : {0u, 100u, 4608u}) {
        RunTogether({[&] { Send(session, detector, 64, 48, size); }});
    }
    RunTogether({[&] { session.Receive(detector, nullptr); }});
    RunTogether({[&] { Session::ExpectOutcome("a frame", detector, session.Receive(detector), ""); }});
}

void CheckReceive(Session& session) {
    const Detector detector = session.CreateDetector();
    for (int frame = 0; frame < 5; ++frame) {
        const std::int32_t result = CallSlot<std::int32_t, void*>(detector.receiver, 3, session.Frame());
        Session::ExpectOutcome("a frame", detector, result, "");
    }
    ExpectEqual("the number of releases", session.buffers.released.load(), 5);
    ExpectEqual("the number of OnFrameDone calls", session.Count(Operation::OnFrameDone), 0);
}

void CheckFrameDone(Session& session) {
    const Detector detector = session.CreateDetector();
    const OKM8::FrameArea area = {10, 10, 50, 50};
    for (const OKM8::FrameArea* const passed : {&area, static_cast<const OKM8::FrameArea*>(nullptr)}) {
        recording_host::RecordingFrameDone done;
        IMultimediaBuffer* const buffer = session.Frame();
        const std::int32_t result = CallSlot<std::int32_t, void*, const void*, void*>(
            detector.single, 3, buffer, passed, static_cast<OKM8::IContract*>(&done));
        Session::ExpectOutcome("a single frame", detector, result, "");
        ExpectEqual("the number of OnFrameDone calls", done.buffers.size(), 1u);
        Expect(done.buffers.front() == buffer, "OnFrameDone gets another buffer");
    }
    Session::ExpectOutcome("a single frame without callback", detector,
                           detector.single->ReceiveSingle(session.Frame(), nullptr, nullptr), "");
}

void CheckFrameInsideFrameDone(Session& session) {
    const Detector detector = session.CreateDetector();
    bool isInside = false;
    session.onCall = recording_host::On(Operation::OnFrameDone, [&] {
        if (!std::exchange(isInside, true)) {
            Session::ExpectOutcome("a refused frame inside OnFrameDone", detector, session.Receive(detector, nullptr),
                                   "Input data is null");
            Session::ExpectOutcome("a frame inside OnFrameDone", detector, session.Receive(detector), "");
            detector.settings->ApplySettings();
        }
    });
    Session::ExpectOutcome("the frame around it", detector, session.Receive(detector), "");
    ExpectEqual("the number of OnFrameDone calls", session.Count(Operation::OnFrameDone), 2);
}

void CheckPendingBuffers(Session& session) {
    session.folder.SetScript(ScriptOf({{{.text = "AB123C"}}, {{.text = "AB123C"}}, {{.text = "AB123C"}}}));
    const Detector detector = session.CreateDetector();
    for (int frame = 0; frame < 3; ++frame) {
        Session::ExpectOutcome("a frame", detector, session.Receive(detector, session.Frame(640, 480)), "");
    }
    Expect(session.buffers.released < 3, "a plate that is being tracked does not keep its frame");
    session.Destroy(detector);
    ExpectEqual("the number of buffers released by the destroyed detector", session.buffers.released.load(), 3);
    ExpectEqual("the number of events of the destroyed detector", session.Count(Operation::CreateEventRaiser), 0);
}

void CheckManyFrames(Session& session) {
    const Detector detector = session.CreateDetector();
    for (int frame = 0; frame < 1000; ++frame) {
        Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
        ExpectEqual("the number of releases", session.buffers.released.load(), frame + 1);
    }
}

void CheckTimesInAnyOrder(Session& session) {
    std::vector<ScriptedFrame> frames(12, {{.text = "AB123C"}});
    session.folder.SetScript(ScriptOf(frames));
    const Detector detector = session.CreateReportingDetector();
    for (const std::uint64_t time : {1000ull, 0ull, ~0ull, 1040ull, 1000ull, 1ull << 63, 5ull, 5ull, 1ull << 40}) {
        session.time = time - 40;
        Session::ExpectOutcome("a frame at " + std::to_string(time), detector,
                               session.Receive(detector, session.Frame(640, 480)), "");
    }
}

}  // namespace

std::vector<Case> FrameCases() {
    return {
        {1, "frames of small sizes are accepted or refused by their layout", CheckSmallSizes},
        {2, "frames of all sizes to 72 x 24 are accepted or refused by their layout", CheckAllSizes},
        {1, "frames of common and odd sizes are accepted or refused by their layout", CheckCommonSizes},
        {1, "frames of 4096 x 4096 pixels are accepted in every layout", CheckLargeSizes},
        {1, "frames of a wrong data size are refused with \"Wrong image format\"", CheckWrongSizes},
        {1, "frames of no width, height or data are refused with \"Zero image size is not acceptable\"",
         CheckZeroSizes},
        {1, "null data is a picture of zeros", CheckNullData},
        {1, "frames of more pixels than a picture can have are refused", CheckHugeSizes},
        {1, "the engine receives pictures of the frame's size, also when it changes", CheckPictures},
        {1, "a null buffer is refused with \"Input data is null\"", CheckNullBuffer},
        {1, "a buffer that is no picture is refused and released", CheckOtherBuffer},
        {1, "a picture that is an object of its own is released instead of its buffer", CheckPartOfBuffer},
        {1, "every call clears the error of the call before", CheckErrorIsCleared},
        {1, "after a refused frame another thread can send a frame", CheckRefusedFramesOnOtherThreads},
        {1, "Receive releases every buffer and calls no callback", CheckReceive},
        {1, "OnFrameDone is called once with the buffer of the call", CheckFrameDone},
        {1, "a frame sent inside OnFrameDone does not change the outcome of the frame around it",
         CheckFrameInsideFrameDone},
        {1, "a tracked plate keeps its frame until the detector is destroyed", CheckPendingBuffers},
        {1, "1,000 frames without plates are released one by one", CheckManyFrames},
        {1, "frames whose times jump are accepted", CheckTimesInAnyOrder},
    };
}

}  // namespace validate
