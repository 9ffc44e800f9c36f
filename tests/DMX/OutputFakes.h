#pragma once

#include "DMX/EnttecWidgetFinder.h"
#include "DMX/OutputSettings.h"
#include "DMX/SerialPortWriting.h"
#include "DMX/UDPSending.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kelvo::test {

/// Records every datagram instead of sending it.
class RecordingTransport final : public UDPSending {
public:
    struct Sent {
        std::vector<std::uint8_t> datagram;
        std::string host;
        std::uint16_t port;
    };
    void send(std::span<const std::uint8_t> datagram, const std::string& host,
              std::uint16_t port) override {
        sent.push_back({{datagram.begin(), datagram.end()}, host, port});
    }
    std::vector<Sent> sent;
};

/// What happened to the fake serial devices, by path.
struct SerialBench {
    std::map<std::string, std::vector<std::vector<std::uint8_t>>> frames;
    std::vector<std::string> plugged; ///< the candidates, in order
    std::vector<std::string> unopenable, failingWrites, notWidgets;
    std::vector<std::string> fullDevices; ///< take no frame now
    std::map<std::string, int> identified;
    std::mutex lock; ///< held while a port opens or closes: scans may run on a worker
    std::vector<std::string> closed;
    int scans = 0;
};

inline bool listed(const std::vector<std::string>& list, const std::string& path) {
    return std::ranges::find(list, path) != list.end();
}

class FakeSerialPort final : public SerialPortWriting {
public:
    FakeSerialPort(std::string path, SerialBench& bench) : path_(std::move(path)), bench_(bench) {}
    ~FakeSerialPort() override { close(); }
    const std::string& path() const override { return path_; }
    int fileDescriptor() const override { return fd_; }
    void open() override {
        std::lock_guard guard(bench_.lock);
        if (fd_ >= 0)
            return;
        if (listed(bench_.unopenable, path_))
            throw SerialPortError::openFailed(path_);
        fd_ = 42;
    }
    bool write(std::span<const std::uint8_t> frame) override {
        open();
        if (listed(bench_.failingWrites, path_))
            throw SerialPortError::writeFailed(path_);
        if (listed(bench_.fullDevices, path_))
            return false;
        bench_.frames[path_].emplace_back(frame.begin(), frame.end());
        return true;
    }
    void close() override {
        std::lock_guard guard(bench_.lock);
        if (fd_ >= 0)
            bench_.closed.push_back(path_);
        fd_ = -1;
    }

private:
    std::string path_;
    SerialBench& bench_;
    int fd_ = -1;
};

/// Scans the bench's devices on the caller's thread; `identify` replaces the real rules.
inline EnttecScanning fakeScanning(
    SerialBench& bench, EnttecScanning::Runner run = [](auto task) { task(); }) {
    return {[&bench](const std::string& path) -> std::unique_ptr<SerialPortWriting> {
                return std::make_unique<FakeSerialPort>(path, bench);
            },
            [&bench] {
                ++bench.scans;
                return bench.plugged;
            },
            [&bench](const std::string& path, SerialPortWriting&) {
                ++bench.identified[path];
                return listed(bench.notWidgets, path) ? WidgetVerdict::notWidget
                                                      : WidgetVerdict::widget;
            },
            std::move(run)};
}

/// A settings store that starts empty and keeps what is saved.
class MemorySettingsStore final : public OutputSettingsStore {
public:
    void saveRoutes(const std::vector<UniverseRoute>& r) override { routes = r; }
    void saveArtNetEnabled(bool) override {}
    void saveArtNetHost(const std::string&) override {}
    void saveArtNetAutoFix(bool v) override { artnetAutoFix = v; }
    void saveEnttecEnabled(bool v) override { enttecEnabled = v; }
    std::optional<std::vector<UniverseRoute>> loadRoutes() const override { return {}; }
    std::optional<ArtNetConfig> loadArtNetConfig() const override { return {}; }
    std::optional<bool> loadEnttecEnabled() const override { return {}; }
    std::optional<bool> loadArtNetAutoFix() const override { return {}; }

    std::optional<std::vector<UniverseRoute>> routes;
    std::optional<bool> artnetAutoFix, enttecEnabled;
};

} // namespace kelvo::test
