// Writes the fields of forms, and reads what was typed into them.

#include "console/pages/fields.h"

#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

std::string NameOfWas(const FormField& field) { return std::string("was-") + field.key; }

std::string NameOfClear(const FormField& field) { return std::string("clear-") + field.key; }

bool IsToBeCleared(const FormField& field, const HttpRequest& request) {
    return field.kind == Kind::Password && request.Form(NameOfClear(field)) == "on";
}

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

// Takes a password away that is there: an empty field leaves it.
Html ClearBox(const FormField& field, bool is_checked) {
    return El(
        "label", {{"class", "check"}},
        {El("input", {{"type", "checkbox"}, {"name", NameOfClear(field)}, {"value", "on"}, {"checked", is_checked}}),
         El("span", {}, {Tr("Remove what is stored: {0}", Tr(field.label))})});
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
    for (const Json& key : keys) {
        const bool is_none = IsTrue(key, "secret") && TextOf(key, "json").empty();  // of a secret it says no more
        values.push_back({TextOf(key, "key"), is_none ? "" : TextOf(key, "value")});
    }
    return values;
}

Html WriteFields(std::span<const FormField> fields, const Viewer& viewer, const Fields& values, const Fields& was) {
    Html html;
    for (const FormField& field : fields) {
        if (field.for_administrators && !viewer.is_administrator) continue;
        html += WriteField(field, ValueOf(values, field.key));
        const std::string_view before = ValueOf(was, field.key);
        const bool is_password = field.kind == Kind::Password;
        if (is_password && before.empty()) continue;  // there is none
        if (is_password) html += ClearBox(field, ValueOf(values, NameOfClear(field)) == "on");
        html += Hidden(NameOfWas(field), before);
    }
    return html;
}

Fields TypedIn(std::span<const FormField> fields, const HttpRequest& request) {
    Fields values;
    for (const FormField& field : fields) {
        values.push_back({field.key, TypedInto(field, request)});
        if (IsToBeCleared(field, request)) values.push_back({NameOfClear(field), "on"});
    }
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
            if (typed.empty() && !IsToBeCleared(field, request)) continue;
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

bool AddChangedAccount(std::span<const FormField> fields, const HttpRequest& request, Json& question) {
    const bool is_any = AddChanged(fields, request, question);
    const FormField& server = fields.front();
    if (TypedInto(server, request) == ValueOf(request.form, NameOfWas(server))) return is_any;
    for (const FormField& field : fields) {
        if (field.kind != Kind::Password) question["values"][field.key] = TypedInto(field, request);
    }
    return true;
}

}  // namespace tarvex::console
