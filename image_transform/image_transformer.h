/// A chain of steps.
#pragma once

#include <boost/shared_ptr.hpp>
#include <vector>

#include "image_transform/image_data.h"

namespace image_transform {

/// One thread at a time.
class ImageTransformer {
  public:
    /// Runs the steps in their order, the first on `in`, each later one on the result of the one before. Without steps
    /// `out` is left untouched. `in` and `out` may be the same record.
    virtual void Transform(const ImageData& in, ImageData& out);
    virtual ~ImageTransformer() = default;

    /// Puts these steps in place of the chain's.
    void Replace(std::vector<boost::shared_ptr<IImageTransform>> newSteps) noexcept { steps_.swap(newSteps); }
    void Append(const boost::shared_ptr<IImageTransform>& step) { steps_.push_back(step); }
    void Clear() { steps_.clear(); }
    const std::vector<boost::shared_ptr<IImageTransform>>& Steps() const { return steps_; }

  private:
    std::vector<boost::shared_ptr<IImageTransform>> steps_;
};

}  // namespace image_transform
