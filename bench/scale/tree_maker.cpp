// Writes the files of many profiles: the engine saves one of each kind, and the others are copies with their own names.

#include "bench/scale/tree_maker.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "host/history/history.h"
#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"

namespace tarvex::bench {
namespace {

namespace fs = std::filesystem;

constexpr int kTimer_minutes = 1440;
constexpr int kLogLines = 40;
constexpr const char* kMark = "MARK";  // stands for the number of the profile

std::string WithMark(std::string text, const std::string& in_its_place) {
    for (std::size_t at = 0; (at = text.find(kMark, at)) != std::string::npos; at += in_its_place.size())
        text.replace(at, std::string(kMark).size(), in_its_place);
    return text;
}

// What the engine writes of one user with one profile and one address.
struct Pattern {
    std::string user;
    std::string profile;
    std::string address;
    std::string schedule;
    std::string log;
};

void SetUp(CPopProfile& profile, const TreeShape& shape) {
    profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
    profile.setting.popport = shape.pop_port;
    profile.setting.smtpport = shape.smtp_port;
    profile.setting.popuser = "user";
    profile.setting.poppassword = "secret";
    profile.setting.timer = kTimer_minutes;
    if (!profile.SaveSetting()) throw std::runtime_error("cannot save a profile");
}

void AddTerms(CForwardAddress& address) {
    for (const int kind : {TERM_EVERY_DAY, TERM_EVERY_SUN}) {
        CTerm term;
        term.status = 1;
        term.kind = kind;
        term.start = "0,0,0,0,0,0";
        term.end = "0,0,0,23,59,59";
        address.schedule.AddNewTerm(&term);
    }
    if (!address.SaveScheduleSetting()) throw std::runtime_error("cannot save a schedule");
}

std::string LogOfRuns() {
    std::string log;
    for (int i = 0; i < kLogLines; ++i)
        log += "2026/01/01 10:00:00 MARK@example.org: nothing new, the run has ended\r\n";
    return log;
}

Pattern MakePattern(const TreeShape& shape) {
    const testing::TempDir folder;
    CRootPath root;
    if (!root.SetRootPath(folder / "tree")) throw std::runtime_error("cannot make a tree");
    CUser& user = *root.CreateNewUser(kMark, "secret", 0);
    CPopProfile& profile = *user.CreateNewPopProfile("Shop MARK", "MARK@example.org");
    SetUp(profile, shape);
    AddTerms(*profile.CreateNewForwardAddress("Phone", "MARK@example.net"));
    const std::string path = folder / "tree/user0/from0";
    return {testing::ReadFile(folder / "tree/user0/userset.def"), testing::ReadFile(path + "/popprofile.def"),
            testing::ReadFile(path + "/forwardto0/forwardaddress.def"),
            testing::ReadFile(path + "/forwardto0/schedule.def"), LogOfRuns()};
}

void Write(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

void MakeProfile(const std::string& path, int number, const Pattern& pattern, const TreeShape& shape) {
    const std::string mark = "p" + std::to_string(number);
    fs::create_directory(path);
    Write(path + "/popprofile.def", WithMark(pattern.profile, mark));
    Write(path + "/profile.log", WithMark(pattern.log, mark));
    for (int k = 0; k < AddressesOf(number); ++k) {
        const std::string address = path + "/forwardto" + std::to_string(k);
        fs::create_directory(address);
        Write(address + "/forwardaddress.def", WithMark(pattern.address, mark + "-" + std::to_string(k)));
        Write(address + "/schedule.def", pattern.schedule);
        Write(address + "/uidl.def", shape.known_ids);
    }
}

// A run of yesterday that forwarded one message.
host::PastRun RunOfYesterday(CTime ended) {
    host::PastRun run{ended - 1, ended, {}, 300};
    run.result.ending = CRunEnding::Delivered;
    run.result.messages_fetched = run.result.messages_delivered = run.result.copies = 1;
    run.result.bytes_received = run.result.bytes_sent = 5000;
    return run;
}

host::TracedMail Mail(int number) {
    const CString id = std::to_string(number);
    return {"before-" + id,
            "From: a@example.org\r\nSubject: number " + id + "\r\nMessage-ID: <" + id + "@example.org>\r\n",
            4096,
            1000,
            {{"p" + id + "-0@example.net", host::CopyFate::Sent, 2000, 3000, "250 2.0.0 Ok: queued as A" + id}}};
}

void MakeHistory(const std::string& directory, int profiles) {
    constexpr CTime kDay = 86400;
    std::string trouble;
    host::HistoryWriter writer(directory, [&trouble](const std::string& sentence) { trouble = sentence; });
    const CTime ended = std::time(nullptr) - kDay;
    for (int i = 0; i < profiles; ++i) {
        std::string name = NameOf(i);
        std::ranges::replace(name, '/', '\\');
        writer.Add(directory + '\\' + name, RunOfYesterday(ended), {Mail(i)});
    }
    if (!trouble.empty()) throw std::runtime_error(trouble);
}

}  // namespace

std::string NameOf(int profile) {
    return "user" + std::to_string(profile / kProfilesOfAUser) + "/from" + std::to_string(profile % kProfilesOfAUser);
}

void MakeTree(const std::string& directory, const TreeShape& shape) {
    const Pattern pattern = MakePattern(shape);
    fs::create_directory(directory);
    fs::permissions(directory, fs::perms::owner_all);
    Write(directory + "/host.def",
          "[version]\n1\n\n[allruns]\n200\n\n[serverruns]\n200\n\n[alert_to]\nadmin@example.org\n\n");
    for (int i = 0; i < shape.profiles; ++i) {
        const std::string path = directory + '/' + NameOf(i);
        if (i % kProfilesOfAUser == 0) {
            const std::string user = path.substr(0, path.rfind('/'));
            fs::create_directory(user);
            Write(user + "/userset.def", WithMark(pattern.user, "u" + std::to_string(i)));
        }
        MakeProfile(path, i, pattern, shape);
    }
    MakeHistory(directory, shape.profiles);
}

}  // namespace tarvex::bench
