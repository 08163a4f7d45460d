#pragma once

// The files that pages refer to: style sheet, script, icon. They are compiled into the program, and their names hold a
// digest of what is in them, so that a browser keeps them for good.

#include <span>
#include <string_view>

#include "console/http/message.h"

namespace tarvex::console {

struct StaticFile {
    std::string_view name;    // "style.css"
    std::string_view served;  // "style-1f2e3d4c5b6a.css"
    std::string_view type;
    std::string_view bytes;
};

std::span<const StaticFile> StaticFiles();  // the build makes it of console/static

// The path of a file by its name, which must be there.
std::string StaticPath(std::string_view name);

// The answer to "/static/{file}".
HttpResponse ServeStaticFile(const HttpRequest& request);

}  // namespace tarvex::console
