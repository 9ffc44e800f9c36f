// Hostile request heads and fault specs at the development cloud's front door: reading them must
// never crash, and a head is only taken once it is complete.
#include "FaultInjector.h"
#include "RequestHead.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto head = kelvo::devcloud::parseRequestHead(bytes);
    if (head.has_value() != bytes.contains("\r\n\r\n"))
        std::abort();
    if (head && head->target.size() >= bytes.size())
        std::abort();

    const auto fault = kelvo::devcloud::FaultInjector::parseSpec(QString::fromUtf8(bytes));
    if (const auto* parsed = std::get_if<kelvo::devcloud::Fault>(&fault))
        if (parsed->delayMs < 0 ||
            (parsed->status && (parsed->status < 100 || parsed->status > 599)))
            std::abort();
    kelvo::devcloud::FaultInjector faults;
    (void)faults.addFromArgument(QString::fromUtf8(bytes));
    (void)faults.take(QString::fromUtf8(bytes));
    return 0;
}
