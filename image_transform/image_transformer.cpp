#include "image_transform/image_transformer.h"

namespace image_transform {

void ImageTransformer::Transform(const ImageData& in, ImageData& out) {
    const ImageData* source = &in;
    for (const boost::shared_ptr<IImageTransform>& step : steps_) {
        step->Transform(*source, out);
        source = &out;
    }
}

}  // namespace image_transform
