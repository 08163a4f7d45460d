#pragma once

// Tells people what is wrong with a tree, and when it is good again: by mail, and through a program. decision.h says
// what is told when.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/alerts/alert_memory.h"
#include "host/alerts/alert_sending.h"
#include "host/generation/generation.h"
#include "host/tree/names.h"

namespace tarvex::host {

// What is not run, as only the service knows.
struct NotRun {
    std::map<CString, std::string> left_out;  // profiles, and why
    std::optional<OldCopy> old_copy;          // the whole tree
};

struct AlertTellers {
    RootDatabaseWriter::Tell say;   // an alert was sent
    RootDatabaseWriter::Tell warn;  // what is wrong: that alerts do not go out, once
};

// One thread at a time. Throws nothing but std::bad_alloc.
class Alerts {
public:
    // `room` is asked for the file system of the root.
    Alerts(std::string directory, AlertTellers tellers, std::function<DiskRoom(const std::string&)> room = &RoomOn);

    // One look at a loaded tree, and what follows from it. `quiet_s`: as in Situation. Takes as long as the servers and
    // programs take.
    void Look(const CRootPath& root, const NotRun& not_run, CTime now, CTime quiet_s, const Sending& sending);

private:
    struct OfProfile {
        NamedProfile named;
        std::string name;
        HostRules rules;
        std::vector<Reader> readers;
    };
    struct OfReader {
        Reader reader;
        bool of_tree = false;  // the rules of the tree name it
        Situation situation;
        std::vector<const OfProfile*> profiles;
        std::set<std::string> cannot_send;  // profiles whose mail does not go out, by name
    };

    std::vector<OfProfile> ReadRules(const CRootPath& root);
    using Readers = std::map<std::string, OfReader>;  // by Reader::Key

    Readers FindReaders(const CRootPath& root, const std::vector<OfProfile>& profiles, CTime now,
                        const NotRun& not_run);
    void AddProblems(const CRootPath& root, const std::vector<OfProfile>& profiles, CTime now, const NotRun& not_run,
                     Language language, Readers& readers) const;
    void Tell(const std::string& key, const OfReader& reader, CTime now, CTime quiet_s, const Sending& sending);
    SendingOutcome Send(const OfReader& to, const Alert& alert, CTime now, const Sending& sending) const;

    const std::string directory_;
    const AlertTellers tellers_;
    const std::function<DiskRoom(const std::string&)> room_;
    AlertMemory memory_;
    std::map<std::string, Gathering> gatherings_;
    std::map<CString, HostRules> last_rules_;  // by profile, for the time when they cannot be read; "" is the tree
};

// What a test says of one reader.
struct TestOutcome {
    std::string reader;
    SendingOutcome outcome;
};

// Sends a test to every reader of these profiles, and of the tree unless `of_profiles_alone`. Throws CommandError where
// rules cannot be read.
std::vector<TestOutcome> SendTestAlerts(const CRootPath& root, const std::vector<NamedProfile>& profiles,
                                        bool of_profiles_alone, CTime now, const Sending& sending);

}  // namespace tarvex::host
