#include "detector/microsoft_type_records.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace plate_recognition {

namespace {

// The records as the compiler writes them. Offsets are relative to the beginning of the image unless noted otherwise.

struct ObjectLocator {
    std::uint32_t signature;
    std::uint32_t tableOffset;         // of the table pointer in the complete object
    std::uint32_t displacementOffset;  // how far before the table pointer the displacement is; 0 for none
    std::uint32_t type;
    std::uint32_t hierarchy;
    std::uint32_t self;
};
static_assert(sizeof(ObjectLocator) == 24);

struct ClassHierarchy {
    std::uint32_t signature;
    std::uint32_t attributes;
    std::uint32_t baseCount;  // including the class itself, which is first
    std::uint32_t bases;      // offsets of BaseClass records, depth first
};
static_assert(sizeof(ClassHierarchy) == 16);

struct BaseClass {
    std::uint32_t type;
    std::uint32_t containedCount;  // the number of following records that are bases of this one
    std::int32_t memberOffset;
    std::int32_t baseTablePointer;  // in the object; negative for a base that is not part of a virtual base
    std::int32_t baseTableEntry;
    std::uint32_t attributes;
    std::uint32_t hierarchy;
};
static_assert(sizeof(BaseClass) == 28);

constexpr std::uint32_t locatorSignature = 1;
constexpr std::uint32_t nonPublic = 1;  // a non-public base, or a part of one
constexpr std::uint32_t ambiguous = 2;

// A record with more bases than this counts as damaged.
constexpr std::uint32_t maxBases = 4096;

constexpr std::size_t imageAlignment = 0x10000;
constexpr std::size_t maxHeader = 0x1000;
constexpr std::size_t peHeaderField = 0x3C;
constexpr std::size_t imageSizeField = 24 + 56;
constexpr char dosSignature[] = {'M', 'Z'};
constexpr char peSignature[] = {'P', 'E', '\0', '\0'};

template <class Value>
Value Load(const void* address) {
    Value value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

const void* TypeRecordOf(const void* object) {
    const void* const table = Load<const void*>(object);
    return Load<const void*>(static_cast<const char*>(table) - sizeof(void*));
}

class Image {
  public:
    // Empty unless the locator's offset leads to the beginning of an image that contains the locator.
    explicit Image(const void* locatorAddress) {
        const auto* const inside = static_cast<const char*>(locatorAddress);
        const auto offset = Load<ObjectLocator>(inside).self;
        if (offset > reinterpret_cast<std::uintptr_t>(inside)) {
            return;
        }
        const char* const candidate = inside - offset;
        if (reinterpret_cast<std::uintptr_t>(candidate) % imageAlignment != 0 ||
            std::memcmp(candidate, dosSignature, sizeof dosSignature) != 0) {
            return;
        }
        const auto header = Load<std::uint32_t>(candidate + peHeaderField);
        if (header > maxHeader - imageSizeField - sizeof(std::uint32_t) ||
            std::memcmp(candidate + header, peSignature, sizeof peSignature) != 0) {
            return;
        }
        size_ = Load<std::uint32_t>(candidate + header + imageSizeField);
        begin_ = candidate;
        if (!Holds(offset, sizeof(ObjectLocator))) {
            begin_ = nullptr;
        }
    }

    explicit operator bool() const { return begin_ != nullptr; }

    template <class Record>
    bool Read(std::uint64_t offset, Record& record) const {
        if (!Holds(offset, sizeof record)) {
            return false;
        }
        record = Load<Record>(begin_ + offset);
        return true;
    }

    // Wraps to an offset beyond the image for an address before it.
    std::uint64_t OffsetOf(const void* address) const {
        return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(begin_);
    }

    // Returns true for the type descriptor of a class of that name, declared with either class key.
    bool NamesClass(std::uint32_t descriptor, const char* name) const {
        constexpr std::size_t nameOffset = 2 * sizeof(void*);
        constexpr char prefix[] = {'.', '?', 'A'};
        const std::size_t length = std::strlen(name);
        if (!Holds(descriptor, nameOffset + sizeof prefix + 1 + length + 1)) {
            return false;
        }
        const char* const text = begin_ + descriptor + nameOffset;
        const char key = text[sizeof prefix];
        return std::memcmp(text, prefix, sizeof prefix) == 0 && (key == 'U' || key == 'V') &&
               std::memcmp(text + sizeof prefix + 1, name, length + 1) == 0;
    }

  private:
    bool Holds(std::uint64_t offset, std::size_t length) const { return offset <= size_ && length <= size_ - offset; }

    const char* begin_ = nullptr;
    std::uint64_t size_ = 0;
};

// Returns the address of a base in its object; null when its table of virtual bases is not in the image.
char* AddressOf(const BaseClass& base, const Image& image, char* complete) {
    std::ptrdiff_t offset = base.memberOffset;
    if (base.baseTablePointer >= 0) {
        const auto* const table = Load<const char*>(complete + base.baseTablePointer);
        std::int32_t distance = 0;
        if (!image.Read(image.OffsetOf(table) + static_cast<std::uint64_t>(std::int64_t{base.baseTableEntry}),
                        distance)) {
            return nullptr;
        }
        offset += base.baseTablePointer + std::ptrdiff_t{distance};
    }
    return complete + offset;
}

char* CompleteObject(const ObjectLocator& locator, char* part) {
    char* complete = part - locator.tableOffset;
    if (locator.displacementOffset != 0) {
        // Not zero during construction.
        complete -= Load<std::int32_t>(part - locator.displacementOffset);
    }
    return complete;
}

}  // namespace

TypeRecordKind TypeRecordKindOf(const void* object) {
    const void* const record = TypeRecordOf(object);
    if (record == nullptr || reinterpret_cast<std::uintptr_t>(record) % alignof(std::uint32_t) != 0) {
        return TypeRecordKind::None;
    }
    if (Load<std::uint32_t>(record) == locatorSignature) {
        return Image(record) ? TypeRecordKind::Microsoft : TypeRecordKind::None;
    }
    // A std::type_info begins with the pointer to its own virtual table.
    const auto table = Load<std::uintptr_t>(record);
    return table != 0 && table % alignof(void*) == 0 ? TypeRecordKind::Itanium : TypeRecordKind::None;
}

void* CastByMicrosoftRecords(void* object, const char* source, const char* wanted) {
    const void* const record = TypeRecordOf(object);
    const Image image(record);
    const auto locator = Load<ObjectLocator>(record);
    ClassHierarchy hierarchy;
    if (!image || !image.Read(locator.hierarchy, hierarchy) || hierarchy.baseCount > maxBases) {
        return nullptr;
    }
    char* const complete = CompleteObject(locator, static_cast<char*>(object));

    char* found = nullptr;
    bool foundIsPublic = false;
    bool sourceIsKnown = false;
    bool sourceIsPublic = false;
    std::uint32_t nonPublicUntil = 0;  // records before this index are parts of a non-public base
    for (std::uint32_t index = 0; index < hierarchy.baseCount; ++index) {
        std::uint32_t offset = 0;
        BaseClass base;
        if (!image.Read(std::uint64_t{hierarchy.bases} + std::uint64_t{sizeof offset} * index, offset) ||
            !image.Read(offset, base) || base.containedCount >= hierarchy.baseCount - index) {
            return nullptr;
        }
        const std::uint32_t end = index + 1 + base.containedCount;
        if ((base.attributes & nonPublic) != 0 && nonPublicUntil < end) {
            nonPublicUntil = end;
        }
        const bool isPublic = index >= nonPublicUntil;
        if (image.NamesClass(base.type, wanted)) {
            char* const address = AddressOf(base, image, complete);
            if (address == nullptr || (base.attributes & ambiguous) != 0 || (found != nullptr && found != address)) {
                return nullptr;
            }
            found = address;
            foundIsPublic |= isPublic;
        } else if (image.NamesClass(base.type, source) && AddressOf(base, image, complete) == object) {
            sourceIsKnown = true;
            sourceIsPublic |= isPublic;
        }
    }
    return foundIsPublic && (sourceIsPublic || !sourceIsKnown) ? found : nullptr;
}

}  // namespace plate_recognition
