#pragma once

#include <QString>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <optional>
#include <variant>
#include <vector>

namespace kelvo::devcloud {

/// What to do to a request instead of (or before) answering it normally.
struct Fault {
    int delayMs = 0;
    /// Close the connection without an answer (after the delay).
    bool drop = false;
    /// Answer with this status instead of the real answer; 0 for the real one.
    int status = 0;
    /// Requests still affected; -1 for every request.
    int remaining = -1;

    bool operator==(const Fault&) const = default;
};

/// Faults that tests set per path: on the command line ("PATH:SPEC") or through the admin API.
/// A path is matched without its leading "/"; "api/shows/*" matches by prefix and "*" matches
/// every path. The most recently set matching rule wins.
class FaultInjector {
public:
    /// "delay=MS", "drop", "status=CODE", "times=N", comma-separated.
    static std::variant<Fault, QString> parseSpec(const QString& spec);
    /// "PATH:SPEC" from the command line; the error text on failure.
    std::optional<QString> addFromArgument(const QString& argument);

    void set(const QString& pattern, const Fault& fault);
    void clear();

    /// The fault for a request to `path`, counting it against the rule's `remaining`.
    std::optional<Fault> take(const QString& path);

    nlohmann::ordered_json describe() const;

private:
    struct Rule {
        QString pattern;
        Fault fault;
    };
    std::vector<Rule> rules_;
};

/// `path` without its leading slashes.
QString normalisedPath(const QString& path);

} // namespace kelvo::devcloud
