// Writes the fields of forms, and reads what was typed into them.

#include "console/pages/fields.h"

#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

std::string NameOfWas(const FormField& field) { return std::string("was-") + field.key; }

Html Labelled(const FormField& field, const Html& input) {
    return El("label", {},
              {Tr(field.label), input, *field.hint ? El("span", {{"class", "hint"}}, {Tr(field.hint)}) : Html()});
}

Html CheckBox(const FormField& field, std::string_view value) {
    return El(
        "label", {{"class", "check"}},
        {El("input", {{"type", "checkbox"}, {"name", field.key}, {"value", "on"}, {"checked", value == "on"}}),
         El("span", {}, {Tr(field.label), *field.hint ? El("span", {{"class", "hint"}}, {Tr(field.hint)}) : Html()})});
}

Html Select(const FormField& field, std::string_view value) {
    Html options;
    bool is_known = false;
    for (const Choice& choice : field.choices) {
        is_known = is_known || choice.value == value;
        options += El("option", {{"value", choice.value}, {"selected", choice.value == value}}, {Tr(choice.label)});
    }
    if (!is_known) options += El("option", {{"value", value}, {"selected", true}}, {value});
    return Labelled(field, El("select", {{"name", field.key}}, {options}));
}

Html Input(const FormField& field, std::string_view value) {
    const bool is_password = field.kind == Kind::Password;
    const bool is_number = field.kind == Kind::Number;
    using Optional = std::optional<std::string>;
    return Labelled(field, El("input", {{"name", field.key},
                                        {"type", is_password ? "password" : "text"},
                                        {"value", is_password ? "" : value},
                                        {"inputmode", is_number ? Optional("numeric") : Optional()},
                                        {"autocomplete", is_password ? "new-password" : "off"},
                                        {"autocapitalize", "none"},
                                        {"spellcheck", "false"}}));
}

Html WriteField(const FormField& field, std::string_view value) {
    switch (field.kind) {
        case Kind::Flag:
            return CheckBox(field, value);
        case Kind::Choice:
            return Select(field, value);
        default:
            return Input(field, value);
    }
}

std::string TypedInto(const FormField& field, const HttpRequest& request) {
    const std::string_view typed = request.Form(field.key);
    if (field.kind == Kind::Flag) return typed == "on" ? "on" : "off";
    return std::string(typed);
}

}  // namespace

Fields ValuesOf(const Json& keys) {
    Fields values;
    for (const Json& key : keys) values.push_back({TextOf(key, "key"), TextOf(key, "value")});
    return values;
}

Html WriteFields(std::span<const FormField> fields, const Viewer& viewer, const Fields& values, const Fields& was) {
    Html html;
    for (const FormField& field : fields) {
        if (field.for_administrators && !viewer.is_administrator) continue;
        html += WriteField(field, ValueOf(values, field.key));
        if (field.kind != Kind::Password) html += Hidden(NameOfWas(field), ValueOf(was, field.key));
    }
    return html;
}

Fields TypedIn(std::span<const FormField> fields, const HttpRequest& request) {
    Fields values;
    for (const FormField& field : fields) values.push_back({field.key, TypedInto(field, request)});
    return values;
}

Fields ShownBefore(std::span<const FormField> fields, const HttpRequest& request) {
    Fields values;
    for (const FormField& field : fields) values.push_back({field.key, std::string(request.Form(NameOfWas(field)))});
    return values;
}

bool AddChanged(std::span<const FormField> fields, const HttpRequest& request, Json& question) {
    bool is_any = false;
    for (const FormField& field : fields) {
        const std::string typed = TypedInto(field, request);
        if (field.kind == Kind::Password) {
            if (typed.empty()) continue;
            question["secrets"][field.key] = typed;
        } else {
            const auto was = Find(request.form, NameOfWas(field));  // one that was not shown is not changed
            if (!was || typed == *was) continue;
            question["values"][field.key] = typed;
        }
        is_any = true;
    }
    return is_any;
}

}  // namespace tarvex::console
