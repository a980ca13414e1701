#include "HealthTestSupport.h"

namespace vistel_test {
namespace {

using TempRiseTest = ReporterTest;

TEST_F(TempRiseTest, BatchesSixtyEntriesPerReport) {
    const struct {
        int entryCount;
        std::vector<size_t> batchSizes;
        std::vector<std::string> batchLines;  // "<batch>, index <i>"
    } kCases[] = {
            {0, {}, {}},
            {59, {59}, {"0, index 58"}},
            {60, {60}, {"0, index 59"}},
            {61, {60, 1}, {"0, index 59", "1, index 60"}},
            {130, {60, 60, 10}, {"0, index 59", "1, index 119", "2, index 129"}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.entryCount);
        ovrixhost::reset();
        mLog.clear();
        auto record = std::make_shared<orv::vistelDailyTempRise>();
        record->appName = "com.example.camera";
        record->openTime = "08:00:00";
        for (int i = 0; i < c.entryCount; ++i)
            record->costEntries.push_back("cr" + std::to_string(i));
        EXPECT_EQ(report(record), 0);

        std::vector<size_t> batchSizes;
        std::vector<std::string> entries;
        for (const OvrixEvent& event : ovrixhost::reported()) {
            EXPECT_EQ(ovrixText(event).rfind(
                              "918009009{AppName=\"com.example.camera\" OpenTime=\"08:00:00\" "
                              "ROOTCOST=[",
                              0),
                      0u);
            const std::vector<OvrixEvent>& batch = event.params().back().arrayValue;
            batchSizes.push_back(batch.size());
            for (const OvrixEvent& entry : batch) entries.push_back(ovrixText(entry));
        }
        EXPECT_EQ(batchSizes, c.batchSizes);
        // "TimeCost" is the entry's position across all batches.
        ASSERT_EQ(entries.size(), static_cast<size_t>(c.entryCount));
        for (int i = 0; i < c.entryCount; ++i) {
            const std::string n = std::to_string(i);
            EXPECT_EQ(entries[i], "918009008{CR=\"cr" + n + "\" TimeCost=\"" + n + "\"}");
        }

        std::vector<std::string> expected = {
                "D sendDailyTempRise: @ CameraHeatBigData enter sendDailyTempRise()",
                "D sendDailyTempRise: @ cameraheatbigdata numOf9008 " +
                        std::to_string(c.entryCount) + ", numOf90009 " +
                        std::to_string(c.batchSizes.size())};
        for (const std::string& batchLine : c.batchLines) {
            expected.push_back("D sendDailyTempRise: @ cameraheatbigdata Report90009 " + batchLine);
        }
        expected.push_back("D sendDailyTempRise: @ CameraHeatBigData exit sendDailyTempRise()");
        EXPECT_EQ(managerLines(mLog), expected);
    }
}

}  // namespace
}  // namespace vistel_test
