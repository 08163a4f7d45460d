// What Windows wants said of a socket that listens.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/listener.h"

#include "host/language/tr.h"

namespace tarvex::console {

void ListenAtPath(Acceptor& /*acceptor*/, const Place& place, const std::string& /*group*/) {
    throw CannotListen(place, host::Tr("on Windows the console listens at an address"));
}

void RemovePath(const Place& /*place*/) {}

// By default Windows lets another program take the same port. One that has just been given up is free at once.
void Claim(Acceptor& acceptor) {
    acceptor.set_option(boost::asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>(true));
}

}  // namespace tarvex::console
