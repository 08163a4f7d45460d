#pragma once

// The sockets at which the console listens.

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <string>

#include "console/place.h"
#include "host/system/command_error.h"

namespace tarvex::console {

using Acceptor = boost::asio::basic_socket_acceptor<boost::asio::generic::stream_protocol>;

// Listens there. A Unix socket is for its owner and the group (of the process when none is named), and one that was
// left behind is replaced. Throws CommandError.
void ListenAt(Acceptor& acceptor, const Place& place, const std::string& group);

// The same at a path, where the system has Unix sockets.
void ListenAtPath(Acceptor& acceptor, const Place& place, const std::string& group);

// Nothing that listens there.
void RemovePath(const Place& place);

// Sees to it that an address is this process's alone, and at once after the one before it.
void Claim(Acceptor& acceptor);

// The port that it listens at; 0 for a Unix socket.
int PortOf(const Acceptor& acceptor);

// The IP address of an end point; empty for a Unix socket.
std::string AddressIn(const boost::asio::generic::stream_protocol::endpoint& endpoint);

// How many may wait to be taken.
inline constexpr int kBacklog = 1024;

host::CommandError CannotListen(const Place& place, const std::string& why);

}  // namespace tarvex::console
