#include "Engine/Script/ScriptContext.h"

#include "Engine/Script/ExecutionTimeLimit.h"
#include "Engine/Script/RepeatedLineLimiter.h"
#include "Engine/Script/ScriptString.h"

#include <jsc/jsc.h>

#include <cstdio>
#include <mutex>

namespace kelvo::script {

namespace {

// JavaScriptCore stops optimised code that overruns its time limit by signalling the thread,
// and that was seen to deadlock: the signal sender waiting for a thread that spins on. With
// polling traps the compiled loops check for themselves and every timeout lands. Options must
// be set before the first context exists.
JSGlobalContextRef createContext() {
    static const bool pollingTraps = jsc_options_set_boolean("usePollingTraps", TRUE);
    if (!pollingTraps)
        std::fputs("JavaScriptCore has no polling traps: a hanging script may not be stopped\n",
                   stderr);
    return JSGlobalContextCreate(nullptr);
}

} // namespace

ScriptContext::ScriptContext()
    : context_(createContext()), handler_(&ScriptContext::printToStandardOutput) {}

ScriptContext::~ScriptContext() {
    // The group may outlive this object while the collector holds it.
    JSContextGroupClearExecutionTimeLimit(JSContextGetGroup(context_));
    JSGlobalContextRelease(context_);
}

void ScriptContext::printToStandardOutput(const std::string& text) {
    static std::mutex mutex;
    static RepeatedLineLimiter limiter;
    const std::lock_guard lock(mutex);
    const auto line =
        limiter.admit("JSC error: " + text, std::chrono::steady_clock::now().time_since_epoch());
    if (!line)
        return;
    std::fputs((*line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

void ScriptContext::setTimeLimit(std::chrono::microseconds limit) {
    JSContextGroupSetExecutionTimeLimit(JSContextGetGroup(context_),
                                        std::chrono::duration<double>(limit).count(),
                                        &ScriptContext::stopRunningScript, this);
}

// Runs inside the script engine, on this thread: only marks the context.
bool ScriptContext::stopRunningScript(JSContextRef, void* self) {
    auto* context = static_cast<ScriptContext*>(self);
    context->stopping_ = true;
    context->suspended_ = true;
    return true;
}

void ScriptContext::report(JSValueRef& exception) {
    if (!exception)
        return;
    const JSValueRef thrown = exception;
    exception = nullptr;
    if (stopping_) {
        stopping_ = false;
        if (timeoutHandler_)
            timeoutHandler_();
        return;
    }
    ++exceptionCount_;
    std::string text = "(unprintable exception)";
    JSValueRef nested = nullptr;
    if (JSStringRef string = JSValueToStringCopy(context_, thrown, &nested)) {
        text = ScriptString(string).toUtf8();
    }
    if (handler_)
        handler_(text);
}

Value ScriptContext::global() {
    return Value(*this, JSContextGetGlobalObject(context_));
}

Value ScriptContext::evaluate(std::string_view source) {
    if (suspended_)
        return {};
    return evaluate(ScriptString(source));
}

Value ScriptContext::evaluate(const ScriptString& script) {
    if (suspended_)
        return {};
    JSValueRef exception = nullptr;
    const JSValueRef result =
        JSEvaluateScript(context_, script.get(), nullptr, nullptr, 1, &exception);
    if (exception) {
        report(exception);
        return {};
    }
    return Value(*this, result);
}

Value ScriptContext::parseJSON(std::string_view json) {
    const ScriptString text(json);
    const JSValueRef result = JSValueMakeFromJSONString(context_, text.get());
    return result ? Value(*this, result) : Value();
}

Value ScriptContext::number(double value) {
    return Value(*this, JSValueMakeNumber(context_, value));
}

Value ScriptContext::boolean(bool value) {
    return Value(*this, JSValueMakeBoolean(context_, value));
}

Value ScriptContext::string(std::string_view utf8) {
    const ScriptString text(utf8);
    return Value(*this, JSValueMakeString(context_, text.get()));
}

Value ScriptContext::null() {
    return Value(*this, JSValueMakeNull(context_));
}

Value ScriptContext::newObject() {
    return Value(*this, JSObjectMake(context_, nullptr, nullptr));
}

} // namespace kelvo::script
