// Writes HTML: the one place where bytes become it.

#include "console/http/html.h"

#include <algorithm>
#include <array>

#include "console/http/message.h"

namespace tarvex::console {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

bool HasNoEnd(std::string_view element) {
    constexpr std::array<std::string_view, 7> kEmpty{"br", "hr", "img", "input", "wbr", "col", "source"};
    return std::ranges::find(kEmpty, element) != kEmpty.end();
}

// A place in the page itself, another query for it, or another page of the console.
bool LeadsToUs(std::string_view address) {
    if (address.starts_with('#') || address.starts_with('?')) return IsLocal("/" + std::string(address));
    return IsLocal(address);
}

}  // namespace

std::string Escaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            case '\t':
            case '\n':
            case '\r':
                escaped += c;
                break;
            default: {
                const bool is_control = static_cast<unsigned char>(c) < ' ' || c == 0x7F;
                is_control ? escaped += kReplacement : escaped += c;
            }
        }
    }
    return escaped;
}

Html Text(std::string_view text) { return Html(Escaped(text)); }

bool AttributeName::HoldsAddress() const {
    constexpr std::array<std::string_view, 6> kAddresses{"href", "src", "action", "formaction", "srcset", "poster"};
    return std::ranges::find(kAddresses, name_) != kAddresses.end();
}

std::string Attribute::Written() const {
    if (!value_) return {};
    const std::string_view value = name_.HoldsAddress() && !LeadsToUs(*value_) ? "#" : std::string_view(*value_);
    return " " + std::string(name_.Get()) + "=\"" + Escaped(value) + '"';
}

class ElementWriter {
public:
    static Html Write(std::string_view name, std::initializer_list<Attribute> attributes,
                      std::initializer_list<Node> content) {
        std::string bytes = '<' + std::string(name);
        for (const Attribute& attribute : attributes) bytes += attribute.Written();
        bytes += '>';
        if (HasNoEnd(name)) return Html(std::move(bytes));
        // A line end at the very start of these is not shown.
        if (name == "pre" || name == "textarea") bytes += '\n';
        for (const Node& node : content) bytes += node.AsHtml().Bytes();
        return Html(std::move(bytes.append("</").append(name).append(">")));
    }
};

Html El(ElementName name, std::initializer_list<Attribute> attributes, std::initializer_list<Node> content) {
    return ElementWriter::Write(name.Get(), attributes, content);
}

std::string Document(const DocumentHead& head, const Html& body) {
    const auto link = [](std::string_view before, std::string_view path, std::string_view behind) {
        return std::string(before).append(Escaped(path)).append(behind);
    };
    return "<!DOCTYPE html>\n<html lang=\"" + Escaped(head.language) +
           "\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
           Escaped(head.title) + "</title>\n" + link("<link rel=\"stylesheet\" href=\"", head.style, "\">\n") +
           link("<link rel=\"icon\" type=\"image/svg+xml\" href=\"", head.icon, "\">\n") +
           link("<script src=\"", head.script, "\" defer></script>\n") + "</head>\n" + body.Bytes() + "\n</html>\n";
}

}  // namespace tarvex::console
