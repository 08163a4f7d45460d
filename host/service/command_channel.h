#pragma once

// The way by which commands reach the service that owns a tree, as a command has it (see control_channel.h).

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarvex::host {

class CommandChannel {
public:
    // Null when there is no service. Throws CommandError when what answers is another user's, and, with kTryLater, when
    // it takes nobody any more.
    static std::unique_ptr<CommandChannel> Open(const std::string& root);

    virtual ~CommandChannel() = default;

    // Until all is sent, or the service does not read on: its answer tells why. False when it failed.
    virtual bool Send(std::string_view bytes) = 0;

    // False when nothing comes within so long.
    virtual bool HasMore(std::chrono::milliseconds time) = 0;

    // So many bytes. Nothing when the service ends before, or falls silent for longer than the patience.
    virtual std::optional<std::string> Receive(std::size_t size) = 0;

    virtual void SetPatience(std::chrono::milliseconds patience) = 0;  // without limit until then
};

}  // namespace tarvex::host
