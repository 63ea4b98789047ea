#include "base/error_report.h"

#include <gtest/gtest.h>

#include <memory>

#include "common/registry_fixture.h"
#include "platform/system_error.h"

namespace {
using vt::test::DebugCapture;

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

// Thrown by pointer and caught as the base: the catcher owns it and sees the subclass.
TEST(ErrorReport, SystemErrorTravelsWithTheReport) {
    vt::setLastSystemError(10061);
    const auto report = vt::test::thrownReport(
        [] { throw new CWinSockError(3, CQuilletString("connect failed")); });
    ASSERT_NE(report, nullptr);
    EXPECT_STREQ(report->getClassName(), "CWinSockError");
    auto* sockError = dynamic_cast<CWinSockError*>(report.get());
    ASSERT_NE(sockError, nullptr);
    EXPECT_EQ(sockError->getSystemError(), 10061u);
    EXPECT_EQ(sockError->getErrorCode(), 3u);
    CErrorReport plain;
    EXPECT_STREQ(plain.getClassName(), "CErrorReport");
}

}  // namespace
