// The side of a command: asks the service, and waits for its answer.

#include "host/service/service_connection.h"

#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include "host/language/tr.h"
#include "host/service/command_channel.h"
#include "host/service/control_channel.h"
#include "host/service/control_messages.h"
#include "host/system/command_error.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxReply_bytes = 64 << 20;
constexpr std::chrono::milliseconds kProgressInterval{100};
constexpr std::chrono::seconds kNoticeDelay{2};  // until a silent service is spoken of

CommandError Gone() {
    return {kTryLater, Tr("the service ended before it answered; see whether the change was made, and try again")};
}

std::string Sized(std::string message) {
    if (message.size() <= kMaxRequest_bytes) return message;
    throw CommandError(kBadData, Tr("this is more than the service takes at once; stop it, and try again"));
}

// The side of a command.
class AskedService : public ServiceConnection {
public:
    explicit AskedService(std::unique_ptr<CommandChannel> channel) : channel_(std::move(channel)) {}

    int Edit(const EditRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note) override;
    int Run(const RunRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note,
            const std::function<void()>& on_wait) override;
    int Held(const HeldRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note) override;
    ServiceReport Report(std::chrono::milliseconds patience) override;

private:
    int Ask(const std::string& message, Reply& reply, const std::function<void(const std::string&)>& on_note,
            const std::function<void()>& on_wait);
    void Send(const std::string& message) const;
    std::string Receive() const;

    std::unique_ptr<CommandChannel> channel_;
};

int AskedService::Edit(const EditRequest& request, Reply& reply,
                       const std::function<void(const std::string&)>& on_note) {
    const std::string message = Sized(MessageOf(ControlRequest(request)));
    // A service answers an edit at once or tells what it waits for, unless it has been halted.
    bool heard = false;
    const auto note = [&](const std::string& text) {
        heard = true;
        on_note(text);
    };
    const auto remark = [&, from = Clock::now() + kNoticeDelay] {
        if (!heard && Clock::now() >= from) note(Tr("the service does not answer yet; waiting for it"));
    };
    return Ask(message, reply, note, remark);
}

int AskedService::Run(const RunRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note,
                      const std::function<void()>& on_wait) {
    return Ask(MessageOf(ControlRequest(request)), reply, on_note, on_wait);
}

int AskedService::Held(const HeldRequest& request, Reply& reply,
                       const std::function<void(const std::string&)>& on_note) {
    return Ask(Sized(MessageOf(ControlRequest(request))), reply, on_note, {});
}

int AskedService::Ask(const std::string& message, Reply& reply, const std::function<void(const std::string&)>& on_note,
                      const std::function<void()>& on_wait) {
    Send(message);
    for (;;) {
        while (on_wait && !channel_->HasMore(kProgressInterval)) on_wait();
        const ControlReply answer = ReplyIn(Receive());
        if (const auto* const note = std::get_if<ClientNote>(&answer)) {
            on_note(note->text);
            continue;
        }
        const auto& outcome = std::get<Outcome>(answer);
        reply = outcome.reply;
        return outcome.exit_code;
    }
}

ServiceReport AskedService::Report(std::chrono::milliseconds patience) {
    channel_->SetPatience(patience);
    Send(MessageOf(ControlRequest()));
    const ControlReply answer = ReplyIn(Receive());
    if (const auto* const refusal = std::get_if<Outcome>(&answer)) {
        throw CommandError(refusal->exit_code, refusal->reply.error);
    }
    return std::get<ServiceReport>(answer);
}

void AskedService::Send(const std::string& message) const {
    if (!channel_->Send(message)) throw Gone();
}

std::string AskedService::Receive() const {
    const auto receive = [this](std::size_t size) {
        std::optional<std::string> bytes = channel_->Receive(size);
        if (!bytes) throw Gone();
        return *std::move(bytes);
    };
    const std::size_t length = LengthIn(receive(kLengthBytes));
    if (length > kMaxReply_bytes) throw Gone();
    return receive(length);
}

}  // namespace

std::unique_ptr<ServiceConnection> ServiceConnection::Try(const std::string& root) {
    std::unique_ptr<CommandChannel> channel = CommandChannel::Open(root);
    return channel ? std::make_unique<AskedService>(std::move(channel)) : nullptr;
}

}  // namespace tarvex::host
