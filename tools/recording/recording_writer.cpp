#include "tools/recording/recording_writer.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace recording {

RecordingWriter::RecordingWriter(const std::filesystem::path& file, const Run& run) : file_(file) {
    errno = 0;
    stream_.open(file, std::ios::binary | std::ios::trunc);
    WriteLine(LineOf(run));
    if (const std::string error = Error(); !error.empty()) {
        throw std::runtime_error(error);
    }
}

void RecordingWriter::WriteLine(const std::string& line) {
    const std::lock_guard lock(mutex_);
    if (!error_.empty()) {
        return;
    }
    errno = 0;
    stream_ << line << '\n';
    stream_.flush();
    if (!stream_) {
        const std::u8string name = file_.u8string();
        error_ = "cannot write the recording \"" + std::string(name.begin(), name.end()) +
                 "\": " + std::generic_category().message(errno);
    }
}

std::string RecordingWriter::Error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

}  // namespace recording
