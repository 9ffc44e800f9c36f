#pragma once

#include "Audio/MicFeatures.h"
#include "DMX/DmxFrame.h"
#include "DMX/UniverseRoute.h"
#include "Engine/DropDiagnostics.h"
#include "Engine/LightingPlot.h"
#include "Show/ShowOptions.h"

#include <QVariant>

#include <nlohmann/json.hpp>

#include <vector>

// The application model's records as the dashboard reads them: maps and lists of plain values.
// Built only when a property is read, never on a tick.
namespace kelvo::model_variants {

/// null, booleans, numbers, strings, arrays and objects as the matching QVariant types.
QVariant fromJson(const nlohmann::json& value);

/// {"low": [...], "mid": [...], "high": [...]}
QVariantMap micTrace(const MicBandTrace& trace);
/// {"bpm", "beatCount", "beat", "confidence", "drop"}
QVariantMap beatReadout(const BeatReadout& beat);
/// One map per lamp: "x", "y", "red", "green", "blue", "dimmer", "strobe".
QVariantList lightingPlot(const LightingPlot& plot);
/// One {"r", "g", "b"} map per colour.
QVariantList palette(const std::vector<ThemePaletteColor>& colors);
/// Universe number as text → channel bytes (index 0 is channel 1).
QVariantMap dmxFrame(const DmxFrame& frame);
/// {"virtualUniverse", "destination": "artnet" | "enttec" | "unmapped", "artnetUniverse"
/// (Art-Net routes only)} per route.
QVariantList routes(const std::vector<UniverseRoute>& routes);
QVariantMap dropDiagnostics(const DropDiagnostics& diagnostics);

/// Any record with a JSON form (shows, modes, themes, patches), through that form.
template <typename T> QVariant viaJson(const T& value) {
    return fromJson(nlohmann::json(value));
}

} // namespace kelvo::model_variants
