// Which message goes to which address, and what is remembered of it: compared with walking the lists entry by entry.

#include "engine/bookkeeping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace tarvex {
namespace {

using Ids = std::vector<std::string>;

// Addresses with UIDL lists and messages, owned here.
struct Books {
    std::vector<std::unique_ptr<CForwardAddress>> addresses;
    std::vector<std::unique_ptr<CReceiveMail>> owned;
    ReceivedMails mails;

    explicit Books(const std::vector<Ids>& lists, const Ids& mail_ids = {}) {
        for (const Ids& list : lists) {
            addresses.push_back(std::make_unique<CForwardAddress>());
            addresses.back()->uidls = list;
        }
        for (const std::string& id : mail_ids) {
            owned.push_back(std::make_unique<CReceiveMail>());
            owned.back()->uidl = id;
            mails.push_back(owned.back().get());
        }
    }

    std::vector<CForwardAddress*> All() const {
        std::vector<CForwardAddress*> all;
        for (const auto& address : addresses) all.push_back(address.get());
        return all;
    }

    std::vector<Ids> Lists() const {
        std::vector<Ids> lists;
        for (const auto& address : addresses) lists.push_back(address->uidls);
        return lists;
    }

    // Per message the positions of its destinations among the addresses.
    std::vector<std::vector<std::size_t>> Destinations() const {
        std::vector<std::vector<std::size_t>> result;
        for (const CReceiveMail* mail : mails) {
            result.emplace_back();
            if (!mail) continue;
            for (const CForwardAddress* to : mail->destinations) {
                result.back().push_back(static_cast<std::size_t>(
                    std::find_if(addresses.begin(), addresses.end(), [to](const auto& a) { return a.get() == to; }) -
                    addresses.begin()));
            }
        }
        return result;
    }
};

Ids Handled(const std::vector<Ids>& lists) {
    Books books(lists);
    const CCheckedMail handled = CollectHandled(books.All());
    Ids ids;
    for (int i = 0; i < handled.GetSize(); ++i) ids.push_back(handled.GetAt(i));
    return ids;
}

// The algorithm as it is told: a work list of all entries, in which every entry swallows its equals further on.
Ids HandledByWalking(const std::vector<Ids>& lists) {
    Ids work;
    for (const Ids& list : lists) work.insert(work.end(), list.begin(), list.end());
    Ids handled;
    for (std::size_t k = 0; k < work.size(); ++k) {
        std::size_t count = 1;
        for (std::size_t later = k + 1; later < work.size();) {
            if (work[later] == work[k]) {
                ++count;
                work.erase(work.begin() + static_cast<std::ptrdiff_t>(later));
            } else {
                ++later;
            }
        }
        if (count == lists.size()) handled.push_back(work[k]);
    }
    return handled;
}

void AssignByWalking(const ReceivedMails& mails, const std::vector<CForwardAddress*>& taking_part) {
    for (CReceiveMail* mail : mails) {
        for (CForwardAddress* address : taking_part) {
            CStringArray& list = address->uidls;
            if (std::find(list.begin(), list.end(), mail->uidl) != list.end()) continue;
            mail->destinations.push_back(address);
            list.push_back(mail->uidl);
        }
    }
}

void TakeBackByWalking(const ReceivedMails& mails) {
    for (CReceiveMail* mail : mails) {
        if (!mail) continue;
        for (CForwardAddress* address : mail->destinations) {
            const auto first = std::find(address->uidls.begin(), address->uidls.end(), mail->uidl);
            if (first != address->uidls.end()) address->uidls.erase(first);
        }
    }
}

void KeepOnlyByWalking(Ids& list, const Ids& other) {
    for (std::size_t i = 0; i < list.size();) {
        if (std::find(other.begin(), other.end(), list[i]) == other.end()) {
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}

// Small cases from few ids, so that ids repeat; the empty id and ids that begin like others are among them.
class Cases {
public:
    std::size_t Number(std::size_t below) { return std::uniform_int_distribution<std::size_t>(0, below - 1)(random_); }

    Ids List(std::size_t longest) {
        Ids list(Number(longest + 1));
        for (std::string& id : list) id = kIds[Number(variety_)];
        return list;
    }

    std::vector<Ids> Lists() {
        variety_ = 1 + Number(std::size(kIds));
        std::vector<Ids> lists(1 + Number(4));
        for (Ids& list : lists) list = List(7);
        return lists;
    }

private:
    static constexpr const char* kIds[] = {"a", "", "ab", "A", "b", "a ", "c", "\x83\x5b"};

    std::mt19937 random_{20090315};
    std::size_t variety_ = 1;
};

std::string Shown(const std::vector<Ids>& lists) {
    std::ostringstream text;
    for (const Ids& list : lists) {
        text << "[";
        for (const std::string& id : list) text << "'" << id << "' ";
        text << "] ";
    }
    return text.str();
}

constexpr int kRandomCases = 5000;

TEST(Handled, SameIdsInTheSameOrderAsWalkingTheWorkList) {
    Cases cases;
    for (int i = 0; i < kRandomCases; ++i) {
        const std::vector<Ids> lists = cases.Lists();
        ASSERT_EQ(Handled(lists), HandledByWalking(lists)) << Shown(lists);
    }
}

TEST(Handled, IdThatEveryListHoldsOnce) {
    EXPECT_EQ(Handled({{"a", "b", "c"}, {"c", "x", "a"}}), (Ids{"a", "c"}));
    EXPECT_EQ(Handled({{"b", "a"}}), (Ids{"b", "a"}));
}

TEST(Handled, IdTwiceInTheOnlyListIsNotHandled) { EXPECT_EQ(Handled({{"a", "b", "a"}}), Ids{"b"}); }

TEST(Handled, IdTwiceInOneOfTwoListsIsHandled) {
    EXPECT_EQ(Handled({{"a", "a"}, {}}), Ids{"a"});
    EXPECT_EQ(Handled({{}, {"b", "a", "b"}}), Ids{"b"});
}

TEST(Handled, IdTwiceInOneListAndOnceInTheOtherIsNotHandled) { EXPECT_EQ(Handled({{"a", "a"}, {"a"}}), Ids{}); }

TEST(Handled, CaseAndTrailingBlanksDistinguishIds) { EXPECT_EQ(Handled({{"a", "b "}, {"A", "b"}}), Ids{}); }

TEST(Handled, EmptyListsHandleNothing) {
    EXPECT_EQ(Handled({{}}), Ids{});
    EXPECT_EQ(Handled({{"a"}, {}}), Ids{});
}

TEST(Destinations, SameDestinationsAndListsAsWalkingTheLists) {
    Cases cases;
    for (int i = 0; i < kRandomCases; ++i) {
        const std::vector<Ids> lists = cases.Lists();
        const Ids mail_ids = cases.List(6);
        Books actual(lists, mail_ids);
        Books expected(lists, mail_ids);
        AssignDestinations(actual.mails, actual.All());
        AssignByWalking(expected.mails, expected.All());
        ASSERT_EQ(actual.Destinations(), expected.Destinations()) << Shown(lists) << "mails " << Shown({mail_ids});
        ASSERT_EQ(actual.Lists(), expected.Lists()) << Shown(lists) << "mails " << Shown({mail_ids});
    }
}

TEST(Destinations, AddressesThatLackTheIdInTheirOrder) {
    Books books({{"x"}, {"m1"}, {}}, {"m1", "m2"});
    AssignDestinations(books.mails, books.All());
    EXPECT_EQ(books.Destinations(), (std::vector<std::vector<std::size_t>>{{0, 2}, {0, 1, 2}}));
    EXPECT_EQ(books.Lists(), (std::vector<Ids>{{"x", "m1", "m2"}, {"m1", "m2"}, {"m1", "m2"}}));
}

TEST(Destinations, SecondMessageWithTheSameIdGetsNone) {
    Books books({{}, {}}, {"m", "m", ""});
    AssignDestinations(books.mails, books.All());
    EXPECT_EQ(books.Destinations(), (std::vector<std::vector<std::size_t>>{{0, 1}, {}, {0, 1}}));
    EXPECT_EQ(books.Lists(), (std::vector<Ids>{{"m", ""}, {"m", ""}}));
}

TEST(Destinations, AddressThatDoesNotTakePartIsLeftAlone) {
    Books books({{}, {}}, {"m"});
    AssignDestinations(books.mails, std::vector{books.addresses[1].get()});
    EXPECT_EQ(books.Destinations(), (std::vector<std::vector<std::size_t>>{{1}}));
    EXPECT_EQ(books.Lists(), (std::vector<Ids>{{}, {"m"}}));
}

// Also with lists that hold an id more than once, with places emptied as by a delivery, and with destinations given by
// hand, whose lists may lack the id.
TEST(TakingBack, SameListsAsWalkingThem) {
    Cases cases;
    for (int i = 0; i < kRandomCases; ++i) {
        const std::vector<Ids> lists = cases.Lists();
        const Ids mail_ids = cases.List(6);
        Books actual(lists, mail_ids);
        Books expected(lists, mail_ids);
        const bool by_hand = cases.Number(2) == 0;
        if (!by_hand) {
            AssignDestinations(actual.mails, actual.All());
            AssignByWalking(expected.mails, expected.All());
        }
        for (std::size_t m = 0; m < mail_ids.size(); ++m) {
            for (std::size_t a = 0; by_hand && a < lists.size(); ++a) {
                if (cases.Number(2) == 0) continue;
                actual.mails[m]->destinations.push_back(actual.addresses[a].get());
                expected.mails[m]->destinations.push_back(expected.addresses[a].get());
            }
            if (cases.Number(3) == 0) actual.mails[m] = expected.mails[m] = nullptr;
        }
        TakeBack(actual.mails);
        TakeBackByWalking(expected.mails);
        ASSERT_EQ(actual.Lists(), expected.Lists()) << Shown(lists) << "mails " << Shown({mail_ids});
    }
}

TEST(TakingBack, OnlyTheFirstOfEqualEntriesGoes) {
    Books books({{"m", "x", "m"}}, {"m"});
    books.mails[0]->destinations.push_back(books.addresses[0].get());
    TakeBack(books.mails);
    EXPECT_EQ(books.Lists(), (std::vector<Ids>{{"x", "m"}}));
}

TEST(TakingBack, EmptyPlacesAreSkippedAndDestinationsStay) {
    Books books({{}, {}}, {"m1", "m2", "m3"});
    AssignDestinations(books.mails, books.All());
    books.mails[0] = nullptr;
    books.mails[2] = nullptr;
    TakeBack(books.mails);
    EXPECT_EQ(books.Lists(), (std::vector<Ids>{{"m1", "m3"}, {"m1", "m3"}}));
    EXPECT_EQ(books.Destinations(), (std::vector<std::vector<std::size_t>>{{}, {0, 1}, {}}));
}

TEST(TakingBack, MessageWithoutDestinationsTakesNothingBack) {
    Books books({{"m"}}, {"m"});
    AssignDestinations(books.mails, books.All());
    TakeBack(books.mails);
    EXPECT_EQ(books.Lists(), (std::vector<Ids>{{"m"}}));
}

TEST(Pruning, SameListAsWalkingIt) {
    Cases cases;
    for (int i = 0; i < kRandomCases; ++i) {
        const Ids list = cases.Lists()[0];
        const Ids other = cases.List(6);
        Ids actual = list;
        Ids expected = list;
        KeepOnlyUidl(actual, other);
        KeepOnlyByWalking(expected, other);
        ASSERT_EQ(actual, expected) << Shown({list, other});
    }
}

}  // namespace
}  // namespace tarvex
