#include "DMX/ArtNetHealthMonitor.h"

namespace kelvo {

ArtNetHealthMonitor::ArtNetHealthMonitor(ArtNetDiscovering& discovery,
                                         TransportStatusReader transportStatus,
                                         SettingsReader settings, QObject* parent)
    : QObject(parent), discovery_(discovery), transportStatus_(std::move(transportStatus)),
      settings_(std::move(settings)) {
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setInterval(tickInterval);
    connect(&timer_, &QTimer::timeout, this, &ArtNetHealthMonitor::refresh);
}

void ArtNetHealthMonitor::start() {
    if (timer_.isActive())
        return;
    const ArtNetOutputView settings = settings_();
    discovery_.setUnicastTarget(settings.enabled ? std::optional(settings.host) : std::nullopt);
    discovery_.start();
    timer_.start();
}

void ArtNetHealthMonitor::refresh() {
    ArtNetDiscoveryState discovery = discovery_.snapshot();
    if (discovery != discoveryState_) {
        discoveryState_ = discovery;
        emit discoveryStateChanged();
    }

    const UDPTransportStatus transport = transportStatus_();
    const std::int64_t delta = transport.packetsSent - lastPacketCount_;
    idleChecks_ = delta == 0 ? idleChecks_ + 1 : 0;
    lastPacketCount_ = transport.packetsSent;
    if (delta != packetsPerSecond_) {
        packetsPerSecond_ = delta;
        emit packetsPerSecondChanged();
    }

    ArtNetOutputView settings = settings_();
    const bool confirmed = ArtNetDiagnosis::nodeConfirmsOutput(
        settings.host, settings.mappedUniverses, discovery.nodes);
    unconfirmedChecks_ = confirmed ? 0 : unconfirmedChecks_ + 1;

    ArtNetHealth health =
        ArtNetDiagnosis::classify({.artnetEnabled = settings.enabled,
                                   .artnetHost = std::move(settings.host),
                                   .mappedUniverses = std::move(settings.mappedUniverses),
                                   .transport = transport,
                                   .discovery = std::move(discovery),
                                   .idleChecks = idleChecks_,
                                   .unconfirmedChecks = unconfirmedChecks_});
    if (health != health_) {
        health_ = std::move(health);
        emit healthChanged();
    }

    if (!settings.autoFix)
        return;
    if (const std::optional<ArtNetAutoFix> fix = ArtNetDiagnosis::autoFix(health_))
        emit autoFixDue(*fix);
}

} // namespace kelvo
