/// Reads a camera's stream for as long as the run lasts: opens it again when its connection breaks off.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "tools/host/video_reader.h"

namespace plate_host {

/// The times of the pictures go on with the clock while there is no connection. A video of known length, such as
/// a file on a server, is not opened again: it would begin from its start. Used by one thread.
class ReconnectingReader final : public VideoReader {
  public:
    /// Opens the address; `report` receives a line at each interruption and each new connection. `keptFile` as for
    /// OpenVideo. Throws Failure.
    ReconnectingReader(std::string address, std::function<void(const std::string&)> report, std::string keptFile);

    bool Read(Picture& picture) override;
    std::string Damage() const override { return reader_ == nullptr ? damage_ : reader_->Damage(); }
    std::optional<std::uint64_t> PictureCount() const override {
        return reader_ == nullptr ? std::nullopt : reader_->PictureCount();
    }
    std::string KeepError() const override {
        return keepError_.empty() && reader_ != nullptr ? reader_->KeepError() : keepError_;
    }
    ConnectionGaps Gaps() const override { return gaps_; }

  private:
    using Clock = std::chrono::steady_clock;

    bool Reconnect();
    void SetKeepError(const std::string& error);

    const std::string address_;
    const std::function<void(const std::string&)> report_;
    std::string keptFile_;  ///< empty when nothing is kept
    std::unique_ptr<VideoReader> reader_;
    std::string damage_;
    std::string keepError_;  ///< of an earlier connection
    bool hasEnd_;
    ConnectionGaps gaps_;
    Clock::time_point lastRead_;
    std::chrono::milliseconds pause_;  ///< before the next attempt to connect; grows until a picture arrives
    std::uint64_t lastMs_ = 0;
    std::uint64_t offsetMs_ = 0;  ///< added to the reader's times
};

}  // namespace plate_host
