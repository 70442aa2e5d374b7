/// A chain of transform steps.
#pragma once

#include <boost/shared_ptr.hpp>
#include <vector>

#include "image_transform/image_data.h"

namespace image_transform {

/// Runs transform steps in order. One thread at a time. Shares the ownership of its steps.
class ImageTransformer {
  public:
    /// Runs the first step on `in` and each later step on the result of the previous one. Without steps `out` is
    /// unchanged. `in` and `out` may be the same object. Throws what a step throws; later steps do not run.
    virtual void Transform(const ImageData& in, ImageData& out);
    virtual ~ImageTransformer() = default;

    /// Replaces all steps.
    void Replace(std::vector<boost::shared_ptr<IImageTransform>> newSteps) noexcept { steps_.swap(newSteps); }
    void Append(const boost::shared_ptr<IImageTransform>& step) { steps_.push_back(step); }
    void Clear() { steps_.clear(); }
    const std::vector<boost::shared_ptr<IImageTransform>>& Steps() const { return steps_; }

  private:
    std::vector<boost::shared_ptr<IImageTransform>> steps_;
};

}  // namespace image_transform
