#pragma once

#include "DMX/ArtNetDiscoveryState.h"
#include "DMX/ArtNetHealth.h"

#include <QVariant>

// Art-Net discovery and health as the dashboard reads them.
namespace kelvo::model_variants {

/// {"ip", "mac", "shortName", "longName", "outputUniverses", "transmittingUniverses",
/// "lastSeen" (date and time)}
QVariantMap artnetNode(const ArtNetNode& node);
/// {"nodes", "heardAnyTraffic", "pollCycles", "failureReason" (null when listening)}
QVariantMap artnetDiscoveryState(const ArtNetDiscoveryState& state);
/// {"case" (e.g. "hostSilent"), "headline", "detail", "fix" (the repair's summary, or null)}
QVariantMap artnetHealth(const ArtNetHealth& health);

} // namespace kelvo::model_variants
