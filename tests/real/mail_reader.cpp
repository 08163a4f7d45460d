// Reads and makes mails with GMime, to check ours against a second implementation.

#include "tests/real/mail_reader.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace tarvex::testing {
namespace {

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Object = std::unique_ptr<T, Unref>;

struct Free {
    void operator()(gpointer memory) const { g_free(memory); }
};
using Text = std::unique_ptr<char, Free>;

// Without a value, empty.
std::string String(const char* text) { return text ? text : ""; }

// Once for the process, and for as long as it lives.
void BeginOnce() {
    static const bool begun = (g_mime_init(), true);
    static_cast<void>(begun);
}

InternetAddress* First(InternetAddressList* list) {
    if (!list || internet_address_list_length(list) != 1) throw std::runtime_error("not one address");
    return internet_address_list_get_address(list, 0);
}

std::string AddressOf(InternetAddress* address) {
    if (!INTERNET_ADDRESS_IS_MAILBOX(address)) throw std::runtime_error("no mailbox");
    return String(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address)));
}

}  // namespace

SeenMail ReadMail(const std::string& stored) {
    BeginOnce();
    const Object<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(stored.data(), stored.size()));
    const Object<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
    const Object<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
    if (!message) throw std::runtime_error("no mail");
    GMimeObject* const part = g_mime_message_get_mime_part(message.get());
    if (!GMIME_IS_TEXT_PART(part)) throw std::runtime_error("no text");

    SeenMail seen;
    InternetAddress* const from = First(g_mime_message_get_from(message.get()));
    seen.from_name = String(internet_address_get_name(from));
    seen.from_address = AddressOf(from);
    seen.to_address = AddressOf(First(g_mime_message_get_to(message.get())));
    seen.subject = String(g_mime_message_get_subject(message.get()));
    seen.date = String(g_mime_object_get_header(GMIME_OBJECT(message.get()), "Date"));
    seen.content_type = String(Text(g_mime_content_type_get_mime_type(g_mime_object_get_content_type(part))).get());
    seen.charset = String(g_mime_object_get_content_type_parameter(part, "charset"));
    seen.text = String(Text(g_mime_text_part_get_text(GMIME_TEXT_PART(part))).get());
    std::erase(seen.text, '\r');
    return seen;
}

std::string FromUtf8(const std::string& text, const std::string& charset) {
    gsize bytes = 0;
    const Text converted(
        g_convert(text.data(), static_cast<gssize>(text.size()), charset.c_str(), "UTF-8", nullptr, &bytes, nullptr));
    if (!converted) throw std::runtime_error("not to be had in " + charset);
    return {converted.get(), bytes};
}

std::string InBase64(const std::string& bytes) {
    constexpr std::size_t kColumns = 76;
    const std::string base64 =
        String(Text(g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size())).get());
    std::string lines;
    for (std::size_t i = 0; i < base64.size(); i += kColumns) lines += base64.substr(i, kColumns) + "\r\n";
    return lines;
}

std::string EncodedWord(const std::string& text, const std::string& charset) {
    const std::string bytes = FromUtf8(text, charset);
    return "=?" + charset + "?B?" +
           String(Text(g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size())).get()) + "?=";
}

}  // namespace tarvex::testing
