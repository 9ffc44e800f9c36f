#include "Engine/BundledHarness.h"

#include <QFile>

namespace kelvo {

const std::string& bundledHarnessScript() {
    static const std::string script = [] {
        QFile file(QStringLiteral(":/kelvo/harness/engine.js"));
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string();
    }();
    return script;
}

} // namespace kelvo
