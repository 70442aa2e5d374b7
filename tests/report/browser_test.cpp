// Uses reports in Chromium. frame_page.html, beside the report, shows it in a frame and writes what it saw.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

#include "tests/report/synthetic.h"
#include "tests/support/child_process.h"
#include "tools/report/report.h"

namespace report {
namespace {

using recording::Json;
using testing::HasSubstr;
using testing::Not;

class Browser : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directory(folder_);
        std::filesystem::copy_file(REPORT_TEST_FRAME_PAGE, folder_ / "frame_page.html");
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    /// Uses a report and returns what the page saw. Expects no message of the browser's console.
    Json Use(const recording::Recording& recording, const ReportExtras& extras) const {
        WriteReport(folder_ / "report.html", recording, extras);
        test_support::ChildProcess browser(
            {.program = REPORT_TEST_BROWSER,
             .arguments = {"--headless", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                           "--allow-file-access-from-files", "--enable-logging=stderr", "--window-size=1400,900",
                           "--user-data-dir=" + (folder_ / "profile").string(), "--dump-dom",
                           "file://" + (folder_ / "frame_page.html").string()}});
        const test_support::Finished finished = browser.Wait();
        EXPECT_THAT(finished.errors, Not(HasSubstr("CONSOLE")));
        constexpr char start[] = "id=\"result\">";
        const std::size_t first = finished.output.find(start) + sizeof start - 1;
        const std::string text = finished.output.substr(first, finished.output.find("</script>", first) - first);
        return Json::parse(text);
    }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() /
        ("report_browser_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
};

TEST_F(Browser, TenThousandEventsAreUsable) {
    ReportExtras extras;
    extras.ledger = {{"Frames", {{"handled", 10'000}}, true}};
    const Json seen = Use(report_test::RunWith(10'000), extras);
    ASSERT_EQ(seen.value("failure", ""), "");
    EXPECT_EQ(seen["title"], "gate.mp4: run report");
    EXPECT_EQ(seen["figures"], Json({"10,000", "2:46:39.0", "10,000", "50.0", "8.20 ms", "0"}));
    EXPECT_EQ(seen["texts"][1], "BA00AAA");
    EXPECT_GT(seen["pictureWidth"], 100);
    EXPECT_LT(seen["cards"], 20);
    EXPECT_LT(seen["cardsAtEnd"], 20);
    EXPECT_EQ(seen["lastCard"], 10'000);
    EXPECT_EQ(seen["phoneOverflow"], 0);
    EXPECT_EQ(seen["wideOverflow"], 0);
    EXPECT_GT(seen["columns"], 2);
    EXPECT_EQ(seen["found"], "6 of 10,000 events");
    EXPECT_EQ(seen["leastConfident"], "60 %");
    EXPECT_EQ(seen["plateShown"], "inline");
    EXPECT_EQ(seen["plateHidden"], "none");
    EXPECT_EQ(seen["focusedEvent"], "1");
    EXPECT_EQ(seen["nextEvent"], "2");
    EXPECT_EQ(seen["isZoomed"], true);
    EXPECT_THAT(seen["readout"].get<std::string>(), HasSubstr("frames per second"));
    EXPECT_EQ(seen["isDark"], true);
}

TEST_F(Browser, HostileTextsAreOnlyShown) {
    const std::string hostile = "</script><script>injected = 1</script><b onclick=injected=1><iframe src=x>";
    recording::Recording run = report_test::RunWith(3);
    run.run.video = run.run.library = hostile;
    run.channels[0].settings.emplace_back(hostile, hostile);
    run.frames[0].error = hostile;
    run.frames[0].code = 1;
    for (recording::Frame& frame : run.frames) {
        frame.events[0].value["arguments"]["lp_wnum"] = hostile;
        frame.events[0].value["arguments"]["country_code"] = hostile;
    }
    ReportExtras extras;
    extras.ledger = {{hostile, {{hostile, 1}}, false}};
    extras.truth = {{std::nullopt, hostile + "2", 0, 100'000}, {std::nullopt, "MISSED", 0, 1000}};
    extras.notes = {hostile};
    const Json seen = Use(run, extras);
    ASSERT_EQ(seen.value("failure", ""), "");
    EXPECT_EQ(seen["injected"], 0);
    EXPECT_EQ(seen["unexpectedElements"], 0);
    EXPECT_EQ(seen["texts"][0], hostile);
    EXPECT_EQ(seen["phoneOverflow"], 0);
    EXPECT_EQ(seen["wideOverflow"], 0);
}

}  // namespace
}  // namespace report
