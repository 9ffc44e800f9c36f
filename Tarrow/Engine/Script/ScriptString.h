#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <string>
#include <string_view>

namespace kelvo::script {

/// Owning JSStringRef. Strings are independent of any context, so property names are made once.
class ScriptString {
public:
    explicit ScriptString(std::string_view utf8);
    explicit ScriptString(JSStringRef adopted) : ref_(adopted) {}
    ~ScriptString();
    ScriptString(const ScriptString&) = delete;
    ScriptString& operator=(const ScriptString&) = delete;
    ScriptString(ScriptString&& other) noexcept : ref_(other.ref_) { other.ref_ = nullptr; }

    /// The most bytes a string from the script is copied out with. A script builds a string of
    /// a billion characters in an instant, and copying that whole would take gigabytes; longer
    /// text is cut (as JSON it then fails to parse, as an error message it still reads).
    static constexpr std::size_t maximumUtf8Bytes = 16 * 1024 * 1024;

    JSStringRef get() const { return ref_; }
    std::string toUtf8() const;

    static std::string toUtf8(JSStringRef string);

private:
    JSStringRef ref_ = nullptr;
};

} // namespace kelvo::script
