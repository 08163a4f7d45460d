// HTML that cannot be written wrong.

#include "console/http/html.h"

#include <gtest/gtest.h>

#include "console/http/security_headers.h"

namespace tarvex::console {
namespace {

TEST(Html, TextIsEscapedWhereverItStands) {
    const std::string hostile = "<script>alert('x')</script>\"&\x01";
    const Html html = El("p", {{"title", hostile}, {"data-x", "'"}}, {hostile, El("b", {}, {"<i>"}), 7});
    EXPECT_EQ(html.Bytes(),
              "<p title=\"&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&quot;&amp;\xEF\xBF\xBD\" data-x=\"&#39;\">"
              "&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&quot;&amp;\xEF\xBF\xBD<b>&lt;i&gt;</b>7</p>");
}

TEST(Html, AnAddressLeadsOnlyIntoTheConsole) {
    for (const char* const foreign : {"javascript:alert(1)", "//evil.example/", "https://evil.example/",
                                      "/\\evil.example", "data:text/html,x", " /a", "/a\nb", ""})
        EXPECT_EQ(El("a", {{"href", foreign}}, {"x"}).Bytes(), "<a href=\"#\">x</a>") << foreign;
    for (const std::string ours : {"/", "/users/a%20b?page=2", "?page=2", "#content"})
        EXPECT_EQ(El("a", {{"href", ours}}).Bytes(), "<a href=\"" + ours + "\"></a>");
    EXPECT_EQ(El("form", {{"action", "//x"}}).Bytes(), "<form action=\"#\"></form>");
}

TEST(Html, AttributesWithoutValueAreThereOrNot) {
    EXPECT_EQ(El("input", {{"required", true}, {"disabled", false}, {"value", std::optional<std::string>()}}).Bytes(),
              "<input required=\"\">");
}

TEST(Html, TheFirstLineEndOfPreformattedTextStays) {
    EXPECT_EQ(El("textarea", {}, {"\n</textarea>"}).Bytes(), "<textarea>\n\n&lt;/textarea&gt;</textarea>");
}

TEST(Html, ADocumentNamesItsLanguageAndParts) {
    const std::string document = Document({"ja", "<題>", "/s.css", "/s.js", "/i.svg"}, El("body"));
    EXPECT_TRUE(document.starts_with("<!DOCTYPE html>\n<html lang=\"ja\">"));
    EXPECT_NE(document.find("<title>&lt;題&gt;</title>"), std::string::npos);
    for (const char* const part : {"\"/s.css\"", "\"/s.js\"", "\"/i.svg\""})
        EXPECT_NE(document.find(part), std::string::npos) << part;
}

TEST(SecurityHeaders, EveryAnswerHasThem) {
    HttpResponse response;
    AddSecurityHeaders(response, true);
    EXPECT_EQ(
        ValueOf(response.headers, "Content-Security-Policy"),
        "default-src 'none'; style-src 'self'; script-src 'self'; img-src 'self'; connect-src 'self'; form-action "
        "'self'; frame-ancestors 'none'; base-uri 'none'");
    EXPECT_EQ(ValueOf(response.headers, "X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(ValueOf(response.headers, "Cache-Control"), "no-store");
    EXPECT_TRUE(Find(response.headers, "Strict-Transport-Security"));
    HttpResponse file;
    file.headers = {{"Cache-Control", "public"}};
    AddSecurityHeaders(file, false);
    EXPECT_EQ(AllOf(file.headers, "Cache-Control").size(), 1U);
    EXPECT_FALSE(Find(file.headers, "Strict-Transport-Security"));
}

}  // namespace
}  // namespace tarvex::console
