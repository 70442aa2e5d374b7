/// The run-time type records that a Microsoft-compatible compiler stores beside its virtual tables on 64-bit Windows.
///
/// Addresses in them are offsets from the beginning of the image that contains the object's class, and are never
/// followed outside it.
#pragma once

namespace plate_recognition {

enum class TypeRecordKind {
    None,       ///< compiled without type information, or not recognised
    Microsoft,  ///< a complete object locator
    Itanium,    ///< a std::type_info
};

/// Returns the kind of the type record before the object's virtual table. `object` is the address of any polymorphic
/// base of an object. Any thread.
TypeRecordKind TypeRecordKindOf(const void* object);

/// Casts from one base of an object to another as dynamic_cast does: returns the object's only base of type `wanted`.
/// Returns null when there is none or more than one, when every path to it contains a non-public base, when the part at
/// `object` is a non-public base of type `source`, and when the records are invalid. Types are named without the
/// letter of their class key: "IBinaryAdjuster@OKM8@@". Any thread. REQUIRES: TypeRecordKindOf(object) is Microsoft.
void* CastByMicrosoftRecords(void* object, const char* source, const char* wanted);

}  // namespace plate_recognition
