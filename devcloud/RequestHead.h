#pragma once

#include <QByteArray>

#include <optional>

namespace kelvo::devcloud {

/// What the front door needs from a request head: its target and whether it asks for a
/// web socket.
struct RequestHead {
    QByteArray target;
    bool websocketUpgrade = false;
};

/// The head at the start of `bytes`; nothing until it is complete (ends in an empty line).
std::optional<RequestHead> parseRequestHead(const QByteArray& bytes);

} // namespace kelvo::devcloud
