// Turns the result of a run into the plain structs of the interface for C.

#include "engine/c_result.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace tarvex {
namespace {

template <class Enumeration>
constexpr bool Is(int value, Enumeration enumerator) {
    return value == static_cast<int>(enumerator);
}

static_assert(Is(TARVEX_COULD_NOT_BEGIN, CRunEnding::CouldNotBegin) &&
              Is(TARVEX_NOBODY_TAKES_PART, CRunEnding::NobodyTakesPart) &&
              Is(TARVEX_MAILBOX_FAILED, CRunEnding::MailboxFailed) && Is(TARVEX_NOTHING_NEW, CRunEnding::NothingNew) &&
              Is(TARVEX_DELIVERED, CRunEnding::Delivered) && Is(TARVEX_DELIVERY_FAILED, CRunEnding::DeliveryFailed) &&
              Is(TARVEX_EXCEPTION, CRunEnding::Exception) && Is(TARVEX_KEPT_BACK, CRunEnding::KeptBack));
static_assert(Is(TARVEX_STAGE_NONE, CRunStage::None) && Is(TARVEX_STAGE_CONNECT, CRunStage::Connect) &&
              Is(TARVEX_STAGE_TLS, CRunStage::Tls) && Is(TARVEX_STAGE_GREETING, CRunStage::Greeting) &&
              Is(TARVEX_STAGE_LOGIN, CRunStage::Login) && Is(TARVEX_STAGE_LIST, CRunStage::List) &&
              Is(TARVEX_STAGE_DELETE, CRunStage::Delete) && Is(TARVEX_STAGE_RETRIEVE, CRunStage::Retrieve) &&
              Is(TARVEX_STAGE_MAIL_FROM, CRunStage::MailFrom) && Is(TARVEX_STAGE_RCPT_TO, CRunStage::RcptTo) &&
              Is(TARVEX_STAGE_DATA, CRunStage::Data) && Is(TARVEX_STAGE_END_OF_DATA, CRunStage::EndOfData));
static_assert(Is(TARVEX_FAILURE_NONE, CFailureClass::None) && Is(TARVEX_FAILURE_PERMANENT, CFailureClass::Permanent) &&
              Is(TARVEX_FAILURE_TRANSIENT, CFailureClass::Transient) &&
              Is(TARVEX_FAILURE_CONNECTION, CFailureClass::Connection) &&
              Is(TARVEX_FAILURE_TIME_OUT, CFailureClass::TimeOut) &&
              Is(TARVEX_FAILURE_PROTOCOL, CFailureClass::Protocol) && Is(TARVEX_FAILURE_LOCAL, CFailureClass::Local));
static_assert(Is(TARVEX_NOT_TRIED, CSaved::NotTried) && Is(TARVEX_SAVED, CSaved::Saved) &&
              Is(TARVEX_LEFT_ALONE, CSaved::LeftAlone) && Is(TARVEX_NOT_SAVED, CSaved::Failed));

}  // namespace

tarvex_failure Told(const CRunFailure& failure) {
    return {.stage = static_cast<int>(failure.stage),
            .failure_class = static_cast<int>(failure.failure_class),
            .reply = failure.reply.c_str(),
            .reason = failure.reason.c_str(),
            .uidl = failure.uidl.c_str(),
            .sender = failure.sender.c_str(),
            .recipient = failure.recipient.c_str()};
}

std::string NameBelow(const CString& root, const CString& path) {
    std::string name = path.substr(std::min(path.size(), root.size() + 1));
    std::ranges::replace(name, '\\', '/');
    return name;
}

CResultForC::CResultForC(const CString& root, const CString& profile, CRunResult result)
    : result_(std::move(result)),
      profile_(NameBelow(root, profile)),
      mailbox_(Told(result_.mailbox)),
      delivery_(Told(result_.delivery)) {
    TellAddresses(root);
    TellNotFetched();
    told_ = {.profile = profile_.c_str(),
             .ending = static_cast<int>(result_.ending),
             .messages_listed = result_.messages_listed,
             .messages_fetched = result_.messages_fetched,
             .messages_not_fetched = result_.messages_not_fetched,
             .messages_delivered = result_.messages_delivered,
             .copies = result_.copies,
             .bytes_received = result_.bytes_received,
             .bytes_sent = result_.bytes_sent,
             .mailbox = &mailbox_,
             .delivery = &delivery_,
             .exception = result_.exception.c_str(),
             .lists = static_cast<int>(result_.lists),
             .log = static_cast<int>(result_.log),
             .settings = static_cast<int>(result_.settings),
             .address_count = static_cast<int>(addresses_.size()),
             .addresses = addresses_.data(),
             .not_fetched_count = static_cast<int>(not_fetched_.size()),
             .not_fetched = not_fetched_.data(),
             .messages_put_off = result_.messages_put_off,
             .copies_set_aside = result_.copies_set_aside,
             .messages_kept = result_.messages_kept,
             .interrupted = result_.interrupted ? 1 : 0};
}

void CResultForC::TellAddresses(const CString& root) {
    address_names_.reserve(result_.addresses.size());  // the texts must not move
    for (const CAddressResult& address : result_.addresses) {
        const std::string& name = address_names_.emplace_back(NameBelow(root, address.path));
        addresses_.push_back({.path = name.c_str(),
                              .address = address.address.c_str(),
                              .copies = address.copies,
                              .list = static_cast<int>(address.list)});
    }
}

void CResultForC::TellNotFetched() {
    for (const CNotFetchedMail& mail : result_.not_fetched) {
        not_fetched_.push_back({.uidl = mail.uidl.c_str(),
                                .failure_class = static_cast<int>(mail.failure_class),
                                .reply = mail.reply.c_str(),
                                .reason = mail.reason.c_str()});
    }
}

}  // namespace tarvex
