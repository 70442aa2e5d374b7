// The cast as it would be between objects of one compiler, instead of the library's.

#include "detector/binary_adjuster_cast.h"

namespace plate_recognition {

OKM8::IBinaryAdjuster* BinaryAdjusterOf(OKM8::Analytics::ITargetAdjuster* target) {
    return dynamic_cast<OKM8::IBinaryAdjuster*>(target);
}

}  // namespace plate_recognition
