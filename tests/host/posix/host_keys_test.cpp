// The tables of settings keys: complete, and true to the files.

#include "host/edit/survival.h"
#include "host/settings/keys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>

#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/tree_text.h"
#include "host/terminal/wording.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

template <class Record>
struct FileOf;
template <>
struct FileOf<CAppSetting> {
    static constexpr const char* kName = "/appset.def";
};
template <>
struct FileOf<CUserSetting> {
    static constexpr const char* kName = "/userset.def";
};
template <>
struct FileOf<CPopProfileSetting> {
    static constexpr const char* kName = "/popprofile.def";
};
template <>
struct FileOf<CForwardAddressSetting> {
    static constexpr const char* kName = "/forwardaddress.def";
};

// The two files that ignore their version have no key for it.
template <class Record>
bool IgnoresItsVersion() {
    return std::is_same_v<Record, CAppSetting> || std::is_same_v<Record, CForwardAddressSetting>;
}

template <class Call>
std::string Refusal(int exit_code, Call call) {
    try {
        call();
    } catch (const host::CommandError& trouble) {
        EXPECT_EQ(trouble.ExitCode(), exit_code) << trouble.what();
        return trouble.what();
    }
    ADD_FAILURE() << "was not refused";
    return {};
}

template <class Record>
class HostKeys : public ::testing::Test {};
using Records = ::testing::Types<CAppSetting, CUserSetting, CPopProfileSetting, CForwardAddressSetting>;
TYPED_TEST_SUITE(HostKeys, Records);

TYPED_TEST(HostKeys, AreThoseOfTheFile) {
    const TempDir folder;
    ASSERT_EQ(TypeParam().Save(folder.String()), 1);
    const std::string file = ReadFile(folder.String() + FileOf<TypeParam>::kName);
    std::set<std::string> in_file;
    const std::regex header(R"(\[(\w+)\])");
    for (std::sregex_iterator i(file.begin(), file.end(), header), end; i != end; ++i) in_file.insert((*i)[1]);
    if (IgnoresItsVersion<TypeParam>()) in_file.erase("version");

    std::set<std::string> in_table;
    for (const auto& key : host::Keys<TypeParam>()) in_table.insert(key.name);
    EXPECT_EQ(in_table, in_file);
}

TYPED_TEST(HostKeys, ShowEveryDefaultSoThatItCanBeSetAgain) {
    for (const host::Key<TypeParam>& key : host::Keys<TypeParam>()) {
        if (key.type == host::KeyType::Password) continue;
        const TypeParam defaults;
        const std::string shown = host::ShowValue(defaults, key);
        if (shown.empty()) continue;
        TypeParam record;
        host::SetValue(record, key, shown);
        EXPECT_EQ(host::ShowValue(record, key), shown) << key.name;
        if (key.type == host::KeyType::Moment) continue;  // shown to the minute
        EXPECT_EQ(host::JsonValue(record, key).dump(), host::JsonValue(defaults, key).dump()) << key.name;
    }
}

TYPED_TEST(HostKeys, TakeEveryWordAndNumberThatTheyAllowAndNoOther) {
    const TempDir folder;
    for (const host::Key<TypeParam>& key : host::Keys<TypeParam>()) {
        if (key.type != host::KeyType::Number) continue;
        TypeParam record;
        for (const host::ValueWord& word : key.words) {
            host::SetValue(record, key, word.word);
            EXPECT_EQ(host::ShowValue(record, key), word.word) << key.name;
            EXPECT_EQ(host::JsonValue(record, key), word.value) << key.name;
            host::RequireSurvival<TypeParam>(record, {&key}, folder.String());
            EXPECT_THAT(host::AllowedValues(key), HasSubstr(word.word));
        }
        for (const int value : {key.lowest, key.highest}) {
            host::SetValue(record, key, std::to_string(value));
            EXPECT_EQ(host::JsonValue(record, key), value) << key.name;
            host::RequireSurvival<TypeParam>(record, {&key}, folder.String());
        }
        const std::string below = std::to_string(std::int64_t{key.lowest} - 1);
        const std::string above = std::to_string(std::int64_t{key.highest} + 1);
        for (const std::string& word :
             {below, above, std::string(), std::string("perhaps"), std::string("1x"), std::string(" 1"),
              std::string("1 "), std::string("+1"), std::string("99999999999999999999")}) {
            const std::string said = Refusal(host::kBadUsage, [&] { host::SetValue(record, key, word); });
            EXPECT_THAT(said, HasSubstr(key.name));
            const std::string allowed = host::AllowedValues(key);
            EXPECT_THAT(said, HasSubstr(allowed.substr(allowed.rfind(' '))));  // the highest, or the last word
        }
    }
}

TYPED_TEST(HostKeys, HaveAMeaning) {
    for (const host::Key<TypeParam>& key : host::Keys<TypeParam>()) {
        EXPECT_STRNE(key.meaning, "") << key.name;
        EXPECT_STRNE(key.group, "") << key.name;
    }
}

// What is shown after a change must be what is read back.
struct Text {
    const char* key;
    const char* word;  // UTF-8
    bool survives;
};

TEST(HostKeys, ATextThatTheFileWouldNotGiveBackIsRefused) {
    const TempDir folder;
    for (const auto& [key, word, survives] :
         {Text{"nickname", "work", true}, Text{"nickname", "", true}, Text{"nickname", "a;b//c", true},
          Text{"nickname", "表示 ソ", true}, Text{"nickname", "[x", true}, Text{"nickname", "東京［本社］", true},
          Text{"nickname", "ends with blanks  ", true}, Text{"nickname", " begins with one", false},
          Text{"nickname", ";x", false}, Text{"nickname", "//x", false}, Text{"nickname", "[x]", false},
          Text{"nickname", "]x[", false}, Text{"nickname", "my [timer]", false}, Text{"popuser", ";me", false},
          Text{"popuser", "/me", true}}) {
        const host::Key<CPopProfileSetting>& entry = host::KeyNamed<CPopProfileSetting>(key);
        CPopProfileSetting setting;
        host::SetValue(setting, entry, word);
        const auto save = [&, &entry = entry] {
            host::RequireSurvival<CPopProfileSetting>(setting, {&entry}, folder.String());
        };
        if (survives) {
            EXPECT_NO_THROW(save()) << word;
        } else {
            EXPECT_THAT(Refusal(host::kBadData, save), HasSubstr(key)) << word;
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

// Their file trims blanks at both ends, and one of its keys has a default.
TEST(HostKeys, AnAddressHasStricterTexts) {
    const TempDir folder;
    for (const auto& [key, word, survives] :
         {Text{"nickname", "phone", true}, Text{"nickname", "", true}, Text{"nickname", "phone ", false},
          Text{"compress_words", "", false}, Text{"compress_words", "- ,", true}, Text{"compress_words", "- , ", false},
          Text{"compress_words", "- , 　", true}}) {
        const host::Key<CForwardAddressSetting>& entry = host::KeyNamed<CForwardAddressSetting>(key);
        CForwardAddressSetting setting;
        setting.address = "a@example.org";
        host::SetValue(setting, entry, word);
        const auto save = [&, &entry = entry] {
            host::RequireSurvival<CForwardAddressSetting>(setting, {&entry}, folder.String());
        };
        if (survives) {
            EXPECT_NO_THROW(save()) << key << ' ' << word;
        } else {
            EXPECT_THAT(Refusal(host::kBadData, save), HasSubstr(key)) << word;
        }
    }
}

TEST(HostKeys, AHostNameIsOne) {
    CPopProfileSetting setting;
    const auto& key = host::KeyNamed<CPopProfileSetting>("popserver");
    for (const char* const good : {"mail.example.org", "127.0.0.1", "::1", "localhost"}) {
        host::SetValue(setting, key, good);
        EXPECT_EQ(setting.popserver, good);
    }
    for (const char* const bad : {"mail.example.org ", "mail example.org", "mail.example.org:110", "pop3://mail",
                                  "日本.example", "me@example.org", "mail.example.org\n"}) {
        EXPECT_THAT(Refusal(host::kBadUsage, [&] { host::SetValue(setting, key, bad); }), HasSubstr("popserver"));
    }
    EXPECT_THAT(Refusal(host::kBadUsage, [&] { host::SetValue(setting, key, "mail.example.org:110"); }),
                HasSubstr("popport"));
}

TEST(HostKeys, AnAddressIsOne) {
    CPopProfileSetting profile;
    CForwardAddressSetting forward;
    const auto& from = host::KeyNamed<CPopProfileSetting>("address");
    const auto& to = host::KeyNamed<CForwardAddressSetting>("address");
    for (const char* const good : {"me@example.org", "me+tag@example.org", "m@localhost"}) {
        host::SetValue(profile, from, good);
        host::SetValue(forward, to, good);
    }
    for (const char* const good : {"Taro <me@example.org>", "me@example.org (Taro)", "太郎 <me@example.org>",
                                   "Taro Yamada < me@example.org >", "\"a@b\" <me@example.org>"}) {
        host::SetValue(forward, to, good);
        EXPECT_EQ(host::ShowValue(forward, to), good);
        EXPECT_THAT(Refusal(host::kBadUsage, [&] { host::SetValue(profile, from, good); }),
                    HasSubstr("me@example.org"));
    }
    for (const char* const bad :
         {"", "me", "@example.org", "me@", "Taro <me>", "a@example.org, b@example.org", "太郎@example.org",
          // what the engine would turn into another mailbox
          "Taro me@example.org", "a b@example.org", "\"a b\"@example.org", "a@example.org b@example.org",
          "a@@example.org", "a@example.org@example.net", "Taro <a b@example.org>", "me@example.org (Taro) home"}) {
        Refusal(host::kBadUsage, [&] { host::SetValue(forward, to, bad); });
        Refusal(host::kBadUsage, [&] { host::SetValue(profile, from, bad); });
    }
}

TEST(HostKeys, APasswordIsNeverShown) {
    const TempDir folder;
    const auto& key = host::KeyNamed<CPopProfileSetting>("poppassword");
    CPopProfileSetting setting;
    EXPECT_EQ(host::ShowValue(setting, key), "(none)");
    EXPECT_TRUE(host::JsonValue(setting, key).is_null());
    for (const char* const secret : {"secret", ";secret", " [x] ", "\xE7\xA7\x98"}) {
        host::SetValue(setting, key, secret);
        EXPECT_EQ(setting.poppassword, secret);
        host::RequireSurvival<CPopProfileSetting>(setting, {&key}, folder.String());
        EXPECT_EQ(host::ShowValue(setting, key), "(set)");
        EXPECT_EQ(host::JsonValue(setting, key), "(set)");
    }
    Refusal(host::kBadData, [&] { host::SetValue(setting, key, "two\nlines"); });
    host::SetValue(setting, key, "lost\xFF");
    EXPECT_THAT(
        Refusal(host::kBadData, [&] { host::RequireSurvival<CPopProfileSetting>(setting, {&key}, folder.String()); }),
        Not(HasSubstr("lost\xFF")));
}

TEST(HostKeys, AMomentIsWrittenAsItIsShown) {
    EXPECT_EQ(host::ShowMoment(host::ParseMoment("2026-12-24 18:05")), "2026-12-24 18:05");
    EXPECT_EQ(host::ShowMoment(host::ParseMoment("2026-12-04 9:05")), "2026-12-04 09:05");
    EXPECT_EQ(host::ShowMoment(host::ParseMoment("never")), "2000-01-01 00:00");
    EXPECT_EQ(host::ParseMoment("now") % 60, 0);
    for (const char* const bad : {"", "2026-12-24", "2026-02-30 10:00", "2026-12-24 24:01", "2026-12-24 18:05:00",
                                  "tomorrow", "2026-12-24 18:5", "0-0-0 0:00"}) {
        EXPECT_THAT(Refusal(host::kBadUsage, [&] { host::ParseMoment(bad); }), HasSubstr("2026-12-24 18:00"));
    }
}

TEST(HostKeys, APathIsWhole) {
    CAppSetting setting;
    const auto& key = host::KeyNamed<CAppSetting>("rootpath");
    host::SetValue(setting, key, "/srv/メール");
    EXPECT_EQ(setting.rootpath, "/srv/メール");
    EXPECT_EQ(host::ShowValue(setting, key), "/srv/メール");
    Refusal(host::kBadUsage, [&] { host::SetValue(setting, key, "mail"); });
}

TEST(HostKeys, TheWaitIsThatOfTheEngine) {
    EXPECT_EQ(host::ShowInterval(0), "at every call");
    EXPECT_EQ(host::ShowInterval(1), "every 1 minute");
    EXPECT_EQ(host::ShowInterval(90), "every 1 hour 30 minutes");
    EXPECT_EQ(host::ShowInterval(1440), "every 48 hours");
}

// ---- text on its way into the tree

TEST(HostText, IsReadBackAsItWasWritten) {
    for (const char* const text : {"", "plain ASCII \\ ~", "お世話になっております", "ｶﾀｶﾅ", "①㈱", "表ソ能"}) {
        EXPECT_EQ(host::ShowText(host::ToStored(text)), text);
    }
    EXPECT_EQ(host::ToStored("日本"), "\x93\xFA\x96\x7B");
}

// Several systems write the wave dash and the minus sign with another code point than others.
TEST(HostText, OneSignWithTwoCodePointsIsOne) {
    EXPECT_EQ(host::ToStored("\u301C"), host::ToStored("\uFF5E"));
    EXPECT_EQ(host::ToStored("\u2212"), host::ToStored("\uFF0D"));
}

TEST(HostText, WhatCannotBeStoredIsNamed) {
    struct Case {
        const char* text;
        const char* named;
    };
    for (const auto& [text, named] :
         {Case{"smile 😀", "\"😀\" (U+1F600)"}, Case{"café", "\"é\" (U+00E9)"}, Case{"¥100", "\"¥\" (U+00A5)"},
          Case{"‾", "(U+203E)"}, Case{"한", "(U+D55C)"}, Case{"two\nlines", "U+000A"}, Case{"\x1B[2J", "U+001B"},
          Case{"\x7F", "U+007F"}, Case{"\xC2\x9B", "U+009B"}, Case{"ok\xFF", "0xFF"}, Case{"\xE3\x81", "0xE3"},
          Case{"\xC0\x80", "0xC0"}, Case{"\xED\xA0\x80", "0xED"}}) {
        EXPECT_THAT(Refusal(host::kBadData, [text = text] { host::ToStored(text); }), HasSubstr(named));
    }
}

}  // namespace
}  // namespace tarvex::testing
