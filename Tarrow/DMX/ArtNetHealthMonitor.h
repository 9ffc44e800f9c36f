#pragma once

#include "DMX/ArtNetDiagnosis.h"
#include "DMX/ArtNetDiscovery.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>

namespace kelvo {

/// The Art-Net settings one health tick reads.
struct ArtNetOutputView {
    bool enabled = false;
    std::string host;
    bool autoFix = true;
    std::vector<std::int64_t> mappedUniverses;
};

/// Once a second on the main thread: copies the transport status and the discovery state,
/// keeps the packet rate and the settling counters, judges delivery and publishes what changed.
/// When a repair exists and auto-fix is on it asks its owner to apply it.
class ArtNetHealthMonitor : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds tickInterval{1000};

    using TransportStatusReader = std::function<UDPTransportStatus()>;
    using SettingsReader = std::function<ArtNetOutputView()>;

    ArtNetHealthMonitor(ArtNetDiscovering& discovery, TransportStatusReader transportStatus,
                        SettingsReader settings, QObject* parent = nullptr);

    /// Aims discovery, starts it and the 1 s timer (first tick a second from now). Once only.
    void start();
    bool isStarted() const { return timer_.isActive(); }
    /// One tick.
    void refresh();

    const ArtNetHealth& health() const { return health_; }
    const ArtNetDiscoveryState& discoveryState() const { return discoveryState_; }
    std::int64_t packetsPerSecond() const { return packetsPerSecond_; }
    std::int64_t idleChecks() const { return idleChecks_; }
    std::int64_t unconfirmedChecks() const { return unconfirmedChecks_; }

signals:
    void discoveryStateChanged();
    void healthChanged();
    void packetsPerSecondChanged();
    /// Auto-fix is on and this repair applies to the health just published.
    void autoFixDue(const kelvo::ArtNetAutoFix& fix);

private:
    ArtNetDiscovering& discovery_;
    TransportStatusReader transportStatus_;
    SettingsReader settings_;
    QTimer timer_;

    ArtNetHealth health_;
    ArtNetDiscoveryState discoveryState_;
    std::int64_t packetsPerSecond_ = 0;
    std::int64_t lastPacketCount_ = 0;
    std::int64_t idleChecks_ = 0;
    std::int64_t unconfirmedChecks_ = 0;
};

} // namespace kelvo
