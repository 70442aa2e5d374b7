#include "image_transform/image_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <string>

namespace {

using image_transform::ImageData;

template <class Action>
std::string RefusalOf(Action action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no exception";
}

constexpr char zeroSize[] = "Zero image size is not acceptable";

TEST(ImageData, IsEmptyByItself) {
    const ImageData image;
    EXPECT_EQ(image.width, 0u);
    EXPECT_EQ(image.height, 0u);
    EXPECT_EQ(image.size, 0u);
    EXPECT_EQ(image.data, nullptr);
    EXPECT_FALSE(image.storage);
}

TEST(ImageData, AViewOwnsNothing) {
    std::array<std::uint8_t, 12> bytes{};
    const ImageData view(4, 2, 12, bytes.data());
    EXPECT_EQ(view.width, 4u);
    EXPECT_EQ(view.height, 2u);
    EXPECT_EQ(view.size, 12u);
    EXPECT_EQ(view.data, bytes.data());
    EXPECT_FALSE(view.storage);
}

TEST(ImageData, AViewMayHaveNoBytes) {
    EXPECT_EQ(RefusalOf([] { ImageData(4, 2, 12, nullptr); }), "no exception");
}

TEST(ImageData, AViewOfNoSizeIsRefused) {
    std::uint8_t byte = 0;
    EXPECT_EQ(RefusalOf([&] { ImageData(0, 2, 12, &byte); }), zeroSize);
    EXPECT_EQ(RefusalOf([&] { ImageData(4, 0, 12, &byte); }), zeroSize);
    EXPECT_EQ(RefusalOf([&] { ImageData(4, 2, 0, &byte); }), zeroSize);
}

TEST(ImageData, AnOwnerOfNoSizeIsRefusedBeforeAnythingIsAllocated) {
    EXPECT_EQ(RefusalOf([] { ImageData(4, 2, 0); }), zeroSize);
    EXPECT_EQ(RefusalOf([] { ImageData(0, 2, 0xffffffff); }), zeroSize);
    EXPECT_EQ(RefusalOf([] { ImageData(4, 0, 0xffffffff); }), zeroSize);
}

TEST(ImageData, AnOwnerHoldsItsBytesAllZero) {
    const ImageData owner(4, 2, 10000);
    EXPECT_EQ(owner.width, 4u);
    EXPECT_EQ(owner.height, 2u);
    EXPECT_EQ(owner.size, 10000u);
    ASSERT_NE(owner.data, nullptr);
    EXPECT_EQ(owner.data, owner.storage.get());
    EXPECT_TRUE(std::all_of(owner.data, owner.data + owner.size, [](std::uint8_t byte) { return byte == 0; }));
}

TEST(ImageData, CopiesShareTheirBytes) {
    ImageData copy;
    std::uint8_t* bytes = nullptr;
    {
        const ImageData owner(4, 2, 12);
        copy = owner;
        bytes = owner.data;
        EXPECT_EQ(owner.storage.use_count(), 2);
    }
    EXPECT_EQ(copy.data, bytes);
    EXPECT_EQ(copy.storage.use_count(), 1);
    copy.data[11] = 5;
    EXPECT_EQ(copy.storage.get()[11], 5);
}

}  // namespace
