// The cast as it would be among objects of one compiler, in place of the library's.

#include "detector/binary_adjuster_cast.h"

namespace plate_recognition {

OKM8::IBinaryAdjuster* BinaryAdjusterOf(OKM8::Analytics::ITargetAdjuster* target) {
    return dynamic_cast<OKM8::IBinaryAdjuster*>(target);
}

}  // namespace plate_recognition
