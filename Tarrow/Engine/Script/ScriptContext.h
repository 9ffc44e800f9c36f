#pragma once

#include "Engine/Script/ScriptString.h"
#include "Engine/Script/ScriptValue.h"

#include <JavaScriptCore/JavaScript.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace kelvo::script {

/// Owns one global script context. Exceptions thrown by script code never propagate: they go to
/// the handler, which by default prints "JSC error: " and the exception's text to stdout.
///
/// Every entry into the script can be bounded in time. A call that runs out is stopped, and the
/// context is then suspended: every further call is skipped and yields absent until `resume()`,
/// so one hanging script costs one time limit, not one per call.
class ScriptContext {
public:
    using ExceptionHandler = std::function<void(const std::string& text)>;
    using TimeoutHandler = std::function<void()>;

    ScriptContext();
    ~ScriptContext();
    ScriptContext(const ScriptContext&) = delete;
    ScriptContext& operator=(const ScriptContext&) = delete;

    JSGlobalContextRef get() const { return context_; }
    Value global();

    /// Evaluates source text; the result, or an absent value when it threw.
    Value evaluate(std::string_view source);
    Value evaluate(const ScriptString& source);
    /// JSON text to a script value without evaluating code; absent when it does not parse.
    Value parseJSON(std::string_view json);

    Value number(double value);
    Value boolean(bool value);
    Value string(std::string_view utf8);
    Value null();
    Value newObject();

    /// The previous handler.
    ExceptionHandler setExceptionHandler(ExceptionHandler handler) {
        return std::exchange(handler_, std::move(handler));
    }
    /// Reports a pending exception (if any) and clears it. The exception that stops a call
    /// for running out of time goes to the timeout handler instead.
    void report(JSValueRef& exception);
    /// Exceptions reported so far, timeouts not counted.
    std::uint64_t exceptionCount() const { return exceptionCount_; }

    /// Bounds each later entry into the script to `limit` of this thread's CPU time.
    void setTimeLimit(std::chrono::microseconds limit);
    /// Called after a call was stopped for running out of time, once it has returned.
    void setTimeoutHandler(TimeoutHandler handler) { timeoutHandler_ = std::move(handler); }
    bool isSuspended() const { return suspended_; }
    void resume() { suspended_ = false; }

    /// "JSC error: " and the text on stdout; a line repeated within seconds is held back.
    static void printToStandardOutput(const std::string& text);

private:
    static bool stopRunningScript(JSContextRef, void* self);

    JSGlobalContextRef context_ = nullptr;
    ExceptionHandler handler_;
    TimeoutHandler timeoutHandler_;
    std::uint64_t exceptionCount_ = 0;
    bool stopping_ = false;
    bool suspended_ = false;
};

} // namespace kelvo::script
