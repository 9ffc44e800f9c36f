#include "PairingRegistry.h"

#include <QRandomGenerator>

namespace kelvo::devcloud {

const char* statusText(PairingStatus status) {
    switch (status) {
    case PairingStatus::pending:
        return "pending";
    case PairingStatus::complete:
        return "complete";
    case PairingStatus::expired:
        return "expired";
    case PairingStatus::unknown:
        break;
    }
    return "unknown";
}

PairingRegistry::PairingRegistry(int ttlSeconds, Clock clock, CodeSource codes)
    : ttlSeconds_(ttlSeconds), clock_(std::move(clock)), codes_(std::move(codes)) {}

QDateTime PairingRegistry::defaultClock() {
    return QDateTime::currentDateTimeUtc();
}

QString PairingRegistry::randomCode() {
    static const QString alphabet = QStringLiteral("ABCDEFGHJKLMNPQRSTUVWXYZ23456789");
    QString code;
    for (int i = 0; i < 8; ++i) {
        if (i == 4)
            code += QLatin1Char('-');
        code += alphabet[int(QRandomGenerator::system()->bounded(quint32(alphabet.size())))];
    }
    return code;
}

PairingRegistry::Started PairingRegistry::start() {
    const QDateTime now = clock_();
    forgetOld(now);
    QString code = codes_();
    while (entries_.contains(code))
        code = codes_();
    const QDateTime expiresAt = now.addSecs(ttlSeconds_);
    entries_[code] = Entry{expiresAt, false, {}};
    return {code, expiresAt};
}

PairingRegistry::Answer PairingRegistry::status(const QString& code) {
    const QDateTime now = clock_();
    forgetOld(now);
    const auto entry = entries_.find(code);
    if (entry == entries_.end())
        return {};
    if (entry->second.denied || now >= entry->second.expiresAt)
        return {PairingStatus::expired, {}};
    if (!entry->second.deviceToken.isEmpty())
        return {PairingStatus::complete, entry->second.deviceToken};
    return {PairingStatus::pending, {}};
}

PairingRegistry::Entry* PairingRegistry::pending(const QString& code) {
    const QDateTime now = clock_();
    forgetOld(now);
    const auto entry = entries_.find(code);
    if (entry == entries_.end() || entry->second.denied || now >= entry->second.expiresAt ||
        !entry->second.deviceToken.isEmpty())
        return nullptr;
    return &entry->second;
}

bool PairingRegistry::approve(const QString& code, const QString& deviceToken) {
    Entry* entry = pending(code);
    if (!entry)
        return false;
    entry->deviceToken = deviceToken;
    return true;
}

bool PairingRegistry::deny(const QString& code) {
    Entry* entry = pending(code);
    if (!entry)
        return false;
    entry->denied = true;
    return true;
}

void PairingRegistry::forgetOld(const QDateTime& now) {
    std::erase_if(entries_, [&](const auto& entry) {
        return now >= entry.second.expiresAt.addSecs(ttlSeconds_);
    });
}

} // namespace kelvo::devcloud
