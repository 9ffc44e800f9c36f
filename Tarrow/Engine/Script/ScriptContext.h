#pragma once

#include "Engine/Script/ScriptValue.h"

#include <JavaScriptCore/JavaScript.h>

#include <functional>
#include <string>
#include <string_view>

namespace kelvo::script {

/// Owns one global script context. Exceptions thrown by script code never propagate: they go to
/// the handler, which by default prints "JSC error: " and the exception's text to stdout.
class ScriptContext {
public:
    using ExceptionHandler = std::function<void(const std::string& text)>;

    ScriptContext();
    ~ScriptContext();
    ScriptContext(const ScriptContext&) = delete;
    ScriptContext& operator=(const ScriptContext&) = delete;

    JSGlobalContextRef get() const { return context_; }
    Value global();

    /// Evaluates source text; the result, or an absent value when it threw.
    Value evaluate(std::string_view source);
    /// JSON text to a script value without evaluating code; absent when it does not parse.
    Value parseJSON(std::string_view json);

    Value number(double value);
    Value boolean(bool value);
    Value string(std::string_view utf8);
    Value null();
    Value newObject();

    void setExceptionHandler(ExceptionHandler handler) { handler_ = std::move(handler); }
    /// Reports a pending exception (if any) and clears it.
    void report(JSValueRef& exception);

    static void printToStandardOutput(const std::string& text);

private:
    JSGlobalContextRef context_ = nullptr;
    ExceptionHandler handler_;
};

} // namespace kelvo::script
