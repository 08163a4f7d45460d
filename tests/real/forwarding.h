#pragma once

// A data tree with one profile and what a test of a whole run needs.

#include <string>
#include <string_view>
#include <vector>

#include "tarvex/tarvex.h"
#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {

inline constexpr const char* kSender = "forwarder@example.test";
inline constexpr const char* kPhone = "phone@mobile.example.test";
inline constexpr const char* kTablet = "tablet@mobile.example.test";

// The host that was built, or the words in TARVEX_TEST_HOST that start another one: that for Windows, under wine, or
// the installed one.
std::vector<std::string> HostCommand();

// One profile that is due at every call and forwards alice's mail, to kPhone until more addresses are added.
class Forwarding {
public:
    Forwarding(int pop_port, int smtp_port);
    Forwarding(const PopServer& pop, int smtp_port) : Forwarding(pop.Port(), smtp_port) {}

    CPopProfile& Profile() { return *profile_; }
    CForwardAddress& AddAddress(const std::string& address);

    // One call of the entry, waited for. Returns what the run added to the profile's log.
    std::string Run();

    // The same by the host program, on the tree as it is on disk, with these further environment variables.
    std::string RunHost(const std::vector<std::string>& environment = {});

    // What a command of the host program prints about the tree as it is now.
    Finished TellHost(const std::vector<std::string>& command, const std::vector<std::string>& environment = {});

    std::string RootDirectory() const { return folder_ / "tree"; }
    std::vector<std::string> Uidls(int address = 0) const;  // of the address, on disk

private:
    std::string LogFile() const;

    TempDir folder_;
    CRootPath root_;
    CPopProfile* profile_ = nullptr;
};

// How often the part occurs in the text.
int CountOf(std::string_view text, std::string_view part);
// In what `held list --json` prints: how many copies wait because of a reply with these words. (Each reply stands there
// once more, among those to all tries.)
int CountOfHeld(const std::string& held, std::string_view words);

// Every message text, sorted: for comparing what arrived with what was sent whatever the order.
std::vector<std::string> Texts(const std::vector<GeneratedMail>& mails);
std::vector<std::string> Texts(const std::vector<ArrivedMail>& mails);

}  // namespace tarvex::testing
