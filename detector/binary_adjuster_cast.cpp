#include "detector/binary_adjuster_cast.h"

#if defined(_WIN32) && !defined(_MSC_VER)
#include "detector/microsoft_type_records.h"
#endif

namespace plate_recognition {

OKM8::IBinaryAdjuster* BinaryAdjusterOf(OKM8::Analytics::ITargetAdjuster* target) {
#if defined(_WIN32) && !defined(_MSC_VER)
    // dynamic_cast reads only the type records of its own compiler family; the host may use the other one.
    if (target == nullptr) {
        return nullptr;
    }
    switch (TypeRecordKindOf(target)) {
        case TypeRecordKind::None:
            return nullptr;
        case TypeRecordKind::Microsoft:
            return static_cast<OKM8::IBinaryAdjuster*>(
                CastByMicrosoftRecords(target, "ITargetAdjuster@Analytics@OKM8@@", "IBinaryAdjuster@OKM8@@"));
        case TypeRecordKind::Itanium:
            break;
    }
#endif
    return dynamic_cast<OKM8::IBinaryAdjuster*>(target);
}

}  // namespace plate_recognition
