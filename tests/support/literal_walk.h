#pragma once

// The walk through the parts of a message as it is defined: byte by byte and recursive, so slow. For tests and fuzz
// targets, to compare with.

#include <string>

#include "platform/codec/mail_header.h"
#include "platform/codec/text.h"
#include "rewrite/mime_walk.h"

namespace tarvex::testing {

inline CString LiteralBoundary(const CString& content_type, std::size_t begin) {
    CString boundary = content_type.substr(begin);
    std::size_t end = boundary.size() > 1 ? boundary.find(';', 1) : CString::npos;
    if (end == CString::npos && boundary.size() > 1) end = boundary.find(' ', 1);
    if (end != CString::npos) boundary.resize(end);
    if (!boundary.empty() && boundary.front() == '"') boundary.erase(0, 1);
    if (!boundary.empty() && boundary.back() == '"') boundary.pop_back();
    return boundary;
}

// Parts that are no multipart are read by the walk that is compared.
inline CString LiteralWalk(const CString& part, bool accept_html) {
    const CString content_type = ReadContentFields(HeaderOf(part)).content_type;
    const CString lowered = ToLower(content_type);
    if (lowered.find("multipart/") == CString::npos) return PickReadableText(part, accept_html);
    const std::size_t parameter = lowered.find("boundary=");
    if (parameter == CString::npos) return {};
    const CString boundary = LiteralBoundary(content_type, parameter + 9);

    const std::size_t blank_line = part.find("\r\n\r\n");
    const CString body = blank_line == CString::npos ? part : part.substr(blank_line + 2);
    const CString delimiter = "\r\n--" + boundary;
    for (std::size_t at = 0; at < body.size();) {
        if (body.compare(at, 4, "\r\n--") != 0) {
            ++at;
        } else if (body.compare(at, delimiter.size(), delimiter) != 0) {
            at += 4;
        } else {
            const std::size_t begin = at + delimiter.size();
            const std::size_t next = body.find(delimiter, begin);
            if (next == CString::npos) return {};
            CString text = LiteralWalk(body.substr(begin, next - begin), false);
            if (!text.empty()) return text;
            if (body.compare(next + delimiter.size(), 2, "--") == 0) return {};
            at = next;
        }
    }
    return {};
}

}  // namespace tarvex::testing
