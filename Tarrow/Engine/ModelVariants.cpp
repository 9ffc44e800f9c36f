#include "Engine/ModelVariants.h"

#include <QByteArray>
#include <QString>

namespace kelvo::model_variants {

namespace {

QVariantList doubles(const std::vector<double>& values) {
    QVariantList list;
    list.reserve(qsizetype(values.size()));
    for (const double value : values)
        list.append(value);
    return list;
}

} // namespace

QVariant fromJson(const nlohmann::json& value) {
    switch (value.type()) {
    case nlohmann::json::value_t::boolean:
        return value.get<bool>();
    case nlohmann::json::value_t::number_integer:
        return qlonglong(value.get<std::int64_t>());
    case nlohmann::json::value_t::number_unsigned:
        return qulonglong(value.get<std::uint64_t>());
    case nlohmann::json::value_t::number_float:
        return value.get<double>();
    case nlohmann::json::value_t::string:
        return QString::fromStdString(value.get_ref<const std::string&>());
    case nlohmann::json::value_t::array: {
        QVariantList list;
        list.reserve(qsizetype(value.size()));
        for (const nlohmann::json& element : value)
            list.append(fromJson(element));
        return list;
    }
    case nlohmann::json::value_t::object: {
        QVariantMap map;
        for (const auto& [key, element] : value.items())
            map.insert(QString::fromStdString(key), fromJson(element));
        return map;
    }
    default:
        return {};
    }
}

QVariantMap micTrace(const MicBandTrace& trace) {
    return {
        {"low", doubles(trace.low)}, {"mid", doubles(trace.mid)}, {"high", doubles(trace.high)}};
}

QVariantMap beatReadout(const BeatReadout& beat) {
    return {{"bpm", beat.bpm},
            {"beatCount", beat.beatCount},
            {"beat", beat.beat},
            {"confidence", beat.confidence},
            {"drop", beat.drop}};
}

QVariantList lightingPlot(const LightingPlot& plot) {
    QVariantList lamps;
    for (const PlotLamp& lamp : plot.lamps)
        lamps.append(QVariantMap{{"x", lamp.x},
                                 {"y", lamp.y},
                                 {"red", lamp.red},
                                 {"green", lamp.green},
                                 {"blue", lamp.blue},
                                 {"dimmer", lamp.dimmer},
                                 {"strobe", lamp.strobe}});
    return lamps;
}

QVariantList palette(const std::vector<ThemePaletteColor>& colors) {
    QVariantList list;
    for (const ThemePaletteColor& color : colors)
        list.append(QVariantMap{{"r", color.r}, {"g", color.g}, {"b", color.b}});
    return list;
}

QVariantMap dmxFrame(const DmxFrame& frame) {
    QVariantMap map;
    for (const auto& [universe, bytes] : frame)
        map.insert(
            QString::number(universe),
            QByteArray(reinterpret_cast<const char*>(bytes.data()), qsizetype(bytes.size())));
    return map;
}

QVariantList routes(const std::vector<UniverseRoute>& routes) {
    QVariantList list;
    for (const UniverseRoute& route : routes) {
        QVariantMap entry{{"virtualUniverse", qlonglong(route.virtualUniverse)}};
        switch (route.destination.kind) {
        case UniverseRoute::Destination::Kind::artnet:
            entry.insert("destination", "artnet");
            entry.insert("artnetUniverse", qlonglong(route.destination.universe));
            break;
        case UniverseRoute::Destination::Kind::enttec:
            entry.insert("destination", "enttec");
            break;
        case UniverseRoute::Destination::Kind::unmapped:
            entry.insert("destination", "unmapped");
            break;
        }
        list.append(entry);
    }
    return list;
}

QVariantMap dropDiagnostics(const DropDiagnostics& d) {
    QVariantList recent;
    for (const std::string& event : d.recentEvents)
        recent.append(QString::fromStdString(event));
    QVariantList events;
    for (const DropDetectedEvent& event : d.events)
        events.append(viaJson(event));
    return {{"status", QString::fromStdString(d.status)},
            {"architecture", QString::fromStdString(d.architecture)},
            {"sampleRate", d.sampleRate},
            {"audioSeconds", d.audioSeconds},
            {"processingSeconds", d.processingSeconds},
            {"delaySeconds", d.delaySeconds},
            {"maxDelaySeconds", d.maxDelaySeconds},
            {"backlogSeconds", d.backlogSeconds},
            {"discardedBlocks", d.discardedBlocks},
            {"eventCount", d.eventCount},
            {"recentEvents", recent},
            {"events", events},
            {"error", d.error ? QVariant(QString::fromStdString(*d.error)) : QVariant()}};
}

} // namespace kelvo::model_variants
