// Commands, counted and made to fail.

#include "loopback/command_session.h"

#include <cctype>
#include <utility>

namespace tarvex::loopback {

std::string_view WithoutLineEnd(std::string_view line) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

std::string Verb(std::string_view command) {
    std::string verb(command.substr(0, command.find(' ')));
    for (char& c : verb) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return verb;
}

std::string_view Argument(std::string_view command) {
    const std::size_t blank = command.find(' ');
    if (blank == std::string_view::npos) return {};
    const std::size_t start = command.find_first_not_of(' ', blank);
    return start == std::string_view::npos ? std::string_view() : command.substr(start);
}

void CommandDesk::SetFault(Fault fault) {
    auto shared = std::make_shared<Fault>(std::move(fault));
    const std::lock_guard guard(mutex_);
    fault_.swap(shared);
}

int CommandDesk::Received(const std::string& verb) const {
    const std::lock_guard guard(mutex_);
    const auto count = received_.find(verb);
    return count == received_.end() ? 0 : count->second;
}

std::string CommandDesk::Register(const std::string& command) {
    std::shared_ptr<Fault> fault;  // not a copy of the function, which may count its calls
    {
        const std::lock_guard guard(mutex_);
        ++received_[Verb(command)];
        fault = fault_;
    }
    return fault && *fault ? (*fault)(command) : std::string();
}

void CommandSession::OnCommand(const std::string& command) {
    const std::string fault = desk_.Register(command);
    if (fault == "close") return HangUp();
    if (fault == "stall") return Stall();
    if (fault == "lose") {
        Obey(command);
        return HangUp();
    }
    if (!fault.empty()) return Answer(std::string(WithoutLineEnd(fault)) + "\r\n");
    Answer(Obey(command));
}

}  // namespace tarvex::loopback
