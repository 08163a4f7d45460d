// Draws QR codes, which libqrencode computes.

#include "console/pages/people/qr_picture.h"

#include <qrencode.h>

#include <cstddef>
#include <memory>

namespace tarvex::console {
namespace {

constexpr int kQuiet = 4;  // modules around it that stay light
constexpr int kPixelsAModule = 5;

// The dark modules of each row, as rectangles of one path.
std::string DarkOf(const QRcode& code) {
    const auto width = static_cast<std::size_t>(code.width);
    const auto is_dark = [&](std::size_t x, std::size_t y) { return (code.data[y * width + x] & 1) != 0; };
    std::string path;
    for (std::size_t y = 0; y < width; ++y) {
        for (std::size_t x = 0; x < width; ++x) {
            if (!is_dark(x, y)) continue;
            const std::size_t begin = x;
            while (x < width && is_dark(x, y)) ++x;
            const std::string length = std::to_string(x - begin);
            path += 'M' + std::to_string(begin + kQuiet) + ' ' + std::to_string(y + kQuiet);
            path += 'h' + length + "v1h-" + length + 'z';
        }
    }
    return path;
}

}  // namespace

Html QrPicture(std::string_view text, std::string_view says) {
    const std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeData(static_cast<int>(text.size()), reinterpret_cast<const unsigned char*>(text.data()), 0,
                          QR_ECLEVEL_M),
        QRcode_free);
    if (!code) return {};
    const int width = code->width + 2 * kQuiet;
    const std::string size = std::to_string(width);
    return El("svg",
              {{"viewbox", "0 0 " + size + ' ' + size},  // as HTML spells it
               {"width", width * kPixelsAModule},
               {"height", width * kPixelsAModule},
               {"role", "img"},
               {"aria-label", says},
               {"class", "qr"},
               {"shape-rendering", "crispEdges"}},
              {El("rect", {{"width", size}, {"height", size}, {"fill", "#fff"}}),
               El("path", {{"d", DarkOf(*code)}, {"fill", "#000"}})});
}

}  // namespace tarvex::console
