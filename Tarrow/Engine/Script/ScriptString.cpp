#include "Engine/Script/ScriptString.h"

#include <algorithm>

namespace kelvo::script {

ScriptString::ScriptString(std::string_view utf8) {
    // JSStringCreateWithUTF8CString needs a terminated string; views rarely are.
    std::string terminated(utf8);
    ref_ = JSStringCreateWithUTF8CString(terminated.c_str());
}

ScriptString::~ScriptString() {
    if (ref_)
        JSStringRelease(ref_);
}

std::string ScriptString::toUtf8() const {
    return ref_ ? toUtf8(ref_) : std::string();
}

std::string ScriptString::toUtf8(JSStringRef string) {
    const size_t capacity =
        std::min(JSStringGetMaximumUTF8CStringSize(string), maximumUtf8Bytes + 1);
    std::string out(capacity, '\0');
    const size_t written = JSStringGetUTF8CString(string, out.data(), capacity);
    out.resize(written > 0 ? written - 1 : 0); // drop the terminator
    return out;
}

} // namespace kelvo::script
