#include "Engine/Script/ScriptContext.h"

#include "Engine/Script/ScriptString.h"

#include <cstdio>

namespace kelvo::script {

ScriptContext::ScriptContext()
    : context_(JSGlobalContextCreate(nullptr)), handler_(&ScriptContext::printToStandardOutput) {}

ScriptContext::~ScriptContext() {
    JSGlobalContextRelease(context_);
}

void ScriptContext::printToStandardOutput(const std::string& text) {
    std::fputs(("JSC error: " + text + "\n").c_str(), stdout);
    std::fflush(stdout);
}

void ScriptContext::report(JSValueRef& exception) {
    if (!exception)
        return;
    const JSValueRef thrown = exception;
    exception = nullptr;
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
    const ScriptString script(source);
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
