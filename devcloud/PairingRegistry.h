#pragma once

#include <QDateTime>
#include <QString>

#include <functional>
#include <map>
#include <optional>

namespace kelvo::devcloud {

/// The answer to a bridge polling its pairing code. A denied code answers "expired": a bridge
/// keeps polling on any status it does not know, so a refusal must be one that ends its wait.
enum class PairingStatus { pending, complete, expired, unknown };

const char* statusText(PairingStatus status);

/// Pairing codes waiting for approval in the browser. Codes live `ttlSeconds`; an expired or
/// denied code answers "expired" for another `ttlSeconds` and is then forgotten ("unknown").
class PairingRegistry {
public:
    using Clock = std::function<QDateTime()>;
    using CodeSource = std::function<QString()>;

    PairingRegistry(int ttlSeconds, Clock clock = defaultClock, CodeSource codes = randomCode);

    struct Started {
        QString code;
        QDateTime expiresAt;
    };
    Started start();

    struct Answer {
        PairingStatus status = PairingStatus::unknown;
        QString deviceToken;
    };
    Answer status(const QString& code);

    /// Completes a pending code with the token; false when the code is not pending.
    bool approve(const QString& code, const QString& deviceToken);
    /// Refuses a pending code; false when the code is not pending.
    bool deny(const QString& code);

    static QDateTime defaultClock();
    /// Eight characters of an alphabet without look-alikes, as "XXXX-XXXX".
    static QString randomCode();

private:
    struct Entry {
        QDateTime expiresAt;
        bool denied = false;
        QString deviceToken;
    };
    void forgetOld(const QDateTime& now);
    Entry* pending(const QString& code);

    int ttlSeconds_;
    Clock clock_;
    CodeSource codes_;
    std::map<QString, Entry> entries_;
};

} // namespace kelvo::devcloud
