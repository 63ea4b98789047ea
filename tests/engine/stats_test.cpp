#include "engine/stats.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// A name with quotes, backslashes and line ends cannot break the metrics text, and a block whose
// owner is gone is no longer reported.
TEST(StatsRegistry, EscapesLabelsAndForgetsGoneOwners) {
    vt::CStatsRegistry& registry = vt::CStatsRegistry::instance();
    auto hostile = registry.addSource("a\"b\\c\nd");
    hostile->units += 3;
    auto action = registry.addAction("file", "WriteFile");
    action->done += 2;
    const std::string text = registry.prometheusText(nullptr);
    EXPECT_NE(text.find("vtagent_input_units_total{input=\"a\\\"b\\\\c\\nd\"} 3\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("vtagent_action_done_total{action=\"file\",type=\"WriteFile\"} 2\n"),
              std::string::npos);
    EXPECT_NE(registry.report(nullptr).find(" | action 'file' (WriteFile) done=2 failed=0"),
              std::string::npos);
    hostile.reset();
    EXPECT_EQ(registry.prometheusText(nullptr).find("a\\\"b"), std::string::npos);
}

}  // namespace
