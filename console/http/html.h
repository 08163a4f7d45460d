#pragma once

// HTML that cannot be written wrong.
//
//     El("a", {{"href", "/users/" + EncodeEscapes(name)}, {"class", "user"}}, {El("b", {}, {name}), " ", size})
//
// What is no Html is text and gets escaped. The names of elements and attributes are literals that are checked when the
// program is compiled: there are no scripts, styles or handlers in a page. An address leads nowhere but to a page of
// the console; anything else becomes "#".

#include <concepts>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tarvex::console {

// Text with what means something in HTML escaped; control characters as U+FFFD, save tab and line ends.
std::string Escaped(std::string_view text);

class Html {
public:
    Html() = default;  // nothing

    Html& operator+=(const Html& more) {
        bytes_ += more.bytes_;
        return *this;
    }

    bool IsEmpty() const { return bytes_.empty(); }
    const std::string& Bytes() const { return bytes_; }

private:
    friend Html Text(std::string_view text);
    friend class ElementWriter;
    explicit Html(std::string bytes) : bytes_(std::move(bytes)) {}

    std::string bytes_;
};

Html Text(std::string_view text);

// What stands within an element.
class Node {
public:
    Node(Html html) : html_(std::move(html)) {}
    Node(std::string_view text) : html_(Text(text)) {}
    Node(const std::string& text) : html_(Text(text)) {}
    Node(const char* text) : html_(Text(text)) {}
    template <std::integral Number>
    requires(!std::same_as<Number, bool> && !std::same_as<Number, char>) Node(Number number)
        : html_(Text(std::to_string(number))) {}

    const Html& AsHtml() const { return html_; }

private:
    Html html_;
};

constexpr bool IsHtmlName(std::string_view name) {
    for (const char c : name)
        if ((c < 'a' || c > 'z') && (c < '0' || c > '9') && c != '-') return false;
    return !name.empty();
}

class ElementName {
public:
    consteval ElementName(const char* name) : name_(name) {
        for (const std::string_view barred : {"script", "style", "iframe", "object", "embed", "base", "meta", "link"})
            if (name_ == barred) throw "only the frame of the pages writes this element";
        if (!IsHtmlName(name_)) throw "this is no name of an element";
    }
    std::string_view Get() const { return name_; }

private:
    std::string_view name_;
};

class AttributeName {
public:
    consteval AttributeName(const char* name) : name_(name) {
        if (!IsHtmlName(name_) || name_.starts_with("on") || name_ == "style" || name_ == "srcdoc")
            throw "an attribute of this name may not stand in a page";
    }
    std::string_view Get() const { return name_; }
    bool HoldsAddress() const;

private:
    std::string_view name_;
};

class Attribute {
public:
    Attribute(AttributeName name, std::string_view value) : name_(name), value_(value) {}
    Attribute(AttributeName name, const std::string& value) : name_(name), value_(value) {}
    Attribute(AttributeName name, const char* value) : name_(name), value_(value) {}
    Attribute(AttributeName name, std::optional<std::string> value) : name_(name), value_(std::move(value)) {}
    template <std::integral Number>
    requires(!std::same_as<Number, bool>) Attribute(AttributeName name, Number number)
        : name_(name), value_(std::to_string(number)) {}
    // One without a value ("disabled"), there or not.
    template <std::same_as<bool> There>
    Attribute(AttributeName name, There is_there) : name_(name) {
        if (is_there) value_.emplace();
    }

    // " name="value"", or nothing.
    std::string Written() const;

private:
    AttributeName name_;
    std::optional<std::string> value_;
};

Html El(ElementName name, std::initializer_list<Attribute> attributes = {}, std::initializer_list<Node> content = {});

// A whole document around what stands in its body.
struct DocumentHead {
    std::string_view language;  // "en"
    std::string_view title;
    std::string_view style;  // the paths of the parts
    std::string_view script;
    std::string_view icon;
};
std::string Document(const DocumentHead& head, const Html& body);

}  // namespace tarvex::console
