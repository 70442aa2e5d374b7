/// Passes the calls to the real engine, and has them recorded.
#pragma once

#include <boost/dll/shared_library.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "engine/engine_records.h"
#include "tools/recording_engine/call_recorder.h"

namespace recording_engine {

/// Any thread. Without the real engine nothing is found and every range is accepted; without a recording the calls are
/// only passed on. The reasons are written to standard error and the debug output, one line each.
class Forwarder {
  public:
    /// Reads Recon64.conf in the folder of `ownFile`, the file of this library, and loads the real engine. From here on
    /// this library is not unloaded.
    explicit Forwarder(const std::filesystem::path& ownFile);

    int Recognise(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags);
    bool SetRange(int minimumWidth, int maximumWidth);

  private:
    void Start(const std::filesystem::path& ownFile);

    boost::dll::shared_library self_;
    boost::dll::shared_library engine_;
    decltype(::Recognize2)* recognise_ = nullptr;
    decltype(::SetPlateRange)* setRange_ = nullptr;
    std::unique_ptr<CallRecorder> recorder_;
};

}  // namespace recording_engine
