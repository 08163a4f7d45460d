#pragma once

// The fixture of the tests against real servers: skips where a server cannot run.

#include <gtest/gtest.h>

#include "tests/real/forwarding.h"

namespace tarvex::testing {

// For tests of a whole way, from Dovecot to Postfix.
class RealServersTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const std::string& reason : {PopServer::Missing(), SmtpServer::Missing()}) {
            if (!reason.empty()) GTEST_SKIP() << reason;
        }
    }
};

}  // namespace tarvex::testing
