// The schedule, the list of ids and the log: what was read and saved is read again. The first byte chooses the file.

#include "fuzz/fuzz.h"
#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"

using namespace tarvex;

namespace {

void RequireStableSchedule(const CString& directory) {
    CScheduleSetting first;
    CScheduleSetting second;
    CScheduleSetting third;
    fuzz::Require(first.Load(directory) != 0, "every schedule is read");
    for (const auto& term : first.terms) static_cast<void>(GetCTime(term->start) < GetCTime(term->end));
    fuzz::Require(first.Save(directory) != 0 && second.Load(directory) != 0, "what was saved is read");
    fuzz::Require(first.terms.size() == second.terms.size(), "as many terms");
    fuzz::Require(second.Save(directory) != 0 && third.Load(directory) != 0, "what was saved is read");
    fuzz::Require((second == third) != 0, "the terms come back");
}

void RequireStableIds(const CString& directory) {
    CForwardAddress address;
    address.path = directory;
    fuzz::Require(address.LoadUidlSetting() != 0, "every list is read");
    const CStringArray ids = address.uidls;
    fuzz::Require(address.SaveUidlSetting() != 0 && address.LoadUidlSetting() != 0, "what was saved is read");
    fuzz::Require(address.uidls == ids, "the ids come back");
}

void RequireStableLog(const CString& directory) {
    CProfileLog log;
    log.SetLogMode(1);
    fuzz::Require(log.Load(directory) != 0 && log.Save(directory) != 0, "every log is read");
    CProfileLog again;
    again.SetLogMode(1);
    fuzz::Require(again.Load(directory) != 0 && again.entries == log.entries, "the entries come back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const testing::TempDir folder;
    static const CString directory = folder.String();
    fuzz::Input input(data, size);
    const int choice = input.Choice(3);
    const char* const file = choice == 0 ? "/schedule.def" : choice == 1 ? "/uidl.def" : "/profile.log";
    testing::WriteFile(directory + file, std::string(input.Rest()));
    if (choice == 0) RequireStableSchedule(directory);
    if (choice == 1) RequireStableIds(directory);
    if (choice == 2) RequireStableLog(directory);
    return 0;
}
