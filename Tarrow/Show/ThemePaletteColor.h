#pragma once

namespace kelvo {

/// One colour of a theme palette or of the engine's live scheme, components nominally 0...1.
struct ThemePaletteColor {
    double r = 0.0;
    double g = 0.0;
    double b = 0.0;
    friend bool operator==(const ThemePaletteColor&, const ThemePaletteColor&) = default;
};

} // namespace kelvo
