// Which messages are taken for delivery reports, and about whom.

#include "host/memory/delivery_report.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace tarvex::testing {
namespace {

constexpr const char* kStatus = "Content-Type: multipart/report;\r\n\treport-type=delivery-status; boundary=b\r\n";

std::string Reported(const std::string& header, const std::string& body) {
    const std::array<CString, 2> addresses = {"Taro <taro@x.example>", "phone@x.example"};
    const std::string message = "\r\n" + header + "\r\n" + body + "\r\n.\r\n";
    const auto address = host::ReportedAddress(host::SplitMail(message), addresses);
    return address.value_or("nobody");
}

TEST(DeliveryReport, IsAboutTheAddressThatItNames) {
    EXPECT_EQ(Reported(kStatus, "Final-Recipient: rfc822; PHONE@x.example"), "phone@x.example");
    EXPECT_EQ(Reported(kStatus, "<taro@x.example>: unknown"), "Taro <taro@x.example>");
    EXPECT_EQ(Reported(std::string(kStatus) + "X-Failed-Recipients: phone@x.example\r\n", ""), "phone@x.example");
    EXPECT_EQ(Reported(kStatus, "see phone@x.example."), "phone@x.example");
}

TEST(DeliveryReport, IsAboutNobodyWhereTheAddressIsAPartOfAnother) {
    for (const char* other : {"megaphone@x.example", "phone@x.example.net", "my.phone@x.example", "phone@x.examples"}) {
        EXPECT_EQ(Reported(kStatus, other), "nobody") << other;
    }
}

TEST(DeliveryReport, IsToldByItsHeader) {
    const std::string body = "phone@x.example is not here";
    EXPECT_EQ(Reported("Return-Path: <>\r\nAuto-Submitted: auto-replied\r\n", body), "phone@x.example");
    for (const char* header :
         {"Subject: Undelivered\r\n", "Return-Path: <>\r\n", "Auto-Submitted: auto-replied\r\n",
          "Return-Path: <>\r\nAuto-Submitted: no\r\n",
          "Content-Type: multipart/report; report-type=disposition-notification\r\n",
          "Content-Type: multipart/report; report-type=feedback-report\r\n", "Content-Type: text/plain\r\n"}) {
        EXPECT_EQ(Reported(header, body), "nobody") << header;
    }
}

}  // namespace
}  // namespace tarvex::testing
