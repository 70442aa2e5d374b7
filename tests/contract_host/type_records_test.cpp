// The checked cast through hand-made Microsoft type records, valid and invalid ones.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "detector/microsoft_type_records.h"

namespace {

using plate_recognition::CastByMicrosoftRecords;
using plate_recognition::TypeRecordKind;
using plate_recognition::TypeRecordKindOf;

constexpr char source[] = "ITarget@Host@@";
constexpr char wanted[] = "ISetter@Host@@";

constexpr std::uint32_t publicBase = 0x40;
constexpr std::uint32_t privateBase = 0x4D;  // the bits that compilers set for a private direct base
constexpr std::uint32_t privatePart = 0x49;  // for a base of a private base
constexpr std::uint32_t ambiguousBase = 0x42;
constexpr std::uint32_t virtualBase = 0x50;

/// One base class record of a class, depth first; the class itself is the first.
struct Base {
    std::string name;
    std::uint32_t contained = 0;
    std::int32_t offset = 0;
    std::uint32_t attributes = publicBase;
    std::int32_t baseTablePointer = -1;
    std::int32_t baseTableEntry = 0;
};

/// An image in memory, aligned as the system aligns images.
class Image {
  public:
    static constexpr std::uint32_t alignment = 0x10000;
    static constexpr std::uint32_t header = 0x80;
    static constexpr std::uint32_t sizeField = header + 80;
    static constexpr std::uint32_t firstRecord = 0x1000;

    Image() : memory_(2 * alignment) {
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(memory_.data());
        begin_ = memory_.data() + (alignment - address % alignment) % alignment;
        Write(0, "MZ", 2);
        Write(0x3C, header);
        Write(header, "PE\0\0", 4);
        Write(sizeField, alignment);
    }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    template <class Value>
    void Write(std::uint32_t offset, Value value) {
        Write(offset, &value, sizeof value);
    }
    void Write(std::uint32_t offset, const void* bytes, std::size_t size) {
        std::copy_n(static_cast<const char*>(bytes), size, begin_ + offset);
    }

    std::uint32_t Put(const std::vector<std::uint32_t>& record) {
        const std::uint32_t offset = Take(record.size() * sizeof(std::uint32_t));
        Write(offset, record.data(), record.size() * sizeof(std::uint32_t));
        return offset;
    }
    std::uint32_t PutType(const std::string& decoratedName) {
        const std::uint32_t offset = Take(16 + decoratedName.size() + 1);
        Write(offset + 16, decoratedName.c_str(), decoratedName.size() + 1);
        return offset;
    }

    /// Returns the offset of the class's locator, which `locator` keeps as well.
    std::uint32_t PutClass(const std::vector<Base>& bases, std::uint32_t tableOffset,
                           std::uint32_t displacementOffset = 0) {
        std::vector<std::uint32_t> places;
        for (const Base& base : bases) {
            const std::uint32_t type = PutType(base.name.rfind(".?A", 0) == 0 ? base.name : ".?AU" + base.name);
            places.push_back(Put({type, base.contained, static_cast<std::uint32_t>(base.offset),
                                  static_cast<std::uint32_t>(base.baseTablePointer),
                                  static_cast<std::uint32_t>(base.baseTableEntry), base.attributes, 0}));
        }
        baseRecords = places;
        baseArray = Put(places);
        hierarchy = Put({0, 1, static_cast<std::uint32_t>(bases.size()), baseArray});
        locator = Put({1, tableOffset, displacementOffset, 0, hierarchy, cursor_});
        return locator;
    }

    /// Returns a virtual table with the locator of the last class.
    const void* PutTable() { return PutTable(begin_ + locator); }
    const void* PutTable(const void* record) {
        const std::uint32_t offset = Take(2 * sizeof(void*));
        Write(offset, record);
        return begin_ + offset + sizeof(void*);
    }

    char* At(std::uint32_t offset) { return begin_ + offset; }

    std::uint32_t locator = 0;
    std::uint32_t hierarchy = 0;
    std::uint32_t baseArray = 0;
    std::vector<std::uint32_t> baseRecords;

  private:
    std::uint32_t Take(std::size_t size) {
        const std::uint32_t offset = cursor_;
        cursor_ += (static_cast<std::uint32_t>(size) + 7) / 8 * 8;
        return offset;
    }

    std::vector<char> memory_;
    char* begin_;
    std::uint32_t cursor_ = firstRecord;
};

/// An object whose part at `partIndex` is passed to the cast.
struct Object {
    explicit Object(const void* table, std::size_t place = 0) : partIndex(place) { words[place] = table; }
    void* Part() { return &words[partIndex]; }
    void* At(std::size_t offset) { return reinterpret_cast<char*>(words) + offset; }

    const void* words[16] = {};
    std::size_t partIndex;
};

void* Cast(Object& object) {
    return CastByMicrosoftRecords(object.Part(), source, wanted);
}

/// The usual hierarchy: the class, the target that is passed, and one more base.
std::vector<Base> TreeWith(const Base& further) {
    return {{"Target@@", 2}, {source}, further};
}

void* CastInTree(const std::vector<Base>& bases) {
    Image image;
    image.PutClass(bases, 0);
    Object object(image.PutTable());
    void* const found = Cast(object);
    if (found == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<void*>(static_cast<char*>(found) - static_cast<char*>(object.At(0)));
}

void* Offset(std::uintptr_t offset) {
    return reinterpret_cast<void*>(offset);
}

TEST(TypeRecords, ABaseIsFoundAtItsOffset) {
    EXPECT_EQ(CastInTree(TreeWith({wanted, 0, 24})), Offset(24));
}

TEST(TypeRecords, AClassWithoutTheBaseHasNone) {
    EXPECT_EQ(CastInTree(TreeWith({"IOther@Host@@", 0, 24})), nullptr);
}

TEST(TypeRecords, ABaseOfABaseIsFound) {
    EXPECT_EQ(CastInTree({{"Target@@", 4}, {source}, {"A@@", 2, 8}, {"B@@", 1, 16}, {wanted, 0, 32}}), Offset(32));
}

TEST(TypeRecords, AnAddressCountsFromTheCompleteObject) {
    Image image;
    image.PutClass({{"Target@@", 2}, {source, 0, 40}, {wanted, 0, 8}}, 40);
    Object object(image.PutTable(), 5);
    EXPECT_EQ(Cast(object), object.At(8));
}

TEST(TypeRecords, ADisplacementInFrontOfThePartIsSubtracted) {
    Image image;
    image.PutClass({{"Target@@", 2}, {source, 0, 24}, {wanted, 0, 8}}, 24, 4);
    Object object(image.PutTable(), 5);
    const std::int32_t displacement = 16;
    std::memcpy(static_cast<char*>(object.Part()) - 4, &displacement, sizeof displacement);
    EXPECT_EQ(Cast(object), object.At(8));
}

TEST(TypeRecords, AVirtualBaseIsFoundThroughItsTable) {
    Image image;
    image.PutClass(TreeWith({wanted, 0, 4, virtualBase, 16, 8}), 0);
    Object object(image.PutTable());
    const std::uint32_t table = image.Put({0, 0, 28, 0});
    object.words[2] = image.At(table);
    EXPECT_EQ(Cast(object), object.At(16 + 28 + 4));
}

TEST(TypeRecords, AVirtualBaseWithATableOutsideTheImageIsNotFound) {
    Image image;
    image.PutClass(TreeWith({wanted, 0, 4, virtualBase, 16, 8}), 0);
    Object object(image.PutTable());
    EXPECT_EQ(Cast(object), nullptr);
    object.words[2] = image.At(Image::alignment - 8);
    EXPECT_EQ(Cast(object), nullptr);
    object.words[2] = reinterpret_cast<void*>(~std::uintptr_t{0});
    EXPECT_EQ(Cast(object), nullptr);
}

TEST(TypeRecords, StructAndClassAreTheSameName) {
    EXPECT_EQ(CastInTree(TreeWith({".?AVISetter@Host@@", 0, 24})), Offset(24));
    EXPECT_EQ(CastInTree(TreeWith({".?AUISetter@Host@@", 0, 24})), Offset(24));
    EXPECT_EQ(CastInTree(TreeWith({".?AWISetter@Host@@", 0, 24})), nullptr) << "an enumeration";
    EXPECT_EQ(CastInTree(TreeWith({".?ATISetter@Host@@", 0, 24})), nullptr) << "a union";
}

TEST(TypeRecords, ANameIsComparedToItsEnd) {
    EXPECT_EQ(CastInTree(TreeWith({"ISetter@Host@@X", 0, 24})), nullptr);
    EXPECT_EQ(CastInTree(TreeWith({"ISetter@Host@", 0, 24})), nullptr);
    EXPECT_EQ(CastInTree(TreeWith({"ISetter@Other@@", 0, 24})), nullptr);
    EXPECT_EQ(CastInTree(TreeWith({"isetter@Host@@", 0, 24})), nullptr);
}

TEST(TypeRecords, APrivateBaseIsNotFound) {
    EXPECT_EQ(CastInTree(TreeWith({wanted, 0, 24, privateBase})), nullptr);
    EXPECT_EQ(CastInTree({{"Target@@", 3}, {source}, {"A@@", 1, 8, privateBase}, {wanted, 0, 8, privatePart}}),
              nullptr);
}

TEST(TypeRecords, ABaseOfAPrivateBaseIsNotFoundWithAnyAttributes) {
    EXPECT_EQ(CastInTree({{"Target@@", 4}, {source}, {"A@@", 2, 8, privateBase}, {"B@@", 1, 8}, {wanted, 0, 8}}),
              nullptr);
    EXPECT_EQ(CastInTree({{"Target@@", 4}, {source}, {"A@@", 1, 8, privateBase}, {"B@@", 0, 8}, {wanted, 0, 24}}),
              Offset(24))
        << "after the private base";
}

TEST(TypeRecords, OnePublicPathIsEnough) {
    const Base hidden = {"A@@", 1, 8, privateBase};
    const Base open = {"B@@", 1, 16};
    const Base setter = {wanted, 0, 32};
    EXPECT_EQ(CastInTree({{"Target@@", 5}, {source}, hidden, setter, open, setter}), Offset(32));
    EXPECT_EQ(CastInTree({{"Target@@", 5}, {source}, open, setter, hidden, setter}), Offset(32));
    EXPECT_EQ(CastInTree({{"Target@@", 5}, {source}, hidden, setter, hidden, setter}), nullptr);
}

TEST(TypeRecords, TwoBasesOfTheTypeAreAmbiguous) {
    EXPECT_EQ(CastInTree({{"Target@@", 3}, {source}, {wanted, 0, 24}, {wanted, 0, 32}}), nullptr);
    EXPECT_EQ(CastInTree({{"Target@@", 3}, {source}, {wanted, 0, 24}, {wanted, 0, 32, privateBase}}), nullptr);
    EXPECT_EQ(CastInTree({{"Target@@", 3}, {source}, {wanted, 0, 24}, {wanted, 0, 24}}), Offset(24));
    EXPECT_EQ(CastInTree(TreeWith({wanted, 0, 24, ambiguousBase})), nullptr);
}

TEST(TypeRecords, NothingIsFoundFromAPrivatePart) {
    EXPECT_EQ(CastInTree({{"Target@@", 2}, {source, 0, 0, privateBase}, {wanted, 0, 24}}), nullptr);
    EXPECT_EQ(CastInTree({{"Target@@", 2}, {source, 0, 8, privateBase}, {wanted, 0, 24}}), Offset(24))
        << "another part than the passed one";
}

// Invalid records.

TEST(TypeRecords, RecordsOutsideTheImageAreNotFollowed) {
    for (const std::uint32_t outside : {Image::alignment - 1, Image::alignment, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        for (int place = 0; place < 4; ++place) {
            Image image;
            image.PutClass(TreeWith({wanted, 0, 24}), 0);
            const std::uint32_t fields[] = {
                image.locator + 16,        // the hierarchy
                image.hierarchy + 12,      // the array of bases
                image.baseArray + 2 * 4,   // the setter's record
                image.baseRecords[2] + 0,  // its type
            };
            image.Write(fields[place], outside);
            Object object(image.PutTable());
            EXPECT_EQ(Cast(object), nullptr) << place << " " << outside;
        }
    }
}

TEST(TypeRecords, ANameThatEndsWithTheImageIsRead) {
    Image image;
    image.PutClass(TreeWith({"IOther@Host@@", 0, 24}), 0);
    const std::string name = std::string(".?AU") + wanted;
    const auto place = static_cast<std::uint32_t>(Image::alignment - 16 - name.size() - 1);
    image.Write(place + 16, name.c_str(), name.size() + 1);
    image.Write(image.baseRecords[2], place);
    Object object(image.PutTable());
    EXPECT_EQ(Cast(object), object.At(24));
    image.Write(Image::sizeField, Image::alignment - 1);
    EXPECT_EQ(Cast(object), nullptr) << "its last byte is outside";
}

TEST(TypeRecords, ANumberOfBasesThatIsTooLargeIsRefused) {
    Image image;
    image.PutClass({{"Target@@"}, {source}, {"IOther@Host@@", 0, 8}, {wanted, 0, 24}}, 0);
    Object object(image.PutTable());
    const auto castAmong = [&](std::uint32_t count) {
        std::vector<std::uint32_t> array;
        for (std::uint32_t place = 0; place < count; ++place) {
            array.push_back(image.baseRecords[place + 1 == count ? 3 : std::min(place, 2u)]);
        }
        image.Write(image.hierarchy + 8, count);
        image.Write(image.hierarchy + 12, image.Put(array));
        return Cast(object);
    };
    EXPECT_EQ(castAmong(4096), object.At(24));
    EXPECT_EQ(castAmong(4097), nullptr);
    for (const std::uint32_t count : {0x80000000u, 0xFFFFFFFFu}) {
        image.Write(image.hierarchy + 8, count);
        EXPECT_EQ(Cast(object), nullptr) << count;
    }
}

TEST(TypeRecords, NothingIsFoundWithoutBases) {
    EXPECT_EQ(CastInTree({}), nullptr);
}

TEST(TypeRecords, ABaseThatContainsTooManyBasesIsRefused) {
    EXPECT_EQ(CastInTree({{"Target@@", 3}, {source}, {wanted, 0, 24}}), nullptr);
    EXPECT_EQ(CastInTree({{"Target@@", 2}, {source, 0xFFFFFFFF}, {wanted, 0, 24}}), nullptr);
    EXPECT_EQ(CastInTree({{"Target@@", 2}, {source}, {wanted, 1, 24}}), nullptr);
}

// Distinguishing the records of the two compilers.

struct Polymorphic {
    virtual ~Polymorphic() = default;
};

TEST(TypeRecords, ALocatorInAnImageIsRecognisedAsMicrosoft) {
    Image image;
    image.PutClass(TreeWith({wanted, 0, 24}), 0);
    Object object(image.PutTable());
    EXPECT_EQ(TypeRecordKindOf(object.Part()), TypeRecordKind::Microsoft);
}

TEST(TypeRecords, AnObjectOfThisCompilerIsNotRecognisedAsMicrosoft) {
    const Polymorphic object;
    EXPECT_EQ(TypeRecordKindOf(&object), TypeRecordKind::Itanium);
}

TEST(TypeRecords, AnObjectWithoutTypeInformationIsRecognisedAsNeither) {
    Image image;
    Object without(image.PutTable(nullptr));
    EXPECT_EQ(TypeRecordKindOf(without.Part()), TypeRecordKind::None);
    Object odd(image.PutTable(image.At(Image::firstRecord + 1)));
    EXPECT_EQ(TypeRecordKindOf(odd.Part()), TypeRecordKind::None);
    Object zero(image.PutTable(image.At(Image::alignment - 64)));
    EXPECT_EQ(TypeRecordKindOf(zero.Part()), TypeRecordKind::None);
    Object text(image.PutTable(image.At(image.Put({0x74786574, 0x00000021}))));
    EXPECT_EQ(TypeRecordKindOf(text.Part()), TypeRecordKind::None);
}

TEST(TypeRecords, ALocatorOutsideAnImageIsRecognisedAsNeither) {
    struct Wrong {
        const char* what;
        std::uint32_t place;  // 0 for the locator's own offset
        std::uint32_t value;
    };
    for (const Wrong& wrong :
         {Wrong{"magic", 0x0001, 0}, Wrong{"header", 0x3C, 0xFFFFFFF0}, Wrong{"header", 0x3C, 0x90},
          Wrong{"signature", Image::header, 0}, Wrong{"size", Image::sizeField, 0x1000}, Wrong{"self", 0, 0},
          Wrong{"self", 0, 8}, Wrong{"self", 0, 0xFFFFFFFF}, Wrong{"self", 0, 0x1000 - 8}}) {
        Image image;
        image.PutClass(TreeWith({wanted, 0, 24}), 0);
        Object object(image.PutTable());
        ASSERT_EQ(TypeRecordKindOf(object.Part()), TypeRecordKind::Microsoft);
        image.Write(wrong.place != 0 ? wrong.place : image.locator + 20, wrong.value);
        EXPECT_EQ(TypeRecordKindOf(object.Part()), TypeRecordKind::None) << wrong.what << " " << wrong.value;
    }
}

}  // namespace
