#pragma once

// A browser that sends what the test wants and reads what comes.

#include <chrono>
#include <string>
#include <string_view>

#include "host/system/posix/descriptor.h"

namespace tarvex::testing {

// Waits for all it does no longer than this.
inline constexpr std::chrono::seconds kClientPatience{60};

class RawClient {
public:
    explicit RawClient(int port);                 // on 127.0.0.1
    explicit RawClient(const std::string& path);  // a Unix socket

    // False when the console has closed the connection.
    bool Send(std::string_view bytes);

    // Sends the same so often, until it is all sent, the console closes, or it has not read for a second. How many
    // bytes went out.
    std::size_t Flood(std::string_view bytes, std::size_t times);

    // One answer: its head, and as much of a body as Content-Length says. What is there of it when the console closes.
    std::string ReadAnswer(bool has_body = true);

    // The status of an answer that has begun to come and stays to be read. Waits for it.
    int StatusAhead();

    // All until the console closes.
    std::string ReadToEnd();

private:
    bool ReadMore();

    host::Descriptor socket_;
    std::string read_;
};

// "HTTP/1.1 200 OK" -> 200; 0 for what is no answer.
int StatusIn(std::string_view answer);

// GET with a host of this machine.
std::string GetRequest(std::string_view path, std::string_view more_headers = {});

// A form as a page of the console sends it.
std::string PostRequest(std::string_view path, std::string_view form);

}  // namespace tarvex::testing
