// Serves the files that are compiled in.

#include "console/pages/static_files.h"

#include <algorithm>

#include "console/pages/frame.h"

namespace tarvex::console {

std::string StaticPath(std::string_view name) {
    const auto file = std::ranges::find(StaticFiles(), name, &StaticFile::name);
    return file == StaticFiles().end() ? "/" : "/static/" + std::string(file->served);
}

HttpResponse ServeStaticFile(const HttpRequest& request) {
    const auto file = std::ranges::find(StaticFiles(), request.Place("file"), &StaticFile::served);
    if (file == StaticFiles().end()) return ErrorPage(request, 404);
    const std::string tag = '"' + std::string(file->served) + '"';
    HttpResponse response;
    response.headers = {{"Cache-Control", "public, max-age=31536000, immutable"}, {"ETag", tag}};
    if (request.Header("if-none-match") == tag) {
        response.status = 304;
        return response;
    }
    response.headers.push_back({"Content-Type", std::string(file->type)});
    response.body = file->bytes;
    return response;
}

}  // namespace tarvex::console
