// What is said about receivers, and when nothing is.

#include "host/receivers/notes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Receivers : public ::testing::Test {
protected:
    Receivers() : profile_(Make()) {
        profile_.setting.smtpserver = "relay.example.net";
        published_.spf = {DnsEnding::Found, {"v=spf1 mx -all"}};
        published_.dmarc.ending = DnsEnding::NoSuchRecord;
        Address(-100);
    }

    CPopProfile& Make() {
        EXPECT_TRUE(root_.SetRootPath(folder_ / "tree"));
        return *root_.CreateNewUser("user", "secret", 0)->CreateNewPopProfile("", "me@example.org");
    }

    void Address(int textonly, int status = 1) {
        CForwardAddressSetting& setting = profile_.CreateNewForwardAddress("", "phone@example.net")->setting;
        setting.textonly = textonly;
        setting.status = status;
    }
    void Policy(DmarcPolicy policy) { published_.dmarc = {DnsEnding::Found, "_dmarc.example.org", policy}; }

    std::vector<std::string> Notes() { return NotesOnReceivers(profile_, published_, "office"); }

    testing::TempDir folder_;
    CRootPath root_;
    CPopProfile& profile_;
    Published published_{"example.org", {}, {}, {}};
};

TEST_F(Receivers, NothingIsSaidAboutWholeMailWithAnSpfRecord) {
    for (const DmarcPolicy policy : {DmarcPolicy::None, DmarcPolicy::Quarantine, DmarcPolicy::Reject}) {
        Policy(policy);
        EXPECT_THAT(Notes(), IsEmpty());
    }
}

TEST_F(Receivers, AnSpfRecordIsWanted) {
    published_.spf = {DnsEnding::NoSuchRecord, {}};
    EXPECT_THAT(Notes(), ElementsAre(HasSubstr("no SPF record, so receivers cannot tell that relay.example.net")));
    published_.spf = {DnsEnding::Found, {"v=spf1 a", "v=spf1 mx"}};
    EXPECT_THAT(Notes(), ElementsAre(HasSubstr("2 SPF records")));
    published_.spf = {DnsEnding::Found, {"v=spf1 -all"}};
    EXPECT_THAT(Notes(), ElementsAre(HasSubstr("sends no mail at all")));
    published_.spf = {DnsEnding::Failed, {}};
    EXPECT_THAT(Notes(), IsEmpty());
}

TEST_F(Receivers, TextMailIsWarnedOfAndReplacefromExplained) {
    Address(120);
    const auto general = AllOf(HasSubstr("text mail keeps its sender's From"),
                               HasSubstr("`tarvex profile set office --replacefrom on` writes From: me@example.org"),
                               HasSubstr("gone"), HasSubstr("Reply-To"));
    EXPECT_THAT(Notes(), ElementsAre(AllOf(general, Not(HasSubstr("has one")))));
    Policy(DmarcPolicy::None);
    EXPECT_THAT(Notes(), ElementsAre(AllOf(general, Not(HasSubstr("has one")))));
    Policy(DmarcPolicy::Quarantine);
    EXPECT_THAT(Notes(), ElementsAre(AllOf(general, HasSubstr("example.org has one (quarantine)"))));
}

TEST_F(Receivers, WithReplacefromThePolicyOfTheDomainCounts) {
    Address(120);
    profile_.setting.replacefrom = 1;
    EXPECT_THAT(Notes(), IsEmpty());
    Policy(DmarcPolicy::Reject);
    EXPECT_THAT(Notes(), ElementsAre(AllOf(HasSubstr("policy of example.org (reject) is that of all"),
                                           HasSubstr("relay.example.net signs for example.org"))));
}

TEST_F(Receivers, AnotherToMayBreakTheSignature) {
    profile_.setting.replaceto = 1;
    EXPECT_THAT(Notes(), ElementsAre(HasSubstr("with replaceto mail keeps its sender's From")));
}

TEST_F(Receivers, TextMailIsWhatSomeAddressThatIsOnMayGet) {
    EXPECT_FALSE(MakesTextMail(profile_));
    Address(120, 0);
    EXPECT_FALSE(MakesTextMail(profile_));
    profile_.forward_addresses[0]->setting.textonly = 0;
    EXPECT_FALSE(MakesTextMail(profile_));
    profile_.setting.replaceto = 1;
    EXPECT_TRUE(MakesTextMail(profile_));
    profile_.setting.replaceto = 0;
    Address(-1);
    EXPECT_TRUE(MakesTextMail(profile_));
    profile_.forward_addresses[0]->setting.textonly = -1;
    EXPECT_FALSE(MakesTextMail(profile_));
    Address(1);
    EXPECT_TRUE(MakesTextMail(profile_));
}

}  // namespace
}  // namespace tarvex::host
