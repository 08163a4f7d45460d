#pragma once

// What every settings record does alike, tested for each of them: the tests of a record describe it in RecordFacts and
// instantiate the suite Record.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "tarvex/settings.h"
#include "testing/temp_dir.h"

namespace tarvex {

// For each record: kFile, the name of its file; Fields(), the whole record, each field with a value that is not its
// default; and FileOfAllFieldsChanged(), the file that a record of these values is saved as.
template <class S>
struct RecordFacts;

template <class S>
struct FieldCase {
    std::string_view name;
    std::function<void(S&)> change;
    std::function<bool(const S&, const S&)> same;
    bool assigned = true;  // assignment takes it and equality compares it
    bool in_file = true;
};

template <class S, class Member>
FieldCase<S> Field(std::string_view name, Member S::*member, auto value, bool assigned = true, bool in_file = true) {
    return {name, [=](S& setting) { setting.*member = value; },
            [=](const S& a, const S& b) { return a.*member == b.*member; }, assigned, in_file};
}

template <class S>
S AllFieldsChanged() {
    S setting;
    for (const FieldCase<S>& field : RecordFacts<S>::Fields()) field.change(setting);
    return setting;
}

template <class S>
class Record : public ::testing::Test {
protected:
    using Facts = RecordFacts<S>;

    // Every field of the one is as in the other, but those named.
    static void ExpectSame(const S& one, const S& other, std::string_view except = "") {
        for (const FieldCase<S>& field : Facts::Fields()) {
            EXPECT_TRUE(field.name == except || field.same(one, other)) << field.name;
        }
    }

    std::string Directory() const { return dir_.String(); }
    std::string Content() const { return testing::ReadFile(dir_.Path() / Facts::kFile); }

private:
    testing::TempDir dir_;
};

TYPED_TEST_SUITE_P(Record);

// A new profile's last time is the current one, which has a test of its own.
TYPED_TEST_P(Record, InitializeRestoresEveryDefault) {
    TypeParam setting = AllFieldsChanged<TypeParam>();
    setting.Initialize();
    this->ExpectSame(setting, TypeParam(), "lasttime");
}

TYPED_TEST_P(Record, CopyConstructionTakesEveryField) {
    const TypeParam source = AllFieldsChanged<TypeParam>();
    this->ExpectSame(TypeParam(source), source);
}

TYPED_TEST_P(Record, AssignmentTakesTheFieldsThatAreNoBookkeeping) {
    const TypeParam source = AllFieldsChanged<TypeParam>();
    TypeParam target;
    const TypeParam before(target);
    target = source;
    for (const auto& field : RecordFacts<TypeParam>::Fields()) {
        EXPECT_TRUE(field.same(target, field.assigned ? source : before)) << field.name;
        EXPECT_FALSE(field.same(target, field.assigned ? before : source)) << field.name;
    }
}

TYPED_TEST_P(Record, AssignmentToItselfChangesNothing) {
    TypeParam setting = AllFieldsChanged<TypeParam>();
    setting = static_cast<const TypeParam&>(setting);
    this->ExpectSame(setting, AllFieldsChanged<TypeParam>());
}

TYPED_TEST_P(Record, FileIsWrittenInItsOwnOrder) {
    EXPECT_EQ(AllFieldsChanged<TypeParam>().Save(this->Directory()), 1);
    EXPECT_EQ(this->Content(), RecordFacts<TypeParam>::FileOfAllFieldsChanged());
}

TYPED_TEST_P(Record, WhatWasSavedIsLoadedAndSavedIdentically) {
    const TypeParam saved = AllFieldsChanged<TypeParam>();
    EXPECT_EQ(saved.Save(this->Directory()), 1);
    TypeParam loaded;
    const TypeParam before(loaded);
    EXPECT_EQ(loaded.Load(this->Directory()), 1);
    for (const auto& field : RecordFacts<TypeParam>::Fields()) {
        EXPECT_TRUE(field.same(loaded, field.in_file ? saved : before)) << field.name;
    }
    EXPECT_EQ(loaded.Save(this->Directory()), 1);
    EXPECT_EQ(this->Content(), RecordFacts<TypeParam>::FileOfAllFieldsChanged());
}

// An address of no file is named by its directory, which has a test of its own.
TYPED_TEST_P(Record, MissingFileChangesNothing) {
    TypeParam setting = AllFieldsChanged<TypeParam>();
    EXPECT_EQ(setting.Load(this->Directory()), 0);
    this->ExpectSame(setting, AllFieldsChanged<TypeParam>(),
                     std::is_same_v<TypeParam, CForwardAddressSetting> ? "address" : "");
}

TYPED_TEST_P(Record, EmptyDirectoryTextIsRefusedBySave) { EXPECT_EQ(TypeParam().Save(""), 0); }

TYPED_TEST_P(Record, SaveLeavesTheOldFileWhenItFails) {
    const std::string file = this->Directory() + "/file";
    testing::WriteFile(file, "x");
    EXPECT_EQ(TypeParam().Save(file), 0);
    EXPECT_EQ(TypeParam().Save(this->Directory() + "/missing"), 0);
    EXPECT_EQ(testing::ReadFile(file), "x");
}

REGISTER_TYPED_TEST_SUITE_P(Record, InitializeRestoresEveryDefault, CopyConstructionTakesEveryField,
                            AssignmentTakesTheFieldsThatAreNoBookkeeping, AssignmentToItselfChangesNothing,
                            FileIsWrittenInItsOwnOrder, WhatWasSavedIsLoadedAndSavedIdentically,
                            MissingFileChangesNothing, EmptyDirectoryTextIsRefusedBySave,
                            SaveLeavesTheOldFileWhenItFails);

// Of records whose equality is no oddity.
template <class S>
void ExpectEqualityOfAssignedFields() {
    for (const FieldCase<S>& field : RecordFacts<S>::Fields()) {
        S changed;
        field.change(changed);
        EXPECT_EQ(changed == S(), field.assigned ? 0 : 1) << field.name;
    }
}

}  // namespace tarvex
