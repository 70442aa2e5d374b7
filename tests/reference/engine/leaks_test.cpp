// Resources after many connections; both sides are in this process.

#include <functional>

#include "reference/engine/client.h"
#include "tests/reference/engine/engine_fixture.h"
#include "tests/support/descriptors.h"

namespace {

using namespace reading_engine_test;
using test_support::OpenDescriptors;

class Leaks : public ReadingEngine {
  protected:
    static void ExpectNothingLeft(const std::function<void(int)>& connect) {
        connect(0);  // creates what is allocated once and kept
        ConnectOnce();
        // Its connection may still be open.
        const std::size_t descriptors = OpenDescriptors().size();
        const int mappings = test_support::Mappings();
        connect(1);
        const long memory = test_support::ResidentKilobytes();
        for (int round = 2; round < 1000; ++round) {
            connect(round);
        }
        EXPECT_TRUE(WaitUntil([&] {
            ConnectOnce();
            return OpenDescriptors().size() <= descriptors + test_support::keptByLocks;
        })) << OpenDescriptors().size();
        // A thousand pictures, or a thousand stacks, would be far more.
        EXPECT_LT(test_support::Mappings(), mappings + 100);
        EXPECT_LT(test_support::ResidentKilobytes(), memory + 32 * 1024);
    }

    RunningService service;
};

TEST_F(Leaks, AThousandThreadsLeakNothing) {
    ExpectNothingLeft([](int round) {
        RunOnNewThread([round] {
            ASSERT_TRUE(SetPlateRange(1, 2));
            TestPicture picture(60, 50, 0, static_cast<unsigned>(round));
            EXPECT_EQ(Recognition(&picture.image).count, 2);
        });
    });
}

TEST_F(Leaks, AThousandClientsOfOneThreadLeakNothing) {
    ExpectNothingLeft([](int round) {
        engine_client::Client client;
        ASSERT_TRUE(client.SetRange(1, 2));
        RPLATE plates[engineRecordCount] = {};
        // The shared memory is reallocated when pictures grow.
        for (const std::uint32_t width : {10u, 40u, 20u, 60u}) {
            TestPicture picture(width, 50, 0, static_cast<unsigned>(round));
            EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 2);
        }
    });
}

TEST_F(Leaks, FramesOfOneSizeReuseMemory) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(320, 240);
    ASSERT_EQ(Recognition(&picture.image).count, 2);
    const std::size_t before = OpenDescriptors().size();
    const int mappings = test_support::Mappings();
    for (int round = 0; round < 500; ++round) {
        ASSERT_EQ(Recognition(&picture.image).count, 2);
    }
    EXPECT_LE(OpenDescriptors().size(), before + test_support::keptByLocks);
    EXPECT_LE(test_support::Mappings(), mappings + 4);
}

}  // namespace
