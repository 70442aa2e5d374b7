#include "tools/evaluate/truth.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/evaluate/pictures.h"
#include "tests/host/temporary_folder.h"
#include "tools/evaluate/failure.h"

namespace plate_evaluation {
namespace {

using evaluate_test::truthHeader;

std::vector<TruePicture> Read(const std::string& text) {
    std::istringstream stream(text);
    return ReadTruth(stream);
}

std::string ErrorOf(const std::string& text) {
    try {
        Read(text);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "none";
}

TEST(Truth, ALineNamesAPictureAndItsPlate) {
    const std::vector<TruePicture> pictures = Read(truthHeader + "eu/1.jpg\t10\t-20\t30\t40\tAB12\n");
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0].file, "eu/1.jpg");
    ASSERT_EQ(pictures[0].plates.size(), 1u);
    const TruePlate& plate = pictures[0].plates[0];
    EXPECT_EQ(plate.text, L"AB12");
    EXPECT_EQ(plate.place.x, 10);
    EXPECT_EQ(plate.place.y, -20);
    EXPECT_EQ(plate.place.width, 30);
    EXPECT_EQ(plate.place.height, 40);
}

TEST(Truth, ColumnsMayBeInAnyOrderAndUnknownOnesAreIgnored) {
    const std::vector<TruePicture> pictures =
        Read("note\tplate\theight\twidth\ty\tx\tfile\nsunny\tAB12\t4\t3\t2\t1\ta.png\n");
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0].file, "a.png");
    EXPECT_EQ(pictures[0].plates[0].place.x, 1);
    EXPECT_EQ(pictures[0].plates[0].place.height, 4);
    EXPECT_EQ(pictures[0].plates[0].text, L"AB12");
}

TEST(Truth, AcceptsWindowsLineEndsAndAByteOrderMark) {
    const std::vector<TruePicture> pictures = Read(
        "\xEF\xBB\xBF"
        "file\tx\ty\twidth\theight\tplate\r\na.png\t1\t2\t3\t4\tAB12\r\n\r\n");
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0].plates[0].text, L"AB12");
}

TEST(Truth, NamesMayContainSpacesAndAnyCharacters) {
    const std::vector<TruePicture> pictures = Read(truthHeader + "my cars/gate \xC3\xBC.jpg\t1\t2\t3\t4\tAB 12");
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_EQ(pictures[0].file, "my cars/gate \xC3\xBC.jpg");
    EXPECT_EQ(pictures[0].plates[0].text, L"AB 12");
}

TEST(Truth, APictureHasALineForEachOfItsPlates) {
    const std::vector<TruePicture> pictures =
        Read(truthHeader + "b.png\t1\t2\t3\t4\tONE\na.png\t1\t2\t3\t4\tTWO\nb.png\t5\t6\t7\t8\tTHREE\n");
    ASSERT_EQ(pictures.size(), 2u);
    EXPECT_EQ(pictures[0].file, "b.png");
    ASSERT_EQ(pictures[0].plates.size(), 2u);
    EXPECT_EQ(pictures[0].plates[1].text, L"THREE");
    EXPECT_EQ(pictures[1].file, "a.png");
}

TEST(Truth, ErrorsNameTheirLine) {
    EXPECT_EQ(ErrorOf(""), "it is empty");
    EXPECT_EQ(ErrorOf(truthHeader), "it contains no picture");
    EXPECT_EQ(ErrorOf("file\tx\ty\twidth\tplate\n"), "there is no column \"height\"");
    EXPECT_EQ(ErrorOf("a.png\t1\t2\t3\t4\tAB12\n"), "there is no column \"file\"");
    EXPECT_EQ(ErrorOf(truthHeader + "a.png\t1\t2\t3\t4\n"), "line 2: there are 5 columns instead of 6");
    EXPECT_EQ(ErrorOf(truthHeader + "\na.png\t1\t2\t3.5\t4\tA\n"), "line 3: width is \"3.5\" and not a whole number");
    EXPECT_EQ(ErrorOf(truthHeader + "a.png\t1\t\t3\t4\tA\n"), "line 2: y is \"\" and not a whole number");
    EXPECT_EQ(ErrorOf(truthHeader + "a.png\t1\t2\t3\t0\tA\n"), "line 2: height is 0 and must be positive");
    EXPECT_EQ(ErrorOf(truthHeader + "a.png\t99999999999\t2\t3\t4\tA\n"),
              "line 2: x is \"99999999999\" and not a whole number");
    EXPECT_EQ(ErrorOf(truthHeader + "a.png\t1\t2\t3\t4\t\n"), "line 2: the plate has no text");
    EXPECT_EQ(ErrorOf(truthHeader + "\t1\t2\t3\t4\tA\n"), "line 2: the file name is empty");
}

TEST(Truth, IsReadFromAFolderAndNamedInErrors) {
    const host_test::TemporaryFolder folder;
    const auto error = [](const std::string& path) -> std::string {
        try {
            ReadTruthOf(path);
        } catch (const Failure& failure) {
            return failure.what();
        }
        return "none";
    };
    EXPECT_EQ(error(folder.Path("none")), "cannot open \"" + folder.Path("none") + "\": no such folder");
    EXPECT_EQ(error(folder.Path("")),
              "cannot open \"" + folder.Path("truth.tsv") + "\", which must list the plates in the pictures");
    folder.Write("truth.tsv", truthHeader);
    EXPECT_EQ(error(folder.Path("")), "\"" + folder.Path("truth.tsv") + "\": it contains no picture");
    folder.Write("truth.tsv", truthHeader + "a.png\t1\t2\t3\t4\tA\n");
    EXPECT_EQ(ReadTruthOf(folder.Path("")).size(), 1u);
}

TEST(Group, IsTheFirstPartOfTheName) {
    EXPECT_EQ(GroupOf("eu/1.jpg"), "eu");
    EXPECT_EQ(GroupOf("my cars/deep/1.jpg"), "my cars");
    EXPECT_EQ(GroupOf("1.jpg"), ".");
}

}  // namespace
}  // namespace plate_evaluation
