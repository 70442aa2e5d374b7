#include <gtest/gtest.h>
#include "tests/report/synthetic.h"
#include "tools/report/report.h"
TEST(B, W) {
    auto run = report_test::RunWith(10000);
    report::ReportExtras extras;
    extras.ledger = {{"Frames", {{"handled", 9990}, {"refused: Wrong image format", 10}}, true},
                     {"Readings", {{"joined a track", 120000}, {"began one", 10000}}, false}};
    report::WriteReport("/work/main/build/big.html", run, extras);
}
