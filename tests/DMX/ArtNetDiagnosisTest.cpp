#include "DMX/ArtNetDiagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace kelvo {
namespace {

using H = ArtNetHealth;
using Fix = ArtNetAutoFix;
using Inputs = ArtNetHealthInputs;

ArtNetNode node(std::string ip, std::vector<std::int64_t> outputs,
                std::vector<std::int64_t> transmitting = {}) {
    ArtNetNode n;
    n.ip = ip;
    n.shortName = "Node " + ip;
    n.outputUniverses = std::move(outputs);
    n.transmittingUniverses = std::move(transmitting);
    return n;
}
const ArtNetNode other = node("10.0.0.9", {0, 1}), narrow = node("10.0.0.5", {0}),
                 wide = node("10.0.0.5", {0, 1, 2}, {0});

// Starts with every fault present at once and removes them one at a time: each step shows
// that a rule wins over every rule after it, and the boundary of each threshold.
TEST(ArtNetDiagnosisClassify, RulesApplyInTheirOrder) {
    Inputs in;
    in.artnetEnabled = false;
    in.artnetHost = "10.0.0.5";
    in.idleChecks = 2;
    in.transport = {.isReady = false,
                    .stateDescription = "waiting",
                    .packetsSent = 61,
                    .lastError = "Network is unreachable"};
    in.discovery.failureReason = "Art-Net discovery socket unavailable: x";
    in.discovery.pollCycles = 3;
    const std::pair<std::function<void(Inputs&)>, H> steps[] = {
        {[](Inputs&) {}, {H::Disabled{}}},
        {[](Inputs& i) { i.artnetEnabled = true; }, {H::NoUniversesMapped{}}},
        {[](Inputs& i) {
             i.mappedUniverses = {0, 1};
         },
         {H::NoDmxGenerated{{0, 1}}}},
        {[](Inputs& i) { i.idleChecks = 1; },
         {H::TransportStalled{"waiting", "Network is unreachable"}}},
        {[](Inputs& i) { i.transport.packetsSent = 60; },
         {H::DiscoveryUnavailable{"Art-Net discovery socket unavailable: x"}}},
        {[](Inputs& i) { i.transport.packetsSent = 6000, i.transport.isReady = true; },
         {H::DiscoveryUnavailable{"Art-Net discovery socket unavailable: x"}}},
        {[](Inputs& i) { i.discovery.failureReason.reset(); }, {H::DiscoveryBlocked{}}},
        {[](Inputs& i) { i.discovery.pollCycles = 2; }, {H::Searching{"10.0.0.5"}}},
        {[](Inputs& i) { i.discovery.nodes = ArtNetNodeList({other}); },
         {H::HostSilent{"10.0.0.5", ArtNetNodeList({other})}}},
        {[](Inputs& i) {
             i.discovery.pollCycles = 30, i.discovery.nodes = ArtNetNodeList({narrow, other});
         },
         {H::DiscoveryBlocked{}}},
        {[](Inputs& i) { i.discovery.heardAnyTraffic = true; },
         {H::UniverseMismatch{narrow, {0, 1}}}},
        // The first node at the host decides, even when a later one would fit.
        {[](Inputs& i) {
             i.discovery.nodes = ArtNetNodeList({narrow, wide});
         },
         {H::UniverseMismatch{narrow, {0, 1}}}},
        {[](Inputs& i) {
             i.discovery.nodes = ArtNetNodeList({wide, other}), i.unconfirmedChecks = 6;
         },
         {H::NodeNotOutputting{wide, {0, 1}}}},
        {[](Inputs& i) { i.unconfirmedChecks = 5; }, {H::Streaming{wide, {0, 1}}}},
        // Duplicated routes send the same universe twice; the node still drives it.
        {[](Inputs& i) {
             i.mappedUniverses = {2, 2};
         },
         {H::Streaming{wide, {2, 2}}}},
    };
    for (std::size_t step = 0; step < std::size(steps); ++step) {
        SCOPED_TRACE(step);
        steps[step].first(in);
        const ArtNetHealth health = ArtNetDiagnosis::classify(in);
        EXPECT_EQ(health, steps[step].second) << health.caseName() << ": " << health.detail();
    }
}

TEST(ArtNetDiagnosisClassify, NodeConfirmsOutputOnlyWithEveryMappedUniverseTransmitting) {
    const ArtNetNodeList nodes({node("10.0.0.5", {0, 1, 2}, {0, 1}),
                                node("10.0.0.5", {0}, {0, 1, 2}), node("10.0.0.6", {0}, {})});
    const std::tuple<std::string, std::vector<std::int64_t>, bool> cases[] = {
        {"10.0.0.5", {0, 1}, true},  {"10.0.0.5", {1, 0, 1}, true},
        {"10.0.0.5", {0, 2}, false}, // the first node at the host decides
        {"10.0.0.6", {0}, false},    // listed as an output, but not transmitting
        {"10.0.0.6", {}, true},      {"10.0.0.7", {}, false},
        {"10.0.0.50", {0}, false},
    };
    for (const auto& [host, mapped, confirms] : cases)
        EXPECT_EQ(ArtNetDiagnosis::nodeConfirmsOutput(host, mapped, nodes), confirms)
            << host << " " << testing::PrintToString(mapped);
}

TEST(ArtNetDiagnosisFix, OnlyAnUnambiguousRepairIsOffered) {
    const ArtNetNode a = node("10.0.0.9", {4, 5, 6}), b = node("10.0.0.10", {4});
    const std::pair<H, std::optional<Fix>> cases[] = {
        {{H::HostSilent{"10.0.0.5", ArtNetNodeList({a})}}, Fix{Fix::AdoptHost{"10.0.0.9"}}},
        {{H::HostSilent{"10.0.0.5", ArtNetNodeList({a, b})}}, std::nullopt},
        {{H::UniverseMismatch{a, {0, 1}}}, Fix{Fix::RemapUniverses{{4, 5}}}},
        {{H::UniverseMismatch{a, {0, 1, 2}}}, Fix{Fix::RemapUniverses{{4, 5, 6}}}},
        {{H::UniverseMismatch{b, {0, 1}}}, std::nullopt},
        {{H::Searching{"10.0.0.5"}}, std::nullopt},
        {{H::NodeNotOutputting{a, {4}}}, std::nullopt},
        {{H::Streaming{a, {4}}}, std::nullopt},
    };
    for (const auto& [health, fix] : cases)
        EXPECT_EQ(ArtNetDiagnosis::autoFix(health), fix) << health.caseName();
}

} // namespace
} // namespace kelvo
