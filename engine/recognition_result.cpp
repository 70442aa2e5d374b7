#include "engine/recognition_result.h"

#include <stdexcept>
#include <utility>

namespace plate_recognition {

RecognitionResult::RecognitionResult(const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& frameHandle,
                                     PlateDescription description, std::uint32_t plateId, std::uint64_t timeStamp)
    : frame(frameHandle),
      id(plateId),
      text(std::move(description.text)),
      strings(std::move(description.strings)),
      confidence(description.confidence),
      value(description.value),
      isFinished(description.isFinished),
      flag(description.flag),
      rect(description.rect),
      values(description.values),
      creationTime(timeStamp),
      lastTime(timeStamp) {
    if (!frame) {
        throw std::runtime_error("RecognitionResult constructor: Buffer is NULL");
    }
}

}  // namespace plate_recognition
