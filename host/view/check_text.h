#pragma once

// What a try of servers found, in lines: as `tarvex check` prints it and the console shows it.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/advice/advice.h"
#include "host/settings/host_setting.h"
#include "tarvex/probe.h"
#include "tarvex/probe_steps.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// "mail.example.org port 995 with TLS"; the numbers of `tls` mean the same to both protocols.
std::string ShowServer(const CPopProfileSetting& setting, Protocol protocol, int tls);

// A failed QUIT counts for nothing: the server has done all that a run needs.
bool Matters(const CProbeStep& step);

std::int64_t BytesIn(const CMailboxListing& listing);

// By what the servers were tried, and for whom the text is.
struct Tried {
    const CPopProfileSetting& setting;
    const HostRules& rules;
    Reader reader = Reader::Terminal;
};

// Steps that have ended, each with advice where it failed. `listing` is that of the same try, as far as it is.
std::string TextOfPop(std::span<const CProbeStep> steps, const CMailboxListing& listing, const Tried& tried);
std::string TextOfSmtp(std::span<const CProbeStep> steps, const Tried& tried);

// What else there is to say at the end; empty for nothing.
std::string NoteOn(const CMailboxListing& listing, bool is_good);
std::string NoteOn(const CSmtpTrial& trial, const Tried& tried);

// Prints the steps of a try while it goes on, each once.
class StepTeller {
public:
    StepTeller(std::function<std::string(std::span<const CProbeStep>)> text,
               std::function<void(const std::string&)> print)
        : text_(std::move(text)), print_(std::move(print)) {}

    // To be given to the try; `begun` hears the name of each step that begins.
    CProbeWatch Watch(std::function<void(const std::string& step)> begun = {});
    // All steps that have ended by now. Prints those that it has not printed.
    void Tell(std::span<const CProbeStep> ended);

private:
    std::function<std::string(std::span<const CProbeStep>)> text_;
    std::function<void(const std::string&)> print_;
    std::size_t told_ = 0;
};

// Why no login was tried that the setting wants, and what to do; empty when there is nothing to say.
std::string WhyWithoutLogin(const CSmtpTrial& trial, const CPopProfileSetting& setting,
                            Reader reader = Reader::Terminal);

// Those that a run may send to.
std::vector<CString> RecipientsOf(const CPopProfile& profile);

}  // namespace tarvex::host
