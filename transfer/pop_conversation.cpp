// The steps of the POP3 conversation that a run and a probe share: connect, log in, list, give up, quit.

#include "transfer/pop_conversation.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <unordered_map>
#include <utility>

#include "tarvex/mail.h"

namespace tarvex {

bool IsForNow(std::string_view refusal) {
    constexpr std::array kForNow = {"-ERR [IN-USE]", "-ERR [LOGIN-DELAY]", "-ERR [SYS/TEMP]"};
    return std::ranges::any_of(kForNow, [refusal](const char* begin) { return refusal.starts_with(begin); });
}

namespace {

std::int64_t SizeIn(std::string_view text) {
    std::int64_t size = -1;
    std::from_chars(text.data(), text.data() + text.size(), size);
    return size;
}

}  // namespace

std::vector<CMailOnServer> ParseListing(std::string_view reply, ListingKind kind) {
    std::vector<CMailOnServer> listing;
    std::size_t begin = 0;
    for (std::size_t end = reply.find("\r\n"); end != std::string_view::npos; end = reply.find("\r\n", begin)) {
        const std::string_view line = reply.substr(begin, end - begin);
        begin = end + 2;
        if (line.starts_with('.')) break;
        if (line.starts_with('+')) continue;

        const std::size_t blank = line.find(' ');
        CMailOnServer entry;
        if (blank != std::string_view::npos) entry.number = line.substr(0, blank);
        const std::string_view rest = blank == std::string_view::npos ? line : line.substr(blank + 1);
        if (kind == ListingKind::Uidl) {
            entry.uidl = rest;
        } else {
            entry.size_bytes = SizeIn(rest);
        }
        listing.push_back(entry);
    }
    return listing;
}

void PopConversation::Keep(CString reply) {
    last_reply_ = std::move(reply);
    last_failure_ = socket_.LastFailure();
}

bool PopConversation::CloseWith(const char* text) {
    socket_.Close();
    Log(text);
    return false;
}

bool PopConversation::Connect() {
    socket_.SetTimeOut(setting_.timeout);
    if (!socket_.Create(0, 1, nullptr)) {
        Keep({});
        Log("Fail to create pop socket");
        return false;
    }
    Log("Success to create pop socket");
    greeting_ = socket_.PopConnect(setting_.popserver, setting_.popport);
    Keep(greeting_);
    Log("connecting.. " + setting_.popserver);
    Log(greeting_);
    if (IsNegative(greeting_)) return CloseWith(TimedOut() ? kPopTimeOutText : "Error..Closing Socket");
    return true;
}

bool PopConversation::LogIn() {
    const std::size_t open = greeting_.find('<');
    const std::size_t close = greeting_.find('>');
    const bool has_timestamp = open != CString::npos && close != CString::npos && open < close;
    if (setting_.apop != 0 && has_timestamp) return LogInApop(greeting_.substr(open, close - open + 1));
    return LogInPlain();
}

// A refused APOP does not fall back to USER and PASS (B49).
bool PopConversation::LogInApop(const CString& timestamp) {
    const CString reply = socket_.SendAPOP(setting_.popuser, setting_.poppassword, timestamp);
    Log("APOP ");
    return AcceptLogIn(reply);
}

bool PopConversation::LogInPlain() {
    const CString user_reply = socket_.SendUser(setting_.popuser);
    Log("USER " + setting_.popuser);
    if (!AcceptLogIn(user_reply)) return false;
    const CString password_reply = socket_.SendPassWord(setting_.poppassword);
    Log("PASS " + CString(setting_.poppassword.size(), '*'));
    return AcceptLogIn(password_reply);
}

bool PopConversation::AcceptLogIn(const CString& reply) {
    Keep(reply);
    Log(reply);
    if (!IsNegative(reply)) return true;
    if (TimedOut()) Log(kPopTimeOutText);
    GiveUp(reply);
    return false;
}

bool PopConversation::List(CString& reply, std::vector<CMailOnServer>& listing) {
    socket_.SendUidl(&reply);
    Keep(reply.substr(0, reply.find("\r\n")));
    Log("UIDL");
    Log(reply);
    if (!IsNegative(reply)) {
        listing = ParseListing(reply, ListingKind::Uidl);
        return true;
    }
    if (TimedOut()) return CloseWith(kPopTimeOutText);

    socket_.SendList(&reply);
    Keep(reply.substr(0, reply.find("\r\n")));
    Log("LIST");
    Log(reply);
    if (IsNegative(reply)) {
        Log(GiveUp(reply));
        return false;
    }
    listed_by_ = ListingKind::List;
    listing = ParseListing(reply, listed_by_);
    return true;
}

bool PopConversation::AddSizes(std::vector<CMailOnServer>& listing) {
    CString reply;
    socket_.SendList(&reply);
    std::unordered_map<std::string_view, std::int64_t, CUidlHash> sizes;
    for (const CMailOnServer& mail : ParseListing(reply, ListingKind::List))
        sizes.emplace(mail.number, mail.size_bytes);
    for (CMailOnServer& mail : listing) {
        if (const auto size = sizes.find(mail.number); size != sizes.end()) mail.size_bytes = size->second;
    }
    return !socket_.LastFailure();
}

void PopConversation::Quit() {
    Keep(socket_.SendQuit());
    Log("QUIT");
    Log(last_reply_);
    socket_.Close();
}

CString PopConversation::GiveUp(const CString& reply) {
    CString text = reply;
    if (TimedOut()) {
        text = kPopTimeOutText;
    } else {
        Log(reply);
        if (reply.find("Disconnected") != CString::npos) {
            Log("QUIT");
            text = socket_.SendQuit();
            Log(text);
            if (IsNegative(text) && TimedOut()) {
                text = kPopTimeOutText;
                Log(text);
            }
        }
    }
    socket_.Close();
    return text;
}

}  // namespace tarvex
