#pragma once

#include <QDir>
#include <QTemporaryDir>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace kelvo::test {

/// A fresh directory under $TMPDIR (or /tmp), removed with everything in it.
class TemporaryDirectory {
public:
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    QTemporaryDir dir_{QDir::tempPath() + QStringLiteral("/kelvo-test-XXXXXX")};
    std::filesystem::path path_ =
        dir_.isValid() ? dir_.path().toStdString()
                       : throw std::runtime_error("cannot create a temporary directory");
};

} // namespace kelvo::test
