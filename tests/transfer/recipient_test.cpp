// The plain recipient of a forwarding address.

#include "transfer/recipient.h"

#include <gtest/gtest.h>

#include <vector>

#include "tarvex/tarvex.h"

namespace tarvex {
namespace {

TEST(Recipient, IsTheAddressWithoutBlanksNameCommentAndBrackets) {
    struct Example {
        CString address;
        CString plain;
    };
    const std::vector<Example> examples = {
        {"bob@example.org", "bob@example.org"},
        {"", ""},
        {"   ", ""},
        {"  b o b @ example.org ", "bob@example.org"},
        {"bob\t@example.org", "bob\t@example.org"},  // only blanks go
        // Brackets.
        {"<bob@example.org>", "bob@example.org"},
        {"Bob <bob@example.org>", "bob@example.org"},
        {"Bob < bob@example.org > Builder", "bob@example.org"},
        {"<a@x><b@x>", "a@x"},
        {"<<a@x>>", "<a@x"},
        {"<>", ""},
        {"Bob <>", ""},
        // Half a pair, or a pair in the wrong order, is no pair.
        {"<bob@example.org", "<bob@example.org"},
        {"bob@example.org>", "bob@example.org>"},
        {">bob@example.org<", ">bob@example.org<"},
        {"a> Bob <bob@example.org>", "a>Bob<bob@example.org>"},
        // Comments.
        {"bob@example.org (Bob)", "bob@example.org"},
        {"(Bob) bob@example.org", "bob@example.org"},
        {"bob(the builder)@example.org", "bob@example.org"},
        {"bob@example.org ()", "bob@example.org"},
        {"bob@example.org (a) (b)", "bob@example.org(b)"},
        {"bob@example.org (a (b))", "bob@example.org)"},
        {"(only)", ""},
        {"bob@example.org (Bob", "bob@example.org(Bob"},
        {"bob@example.org Bob)", "bob@example.orgBob)"},
        {"bob@example.org ) (", "bob@example.org)("},
        {") bob@example.org (Bob)", ")bob@example.org(Bob)"},
        // Both: first the brackets, then the comment in what they held.
        {"Bob Builder (at work) <bob@example.org>", "bob@example.org"},
        {"Bob Builder <bob@example.org> (at work)", "bob@example.org"},
        {"<bob(work)@example.org>", "bob@example.org"},
        {"<(work>bob@example.org)", "(work"},
        {"bob@example.org (<work>)", "work"},
        {"(a<b)c>d", "b)c"},
    };
    for (const Example& example : examples) {
        EXPECT_EQ(PlainRecipient(example.address), example.plain) << "of " << example.address;
        EXPECT_EQ(RecipientOf(example.address), example.plain) << "of " << example.address;
    }
}

}  // namespace
}  // namespace tarvex
