#include "plot/SvgStyle.h"

#include <fmt/format.h>

namespace Korvel {

namespace {

struct Palette {
    const char* page;
    const char* text;
    const char* muted;
    const char* grid;
    const char* bit;
    const char* bus;
    const char* cell;
    const char* unknown;
    const char* floating;
    const char* event;
};

constexpr Palette Light{"#ffffff", "#1f2328", "#6a737d", "#e3e7eb", "#1a7f37",
                        "#2563ad", "#eef5fd", "#cf222e", "#b26a00", "#8250df"};
constexpr Palette Dark{"#0d1117", "#e6edf3", "#8b949e", "#242a32", "#3fb950",
                       "#58a6ff", "#12233a", "#ff6b63", "#e3a02e", "#bc8cff"};

constexpr const char* Shapes = R"(text{font:11px "DejaVu Sans",Verdana,Arial,sans-serif}
.title{font-size:15px;font-weight:bold}
.heading{font-size:11px}
.name{font:12px "DejaVu Sans Mono",Menlo,Consolas,monospace}
.value{font:11px "DejaVu Sans Mono",Menlo,Consolas,monospace;text-anchor:middle}
.tick{text-anchor:middle}
.grid,.edge{fill:none;stroke-width:1}
.wave{fill:none;stroke-width:1.3}
.bus,.unknown{stroke-width:1.1}
.high{fill-opacity:.13}
.unknown{fill-opacity:.14}
.dense,.run{fill-opacity:.5}
.floating{fill:none;stroke-width:1.4;stroke-dasharray:5 3}
.none{fill:none;stroke-width:1.2;stroke-dasharray:1.2 3.2}
.event{fill:none;stroke-width:1.3}
)";

std::string colours(const Palette& palette) {
    return fmt::format(
        ".page{{fill:{page}}}\n"
        ".title,.name,.value{{fill:{text}}}\n"
        ".caption,.heading,.tick{{fill:{muted}}}\n"
        ".grid{{stroke:{grid}}}\n"
        ".edge,.none{{stroke:{muted}}}\n"
        ".wave{{stroke:{bit}}}\n"
        ".high,.dense{{fill:{bit}}}\n"
        ".bus{{stroke:{bus};fill:{cell}}}\n"
        ".run{{fill:{bus}}}\n"
        ".unknown{{stroke:{unknown};fill:{unknown}}}\n"
        ".bad{{fill:{unknown}}}\n"
        ".floating{{stroke:{floating}}}\n"
        ".event{{stroke:{event}}}\n",
        fmt::arg("page", palette.page), fmt::arg("text", palette.text),
        fmt::arg("muted", palette.muted), fmt::arg("grid", palette.grid),
        fmt::arg("bit", palette.bit), fmt::arg("bus", palette.bus), fmt::arg("cell", palette.cell),
        fmt::arg("unknown", palette.unknown), fmt::arg("floating", palette.floating),
        fmt::arg("event", palette.event));
}

}  // namespace

std::string styleSheet(Theme theme) {
    const std::string shapes = Shapes;
    if (theme == Theme::Dark) return shapes + colours(Dark);
    if (theme == Theme::Light) return shapes + colours(Light);
    return shapes + colours(Light) + "@media (prefers-color-scheme:dark){\n" + colours(Dark) +
           "}\n";
}

}  // namespace Korvel
