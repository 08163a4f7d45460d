// Errors of Windows Sockets, in the words that POSIX has for them.

#include "platform/net/windows/socket_error.h"

#include <winsock2.h>

namespace tarvex {

std::string SocketErrorText(int error) {
    switch (error) {
        case WSAECONNREFUSED:
            return "Connection refused";
        case WSAECONNRESET:
            return "Connection reset by peer";
        case WSAECONNABORTED:
            return "Software caused connection abort";
        case WSAETIMEDOUT:
            return "Connection timed out";
        case WSAENETUNREACH:
            return "Network is unreachable";
        case WSAEHOSTUNREACH:
            return "No route to host";
        case WSAEADDRNOTAVAIL:
            return "Cannot assign requested address";
        case WSAEAFNOSUPPORT:
            return "Address family not supported by protocol";
        case WSAEACCES:  // a firewall, mostly
            return "Permission denied";
        case WSAEADDRINUSE:
            return "Address already in use";
        case WSAENETDOWN:
            return "Network is down";
        case WSAEHOSTDOWN:
            return "Host is down";
        case WSAENOBUFS:
            return "No buffer space available";
        case WSAENOTCONN:
            return "Transport endpoint is not connected";
        case WSAEMFILE:
            return "Too many open files";
        case WSAESHUTDOWN:
            return "Broken pipe";
        case WSAHOST_NOT_FOUND:
            return "Name or service not known";
        case WSATRY_AGAIN:
            return "Temporary failure in name resolution";
        case WSANO_RECOVERY:
            return "Non-recoverable failure in name resolution";
        case WSANO_DATA:
            return "No address associated with hostname";
        default:
            return "error " + std::to_string(error);
    }
}

FailureKind ConnectFailureKind(int error) {
    switch (error) {
        case WSAECONNREFUSED:
            return FailureKind::NotListening;
        case WSAEHOSTDOWN:
        case WSAEHOSTUNREACH:
        case WSAENETDOWN:
        case WSAENETUNREACH:
            return FailureKind::NoRoute;
        case WSAEMFILE:
        case WSAENOBUFS:
            return FailureKind::Local;
        default:
            return FailureKind::NoConnection;
    }
}

}  // namespace tarvex
