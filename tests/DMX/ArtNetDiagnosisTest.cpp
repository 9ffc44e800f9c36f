#include "DMX/ArtNetDiagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace kelvo {
namespace {

using H = ArtNetHealth;

ArtNetNode node(std::string ip, std::vector<std::int64_t> outputs,
                std::vector<std::int64_t> transmitting = {}) {
    ArtNetNode n;
    n.ip = std::move(ip);
    n.shortName = "Node " + n.ip;
    n.outputUniverses = std::move(outputs);
    n.transmittingUniverses = std::move(transmitting);
    return n;
}

// Starts with every fault present at once and removes them one at a time: each step shows
// that a rule wins over every rule after it, and the boundary of each threshold.
TEST(ArtNetDiagnosisClassify, RulesApplyInTheirOrder) {
    ArtNetHealthInputs in;
    in.artnetEnabled = false;
    in.artnetHost = "10.0.0.5";
    in.idleChecks = 2;
    in.transport = {.isReady = false,
                    .stateDescription = "waiting",
                    .packetsSent = 61,
                    .lastError = "Network is unreachable"};
    in.discovery.failureReason = "Art-Net discovery socket unavailable: x";
    in.discovery.pollCycles = 3;
    const ArtNetNode other = node("10.0.0.9", {0, 1});
    const ArtNetNode narrow = node("10.0.0.5", {0});
    const ArtNetNode wide = node("10.0.0.5", {0, 1, 2}, {0});

    struct Step {
        std::function<void(ArtNetHealthInputs&)> change;
        ArtNetHealth expected;
    };
    const Step steps[] = {
        {[](auto&) {}, {H::Disabled{}}},
        {[](auto& i) { i.artnetEnabled = true; }, {H::NoUniversesMapped{}}},
        {[](auto& i) {
             i.mappedUniverses = {0, 1};
         },
         {H::NoDmxGenerated{{0, 1}}}},
        {[](auto& i) { i.idleChecks = 1; },
         {H::TransportStalled{"waiting", "Network is unreachable"}}},
        {[](auto& i) { i.transport.packetsSent = 60; },
         {H::DiscoveryUnavailable{"Art-Net discovery socket unavailable: x"}}},
        {[](auto& i) {
             i.transport.packetsSent = 6000;
             i.transport.isReady = true;
         },
         {H::DiscoveryUnavailable{"Art-Net discovery socket unavailable: x"}}},
        {[](auto& i) { i.discovery.failureReason.reset(); }, {H::DiscoveryBlocked{}}},
        {[](auto& i) { i.discovery.pollCycles = 2; }, {H::Searching{"10.0.0.5"}}},
        {[&](auto& i) { i.discovery.nodes = ArtNetNodeList({other}); },
         {H::HostSilent{"10.0.0.5", ArtNetNodeList({other})}}},
        {[&](auto& i) {
             i.discovery.pollCycles = 30;
             i.discovery.nodes = ArtNetNodeList({narrow, other});
         },
         {H::DiscoveryBlocked{}}},
        {[](auto& i) { i.discovery.heardAnyTraffic = true; },
         {H::UniverseMismatch{narrow, {0, 1}}}},
        // The first node at the host decides, even when a later one would fit.
        {[&](auto& i) {
             i.discovery.nodes = ArtNetNodeList({narrow, wide});
         },
         {H::UniverseMismatch{narrow, {0, 1}}}},
        {[&](auto& i) {
             i.discovery.nodes = ArtNetNodeList({wide, other});
             i.unconfirmedChecks = 6;
         },
         {H::NodeNotOutputting{wide, {0, 1}}}},
        {[](auto& i) { i.unconfirmedChecks = 5; }, {H::Streaming{wide, {0, 1}}}},
        // Duplicated routes send the same universe twice; the node still drives it.
        {[](auto& i) {
             i.mappedUniverses = {2, 2};
         },
         {H::Streaming{wide, {2, 2}}}},
    };
    int index = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(index++);
        step.change(in);
        const ArtNetHealth health = ArtNetDiagnosis::classify(in);
        EXPECT_EQ(health, step.expected) << health.caseName() << ": " << health.detail();
    }
}

TEST(ArtNetDiagnosisClassify, NodeConfirmsOutputOnlyWithEveryMappedUniverseTransmitting) {
    const ArtNetNodeList nodes({node("10.0.0.5", {0, 1, 2}, {0, 1}),
                                node("10.0.0.5", {0}, {0, 1, 2}), node("10.0.0.6", {0}, {})});
    struct Case {
        std::string host;
        std::vector<std::int64_t> mapped;
        bool confirms;
    };
    const Case cases[] = {
        {"10.0.0.5", {0, 1}, true},  {"10.0.0.5", {1, 0, 1}, true},
        {"10.0.0.5", {0, 2}, false}, // the first node at the host decides
        {"10.0.0.6", {0}, false},    // listed as an output, but not transmitting
        {"10.0.0.6", {}, true},      {"10.0.0.7", {}, false},
        {"10.0.0.50", {0}, false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ArtNetDiagnosis::nodeConfirmsOutput(c.host, c.mapped, nodes), c.confirms)
            << c.host << " " << testing::PrintToString(c.mapped);
}

TEST(ArtNetDiagnosisFix, OnlyAnUnambiguousRepairIsOffered) {
    using Fix = ArtNetAutoFix;
    const ArtNetNode a = node("10.0.0.9", {4, 5, 6});
    const ArtNetNode b = node("10.0.0.10", {4});
    struct Case {
        ArtNetHealth health;
        std::optional<Fix> fix;
    };
    const Case cases[] = {
        {{H::HostSilent{"10.0.0.5", ArtNetNodeList({a})}}, Fix{Fix::AdoptHost{"10.0.0.9"}}},
        {{H::HostSilent{"10.0.0.5", ArtNetNodeList({a, b})}}, std::nullopt},
        {{H::UniverseMismatch{a, {0, 1}}}, Fix{Fix::RemapUniverses{{4, 5}}}},
        {{H::UniverseMismatch{a, {0, 1, 2}}}, Fix{Fix::RemapUniverses{{4, 5, 6}}}},
        {{H::UniverseMismatch{b, {0, 1}}}, std::nullopt},
        {{H::Searching{"10.0.0.5"}}, std::nullopt},
        {{H::NodeNotOutputting{a, {4}}}, std::nullopt},
        {{H::Streaming{a, {4}}}, std::nullopt},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ArtNetDiagnosis::autoFix(c.health), c.fix) << c.health.caseName();
}

} // namespace
} // namespace kelvo
