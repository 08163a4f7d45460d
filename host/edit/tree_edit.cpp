// Accepts a tree that is an old copy.

#include "host/edit/tree_edit.h"

#include <string>

#include "host/language/tr.h"
#include "host/system/command_error.h"

namespace tarvex::host {
namespace {

constexpr const char* kExpected = "expect_generation";

std::optional<std::int64_t> ExpectedIn(const EditRequest& request) {
    const auto value = request.values.find(kExpected);
    if (value == request.values.end()) return std::nullopt;
    const std::int64_t expected = std::stoll(value->second);
    if (expected < 0 || expected >= kHighestGeneration)
        throw CommandError(kBadUsage, Tr("no tree has the generation {0}", expected));
    return expected;
}

std::string Apply(TreeAge& age, const EditRequest& request) {
    if (request.verb != EditVerb::Accept && request.verb != EditVerb::CatchUp)
        throw CommandError(kBadUsage, Tr("there is no edit \"{0}\"", EditName(request)));
    return Tr("The tree is run from now on; its generation is {0}.", age.Accept(ExpectedIn(request))) + '\n';
}

}  // namespace

EditRequest AcceptanceOfTree(EditVerb verb, std::optional<std::int64_t> expected) {
    EditRequest request(EditKind::Tree, verb, "");
    if (expected) request.values[kExpected] = std::to_string(*expected);
    return request;
}

int EditTree(TreeAge& age, const EditRequest& request, Reply& reply) {
    return ReplyOf(reply, [&] { reply.printed = Apply(age, request); });
}

}  // namespace tarvex::host
