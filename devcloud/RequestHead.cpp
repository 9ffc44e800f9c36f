#include "RequestHead.h"

#include <QList>

namespace kelvo::devcloud {

std::optional<RequestHead> parseRequestHead(const QByteArray& bytes) {
    const qsizetype end = bytes.indexOf("\r\n\r\n");
    if (end < 0)
        return std::nullopt;
    const QList<QByteArray> lines = bytes.left(end).split('\n');
    RequestHead head;
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    head.target = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0 &&
            lines[i].left(colon).trimmed().compare("upgrade", Qt::CaseInsensitive) == 0)
            head.websocketUpgrade =
                lines[i].mid(colon + 1).toLower().contains(QByteArrayLiteral("websocket"));
    }
    return head;
}

} // namespace kelvo::devcloud
