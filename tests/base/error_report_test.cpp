#include "base/error_report.h"

#include <gtest/gtest.h>

#include "common/registry_fixture.h"

namespace {
using vt::test::DebugCapture;

// Each message set is traced at the ultra level; the codes stay.
TEST(ErrorReport, MessageIsReplacedAndTracedAtUltra) {
    DebugCapture log(vt::DBG_ULTRA);
    CErrorReport report(7, CQuilletString("first"), 9);
    report.setMessage(CQuilletString(u"second"));
    EXPECT_EQ(std::string(report.getMessage().getStringA()), "second");
    EXPECT_EQ(report.getErrorCode(), 7u);
    EXPECT_EQ(report.getSecondaryCode(), 9u);
    EXPECT_EQ(log.text(),
              "CErrorReport| Error Message set: 'first'\r\n"
              "CErrorReport| Error Message set: 'second'\r\n");
}

}  // namespace
