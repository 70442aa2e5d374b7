// A host that forks while its engine is connected.

#include "tests/reference/engine/engine_fixture.h"
#include "tests/support/linux_forked_child.h"

namespace {

using namespace reading_engine_test;

bool IsRead(std::uint32_t width, std::uint32_t height, unsigned seed) {
    TestPicture picture(width, height, 0, seed);
    return SetPlateRange(1, 2) && ReturnsReadings(Recognition(&picture.image),
                                                  scripted_reader::DescriptionOf(picture.ForReader(), std::nullopt,
                                                                                 plate_reading::WidthRange{1, 2}));
}

// Over a shared connection, the pixels of one process would be taken for those of the other.
TEST_F(ReadingEngine, OpensItsOwnConnectionInAForkedChild) {
    const RunningService service;
    ASSERT_TRUE(IsRead(40, 30, 1));
    EXPECT_EQ(test_support::ExitCodeOfForkedChild([] { return IsRead(400, 300, 2); }), 0);
    EXPECT_TRUE(IsRead(40, 30, 3)) << "the parent received readings of another picture";
}

}  // namespace
