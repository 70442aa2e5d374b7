/// The run-time type records that a Microsoft-compatible compiler puts beside its virtual tables on 64-bit Windows.
///
/// Addresses in them are offsets from the beginning of the image that holds the object's class, so that they are never
/// followed outside of it.
#pragma once

namespace plate_recognition {

enum class TypeRecordKind {
    None,       ///< made without type information, or nothing that is known
    Microsoft,  ///< a complete object locator
    Itanium,    ///< a std::type_info
};

/// What stands in front of the object's virtual table. `object` is the address of any polymorphic part of an object.
/// Any thread.
TypeRecordKind TypeRecordKindOf(const void* object);

/// Casts as dynamic_cast does from one base of an object to another: returns the object's one base of the type
/// `wanted`. Null when there is none or more than one, when all ways to it pass a base that is not public, when the
/// part at `object` is such a base of type `source` itself, and when the records do not make sense. Types are named
/// without the letter for their class key: "IBinaryAdjuster@OKM8@@". REQUIRES: TypeRecordKindOf(object) is Microsoft.
/// Any thread.
void* CastByMicrosoftRecords(void* object, const char* source, const char* wanted);

}  // namespace plate_recognition
