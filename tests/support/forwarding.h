#pragma once

// What tests of whole runs share: a data tree in a temp folder, runs on copies as the entry makes them, and the files
// that they leave.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "loopback/mail_servers.h"
#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"
#include "tests/support/environment.h"

namespace tarvex::testing {

using loopback::DeliveredMail;
using loopback::MailboxServer;
using loopback::SinkServer;
using loopback::StoredMail;

using Ids = std::vector<std::string>;

// A path of the tree in the system's own form.
inline std::string OnDisk(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// "Sunday, March 15, 2009 10:20:05", independently of the engine's own formatting.
inline std::string LongTime(CTime moment) {
    const std::tm local = BrokenDown(static_cast<std::time_t>(moment));
    std::array<char, 100> text{};
    std::strftime(text.data(), text.size(), "%A, %B %d, %Y %H:%M:%S", &local);
    return text.data();
}

inline CTime LocalMoment(int year, int month, int day, int hour, int minute, int second) {
    std::tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

// The lines of a text file whose every line ends with CR LF; a line that does not shows as "(bare) ...".
inline std::vector<std::string> Lines(const std::string& path) {
    const std::string content = ReadFile(path);
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < content.size();) {
        const std::size_t end = content.find('\n', begin);
        const std::string_view line = std::string_view(content).substr(begin, end - begin);
        const bool complete = end != std::string::npos && line.ends_with('\r');
        lines.push_back(complete ? std::string(line.substr(0, line.size() - 1)) : "(bare) " + std::string(line));
        begin = end == std::string::npos ? content.size() : end + 1;
    }
    return lines;
}

inline std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

inline const CTime kTestsStarted = std::time(nullptr);

// The log as text with bare line feeds, every end line's date replaced by "(now)" when it lies since the tests started.
inline std::string LogText(const CPopProfile& profile) {
    constexpr std::string_view kEnd = "---- End Operation at ";
    std::vector<std::string> lines = Lines(OnDisk(profile.path) + "/profile.log");
    for (std::string& line : lines) {
        if (!line.starts_with(kEnd)) continue;
        const CTime now = std::time(nullptr);
        for (CTime moment = kTestsStarted; moment <= now; ++moment) {
            if (line.substr(kEnd.size()) == LongTime(moment)) line = std::string(kEnd) + "(now)";
        }
    }
    return Joined(lines);
}

inline std::string UidlFile(const CForwardAddress& address) { return OnDisk(address.path) + "/uidl.def"; }
inline Ids UidlsOnDisk(const CForwardAddress& address) { return Lines(UidlFile(address)); }

inline void WriteUidls(const CForwardAddress& address, const Ids& ids) {
    std::string content;
    for (const std::string& id : ids) content += id + "\r\n";
    WriteFile(UidlFile(address), content);
}

inline std::string ProfileFile(const CPopProfile& profile) { return OnDisk(profile.path) + "/popprofile.def"; }

// A data tree in a folder of its own.
class DataTree {
public:
    DataTree() { EXPECT_EQ(root.SetRootPath(folder_ / "root"), 1); }

    CPopProfile& AddProfile(int pop_port, int smtp_port) {
        if (root.users.empty()) AddUser();
        return AddProfile(*root.users.front(), pop_port, smtp_port);
    }

    CUser& AddUser() { return *root.CreateNewUser("user", "password", 0); }

    static CPopProfile& AddProfile(CUser& user, int pop_port, int smtp_port) {
        CPopProfile& profile = *user.CreateNewPopProfile("nickname", "me@example.org");
        profile.setting.popserver = "127.0.0.1";
        profile.setting.popport = pop_port;
        profile.setting.popuser = "alice";
        profile.setting.poppassword = "secret";
        profile.setting.smtpserver = "127.0.0.1";
        profile.setting.smtpport = smtp_port;
        profile.setting.lasttime = LocalMoment(2009, 3, 15, 10, 20, 5);
        profile.setting.timer = 0;
        EXPECT_EQ(profile.SaveSetting(), 1);
        return profile;
    }

    const TempDir& Folder() const { return folder_; }

private:
    TempDir folder_;

public:
    CRootPath root;  // after the folder: its workers end before the folder goes
};

inline CForwardAddress& AddAddress(CPopProfile& profile, const std::string& mail_address) {
    return *profile.CreateNewForwardAddress("nickname", mail_address);
}

// One run on a copy, as the entry makes it, on the calling thread. The result is what the run left in profile.log.
inline std::string RunOnce(const CPopProfile& profile) {
    CPopProfile copy;
    copy = profile;
    EXPECT_EQ(copy.DoOperation(), 1);
    return LogText(profile);
}

inline std::string Message(const std::string& subject) {
    return "Received: from nowhere\r\nFrom: somebody@example.net\r\nTo: me@example.org\r\nSubject: " + subject +
           "\r\n\r\nHello, " + subject + ".\r\n";
}

inline StoredMail Mail(const std::string& uidl) { return {uidl, Message(uidl)}; }

// How often each message, told by its subject, arrived at each address: {"u1 -> a@example.org", 1}.
using Arrivals = std::map<std::string, int>;

// Of the messages that the sink has received, the first `skip` are left out.
inline Arrivals Arrived(const SinkServer& sink, std::size_t skip = 0) {
    Arrivals arrivals;
    const std::vector<DeliveredMail> delivered = sink.Delivered();
    for (std::size_t i = skip; i < delivered.size(); ++i) {
        const DeliveredMail& mail = delivered[i];
        constexpr std::string_view kSubject = "Subject: ";
        const std::size_t begin = mail.text.find(kSubject);
        const std::string subject =
            begin == std::string::npos
                ? "(no subject)"
                : mail.text.substr(begin + kSubject.size(), mail.text.find("\r\n", begin) - begin - kSubject.size());
        for (const std::string& recipient : mail.recipients) ++arrivals[subject + " -> " + recipient];
    }
    return arrivals;
}

// Counts events of other threads and waits for a number of them.
class Counter {
public:
    int Add() {
        const std::lock_guard lock(mutex_);
        changed_.notify_all();
        return ++count_;
    }

    // False when so many have not come after 30 seconds.
    bool WaitFor(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return count_ >= count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

}  // namespace tarvex::testing
