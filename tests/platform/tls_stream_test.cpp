#include "platform/tls_stream.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// A listener without a certificate, or a build without TLS, must refuse at set-up with a reason
// the log can show; a session of such a context must fail instead of sending in the clear.
TEST(TlsStream, UnusableContextRefusesWithItsReason) {
    vt::net::TlsEndpointOptions options;
    options.server = true;
    vt::net::CTlsContext context;
    std::string error;
    EXPECT_FALSE(context.init(options, error));
    EXPECT_EQ(error, vt::net::CTlsContext::available() ? "a TLS listener needs a certificate file"
                                                       : "TLS is not available in this build");
    vt::net::CTlsStream session(context);
    EXPECT_FALSE(session.start());
    EXPECT_EQ(session.errorText(), error);
    EXPECT_FALSE(session.send("secret"));
    EXPECT_TRUE(session.takeOutgoing().empty());
}

// Plain text where a TLS record should be ends the session (the listener then closes).
TEST(TlsStream, ClientRefusesPlainTextFromTheServer) {
    if (!vt::net::CTlsContext::available()) GTEST_SKIP() << "no TLS in this build";
    vt::net::TlsEndpointOptions options;
    options.verifyPeer = false;
    vt::net::CTlsContext context;
    std::string error;
    ASSERT_TRUE(context.init(options, error)) << error;
    vt::net::CTlsStream session(context);
    ASSERT_TRUE(session.start());
    EXPECT_FALSE(session.takeOutgoing().empty());  // the client hello
    std::string plain;
    EXPECT_FALSE(session.receive("220 smtp.example.org ESMTP ready\r\n", plain));
    EXPECT_TRUE(plain.empty());
    EXPECT_FALSE(session.errorText().empty());
    EXPECT_FALSE(session.handshakeDone());
}

}  // namespace
