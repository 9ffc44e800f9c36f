// Hostile request heads and fault specs at the development cloud's front door: reading them must
// never crash, and a head is only taken once it is complete.
#include "FaultInjector.h"
#include "FuzzTarget.h"
#include "RequestHead.h"

using namespace kelvo::devcloud;

KELVO_FUZZ_TARGET(input) {
    const QByteArray bytes(input.data(), qsizetype(input.size()));
    const auto head = parseRequestHead(bytes);
    require(head.has_value() == bytes.contains("\r\n\r\n"));
    require(!head || head->target.size() < bytes.size());

    const QString text = QString::fromUtf8(bytes);
    const auto fault = FaultInjector::parseSpec(text);
    if (const auto* parsed = std::get_if<Fault>(&fault))
        require(parsed->delayMs >= 0 &&
                (!parsed->status || (parsed->status >= 100 && parsed->status <= 599)));
    FaultInjector faults;
    (void)faults.addFromArgument(text);
    (void)faults.take(text);
}
