// Finding and replacing header fields of fetched messages.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tarvex/tree.h"

namespace tarvex {
namespace {

struct Found {
    int result = 0;
    int start = 0;
    int end = 0;

    bool operator==(const Found&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Found& found) {
    if (found.result == 0) return stream << "not found";
    return stream << found.start << " to " << found.end;
}

const Found kNotFound;

Found Find(const std::string& mail, const std::string& name) {
    CPopProfile profile;
    CString text = mail;
    Found found;
    found.result = profile.FindHeader(&text, name, &found.start, &found.end);
    EXPECT_EQ(text, mail);
    return found.result == 0 ? kNotFound : found;
}

std::string WithFrom(const std::string& mail, const std::string& address) {
    CPopProfile profile;
    profile.setting.address = address;
    CReceiveMail received;
    received.text = mail;
    CArray<CReceiveMail*, CReceiveMail*> mails = {&received};
    profile.ReplaceFrom(&mails);
    return received.text;
}

std::string WithTo(const std::string& mail, const std::string& address) {
    CPopProfile profile;
    CReceiveMail received;
    received.text = mail;
    profile.ReplaceTo(&received, address);
    return received.text;
}

TEST(FindHeader, TellsTheExtentOfTheField) {
    struct Example {
        std::string mail;
        std::string name;
        Found found;
    };
    const std::vector<Example> examples = {
        {"\r\nFrom: a\r\nTo: b\r\n\r\nbody", "From:", {1, 0, 9}},
        {"\r\nFrom: a\r\nTo: b\r\n\r\nbody", "To:", {1, 9, 16}},
        {"Subject: s\r\nFrom: a\r\nTo: b\r\n\r\n", "From:", {1, 10, 19}},
        {"x\r\nFrom:\r\nTo: b\r\n\r\n", "From:", {1, 1, 8}},
        // Continuation lines begin with a blank or a tab and belong to it.
        {"x\r\nFrom: a\r\n b\r\n\tc\r\n  d\r\nTo: b\r\n\r\n", "From:", {1, 1, 23}},
        {"x\r\nFrom:\r\n a\r\nTo: b\r\n\r\n", "From:", {1, 1, 12}},
        {"x\r\nFrom: a\r\n\x0b b\r\n\r\n", "From:", {1, 1, 10}},
        // Also the last of the header, and they end where the header ends, whatever the body begins with.
        {"x\r\nFrom: a\r\n b\r\n\r\nbody", "From:", {1, 1, 14}},
        {"x\r\nFrom: a\r\n\r\n body\r\n", "From:", {1, 1, 10}},
        {"x\r\nFrom: a\r\n b\r\n\r\n\r\n body\r\n", "From:", {1, 1, 14}},
        {"x\r\nFrom: a\r\n \r\n\r\n", "From:", {1, 1, 13}},
        // A lone CR or LF is no line end.
        {"x\r\nFrom: a\n b\r c\r\nTo: b\r\n\r\n", "From:", {1, 1, 16}},
        {"x\nFrom: a\r\n\r\n", "From:", kNotFound},
        // The first of two fields.
        {"x\r\nTo: a\r\nTo: b\r\n\r\n", "To:", {1, 1, 8}},
        // A name is any text behind a line end.
        {"x\r\nFrom: a\r\n\r\n", "Fr", {1, 1, 10}},
        {"x\r\nFrom: a\r\n\r\n", "", {1, 1, 10}},
        {"x\r\n From: a\r\n\r\n", "From:", kNotFound},
        {"x\r\nResent-To: a\r\nReply-To: b\r\nTo: c\r\n\r\n", "To:", {1, 28, 35}},
        {"x\r\nA:\r\nB: c\r\n\r\n", "A:\r\nB:", {1, 1, 11}},
        // Not on the first line, not in other letters, not without an end of the header.
        {"From: a\r\nTo: b\r\n\r\n", "From:", kNotFound},
        {"x\r\nFROM: a\r\nfrom: b\r\n\r\n", "From:", kNotFound},
        {"x\r\nFrom : a\r\n\r\n", "From:", kNotFound},
        {"x\r\nFrom: a\r\nTo: b\r\n", "From:", kNotFound},
        {"x\r\nFrom: a", "From:", kNotFound},
        {"", "From:", kNotFound},
        {"\r\n\r\n", "From:", kNotFound},
        // Only in the body: the end is that of the header and lies before the start.
        {"x\r\n\r\nbody\r\nFrom: a\r\nmore", "From:", {1, 9, 1}},
        {"x\r\n\r\nFrom: a\r\n b\r\n", "From:", {1, 3, 1}},
        {"x\r\n\r\n\r\n", "", {1, 1, 1}},
        // In the body and without a line end behind it: there is no end.
        {"x\r\n\r\nbody\r\nFrom: a", "From:", {1, 9, -1}},
        {"x\r\n\r\nFrom:", "From:", {1, 3, -1}},
    };
    for (const Example& example : examples) {
        EXPECT_EQ(Find(example.mail, example.name), example.found) << example.name << " in\n" << example.mail;
    }
}

TEST(FindHeader, DoesNotFindWhatIsNotThereWhateverTheResultsHeld) {
    CPopProfile profile;
    CString mail = "x\r\n\r\n";
    int start = 7;
    int end = 7;
    EXPECT_EQ(profile.FindHeader(&mail, "From:", &start, &end), 0);
}

// The rules of the look-up, one byte and one step at a time.
int Position(const std::string& text, const std::string& what, int from) {
    for (int at = from; at + static_cast<int>(what.size()) <= static_cast<int>(text.size()); ++at) {
        bool equal = true;
        for (int i = 0; i < static_cast<int>(what.size()); ++i) equal = equal && text[at + i] == what[i];
        if (equal) return at;
    }
    return -1;
}

Found FindSlowly(const std::string& mail, const std::string& name) {
    const std::string prefixed = "\r\n" + name;
    const int header_end = Position(mail, "\r\n\r\n", 0);
    if (header_end == -1) return kNotFound;
    const int start = Position(mail, prefixed, 0);
    if (start == -1) return kNotFound;
    int end = start + static_cast<int>(prefixed.size());
    for (;;) {
        end = Position(mail, "\r\n", end);
        if (end == -1) break;
        if (end >= header_end) break;
        if (end + 2 >= static_cast<int>(mail.size())) break;
        if (mail[end + 2] != ' ' && mail[end + 2] != '\t') break;
        end += 2;
    }
    if (end > header_end) end = header_end;
    return {1, start, end};
}

std::string ReplaceSlowly(const std::string& mail, const std::string& name, const std::string& address) {
    const Found found = FindSlowly(mail, name);
    if (found.result == 0) return mail;
    std::string replaced;
    for (int i = 0; i < found.start; ++i) replaced += mail[i];
    replaced += "\r\n" + name + " " + address;
    for (int i = found.end; i >= 0 && i < static_cast<int>(mail.size()); ++i) replaced += mail[i];
    return replaced;
}

TEST(FindHeader, AgreesWithItsRulesOnRandomMessages) {
    const std::vector<std::string> pieces = {"\r\n", "\r\n", "\r\n\r\n", "From:", "To:",    "Reply-", " ", "\t",
                                             "a",    "\r",   "\n",       "\r\n ", "\r\n\t", "FROM:",  "."};
    std::mt19937 random(20240517);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    int found = 0;
    int clipped = 0;
    int endless = 0;
    for (int round = 0; round < 50000; ++round) {
        std::string mail;
        for (std::size_t count = below(24); count > 0; --count) mail += pieces[below(pieces.size())];
        for (const std::string name : {"From:", "To:"}) {
            const Found expected = FindSlowly(mail, name);
            ASSERT_EQ(Find(mail, name), expected) << name << " in\n" << mail;
            found += expected.result;
            clipped += expected.result == 1 && expected.end >= 0 && expected.end < expected.start;
            endless += expected.result == 1 && expected.end == -1;
        }
        ASSERT_EQ(WithFrom(mail, "me@x"), ReplaceSlowly(mail, "From:", "me@x")) << mail;
        ASSERT_EQ(WithTo(mail, "you@x"), ReplaceSlowly(mail, "To:", "you@x")) << mail;
    }
    // The messages were worth trying.
    EXPECT_GT(found, 10000);
    EXPECT_GT(clipped, 1000);
    EXPECT_GT(endless, 100);
}

TEST(ReplaceFrom, PutsOneLineInPlaceOfTheField) {
    struct Example {
        std::string mail;
        std::string replaced;
    };
    const std::vector<Example> examples = {
        {"Subject: s\r\nFrom: \"A\"\r\n\t<a@x>\r\nTo: b@x\r\n\r\nbody\r\n",
         "Subject: s\r\nFrom: NEWADDR\r\nTo: b@x\r\n\r\nbody\r\n"},
        {"\r\nFrom: a@x\r\n\r\nbody\r\n.\r\n", "\r\nFrom: NEWADDR\r\n\r\nbody\r\n.\r\n"},
        {"\r\nFrom:a\r\n\r\n", "\r\nFrom: NEWADDR\r\n\r\n"},
        {"\r\nFrom:\r\nTo: b\r\n\r\n", "\r\nFrom: NEWADDR\r\nTo: b\r\n\r\n"},
        // A continuation as the last line of the header.
        {"\r\nTo: b\r\nFrom: a\r\n b\r\n c\r\n\r\n d", "\r\nTo: b\r\nFrom: NEWADDR\r\n\r\n d"},
        // Only the first of two.
        {"\r\nFrom: a\r\nFrom: b\r\n\r\n", "\r\nFrom: NEWADDR\r\nFrom: b\r\n\r\n"},
        // Unchanged: on the first line, in other letters, without an end of the header, without the field.
        {"From: a\r\nTo: b\r\n\r\nbody", "From: a\r\nTo: b\r\n\r\nbody"},
        {"\r\nFROM: a\r\nfrom: b\r\n\r\n", "\r\nFROM: a\r\nfrom: b\r\n\r\n"},
        {"\r\nFrom: a\r\nTo: b\r\n", "\r\nFrom: a\r\nTo: b\r\n"},
        {"\r\nTo: b\r\n\r\nbody", "\r\nTo: b\r\n\r\nbody"},
        {"", ""},
        // Only in the body: what stands between the end of the header and the field comes twice.
        {"\r\nTo: b\r\n\r\nbody\r\nFrom: a\r\nmore\r\n",
         "\r\nTo: b\r\n\r\nbody\r\nFrom: NEWADDR\r\n\r\nbody\r\nFrom: a\r\nmore\r\n"},
        {"\r\nTo: b\r\n\r\nFrom: a\r\nmore\r\n", "\r\nTo: b\r\n\r\nFrom: NEWADDR\r\n\r\nFrom: a\r\nmore\r\n"},
        // There without a line end behind it: the rest goes.
        {"\r\nTo: b\r\n\r\nbody\r\nFrom: a and more", "\r\nTo: b\r\n\r\nbody\r\nFrom: NEWADDR"},
    };
    for (const Example& example : examples) EXPECT_EQ(WithFrom(example.mail, "NEWADDR"), example.replaced);
}

TEST(ReplaceFrom, TakesTheAddressAsItIsStored) {
    const std::string mail = "\r\nFrom: a\r\n\r\n";
    EXPECT_EQ(WithFrom(mail, " A <a@x> "), "\r\nFrom:  A <a@x> \r\n\r\n");
    EXPECT_EQ(WithFrom(mail, ""), "\r\nFrom: \r\n\r\n");
    EXPECT_EQ(WithFrom(mail, "\x82\xa0@x"), "\r\nFrom: \x82\xa0@x\r\n\r\n");
}

TEST(ReplaceFrom, RewritesEveryMessage) {
    CPopProfile profile;
    profile.setting.address = "me@x";
    std::vector<std::unique_ptr<CReceiveMail>> owned;
    CArray<CReceiveMail*, CReceiveMail*> mails;
    for (const char* text : {"\r\nFrom: a\r\n\r\n", "no header", "\r\nTo: a\r\n\r\n", "x\r\nFrom: b\r\n c\r\n\r\n"}) {
        mails.push_back(owned.emplace_back(std::make_unique<CReceiveMail>()).get());
        mails.back()->text = text;
    }
    profile.ReplaceFrom(&mails);
    ASSERT_EQ(mails.size(), 4u);
    EXPECT_EQ(mails[0]->text, "\r\nFrom: me@x\r\n\r\n");
    EXPECT_EQ(mails[1]->text, "no header");
    EXPECT_EQ(mails[2]->text, "\r\nTo: a\r\n\r\n");
    EXPECT_EQ(mails[3]->text, "x\r\nFrom: me@x\r\n\r\n");

    mails.clear();
    profile.ReplaceFrom(&mails);
    EXPECT_TRUE(mails.empty());
}

TEST(ReplaceTo, PutsTheAddressAsItIsPassedInPlaceOfTheField) {
    struct Example {
        std::string mail;
        std::string replaced;
    };
    const std::vector<Example> examples = {
        {"\r\nTo: a@x,\r\n b@x\r\nFrom: c@x\r\n\r\nbody", "\r\nTo: N <n@x>\r\nFrom: c@x\r\n\r\nbody"},
        {"\r\nReply-To: a@x\r\nTo: b@x\r\n\r\n", "\r\nReply-To: a@x\r\nTo: N <n@x>\r\n\r\n"},
        {"\r\nReply-To: a@x\r\n\r\n", "\r\nReply-To: a@x\r\n\r\n"},
        {"\r\nCc: a@x\r\nTO: b@x\r\nto: c@x\r\n\r\n", "\r\nCc: a@x\r\nTO: b@x\r\nto: c@x\r\n\r\n"},
        {"To: a@x\r\nFrom: b@x\r\n\r\n", "To: a@x\r\nFrom: b@x\r\n\r\n"},
        {"\r\nTo: a@x\r\n", "\r\nTo: a@x\r\n"},
    };
    for (const Example& example : examples) EXPECT_EQ(WithTo(example.mail, "N <n@x>"), example.replaced);
}

}  // namespace
}  // namespace tarvex
