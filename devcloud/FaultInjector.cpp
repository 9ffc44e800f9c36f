#include "FaultInjector.h"

#include <algorithm>

namespace kelvo::devcloud {

namespace {

bool matches(const QString& pattern, const QString& path) {
    if (pattern.endsWith(QLatin1Char('*')))
        return path.startsWith(pattern.chopped(1));
    return pattern == path;
}

std::optional<int> number(const QString& text, int minimum, int maximum) {
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < minimum || value > maximum)
        return std::nullopt;
    return value;
}

} // namespace

QString normalisedPath(const QString& path) {
    qsizetype start = 0;
    while (start < path.size() && path[start] == QLatin1Char('/'))
        ++start;
    return path.mid(start);
}

std::variant<Fault, QString> FaultInjector::parseSpec(const QString& spec) {
    Fault fault;
    bool any = false;
    for (const QString& item : spec.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString key = item.section(QLatin1Char('='), 0, 0).trimmed();
        const QString value = item.section(QLatin1Char('='), 1).trimmed();
        std::optional<int> parsed;
        if (key == QLatin1String("drop") && value.isEmpty()) {
            fault.drop = true;
        } else if (key == QLatin1String("delay") && (parsed = number(value, 0, 600'000))) {
            fault.delayMs = *parsed;
        } else if (key == QLatin1String("status") && (parsed = number(value, 100, 599))) {
            fault.status = *parsed;
        } else if (key == QLatin1String("times") && (parsed = number(value, 1, 1'000'000))) {
            fault.remaining = *parsed;
        } else {
            return QStringLiteral("bad fault \"%1\": use delay=MS, drop, status=CODE (100-599) "
                                  "and times=N, separated by commas")
                .arg(item);
        }
        any = any || key != QLatin1String("times");
    }
    if (!any)
        return QStringLiteral("a fault needs delay=MS, drop or status=CODE");
    return fault;
}

std::optional<QString> FaultInjector::addFromArgument(const QString& argument) {
    const qsizetype colon = argument.indexOf(QLatin1Char(':'));
    if (colon <= 0)
        return QStringLiteral("--fault needs PATH:SPEC, for example api/config:status=503");
    const auto parsed = parseSpec(argument.mid(colon + 1));
    if (const auto* error = std::get_if<QString>(&parsed))
        return *error;
    set(argument.left(colon), std::get<Fault>(parsed));
    return std::nullopt;
}

void FaultInjector::set(const QString& pattern, const Fault& fault) {
    const QString normalised = normalisedPath(pattern);
    std::erase_if(rules_, [&](const Rule& rule) { return rule.pattern == normalised; });
    rules_.push_back({normalised, fault});
}

void FaultInjector::clear() {
    rules_.clear();
}

std::optional<Fault> FaultInjector::take(const QString& path) {
    const QString normalised = normalisedPath(path);
    const auto rule = std::find_if(rules_.rbegin(), rules_.rend(), [&](const Rule& candidate) {
        return matches(candidate.pattern, normalised);
    });
    if (rule == rules_.rend())
        return std::nullopt;
    const Fault fault = rule->fault;
    if (rule->fault.remaining > 0 && --rule->fault.remaining == 0)
        rules_.erase(std::next(rule).base());
    return fault;
}

nlohmann::ordered_json FaultInjector::describe() const {
    auto list = nlohmann::ordered_json::array();
    for (const Rule& rule : rules_) {
        nlohmann::ordered_json entry{{"path", rule.pattern.toStdString()},
                                     {"delay_ms", rule.fault.delayMs},
                                     {"drop", rule.fault.drop},
                                     {"status", rule.fault.status}};
        if (rule.fault.remaining > 0)
            entry["times"] = rule.fault.remaining;
        list.push_back(entry);
    }
    return list;
}

} // namespace kelvo::devcloud
