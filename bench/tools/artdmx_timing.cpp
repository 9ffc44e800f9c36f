// Catches ArtDmx on 127.0.0.1:6454 (run it inside a private network namespace) and reports, as
// one JSON line, when the packets of one Art-Net universe arrived:
//   artdmx-timing SECONDS [--universe U] [--rises] [--arrivals]
// It listens for SECONDS after the first packet (waiting at most 30 s for it); the first
// packet's CLOCK_REALTIME lets a script measure start-up. With --rises it also lists when
// channel 1 went from 0 to lit (CLOCK_REALTIME ns), to time light against sound. The rate of
// every universe heard is reported too. With --arrivals it lists every packet's arrival
// (CLOCK_MONOTONIC ns) of that universe, to find what makes a tick late.
#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

double realtimeSeconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double monotonicSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double percentile(std::vector<double> values, double p) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const std::size_t index = std::min(values.size() - 1, std::size_t(p * double(values.size())));
    return values[index];
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: artdmx-timing SECONDS [--universe U] [--rises] [--arrivals]\n");
        return 2;
    }
    const double seconds = std::atof(argv[1]);
    int universe = 0;
    bool listRises = false;
    bool listArrivals = false;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "--universe") == 0 && i + 1 < argc)
            universe = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--rises") == 0)
            listRises = true;
        else if (std::strcmp(argv[i], "--arrivals") == 0)
            listArrivals = true;
    }
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(6454);
    ::inet_pton(AF_INET, "127.0.0.1", &local.sin_addr);
    // The bridge's own discovery holds 0.0.0.0:6454 with address reuse; this more specific
    // binding still receives everything sent to 127.0.0.1.
    const int on = 1;
    if (fd >= 0)
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (fd >= 0)
        ::setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        std::perror("artdmx-timing: bind 127.0.0.1:6454");
        return 1;
    }
    std::vector<double> arrivals, rises, monotonicArrivals;
    std::map<int, std::vector<double>> arrivalsByUniverse;
    bool lit = false;
    double first = -1;
    const double start = realtimeSeconds();
    std::vector<unsigned char> buffer(1024);
    while (true) {
        const double now = realtimeSeconds();
        const double end = first < 0 ? start + seconds + 30 : first + seconds;
        if (now >= end)
            break;
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, int((end - now) * 1000) + 1) <= 0)
            continue;
        // The kernel's receive time: the probe's own wake-up, late on a loaded machine, must
        // not count against the bridge.
        iovec part{buffer.data(), buffer.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(timespec))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t size = ::recvmsg(fd, &message, 0);
        const double readAt = realtimeSeconds();
        double at = readAt;
        for (cmsghdr* c = CMSG_FIRSTHDR(&message); c; c = CMSG_NXTHDR(&message, c)) {
            if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
                timespec stamp{};
                std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
                at = double(stamp.tv_sec) + double(stamp.tv_nsec) * 1e-9;
            }
        }
        if (size < 18 || std::memcmp(buffer.data(), "Art-Net", 8) != 0 ||
            (buffer[8] | (buffer[9] << 8)) != 0x5000)
            continue;
        arrivalsByUniverse[buffer[14] | (buffer[15] << 8)].push_back(at);
        if ((buffer[14] | (buffer[15] << 8)) != universe)
            continue;
        if (first < 0)
            first = at;
        arrivals.push_back(at);
        if (listArrivals)
            monotonicArrivals.push_back(monotonicSeconds() - (readAt - at));
        const bool nowLit = size > 18 && buffer[18] != 0;
        if (nowLit && !lit)
            rises.push_back(at);
        lit = nowLit;
    }
    std::vector<double> intervals, deviations;
    for (std::size_t i = 1; i < arrivals.size(); ++i) {
        intervals.push_back(arrivals[i] - arrivals[i - 1]);
        deviations.push_back(std::fabs(intervals.back() - 1.0 / 60.0));
    }
    const double span = arrivals.size() > 1 ? arrivals.back() - arrivals.front() : 0;
    std::printf("{\"packets\":%zu,\"rateHz\":%.3f,\"intervalP50Ms\":%.3f,\"deviationP99Ms\":%.3f,"
                "\"deviationMaxMs\":%.3f,\"firstPacketRealtimeNs\":%.0f",
                arrivals.size(), span > 0 ? double(arrivals.size() - 1) / span : 0,
                percentile(intervals, 0.5) * 1e3, percentile(deviations, 0.99) * 1e3,
                deviations.empty() ? 0
                                   : *std::max_element(deviations.begin(), deviations.end()) * 1e3,
                first > 0 ? first * 1e9 : -1.0);
    // Each universe's packets between the first and the last of the measured universe.
    std::printf(",\"universeRatesHz\":{");
    for (auto entry = arrivalsByUniverse.begin(); entry != arrivalsByUniverse.end(); ++entry) {
        const auto within =
            std::count_if(entry->second.begin(), entry->second.end(), [&](double t) {
                return span > 0 && t > arrivals.front() && t <= arrivals.back();
            });
        std::printf("%s\"%d\":%.3f", entry == arrivalsByUniverse.begin() ? "" : ",", entry->first,
                    span > 0 ? double(within) / span : 0);
    }
    std::printf("}}\n");
    if (listRises) {
        std::printf("rises");
        for (const double at : rises)
            std::printf(" %.0f", at * 1e9);
        std::printf("\n");
    }
    if (listArrivals) {
        std::printf("arrivals");
        for (const double at : monotonicArrivals)
            std::printf(" %.0f", at * 1e9);
        std::printf("\n");
    }
    return arrivals.empty() ? 1 : 0;
}
